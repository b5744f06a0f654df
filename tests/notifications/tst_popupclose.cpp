// Finding and closing popups with the real popup page: the page is asked before a popup goes, the
// stack closes up behind it, and the tray's close entry goes with the last quick reply.
#include <QtTest>

#include <QApplication>
#include <QScreen>
#include <QJsonDocument>
#include <QJsonObject>

#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "popuptestsupport.h"

namespace {

NotificationWindowManager* manager()
{
    return NotificationWindowManager::getInstance();
}

// Counts the close events a window receives.
class CloseEventCounter : public QObject
{
public:
    int count = 0;

protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        if (event->type() == QEvent::Close)
            ++count;
        return false;
    }
};

// The keys for which the main page was told to mark messages read.
QStringList markedRead()
{
    QStringList keys;
    for (const QString& call : PopupTest::mainPageCalls()) {
        const QJsonObject object = QJsonDocument::fromJson(call.toUtf8()).object();
        if (object.value(QStringLiteral("action")).toString() == QLatin1String("mark-read"))
            keys << object.value(QStringLiteral("key")).toString();
    }
    return keys;
}

void typeReply(NotificationWindow* window, const QString& text)
{
    PopupTest::evaluate(window, QStringLiteral("document.getElementById('reply').value = '%1'; updateSend();").arg(text));
}

bool discardQuestionShown(NotificationWindow* window)
{
    return PopupTest::evaluate(window, QStringLiteral("document.getElementById('confirm').className")).toString()
        == QLatin1String("confirm shown");
}

bool makeActive(QWidget* window)
{
    window->activateWindow();
    QApplication::setActiveWindow(window);
    return QTest::qWaitFor([window]() { return window->isActiveWindow(); }, 5000);
}

} // namespace

class TestPopupClose : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void lookups_data();
    void lookups();
    void activeWindowIncludesCompose_data();
    void activeWindowIncludesCompose();
    void bulkCloses_data();
    void bulkCloses();
    void closeRequests_data();
    void closeRequests();
    void trayEntryAndReflow_data();
    void trayEntryAndReflow();
    void secondPayloadReachesOpenPopup();
    void hackWindow();
    // Last: after quit the helper window is gone for the rest of the process.
    void hackWindowClosesAtQuit();

private:
    TrayStandIn mTray;
    MainWindow* mMainWindow = nullptr;
};

void TestPopupClose::initTestCase()
{
    mMainWindow = PopupTest::setUp(&mTray);
    // One close has happened in this process before any row runs, as in a running program.
    NotificationWindow* first = PopupTest::openShown(QStringLiteral("first"));
    QVERIFY(first);
    QPointer<NotificationWindow> gone(first);
    first->forceClose();
    QTRY_VERIFY(!gone);
}

void TestPopupClose::cleanupTestCase()
{
    PopupTest::tearDown(mMainWindow);
}

void TestPopupClose::init()
{
    PopupTest::clearMainPageCalls();
    mTray.added = mTray.removed = 0;
}

void TestPopupClose::cleanup()
{
    QVERIFY(PopupTest::closeAll());
}

void TestPopupClose::lookups_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<bool>("pastRunClose");
    QTest::addColumn<bool>("has");
    QTest::addColumn<bool>("found");
    QTest::addColumn<int>("count");

    QTest::newRow("quick reply") << "thread-1" << "thread-1" << false << true << true << 1;
    QTest::newRow("other key") << "thread-1" << "thread-2" << false << false << false << 1;
    QTest::newRow("keys are case-sensitive") << "thread-1" << "THREAD-1" << false << false << false << 1;
    QTest::newRow("live phone view counts") << "phone_notif_live_view_x" << "phone_notif_live_view_x" << false << true
                                            << true << 1;
    QTest::newRow("compose window is there but not a popup")
        << "native_compose_new_window" << "native_compose_new_window" << false << true << false << 0;
    QTest::newRow("closing popup still holds its key") << "thread-1" << "thread-1" << true << true << false << 0;
    QTest::newRow("empty key finds nothing") << "thread-1" << "" << false << false << false << 1;
}

