#include <QtTest>

#include <QMenu>
#include <QMenuBar>
#include <QSettings>

#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "guifixture.h"

namespace {

// Shortcuts menu title, main menu as the user reads it (disabled entries in brackets), the tray's last entry.
QStringList shown(MainWindow* window)
{
    QStringList menu;
    for (QAction* action : window->mainMenu()->actions()) {
        const QString text = action->isSeparator() ? "-" : action->text();
        menu << (action->isEnabled() ? text : "[" + text + "]");
    }
    return {window->shortcutsMenu()->title(), menu.join(','), WinMenuBarIcon::getInstance(nullptr)->contextMenu()->actions().last()->text()};
}

// <...> waits for sign-in.
QStringList expected(const QString& language, bool signedIn)
{
    QStringList texts = language == "fr" ? QStringList {"Raccourcis", "À propos,-,<Préférences>,<Se déconnecter>,-,Quitter", "Quitter Kestrelgap"}
        : language == "es" ? QStringList {"Accesos directos", "Acerca de,-,<Preferencias>,<Desconectar>,-,Dejar", "Dejar de Kestrelgap"}
                           : QStringList {"Shortcuts", "About,-,<Preferences>,<Sign Out>,-,Quit", "Quit Kestrelgap"};
    texts[0] += QStringLiteral("   \u25BC ");
    texts[1].replace('<', signedIn ? "" : "[").replace('>', signedIn ? "" : "]");
    return texts;
}

} // namespace

class TestLanguage : public QObject
{
    Q_OBJECT
private slots:
    // ctest runs it on a French system (LC_ALL), whose locale plays no part until the user chooses.
    void initTestCase()
    {
        QSettings().setValue("language-code", "fr");
        QVERIFY(mGui.startWithTray());
        QCOMPARE(shown(mGui.mainWindow()), expected("fr", false));
    }

    // Rows run in order on the one window.
    void choosingALanguage_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("qtCancel"); // Qt has a German catalogue of its own; the program has none
        QTest::newRow("fr to es, signed in") << true << "es" << "es" << "Cancelar";
        QTest::newRow("es to unknown de, signed in") << true << "de" << "en" << "Abbrechen";
        QTest::newRow("to en, signed out") << false << "en" << "en" << "Cancel";
    }

    void choosingALanguage()
    {
        QFETCH(bool, signedIn);
        QFETCH(QString, chosen);
        QFETCH(QString, language);
        QFETCH(QString, qtCancel);
        MainWindow* window = mGui.mainWindow();
        signedIn ? window->enableMenuOptionsForLoggedInUser() : window->disableMenuOptionsForLoggedInUser();
        mGui.takeCalls();
        mGui.eval(QString("qtIndexWindow.changeLanguageCode('%1')").arg(chosen));
        // Rebuilt, not added to.
        QCOMPARE(window->menuBar()->actions().size(), 2);
        QCOMPARE(shown(window), expected(language, signedIn));
        QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), qtCancel);
        QCOMPARE(QSettings().value("language-code").toString(), chosen);
        const QString event = "_gaq [\"_trackEvent\",\"WebApp\",\"qt-app-to-os-language-code-values\",\"" + chosen + "-fr_FR\"]";
        QVERIFY2(mGui.takeCalls().contains(event), qPrintable(event));
    }

private:
    GuiFixture mGui;
};

QTEST_MAIN(TestLanguage)
#include "tst_language.moc"
