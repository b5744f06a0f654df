#include <QtTest>

#include <QAction>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "recordingpage.h"
#include "resourceinit.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

// The menu as a user reads it: visible entries, "-" for a separator, "*" after an entry with an icon.
QStringList visibleEntries(QMenu* menu)
{
    QStringList entries;
    for (QAction* action : menu->actions()) {
        if (!action->isVisible())
            continue;
        if (action->isSeparator())
            entries << QStringLiteral("-");
        else
            entries << action->text() + (action->icon().isNull() ? QString() : QStringLiteral("*"));
    }
    return entries;
}

QAction* actionNamed(QMenu* menu, const QString& text)
{
    for (QAction* action : menu->actions()) {
        if (action->text() == text)
            return action;
    }
    return nullptr;
}

// Enabled states of the entries that a signed-out user must not reach, in menu order.
QList<bool> gatedStates(QMenu* menu)
{
    QList<bool> states;
    for (const char* text : {"New Message...", "Live Phone Notifications", "Phone Dialer", "Preferences"}) {
        QAction* action = actionNamed(menu, QLatin1String(text));
        states << (action && action->isEnabled());
    }
    return states;
}

// Qt's XEmbed tray window, embedded in the desktop's tray.
QWidget* trayWidget()
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qstrcmp(widget->metaObject()->className(), "QSystemTrayIconSys") == 0)
            return widget;
    }
    return nullptr;
}

void answerNextMessageBox(QMessageBox::StandardButton answer, QString* seenText)
{
    QTimer::singleShot(0, [answer, seenText]() {
        QTRY_VERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        *seenText = box->text();
        box->button(answer)->click();
    });
}

} // namespace

class TestTray : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void iconSitsInTheDesktopTray();
    void menuForBatteryReport_data();
    void menuForBatteryReport();
    void signInGatesEntriesAndSignOutClearsBattery();
    void closePopupsEntryFollowsPopups();
    void clicks_data();
    void clicks();
    void realLeftClickOpensMenu();
    void menuChoicesLogAndReachPage_data();
    void menuChoicesLogAndReachPage();
    void decliningQuitKeepsIcon();
    void cleanupTestCase();

private:
    void closeMenu();

    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    WinMenuBarIcon* mTray = nullptr;
    RecordingPage mPage;
};

void TestTray::initTestCase()
{
    QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "run inside scripts/desktop-session.sh");
    QVERIFY2(StagedFolder::enter(), "the staged program folder is missing");
    kestrelgapInitResources();
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mPage.load(mIndexWindow));

    mTray = WinMenuBarIcon::getInstance(nullptr);
    QCOMPARE(WinMenuBarIcon::getInstance(nullptr), mTray);
    mTray->show();
}

void TestTray::cleanupTestCase()
{
    delete mMainWindow;
}

void TestTray::closeMenu()
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<QMenu*>(widget) && widget->isVisible())
            widget->hide();
    }
}

void TestTray::iconSitsInTheDesktopTray()
{
    QVERIFY(mTray->trayIcon()->isVisible());
    QCOMPARE(mTray->trayIcon()->toolTip(), QStringLiteral("Kestrelgap"));
    // Loaded from the program folder, not from the resources.
    QVERIFY(!mTray->trayIcon()->icon().isNull());
    QTRY_VERIFY(mTray->geometry().isValid());
    QVERIFY(trayWidget());
    QTRY_VERIFY(trayWidget()->isVisible());
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
    expected << "Quit Kestrelgap";
    QCOMPARE(visibleEntries(mTray->contextMenu()), expected);
    // Worked out, though the row is drawn like any other.
    QCOMPARE(WinMenuBarIcon::batteryColourName(status), colour);
}

void TestTray::signInGatesEntriesAndSignOutClearsBattery()
{
    const QList<bool> allOff {false, false, false, false}, allOn {true, true, true, true};
    QCOMPARE(gatedStates(mTray->contextMenu()), allOff);
    QVERIFY(actionNamed(mTray->contextMenu(), "Open Kestrelgap")->isEnabled());
    QVERIFY(actionNamed(mTray->contextMenu(), "Quit Kestrelgap")->isEnabled());

    mIndexWindow->updateClientLoginStateForMenuItems(true);
    mIndexWindow->showBatteryStatus(45, false);
    QCOMPARE(gatedStates(mTray->contextMenu()), allOn);

    // A language change rebuilds the menu: states and the popup entry stay, the battery goes.
    mTray->addCloseQuickReplyWindowsOption();
    QMenu* before = mTray->contextMenu();
    mTray->translationChanged();
    QVERIFY(mTray->contextMenu() != before);
    QCOMPARE(mTray->trayIcon()->contextMenu(), mTray->contextMenu());
    QCOMPARE(gatedStates(mTray->contextMenu()), allOn);
    QVERIFY(actionNamed(mTray->contextMenu(), "Close All Popup Windows")->isVisible());
    QVERIFY(!actionNamed(mTray->contextMenu(), "Phone Battery: 45%"));
    mTray->removeCloseQuickReplyWindowsOption();

    mIndexWindow->showBatteryStatus(45, false);
    mIndexWindow->updateClientLoginStateForMenuItems(false);
    QCOMPARE(gatedStates(mTray->contextMenu()), allOff);
    QVERIFY(!actionNamed(mTray->contextMenu(), "Phone Battery: 45%"));
}