void TestPopupClose::lookups()
{
    QFETCH(QString, key);
    QFETCH(QString, asked);
    QFETCH(bool, pastRunClose);
    QFETCH(bool, has);
    QFETCH(bool, found);
    QFETCH(int, count);

    NotificationWindow* window = PopupTest::openShown(key);
    QVERIFY(window);
    if (pastRunClose) {
        // Straight from the page: the window is finished and waits for the event loop to delete it.
        PopupTest::evaluate(window, QStringLiteral("qtNotificationWindow.doClose()"));
    }
    QCOMPARE(manager()->hasNotificationWindow(asked), has);
    QCOMPARE(manager()->getNotificationWindow(asked), found ? window : nullptr);
    QCOMPARE(manager()->notificationWindowCount(), count);
}

void TestPopupClose::activeWindowIncludesCompose_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("count");

    QTest::newRow("quick reply") << "thread-1" << 1;
    QTest::newRow("compose window") << "native_compose_new_window" << 0;
}

void TestPopupClose::activeWindowIncludesCompose()
{
    QFETCH(QString, key);
    QFETCH(int, count);

    QVERIFY(makeActive(mMainWindow));
    NotificationWindow* window = PopupTest::openShown(key);
    QVERIFY(window);
    QVERIFY(makeActive(mMainWindow));
    QCOMPARE(manager()->getActiveNotificationWindow(), nullptr);
    QVERIFY(makeActive(window));
    QCOMPARE(manager()->getActiveNotificationWindow(), window);
    QCOMPARE(manager()->notificationWindowCount(), count);
}

void TestPopupClose::bulkCloses_data()
{
    QTest::addColumn<bool>("quickRepliesOnly");
    QTest::addColumn<QStringList>("survivors");

    QTest::newRow("quick replies only") << true
                                        << QStringList { "native_compose_new_window", "phone_notif_live_view_a" };
    QTest::newRow("every popup") << false << QStringList {};
}

void TestPopupClose::bulkCloses()
{
    QFETCH(bool, quickRepliesOnly);
    QFETCH(QStringList, survivors);

    const QStringList keys { "thread-1", "phone_notif_live_view_a", "thread-2", "native_compose_new_window",
        "thread-3-withfocus" };
    QMap<QString, QPointer<NotificationWindow>> windows;
    for (const QString& key : keys) {
        windows.insert(key, PopupTest::openShown(key));
        QVERIFY(windows.value(key));
    }
    QPointer<NotificationWindow> helper(manager()->getHackWindow());
    if (quickRepliesOnly)
        manager()->closeAllQuickReplyWindows();
    else
        manager()->closeAllNotificationWindows();

    for (const QString& key : keys) {
        if (survivors.contains(key))
            QVERIFY2(windows.value(key), qPrintable(key));
        else
            QTRY_VERIFY2(!windows.value(key), qPrintable(key));
    }
    QVERIFY(helper);
    QCOMPARE(markedRead().size(), keys.size() - survivors.size());
}

// How a close is asked for, whether the reply box holds text, and what follows. A popup opened
// after the one closed shows whether the stack closed up behind it.
void TestPopupClose::closeRequests_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<bool>("unsent");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<bool>("closeEvent");

    QTest::newRow("Ctrl+W, nothing unsent: the page answers at once") << "ctrl-w" << false << true << true;
    QTest::newRow("Ctrl+W, unsent reply: the page refuses") << "ctrl-w" << true << false << true;
    QTest::newRow("Ctrl+W, unsent reply, then Discard") << "ctrl-w then discard" << true << true << true;
    QTest::newRow("Ctrl+W, unsent reply, then Keep") << "ctrl-w then keep" << true << false << true;
    QTest::newRow("main window's Close on the active popup") << "main close" << false << true << true;
    QTest::newRow("main window's Close, unsent reply") << "main close" << true << false << true;
    QTest::newRow("page closes itself by any key") << "closeQuickReply" << false << true << true;
    QTest::newRow("page forces the close over unsent text") << "page forceClose" << true << true << true;
    QTest::newRow("page calls doClose directly") << "page doClose" << true << true << false;
    QTest::newRow("closed by key from the main page") << "by key" << true << true << true;
    QTest::newRow("forceClose twice") << "forceClose twice" << false << true << true;
}

