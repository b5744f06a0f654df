// The tray menu as a StatusNotifierItem panel reads it over D-Bus, through every rebuild the page causes.
#include <QtTest>

#include <QMenu>

#include "desktop/winmenubaricon.h"
#include "guifixture.h"
#include "statusnotifierhost.h"
#include "web/indexwindow.h"

class TestTrayMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // Before the first icon: Qt looks for a panel once per process.
        QVERIFY(mHost.start());
        QVERIFY(mGui.startWithTray(false));
        QTRY_COMPARE(mHost.menu(), QStringList({"[New Message...*]", "Open Kestrelgap*", "-", "[Live Phone Notifications*]",
                                       "[Phone Dialer*]", "[Preferences]", "-", "Quit Kestrelgap"}));
    }

    // Rows run in order on the one exported menu, each starting from where the row before left it.
    void panelFollowsRebuilds_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<QStringList>("menu");
        const QStringList in {"New Message...*", "Open Kestrelgap*", "-", "Live Phone Notifications*", "Phone Dialer*",
            "Preferences"};
        const QStringList quit {"-", "Quit Kestrelgap"};

        QTest::newRow("sign-in") << "sign-in" << in + quit;
        QTest::newRow("battery") << "battery 45" << in + QStringList {"-", "Phone Battery: 45%"} + quit;
        QTest::newRow("no battery reported") << "battery 0" << in + quit;
        QTest::newRow("charging") << "battery 100 charging" << in + QStringList {"-", "Phone Battery: 100%*"} + quit;
        QTest::newRow("a popup opens")
            << "popup" << in + QStringList {"Close All Popup Windows", "-", "Phone Battery: 100%*"} + quit;
        // A new language drops the battery row until the page reports again; gate and popup entry stay.
        QTest::newRow("language") << "fr"
                                  << QStringList {"Nouveau message...*", "Ouvrir Kestrelgap*", "-",
                                         "Notifications de téléphone direct*", "Numéroteur téléphonique*", "Préférences",
                                         "Tout fermer les fenêtres popup", "-", "Quitter Kestrelgap"};
        QTest::newRow("sign-out") << "sign-out"
                                  << QStringList {"[Nouveau message...*]", "Ouvrir Kestrelgap*", "-",
                                         "[Notifications de téléphone direct*]", "[Numéroteur téléphonique*]",
                                         "[Préférences]", "Tout fermer les fenêtres popup", "-", "Quitter Kestrelgap"};
    }

    void panelFollowsRebuilds()
    {
        QFETCH(QString, step);
        QFETCH(QStringList, menu);
        WinMenuBarIcon* tray = WinMenuBarIcon::getInstance(nullptr);
        static QMenu* const first = tray->contextMenu();
        IndexWindow* page = mGui.indexWindow();

        if (step.startsWith("sign-"))
            page->updateClientLoginStateForMenuItems(step == "sign-in");
        else if (step.startsWith("battery"))
            page->showBatteryStatus(step.section(' ', 1, 1).toInt(), step.endsWith("charging"));
        else if (step == "popup")
            tray->addCloseQuickReplyWindowsOption();
        else
            page->changeLanguageCode(step);
        QTRY_COMPARE(mHost.menu(), menu);
        // Refilled in place, and the panel's is the only icon: no XEmbed one beside it.
        QVERIFY(tray->contextMenu() == first && tray->trayIcon()->contextMenu() == first);
        QVERIFY(!visibleTopLevel("QSystemTrayIconSys"));
    }

private:
    StatusNotifierHost mHost;
    GuiFixture mGui;
};

QTEST_MAIN(TestTrayMenu)
#include "tst_traymenu.moc"
