#include "notificator.h"

#include <QMessageBox>
#include <QSystemTrayIcon>
#include <QWidget>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/winmenubaricon.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("notificator");
}

Notificator::Notificator(const QString& programName, const QString& json, QSystemTrayIcon* trayIcon, QObject* parent)
    : QObject(parent)
    , mParent(parent)
    , mProgramName(programName)
    , mMode(Unavailable)
    , mTrayIcon(trayIcon)
    , mJson(json)
{
    if (mTrayIcon && QSystemTrayIcon::supportsMessages())
        mMode = SystemTray;
}

void Notificator::notify(Notificator::Class cls, QString json, QString title, QString text, QIcon /*icon*/,
    bool launchOnClick, bool showReplyButton, QString contactImage, int millisTimeout)
{
    Logger::Info(logModule, QStringLiteral("[notify] mode=") + QString::number(mMode) + QStringLiteral(", class=")
            + QString::number(cls) + QStringLiteral(", launchOnClick=") + QVariant(launchOnClick).toString()
            + QStringLiteral(", showReplyButton=") + QVariant(showReplyButton).toString()
            + QStringLiteral(", contactImage=") + contactImage);
    // Qt's balloon has no picture and no button; a desktop notification service may offer both.
    if (mMode == SystemTray) {
        notifySystray(json, title, text, millisTimeout, showReplyButton, contactImage);
        return;
    }
    if (cls == Critical)
        QMessageBox::critical(qobject_cast<QWidget*>(mParent), title, text, QMessageBox::Ok, QMessageBox::Ok);
    // Anything less than critical without a tray is dropped.
}

void Notificator::notifySystray(const QString& json, const QString& title, const QString& text, int millisTimeout,
    bool showReplyButton, const QString& contactImage)
{
    WinMenuBarIcon::getInstance(nullptr)->showMessage(
        title, text, QSystemTrayIcon::NoIcon, millisTimeout, json, showReplyButton, contactImage);
    if (IndexWindow* indexWindow = indexWindowHolder::get()) {
        indexWindow->playNotificationSound();
        // Only the latest balloon's payload waits for a click.
        indexWindow->setJsonForWindows(json);
    }
}

void Notificator::windowsSystemTrayIconClicked()
{
    Logger::Info(logModule, QStringLiteral("[windowsSystemTrayIconClicked] called"));
}