void TestPopupClose::closeRequests()
{
    QFETCH(QString, trigger);
    QFETCH(bool, unsent);
    QFETCH(bool, closes);
    QFETCH(bool, closeEvent);

    NotificationWindow* target = PopupTest::openShown(QStringLiteral("target"));
    NotificationWindow* follower = PopupTest::openShown(QStringLiteral("follower"));
    QVERIFY(target && follower);
    const QRect targetPlace = target->geometry();
    const QRect followerPlace = follower->geometry();
    if (unsent)
        typeReply(target, QStringLiteral("see you at"));
    CloseEventCounter closeEvents;
    target->installEventFilter(&closeEvents);
    QPointer<NotificationWindow> guard(target);

    if (trigger.startsWith(QLatin1String("ctrl-w"))) {
        QVERIFY(makeActive(target));
        QTest::keyClick(target, Qt::Key_W, Qt::ControlModifier);
        if (trigger.endsWith(QLatin1String("discard")) || trigger.endsWith(QLatin1String("keep"))) {
            QVERIFY(guard && discardQuestionShown(target));
            const QString button = trigger.endsWith(QLatin1String("discard")) ? "discard" : "keep";
            PopupTest::evaluate(target, QStringLiteral("document.getElementById('%1').click()").arg(button));
        }
    } else if (trigger == QLatin1String("main close")) {
        QVERIFY(makeActive(target));
        mMainWindow->closeActionClicked();
    } else if (trigger == QLatin1String("closeQuickReply")) {
        PopupTest::evaluate(target, QStringLiteral("qtNotificationWindow.closeQuickReply('follower')"));
    } else if (trigger == QLatin1String("page forceClose")) {
        PopupTest::evaluate(target, QStringLiteral("qtNotificationWindow.forceClose()"));
    } else if (trigger == QLatin1String("page doClose")) {
        PopupTest::evaluate(target, QStringLiteral("qtNotificationWindow.doClose()"));
    } else if (trigger == QLatin1String("by key")) {
        manager()->closeNotificationWindow(QStringLiteral("target"));
    } else if (trigger == QLatin1String("forceClose twice")) {
        target->forceClose();
        target->forceClose();
    }

    if (closes) {
        QTRY_VERIFY(!guard);
        QCOMPARE(closeEvents.count > 0, closeEvent);
        QCOMPARE(markedRead(), QStringList { "target" });
        QTRY_COMPARE(follower->geometry().topLeft(), targetPlace.topLeft());
        QCOMPARE(follower->property(PopupProperty::yPosition).toInt(), targetPlace.top());
        QCOMPARE(mTray.removed, 0);
        return;
    }
    // Refused: everything as it was, and the page shows its question.
    QVERIFY(closeEvents.count > 0);
    QVERIFY(guard && target->isVisible());
    QCOMPARE(target->property(PopupProperty::widgetType).toString(), QStringLiteral("notification-window"));
    QCOMPARE(manager()->notificationWindowCount(), 2);
    QCOMPARE(manager()->getNotificationWindow(QStringLiteral("target")), target);
    QCOMPARE(markedRead(), QStringList {});
    QCOMPARE(follower->geometry(), followerPlace);
    QVERIFY(!follower->property(PopupProperty::windowRepositioned).isValid());
    QCOMPARE(mTray.removed, 0);
    QCOMPARE(discardQuestionShown(target), !trigger.endsWith(QLatin1String("keep")));
    QCOMPARE(PopupTest::evaluate(target, QStringLiteral("document.getElementById('reply').value")).toString(),
        QStringLiteral("see you at"));
}

