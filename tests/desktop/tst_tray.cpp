#include <QtTest>

#include <QDBusConnectionInterface>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "fakenotificationservice.h"
#include "notifications/notificator.h"
#include "recordingpage.h"
#include "resourceinit.h"
#include "stagedfolder.h"

namespace {

// The menu as a user reads it: visible entries, "-" for a separator, "*" after an entry with an icon.
QStringList entries(QMenu* menu)
{
    QStringList result;
    for (QAction* action : menu->actions()) {
        if (action->isVisible())
            result << (action->isSeparator() ? "-" : action->text() + (action->icon().isNull() ? "" : "*"));
    }
    return result;
}

QAction* entry(const QString& text)
{
    for (QAction* action : WinMenuBarIcon::getInstance(nullptr)->contextMenu()->actions()) {
        if (action->text() == text)
            return action;
    }
    return nullptr;
}

// Enabled states of the four entries a signed-out user must not reach.
QList<bool> gate()
{
    QList<bool> states;
    for (const char* text : {"New Message...", "Live Phone Notifications", "Phone Dialer", "Preferences"})
        states << entry(text)->isEnabled();
    return states;
}

// A top-level widget of Qt's own: the XEmbed tray window, or the balloon it shows without a service.
QWidget* qtWidget(const char* className)
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qstrcmp(widget->metaObject()->className(), className) == 0 && widget->isVisible())
            return widget;
    }
    return nullptr;
}

// Answers every message box that shows while it lives with its first button, remembering the texts.
struct BoxAnswerer : QObject {
    QStringList seen;
    QTimer timer;
    explicit BoxAnswerer(QMessageBox::StandardButton answer)
    {
        connect(&timer, &QTimer::timeout, this, [this, answer] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                seen << box->text() + "|" + QString::number(box->icon());
                box->button(answer)->click();
            }
        });
        timer.start(10);
    }
};

enum Path { Service, QtBalloon };

} // namespace

class TestTray : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void menuForBatteryReport_data();
    void menuForBatteryReport();
    void signInGateAndLanguageRebuild();
    void clicks_data();
    void clicks();
    void menuChoicesReachPage_data();
    void menuChoicesReachPage();
    void balloonClickDeliversLatestPayloadOnce_data();
    void balloonClickDeliversLatestPayloadOnce();
    void serviceNotifications();
    void balloonText_data();
    void balloonText();
    void notificatorWithoutTray_data();
    void notificatorWithoutTray();
    void quitConfirmation();

private:
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    WinMenuBarIcon* mTray = nullptr;
    RecordingPage mPage;
    FakeNotificationService mService;
};

void TestTray::initTestCase()
{
    QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "run inside scripts/desktop-session.sh");
    QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered("org.freedesktop.Notifications"));
    QVERIFY(StagedFolder::enter());
    kestrelgapInitResources();
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mPage.load(mIndexWindow));
    mTray = WinMenuBarIcon::getInstance(nullptr);
    mTray->show();
    QCOMPARE(mTray->trayIcon()->toolTip(), QStringLiteral("Kestrelgap"));
    QVERIFY(!mTray->trayIcon()->icon().isNull());
    QTRY_VERIFY(qtWidget("QSystemTrayIconSys"));
    QVERIFY(QTest::qWaitForWindowExposed(qtWidget("QSystemTrayIconSys")));
}

void TestTray::init()
{
    mService.stop();
    mService.reset();
    mIndexWindow->setJsonForWindows(QString());
    mMainWindow->showAlreadyRunningWindow();
    mPage.clear();
}

void TestTray::menuForBatteryReport_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("charging");
    QTest::addColumn<QString>("row");
    QTest::addColumn<QString>("colour");

    QTest::newRow("none") << 0 << true << QString() << QString();
    QTest::newRow("negative") << -5 << false << QString() << QString();
    QTest::newRow("low top") << 19 << false << "Phone Battery: 19%" << "#f02828";
    QTest::newRow("middle bottom") << 20 << false << "Phone Battery: 20%" << "#FFA500";
    QTest::newRow("middle top") << 59 << false << "Phone Battery: 59%" << "#FFA500";
    QTest::newRow("high bottom") << 60 << false << "Phone Battery: 60%" << "#67b422";
    QTest::newRow("full, charging") << 100 << true << "Phone Battery: 100%*" << "#67b422";
}

