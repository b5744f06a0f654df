#include <QtTest>

#include <QAction>
#include <QGraphicsWebView>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QWebFrame>
#include <QWebPage>

#include <memory>

#include <unistd.h>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "resourceinit.h"
#include "testenvironment.h"
#include "web/indexwindow.h"

namespace {

WinMenuBarIcon* tray()
{
    return WinMenuBarIcon::getInstance(nullptr);
}

// A menu as the user reads it, disabled entries in brackets: one comparison covers language and sign-in gate.
QString texts(QMenu* menu)
{
    QStringList result;
    for (QAction* action : menu->actions()) {
        const QString text = action->isSeparator() ? QStringLiteral("-") : action->text();
        result << (action->isEnabled() ? text : QLatin1Char('[') + text + QLatin1Char(']'));
    }
    return result.join(QLatin1Char(','));
}

// Shortcuts menu title, main menu (<...> waits for sign-in), the tray's last entry.
QStringList expected(const QString& language, bool signedIn)
{
    QStringList texts = language == QLatin1String("fr")
        ? QStringList { "Raccourcis", "À propos,-,<Préférences>,<Se déconnecter>,-,Quitter", "Quitter Kestrelgap" }
        : language == QLatin1String("es")
        ? QStringList { "Accesos directos", "Acerca de,-,<Preferencias>,<Desconectar>,-,Dejar", "Dejar de Kestrelgap" }
        : QStringList { "Shortcuts", "About,-,<Preferences>,<Sign Out>,-,Quit", "Quit Kestrelgap" };
    texts[0] += QStringLiteral("   \u25BC ");
    texts[1].replace(QLatin1Char('<'), signedIn ? "" : "[").replace(QLatin1Char('>'), signedIn ? "" : "]");
    return texts;
}

QStringList shown(MainWindow* window)
{
    return { window->shortcutsMenu()->title(), texts(window->mainMenu()), tray()->contextMenu()->actions().last()->text() };
}

QWebFrame* mainFrame(MainWindow* window)
{
    return window->indexWindow()->webView()->page()->mainFrame();
}

} // namespace

class TestLanguage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { kestrelgapInitResources(); }
    void cleanup();
    void startsInStoredLanguage_data();
    void startsInStoredLanguage();
    void choosingALanguage_data();
    void choosingALanguage();

private:
    std::unique_ptr<MainWindow> mWindow;
};

void TestLanguage::cleanup()
{
    mainWindowHolder::set(nullptr);
    mWindow.reset();
}

void TestLanguage::startsInStoredLanguage_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("qtCancel");

    // The first row shows the tray too: it is built once per process.
    QTest::newRow("fr") << QVariant("fr") << "fr" << "Annuler";
    // The system's locale is French here, and plays no part until the user chooses.
    QTest::newRow("nothing chosen") << QVariant() << "en" << "Cancel";
    QTest::newRow("es") << QVariant("es") << "es" << "Cancelar";
    // Qt has a German catalogue of its own; the program has none and stays English.
    QTest::newRow("de") << QVariant("de") << "en" << "Abbrechen";
}

void TestLanguage::startsInStoredLanguage()
{
    QFETCH(QVariant, stored);
    QFETCH(QString, language);
    QFETCH(QString, qtCancel);

    if (stored.isNull())
        QSettings().remove(QStringLiteral("language-code"));
    else
        QSettings().setValue(QStringLiteral("language-code"), stored);
    mWindow = std::make_unique<MainWindow>();
    tray()->show();
    const int seen = QTest::currentDataTag() == QLatin1String("fr") ? 3 : 2;
    QCOMPARE(shown(mWindow.get()).mid(0, seen), expected(language, false).mid(0, seen));
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), qtCancel);
}

void TestLanguage::choosingALanguage_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("language");

    QTest::newRow("es, signed in") << QVariant("en") << true << "es" << "es";
    QTest::newRow("fr to unknown de, signed in") << QVariant("fr") << true << "de" << "en";
    QTest::newRow("es back to en, signed out") << QVariant("es") << false << "en" << "en";
}

void TestLanguage::choosingALanguage()
{
    QFETCH(QVariant, stored);
    QFETCH(bool, signedIn);
    QFETCH(QString, chosen);
    QFETCH(QString, language);

    QSettings().setValue(QStringLiteral("language-code"), stored);
    mWindow = std::make_unique<MainWindow>();
    mainWindowHolder::set(mWindow.get());
    if (signedIn) {
        mWindow->enableMenuOptionsForLoggedInUser();
        tray()->enableMenuOptionsForLoggedInUser();
    } else {
        tray()->disableMenuOptionsForLoggedInUser();
    }
    tray()->updateBatteryStatus(50, false);
    mWindow->indexWindow()->loadUrl(QUrl(QStringLiteral("qrc:///bridge/recorder.html")));
    QTRY_COMPARE(mainFrame(mWindow.get())->evaluateJavaScript(QStringLiteral("typeof callBridge")).toString(),
        QStringLiteral("function"));

    mainFrame(mWindow.get())->evaluateJavaScript(QStringLiteral("qtIndexWindow.changeLanguageCode('%1')").arg(chosen));

    QCOMPARE(mWindow->menuBar()->actions().size(), 2);
    QCOMPARE(shown(mWindow.get()), expected(language, signedIn));
    // The tray is rebuilt too: the battery row goes until the page reports again, the sign-in gate stays.
    QCOMPARE(tray()->contextMenu()->actions().size(), 9);
    QCOMPARE(tray()->contextMenu()->actions().first()->isEnabled(), signedIn);

    QCOMPARE(QSettings().value(QStringLiteral("language-code")).toString(), chosen);
    const QString event = QStringLiteral("_gaq [\"_trackEvent\",\"WebApp\",\"qt-app-to-os-language-code-values\",\"%1-fr_FR\"]")
                              .arg(chosen);
    QVERIFY2(mainFrame(mWindow.get())->evaluateJavaScript(QStringLiteral("window.calls")).toStringList().contains(event),
        qPrintable(event));
}

int main(int argc, char** argv)
{
    // A French system. QLocale takes the system's locale once, before main runs, so it needs a fresh process.
    if (qgetenv("LC_ALL") != "fr_FR.UTF-8") {
        qputenv("LC_ALL", "fr_FR.UTF-8");
        QDir(TestEnvironment::homePath()).removeRecursively();
        execv("/proc/self/exe", argv);
        qFatal("cannot restart with a French system locale");
    }
    QApplication app(argc, argv);
    TestLanguage test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_language.moc"