// Which popups are open, which one closes, and what that does to the tray and the stack.
void TestPopupClose::trayEntryAndReflow_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("closed");
    QTest::addColumn<int>("removed");
    QTest::addColumn<bool>("othersMove");

    const QString compose = QStringLiteral("native_compose_new_window");
    QTest::newRow("last quick reply") << QStringList { "q1" } << "q1" << 1 << false;
    QTest::newRow("first of two quick replies") << QStringList { "q1", "q2" } << "q1" << 0 << true;
    QTest::newRow("compose beside one quick reply") << QStringList { compose, "q1" } << compose << 1 << false;
    QTest::newRow("compose beside two quick replies") << QStringList { "q1", "q2", compose } << compose << 0 << false;
    QTest::newRow("quick reply beside a live view")
        << QStringList { "q1", "phone_notif_live_view_1" } << "q1" << 0 << true;
    QTest::newRow("newest of three") << QStringList { "q1", "q2", "q3" } << "q3" << 0 << false;
}

void TestPopupClose::trayEntryAndReflow()
{
    QFETCH(QStringList, keys);
    QFETCH(QString, closed);
    QFETCH(int, removed);
    QFETCH(bool, othersMove);

    QMap<QString, NotificationWindow*> windows;
    for (const QString& key : keys) {
        windows.insert(key, PopupTest::openShown(key));
        QVERIFY(windows.value(key));
    }
    QMap<QString, QRect> before;
    for (const QString& key : keys)
        before.insert(key, windows.value(key)->geometry());

    QPointer<NotificationWindow> guard(windows.value(closed));
    windows.value(closed)->forceClose();
    QTRY_VERIFY(!guard);
    QCOMPARE(mTray.removed, removed);
    QCOMPARE(markedRead(), QStringList { closed });

    bool moved = false;
    for (const QString& key : keys) {
        if (key == closed)
            continue;
        moved = moved || windows.value(key)->property(PopupProperty::windowRepositioned).isValid();
        if (!othersMove)
            QCOMPARE(windows.value(key)->geometry(), before.value(key));
    }
    QCOMPARE(moved, othersMove);
}

void TestPopupClose::secondPayloadReachesOpenPopup()
{
    NotificationWindow* window = PopupTest::openShown(QStringLiteral("thread-9"));
    QVERIFY(window);
    const QString count = QStringLiteral("document.querySelectorAll('.message').length");
    QCOMPARE(PopupTest::evaluate(window, count).toInt(), 1);
    PopupTest::evaluate(window,
        QStringLiteral("processSecondJSONPayloadForAlreadyOpenedNotificationWindowHelper('%1');")
            .arg(QStringLiteral("{\"message\":\"And one more\"}")));
    QCOMPARE(PopupTest::evaluate(window, count).toInt(), 2);
    // A payload that isn't JSON is logged by the page and adds nothing.
    PopupTest::evaluate(window,
        QStringLiteral("processSecondJSONPayloadForAlreadyOpenedNotificationWindowHelper('{not json');"));
    QCOMPARE(PopupTest::evaluate(window, count).toInt(), 2);
    QVERIFY(window->isVisible());
}

void TestPopupClose::hackWindow()
{
    NotificationWindow* helper = manager()->getHackWindow();
    QCOMPARE(manager()->getHackWindow(), helper);
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QCOMPARE(helper->geometry(), QRect(screen.width() - 5, screen.height() - 5, 5, 5));
    QVERIFY(helper->windowFlags().testFlag(Qt::ToolTip));
    QVERIFY(!helper->property(PopupProperty::widgetType).isValid());
    // No lookup finds it, and closing every popup leaves it.
    QCOMPARE(manager()->notificationWindowCount(), 0);
    QVERIFY(!manager()->hasNotificationWindow(QString()));
    helper->showNormal();
    manager()->closeAllNotificationWindows();
    QVERIFY(helper->isVisible());
}

void TestPopupClose::hackWindowClosesAtQuit()
{
    QPointer<NotificationWindow> helper(manager()->getHackWindow());
    helper->showNormal();
    CloseEventCounter closeEvents;
    helper->installEventFilter(&closeEvents);
    mMainWindow->aboutToQuit();
    QCOMPARE(closeEvents.count, 1);
    QTRY_VERIFY(!helper);
}

QTEST_MAIN(TestPopupClose)
#include "tst_popupclose.moc"
