// The tray menu as a StatusNotifierItem panel reads it over D-Bus, through every rebuild the page causes.
#include <QtTest>

#include <QSystemTrayIcon>

#include "desktop/winmenubaricon.h"
#include "guifixture.h"
#include "statusnotifierhost.h"
#include "web/indexwindow.h"

class TestTrayMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void panelFollowsRebuilds_data();
    void panelFollowsRebuilds();

private:
    StatusNotifierHost mHost;
    GuiFixture mGui;
    IndexWindow* mIndexWindow = nullptr;
};

void TestTrayMenu::initTestCase()
{
    // Before the first icon: Qt looks for a panel once per process.
    QVERIFY(mHost.start());
    GuiFixture::Options options;
    options.show = false;
    options.trayIcon = true;
    QVERIFY(mGui.start(options));
    mIndexWindow = mGui.indexWindow();
    QTRY_VERIFY(!mHost.itemService().isEmpty());
    QTRY_COMPARE(mHost.menu(), QStringList({"[New Message...*]", "Open Kestrelgap*", "-", "[Live Phone Notifications*]",
                                   "[Phone Dialer*]", "[Preferences]", "-", "Quit Kestrelgap"}));
}

// Rows run in order on the one exported menu, each starting from where the row before left it.
void TestTrayMenu::panelFollowsRebuilds_data()
{
    QTest::addColumn<QString>("step");
    QTest::addColumn<QStringList>("menu");
    const QStringList signedIn {"New Message...*", "Open Kestrelgap*", "-", "Live Phone Notifications*", "Phone Dialer*",
        "Preferences"};

    QTest::newRow("sign-in") << "sign-in" << signedIn + QStringList {"-", "Quit Kestrelgap"};
    QTest::newRow("battery") << "battery 45" << signedIn + QStringList {"-", "Phone Battery: 45%", "-", "Quit Kestrelgap"};
    QTest::newRow("charging") << "battery 100 charging"
                              << signedIn + QStringList {"-", "Phone Battery: 100%*", "-", "Quit Kestrelgap"};
    QTest::newRow("a popup opens") << "popup"
                                   << signedIn + QStringList {"Close All Popup Windows", "-", "Phone Battery: 100%*", "-",
                                          "Quit Kestrelgap"};
    // A new language drops the battery row until the page reports again; gate and popup entry stay.
    QTest::newRow("language") << "fr"
                              << QStringList {"Nouveau message...*", "Ouvrir Kestrelgap*", "-",
                                     "Notifications de téléphone direct*", "Numéroteur téléphonique*", "Préférences",
                                     "Tout fermer les fenêtres popup", "-", "Quitter Kestrelgap"};
    QTest::newRow("sign-out") << "sign-out"
                              << QStringList {"[Nouveau message...*]", "Ouvrir Kestrelgap*", "-",
                                     "[Notifications de téléphone direct*]", "[Numéroteur téléphonique*]",
                                     "[Préférences]", "Tout fermer les fenêtres popup", "-",
                                     "Quitter Kestrelgap"};
}

void TestTrayMenu::panelFollowsRebuilds()
{
    QFETCH(QString, step);
    QFETCH(QStringList, menu);

    if (step == "sign-in" || step == "sign-out")
        mIndexWindow->updateClientLoginStateForMenuItems(step == "sign-in");
    else if (step.startsWith("battery"))
        mIndexWindow->showBatteryStatus(step.section(' ', 1, 1).toInt(), step.endsWith("charging"));
    else if (step == "popup")
        WinMenuBarIcon::getInstance(nullptr)->addCloseQuickReplyWindowsOption();
    else
        mIndexWindow->changeLanguageCode(step);
    QTRY_COMPARE(mHost.menu(), menu);
    // One menu all along, and the panel's is the only one: no XEmbed icon beside it.
    QCOMPARE(WinMenuBarIcon::getInstance(nullptr)->trayIcon()->contextMenu(), WinMenuBarIcon::getInstance(nullptr)->contextMenu());
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY(qstrcmp(widget->metaObject()->className(), "QSystemTrayIconSys") != 0 || !widget->isVisible());
    qInfo().noquote() << "panel menu, revision" << mHost.revision() << ":" << mHost.menu().join(" | ");
}

QTEST_MAIN(TestTrayMenu)
#include "tst_traymenu.moc"