void TestTray::menuForBatteryReport()
{
    QFETCH(int, status);
    QFETCH(bool, charging);
    QFETCH(QString, row);
    QFETCH(QString, colour);

    mIndexWindow->showBatteryStatus(status, charging);
    QCOMPARE(mTray->trayIcon()->contextMenu(), mTray->contextMenu());
    QStringList expected {"New Message...*", "Open Kestrelgap*", "-", "Live Phone Notifications*", "Phone Dialer*",
        "Preferences", "-"};
    if (!row.isEmpty())
        expected << row << "-";
    QCOMPARE(entries(mTray->contextMenu()), expected << "Quit Kestrelgap");
    // Worked out, though the row is drawn like any other.
    QCOMPARE(WinMenuBarIcon::batteryColourName(status), colour);
}

void TestTray::signInGateAndLanguageRebuild()
{
    const QList<bool> off {false, false, false, false}, on {true, true, true, true};
    QCOMPARE(gate(), off);
    QVERIFY(entry("Open Kestrelgap")->isEnabled() && entry("Quit Kestrelgap")->isEnabled());
    mIndexWindow->updateClientLoginStateForMenuItems(true);
    mIndexWindow->showBatteryStatus(45, false);
    QCOMPARE(gate(), on);

    // A new language rebuilds the menu: the gate and the popup entry carry over, the battery goes.
    mTray->addCloseQuickReplyWindowsOption();
    mTray->translationChanged();
    QCOMPARE(mTray->trayIcon()->contextMenu(), mTray->contextMenu());
    QCOMPARE(gate(), on);
    QCOMPARE(entries(mTray->contextMenu()).indexOf("Close All Popup Windows"), 6);
    QVERIFY(!entry("Phone Battery: 45%"));

    // Signing out closes the popups' entry with them and clears the battery.
    mIndexWindow->showBatteryStatus(45, false);
    mIndexWindow->updateClientLoginStateForMenuItems(false);
    QCOMPARE(gate(), off);
    QVERIFY(!entry("Phone Battery: 45%"));
    mTray->removeCloseQuickReplyWindowsOption();
}

void TestTray::clicks_data()
{
    QTest::addColumn<int>("button");
    QTest::addColumn<bool>("twice");
    QTest::addColumn<bool>("throughX");
    QTest::addColumn<bool>("menuOpens");

    QTest::newRow("left") << int(Qt::LeftButton) << false << false << true;
    QTest::newRow("left, through the X server") << int(Qt::LeftButton) << false << true << true;
    QTest::newRow("middle") << int(Qt::MiddleButton) << false << false << true;
    // Qt's tray opens the menu itself on a right click.
    QTest::newRow("right") << int(Qt::RightButton) << false << false << true;
    QTest::newRow("double") << int(Qt::LeftButton) << true << false << false;
}

void TestTray::clicks()
{
    QFETCH(int, button);
    QFETCH(bool, twice);
    QFETCH(bool, throughX);
    QFETCH(bool, menuOpens);

    mMainWindow->hide();
    QWidget* icon = qtWidget("QSystemTrayIconSys");
    if (throughX) {
        const QPoint at = mTray->geometry().center();
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", QString::number(at.x()), QString::number(at.y()), "click",
                                                  "1"}),
            0);
    } else if (twice) {
        QTest::mouseDClick(icon, Qt::MouseButton(button));
    } else {
        QTest::mouseClick(icon, Qt::MouseButton(button));
    }
    if (menuOpens)
        QTRY_VERIFY(mTray->contextMenu()->isVisible());
    // Only a double click brings the main window back.
    QTRY_COMPARE(mMainWindow->isVisible(), twice);
    mTray->contextMenu()->hide();
}

