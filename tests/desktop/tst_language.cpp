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

const QString mainMenuTitle = QStringLiteral("Kestrelgap   \u25BC ");
const QString titleArrow = QStringLiteral("   \u25BC ");
const QUrl recorderPage(QStringLiteral("qrc:///bridge/recorder.html"));
const QString systemLocale = QStringLiteral("fr_FR");
const QByteArray frenchSystem = QByteArrayLiteral("fr_FR.UTF-8");

// The two menus as the user reads them in one language; "-" is a separator.
struct MenuTexts
{
    QString shortcutsTitle;
    QStringList mainMenu;
    QStringList shortcutsMenu;
};

MenuTexts menuTexts(const QString& language)
{
    if (language == QLatin1String("fr")) {
        return { QStringLiteral("Raccourcis"),
            { "À propos", "-", "Préférences", "Se déconnecter", "-", "Quitter" },
            { "Nouveau message...", "Minimiser", "Fermer", "-", "Taille actuelle", "Agrandir", "Dézoomer" } };
    }
    if (language == QLatin1String("es")) {
        return { QStringLiteral("Accesos directos"),
            { "Acerca de", "-", "Preferencias", "Desconectar", "-", "Dejar" },
            { "Nuevo mensaje...", "Minimizar", "Cerrar", "-", "Tamaño real", "Aumentar el zoom",
                "Disminuir el zoom" } };
    }
    return { QStringLiteral("Shortcuts"), { "About", "-", "Preferences", "Sign Out", "-", "Quit" },
        { "New Message...", "Minimize", "Close", "-", "Actual Size", "Zoom In", "Zoom Out" } };
}

// The tray menu with its popup entry (hidden until a popup opens) and no battery row.
QStringList trayTexts(const QString& language)
{
    if (language == QLatin1String("fr")) {
        return { "Nouveau message...", "Ouvrir Kestrelgap", "-", "Notifications de téléphone direct",
            "Numéroteur téléphonique", "Préférences", "Tout fermer les fenêtres popup", "-", "Quitter Kestrelgap" };
    }
    if (language == QLatin1String("es")) {
        return { "Nuevo mensaje...", "Abrir Kestrelgap", "-", "Notificaciones de teléfono en vivo",
            "Marcador de teléfono", "Preferencias", "Cerrar todas las ventanas emergentes de Windows", "-",
            "Dejar de Kestrelgap" };
    }
    return { "New Message...", "Open Kestrelgap", "-", "Live Phone Notifications", "Phone Dialer", "Preferences",
        "Close All Popup Windows", "-", "Quit Kestrelgap" };
}

WinMenuBarIcon* tray()
{
    return WinMenuBarIcon::getInstance(nullptr);
}

QStringList texts(QMenu* menu)
{
    QStringList result;
    for (QAction* action : menu->actions())
        result << (action->isSeparator() ? QStringLiteral("-") : action->text());
    return result;
}

// Texts of the enabled entries, so that one comparison covers both the language and the sign-in gate.
QStringList enabledTexts(QMenu* menu)
{
    QStringList result;
    for (QAction* action : menu->actions()) {
        if (!action->isSeparator() && action->isEnabled())
            result << action->text();
    }
    return result;
}

void storeLanguageCode(const QVariant& code)
{
    QSettings settings;
    if (code.isNull())
        settings.remove(QStringLiteral("language-code"));
    else
        settings.setValue(QStringLiteral("language-code"), code);
}

QWebFrame* mainFrame(MainWindow* window)
{
    return window->indexWindow()->webView()->page()->mainFrame();
}

bool loadRecorder(MainWindow* window)
{
    window->indexWindow()->loadUrl(recorderPage);
    return QTest::qWaitFor(
        [window] {
            return mainFrame(window)->evaluateJavaScript(QStringLiteral("typeof callBridge")).toString()
                == QLatin1String("function");
        },
        10000);
}

} // namespace

class TestLanguage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void trayStartsInStoredLanguage();
    void startsInStoredLanguage_data();
    void startsInStoredLanguage();
    void choosingALanguage_data();
    void choosingALanguage();

private:
    std::unique_ptr<MainWindow> mWindow;
};

void TestLanguage::initTestCase()
{
    kestrelgapInitResources();
    QCOMPARE(QLocale::system().name(), systemLocale);
}

void TestLanguage::cleanup()
{
    mainWindowHolder::set(nullptr);
    mWindow.reset();
}

// The tray is shown once per process, so only its first menu shows the language it started in.
void TestLanguage::trayStartsInStoredLanguage()
{
    storeLanguageCode(QStringLiteral("fr"));
    mWindow = std::make_unique<MainWindow>();
    tray()->show();
    QCOMPARE(texts(tray()->contextMenu()), trayTexts(QStringLiteral("fr")));
}