void TestTray::closePopupsEntryFollowsPopups()
{
    auto closeEntryVisible = [this] {
        return visibleEntries(mTray->contextMenu()).contains(QStringLiteral("Close All Popup Windows"));
    };
    QVERIFY(!closeEntryVisible());
    mTray->addCloseQuickReplyWindowsOption();
    QVERIFY(closeEntryVisible());
    // Ungated: a signed-out user can still close what is open.
    QVERIFY(actionNamed(mTray->contextMenu(), QStringLiteral("Close All Popup Windows"))->isEnabled());
    QCOMPARE(visibleEntries(mTray->contextMenu()).indexOf(QStringLiteral("Close All Popup Windows")), 6);

    mPage.clear();
    actionNamed(mTray->contextMenu(), QStringLiteral("Close All Popup Windows"))->trigger();
    QVERIFY(!closeEntryVisible());
    QVERIFY(mPage.events().contains(QStringLiteral("ga:close-quickreply-windows-kg-qt:k-icon")));
}

void TestTray::clicks_data()
{
    QTest::addColumn<int>("buttonValue");
    QTest::addColumn<bool>("doubleClick");
    QTest::addColumn<bool>("menuOpens");
    QTest::addColumn<bool>("mainWindowShows");

    QTest::newRow("left") << int(Qt::LeftButton) << false << true << false;
    QTest::newRow("middle") << int(Qt::MiddleButton) << false << true << false;
    // The platform opens the menu for a right click; the tray's own code does nothing more.
    QTest::newRow("right") << int(Qt::RightButton) << false << true << false;
    // The first press of a double click opens the menu; the main window then takes over.
    QTest::newRow("double") << int(Qt::LeftButton) << true << false << true;
}

void TestTray::clicks()
{
    QFETCH(int, buttonValue);
    const auto button = Qt::MouseButton(buttonValue);
    QFETCH(bool, doubleClick);
    QFETCH(bool, menuOpens);
    QFETCH(bool, mainWindowShows);

    mMainWindow->hide();
    QWidget* icon = trayWidget();
    QVERIFY(icon);
    const QPoint centre = icon->rect().center();
    if (doubleClick)
        QTest::mouseDClick(icon, button, Qt::NoModifier, centre);
    else
        QTest::mouseClick(icon, button, Qt::NoModifier, centre);

    if (menuOpens)
        QTRY_VERIFY(mTray->contextMenu()->isVisible());
    if (mainWindowShows)
        QTRY_VERIFY(mMainWindow->isVisible());
    else
        QVERIFY(!mMainWindow->isVisible());
    closeMenu();
    QTRY_VERIFY(!mTray->contextMenu()->isVisible());
}

void TestTray::realLeftClickOpensMenu()
{
    // A click through the X server and the desktop's tray, not a synthetic event.
    QTRY_VERIFY(trayWidget() && trayWidget()->isVisible());
    QVERIFY(QTest::qWaitForWindowExposed(trayWidget()));
    const QRect area = mTray->geometry();
    QVERIFY(area.isValid());
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(area.center().x()),
                                                 QString::number(area.center().y()), QStringLiteral("click"),
                                                 QStringLiteral("1")});
    QVERIFY2(xdotool.waitForFinished(10000), "xdotool is needed for this test");
    QCOMPARE(xdotool.exitCode(), 0);
    QTRY_VERIFY(mTray->contextMenu()->isVisible());

    closeMenu();
}

void TestTray::menuChoicesLogAndReachPage_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QStringList>("events");

    QTest::newRow("compose") << "New Message..."
                             << QStringList {"ga:compose-new-from-k-icon-dropdown-qt:pc",
                                    "km:compose-new-from-k-icon-dropdown-qt:{\"os\":\"pc\"}", "compose"};
    QTest::newRow("live view") << "Live Phone Notifications"
                               << QStringList {"ga:live-phone-view-from-k-icon-dropdown-qt:k-icon",
                                      "km:live-phone-view-from-k-icon-dropdown-qt:{\"location\":\"k-icon\",\"os\":\"pc\"}",
                                      "open:phone_notif_live_view_standalone"};
    QTest::newRow("dialer") << "Phone Dialer"
                            << QStringList {"ga:phone-dialer-from-k-icon-dropdown-qt:k-icon",
                                   "km:phone-dialer-from-k-icon-dropdown-qt:{\"location\":\"k-icon\",\"os\":\"pc\"}",
                                   "open:dialer_view_standalone"};
    QTest::newRow("open") << "Open Kestrelgap"
                          << QStringList {"ga:open-kg-main-window-qt:k-icon",
                                 "km:open-kg-main-window-qt:{\"location\":\"k-icon\",\"os\":\"pc\"}"};
}

void TestTray::menuChoicesLogAndReachPage()
{
    QFETCH(QString, entry);
    QFETCH(QStringList, events);

    mIndexWindow->updateClientLoginStateForMenuItems(true);
    mMainWindow->hide();
    mPage.clear();
    QAction* action = actionNamed(mTray->contextMenu(), entry);
    QVERIFY(action);
    action->trigger();
    QCOMPARE(mPage.events(), events);
    if (entry == QLatin1String("Open Kestrelgap"))
        QTRY_VERIFY(mMainWindow->isVisible());
    mIndexWindow->updateClientLoginStateForMenuItems(false);
}

void TestTray::decliningQuitKeepsIcon()
{
    mPage.clear();
    QString seen;
    answerNextMessageBox(QMessageBox::No, &seen);
    actionNamed(mTray->contextMenu(), QStringLiteral("Quit Kestrelgap"))->trigger();
    QCOMPARE(seen, QStringLiteral("Are you sure you want to quit Kestrelgap?"));
    QVERIFY(mTray->trayIcon()->isVisible());
    QVERIFY(mPage.events().contains(QStringLiteral("ga:quit-kg-qt:k-icon")));

    // Yes hides the icon before the program ends.
    answerNextMessageBox(QMessageBox::Yes, &seen);
    actionNamed(mTray->contextMenu(), QStringLiteral("Quit Kestrelgap"))->trigger();
    QVERIFY(!mTray->trayIcon()->isVisible());
}

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