void TestTray::menuChoicesReachPage_data()
{
    QTest::addColumn<QString>("choice");
    QTest::addColumn<QStringList>("events");

    QTest::newRow("compose") << "New Message..."
                             << QStringList {"ga:compose-new-from-k-icon-dropdown-qt:pc",
                                    "km:compose-new-from-k-icon-dropdown-qt:{\"os\":\"pc\"}", "compose"};
    QTest::newRow("dialer") << "Phone Dialer"
                            << QStringList {"ga:phone-dialer-from-k-icon-dropdown-qt:k-icon",
                                   "km:phone-dialer-from-k-icon-dropdown-qt:{\"location\":\"k-icon\",\"os\":\"pc\"}",
                                   "open:dialer_view_standalone"};
    QTest::newRow("close popups") << "Close All Popup Windows"
                                  << QStringList {"ga:close-quickreply-windows-kg-qt:k-icon",
                                         "km:close-quickreply-windows-kg-qt:{\"location\":\"k-icon\",\"os\":\"pc\"}"};
}

void TestTray::menuChoicesReachPage()
{
    QFETCH(QString, choice);
    QFETCH(QStringList, events);

    mIndexWindow->updateClientLoginStateForMenuItems(true);
    mTray->addCloseQuickReplyWindowsOption();
    entry(choice)->trigger();
    QCOMPARE(mPage.events(), events);
    QCOMPARE(entry("Close All Popup Windows")->isVisible(), choice != "Close All Popup Windows");
    mTray->removeCloseQuickReplyWindowsOption();
    mIndexWindow->updateClientLoginStateForMenuItems(false);
}

void TestTray::balloonClickDeliversLatestPayloadOnce_data()
{
    QTest::addColumn<int>("path");
    QTest::addColumn<bool>("minimised");
    QTest::newRow("service") << int(Service) << false;
    QTest::newRow("service, window minimised") << int(Service) << true;
    QTest::newRow("Qt balloon") << int(QtBalloon) << false;
    QTest::newRow("Qt balloon, window minimised") << int(QtBalloon) << true;
}

void TestTray::balloonClickDeliversLatestPayloadOnce()
{
    QFETCH(int, path);
    QFETCH(bool, minimised);

    if (path == Service)
        QVERIFY(mService.start());
    if (minimised) {
        mMainWindow->showMinimized();
        QTRY_VERIFY(mMainWindow->isMinimized());
    }
    mIndexWindow->showNotification("{\"thread\":1}", "Ann", "hi", true);
    mIndexWindow->showNotification("{\"thread\":2}", "Bob", "yo", true);
    if (path == Service) {
        QCOMPARE(mService.received().size(), 2);
        QVERIFY(!qtWidget("QBalloonTip"));
        mService.click(mService.received().last().id);
    } else {
        QTRY_VERIFY(qtWidget("QBalloonTip"));
        QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    }
    QTRY_VERIFY(!mPage.events().isEmpty());
    QCOMPARE(mPage.events(), QStringList {"json:{\"thread\":2}"});
    QTRY_VERIFY(mMainWindow->isVisible() && !mMainWindow->isMinimized());

    // Delivered; a later activation only shows the window.
    mPage.clear();
    mMainWindow->hide();
    mIndexWindow->activated(QSystemTrayIcon::Trigger);
    QTRY_VERIFY(mMainWindow->isVisible());
    QCOMPARE(mPage.events(), QStringList());
}

void TestTray::serviceNotifications()
{
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{\"thread\":3}", "First", "one", false);
    mIndexWindow->showNotification("{\"thread\":4}", "Second", "two", false);
    const QList<FakeNotificationService::Notification> shown = mService.received();
    // One notification on screen at a time: the one whose payload a click delivers.
    QCOMPARE(shown.at(1).replacesId, shown.at(0).id);
    QCOMPARE(shown.at(1).appName, QStringLiteral("Kestrelgap"));
    QCOMPARE(shown.at(1).summary, QStringLiteral("Second"));
    QCOMPARE(shown.at(1).timeout, 30000);
    QCOMPARE(shown.at(1).actions.value(0), QStringLiteral("default"));

    // Another program's notification and a button that isn't the body don't count.
    mService.click(shown.at(1).id + 100);
    mService.click(shown.at(1).id, "reply");
    mService.click(shown.at(1).id);
    QTRY_VERIFY(!mPage.events().isEmpty());
    QCOMPARE(mPage.events(), QStringList {"json:{\"thread\":4}"});

    // A service that refuses leaves the balloon to Qt.
    mPage.clear();
    mService.reset(true);
    mIndexWindow->showNotification("{\"thread\":5}", "Third", "three", false);
    QTRY_VERIFY(qtWidget("QBalloonTip"));
    QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    QTRY_COMPARE(mPage.events(), QStringList {"json:{\"thread\":5}"});
}