void TestLanguage::startsInStoredLanguage_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("qtCancel");

    // The system's locale is French here, and plays no part until the user chooses.
    QTest::newRow("nothing chosen") << QVariant() << "en" << "Cancel";
    QTest::newRow("empty") << QVariant(QString()) << "en" << "Cancel";
    QTest::newRow("en") << QVariant("en") << "en" << "Cancel";
    QTest::newRow("fr") << QVariant("fr") << "fr" << "Annuler";
    QTest::newRow("es") << QVariant("es") << "es" << "Cancelar";
    // Qt has a German catalogue of its own; the program has none and stays English.
    QTest::newRow("de") << QVariant("de") << "en" << "Abbrechen";
}

void TestLanguage::startsInStoredLanguage()
{
    QFETCH(QVariant, stored);
    QFETCH(QString, language);
    QFETCH(QString, qtCancel);

    storeLanguageCode(stored);
    mWindow = std::make_unique<MainWindow>();

    const MenuTexts expected = menuTexts(language);
    QCOMPARE(mWindow->mainMenu()->title(), mainMenuTitle);
    QCOMPARE(mWindow->shortcutsMenu()->title(), expected.shortcutsTitle + titleArrow);
    QCOMPARE(texts(mWindow->mainMenu()), expected.mainMenu);
    QCOMPARE(texts(mWindow->shortcutsMenu()), expected.shortcutsMenu);
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), qtCancel);
}

void TestLanguage::choosingALanguage_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("language");

    QTest::newRow("es, signed in") << QVariant() << true << "es" << "es";
    QTest::newRow("es, signed out") << QVariant() << false << "es" << "es";
    QTest::newRow("fr to es, signed in") << QVariant("fr") << true << "es" << "es";
    QTest::newRow("fr to unknown de") << QVariant("fr") << true << "de" << "en";
    QTest::newRow("es back to en, signed out") << QVariant("es") << false << "en" << "en";
}

void TestLanguage::choosingALanguage()
{
    QFETCH(QVariant, stored);
    QFETCH(bool, signedIn);
    QFETCH(QString, chosen);
    QFETCH(QString, language);

    storeLanguageCode(stored);
    mWindow = std::make_unique<MainWindow>();
    mainWindowHolder::set(mWindow.get());
    if (signedIn) {
        mWindow->enableMenuOptionsForLoggedInUser();
        tray()->enableMenuOptionsForLoggedInUser();
    } else {
        tray()->disableMenuOptionsForLoggedInUser();
    }
    tray()->updateBatteryStatus(50, false);
    QVERIFY(loadRecorder(mWindow.get()));
    QMenu* const firstMenu = mWindow->mainMenu();
    QMenu* const secondMenu = mWindow->shortcutsMenu();

    mainFrame(mWindow.get())
        ->evaluateJavaScript(QStringLiteral("qtIndexWindow.changeLanguageCode('%1')").arg(chosen));

    // The same two menus on a new bar: the first keeps its untranslated title, the second is retitled.
    QCOMPARE(mWindow->menuBar()->actions().size(), 2);
    QCOMPARE(mWindow->menuBar()->actions().at(0)->menu(), firstMenu);
    QCOMPARE(mWindow->menuBar()->actions().at(1)->menu(), secondMenu);
    QCOMPARE(firstMenu->title(), mainMenuTitle);
    const MenuTexts expected = menuTexts(language);
    QCOMPARE(secondMenu->title(), expected.shortcutsTitle + titleArrow);
    QCOMPARE(texts(firstMenu), expected.mainMenu);
    QCOMPARE(texts(secondMenu), expected.shortcutsMenu);

    QStringList enabledFirst = expected.mainMenu;
    QStringList enabledSecond = expected.shortcutsMenu;
    enabledFirst.removeAll(QStringLiteral("-"));
    enabledSecond.removeAll(QStringLiteral("-"));
    if (!signedIn) {
        // Preferences, Sign Out and New Message wait for a signed-in user.
        enabledFirst.removeAt(2);
        enabledFirst.removeAt(1);
        enabledSecond.removeAt(0);
    }
    QCOMPARE(enabledTexts(firstMenu), enabledFirst);
    QCOMPARE(enabledTexts(secondMenu), enabledSecond);

    // The tray is rebuilt too: the battery row goes until the page reports again, the sign-in gate stays.
    QCOMPARE(texts(tray()->contextMenu()), trayTexts(language));
    QCOMPARE(tray()->contextMenu()->actions().first()->isEnabled(), signedIn);

    QCOMPARE(QSettings().value(QStringLiteral("language-code")).toString(), chosen);
    const QString event = QStringLiteral("_gaq [\"_trackEvent\",\"WebApp\",\"qt-app-to-os-language-code-values\",\"%1\"]")
                              .arg(chosen + QLatin1Char('-') + systemLocale);
    QVERIFY2(mainFrame(mWindow.get())->evaluateJavaScript(QStringLiteral("window.calls")).toStringList().contains(event),
        qPrintable(event));
}

int main(int argc, char** argv)
{
    // A French system. QLocale takes the system's locale once, before main runs, so it needs a fresh process.
    if (qgetenv("LC_ALL") != frenchSystem) {
        qputenv("LC_ALL", frenchSystem);
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
