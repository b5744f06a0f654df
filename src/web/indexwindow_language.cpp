// IndexWindow: the display language. The page offers the languages and calls back here with the choice.
#include "indexwindow.h"

#include <QLocale>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
}

void IndexWindow::changeLanguageCode(QString languageCode)
{
    Logger::Debug(logModule, QStringLiteral("[changeLanguageCode] - languageCode=") + languageCode);
    // Unlike start-up, a missing choice reads as the system's locale here; it only reaches a log line.
    const QString systemLocale = QLocale::system().name();
    const QString currentLanguageCode = getSetting(QStringLiteral("language-code"), systemLocale);
    if (MainWindow* mainWindow = mainWindowHolder::get())
        mainWindow->changeLanguageCode(currentLanguageCode, languageCode);
    // Stored as given, known or not: a code without a catalogue shows English now and at the next start.
    setSetting(QStringLiteral("language-code"), languageCode);
    logGoogleAnalyticsEvent(
        QStringLiteral("qt-app-to-os-language-code-values"), languageCode + QLatin1Char('-') + systemLocale);
    WinMenuBarIcon::getInstance(nullptr)->translationChanged();
}