void TestTray::balloonText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("markup");
    QTest::addColumn<QString>("shown");

    QTest::newRow("three signs decode") << "a+b%20c%20d%20" << false << "a b c d ";
    QTest::newRow("two signs stay") << "a+b%20c%20" << false << "a+b%20c%20";
    QTest::newRow("percentages") << "Battery 15% (was 20%)" << false << "Battery 15% (was 20%)";
    QTest::newRow("encoded UTF-8") << "caf%C3%A9+%26+cr%C3%A8me" << false << "caf\u00e9 & cr\u00e8me";
    QTest::newRow("plain, colon in the first words") << "Big sale: 10%, 20%, 30% off" << false
                                                     << "Big sale: 10%, 20%, 30% off";
    QTest::newRow("plain, plus beside stray signs") << "1+1 is 2, 100% 200% 300%" << false << "1+1 is 2, 100% 200% 300%";
    QTest::newRow("encoded, colon in the first words") << "See you at 5:30%21%21%21" << false << "See you at 5:30!!!";
    QTest::newRow("encoded, word before a colon keeps its case") << "Sale: 10%25 20%25 30%25" << false
                                                                 << "Sale: 10% 20% 30%";
    QTest::newRow("markup service") << "<b>5 > 3 & 1</b>" << true << "&lt;b&gt;5 &gt; 3 &amp; 1&lt;/b&gt;";
}

void TestTray::balloonText()
{
    QFETCH(QString, text);
    QFETCH(bool, markup);
    QFETCH(QString, shown);

    mService.reset(false, markup);
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{}", "T", text, false);
    QCOMPARE(mService.received().value(0).body, shown);
}

void TestTray::notificatorWithoutTray_data()
{
    QTest::addColumn<bool>("tray");
    QTest::addColumn<int>("cls");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<int>("notifications");

    const QString critical = "Text|" + QString::number(QMessageBox::Critical);
    QTest::newRow("no tray, critical") << false << int(Notificator::Critical) << QStringList {critical} << 0;
    QTest::newRow("no tray, information") << false << int(Notificator::Information) << QStringList() << 0;
    QTest::newRow("tray, critical") << true << int(Notificator::Critical) << QStringList() << 1;
}

void TestTray::notificatorWithoutTray()
{
    QFETCH(bool, tray);
    QFETCH(int, cls);
    QFETCH(QStringList, boxes);
    QFETCH(int, notifications);

    QVERIFY(mService.start());
    QSystemTrayIcon icon;
    Notificator notificator("Kestrelgap", "{}", tray ? &icon : nullptr, mIndexWindow);
    BoxAnswerer answerer(QMessageBox::Ok);
    notificator.notify(Notificator::Class(cls), "{}", "Title", "Text");
    QCOMPARE(answerer.seen, boxes);
    QCOMPARE(mService.received().size(), notifications);
}

void TestTray::quitConfirmation()
{
    {
        BoxAnswerer answerer(QMessageBox::No);
        entry("Quit Kestrelgap")->trigger();
        QCOMPARE(answerer.seen, QStringList {"Are you sure you want to quit Kestrelgap?|" + QString::number(QMessageBox::NoIcon)});
    }
    QVERIFY(mTray->trayIcon()->isVisible());
    QVERIFY(mPage.events().contains("ga:quit-kg-qt:k-icon"));

    BoxAnswerer answerer(QMessageBox::Yes);
    entry("Quit Kestrelgap")->trigger();
    QVERIFY(!mTray->trayIcon()->isVisible());
}

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
