// Popups on a real X screen with the real popup page. Where they stand is the placement rules' to say
// (tst_popupgeometry works those by hand); here the windows must land where the rules say for the
// records the real windows carry, on any screen size and with or without a window manager.
#include <QtTest>

#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScreen>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/popupgeometry.h"
#include "notifications/popuptray.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

struct TrayStandIn : PopupTray {
    QRect geometry() override { return QRect(); }
    void addCloseQuickReplyWindowsOption() override { ++added; }
    void removeCloseQuickReplyWindowsOption() override { ++removed; }
    int added = 0, removed = 0;
};

struct PopupStep
{
    int width;
    int height;
    QString key;
    bool dragAway; // the user drags it out of the stack right after it opened
};

NotificationWindowManager* manager() { return NotificationWindowManager::getInstance(); }
QWebFrame* mainPage() { return indexWindowHolder::get()->webView()->page()->mainFrame(); }

QVariant evaluate(NotificationWindow* window, const QString& script)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(script);
}

// The page's requests to the main page with the given action, as JSON objects.
QList<QJsonObject> mainPageCalls(const QString& action)
{
    QList<QJsonObject> calls;
    for (const QString& call : mainPage()->evaluateJavaScript(QStringLiteral("window.popupCalls")).toStringList()) {
        const QJsonObject object = QJsonDocument::fromJson(call.toUtf8()).object();
        if (object.value(QStringLiteral("action")).toString() == action)
            calls << object;
    }
    return calls;
}

QStringList markedRead()
{
    QStringList keys;
    for (const QJsonObject& call : mainPageCalls(QStringLiteral("mark-read")))
        keys << call.value(QStringLiteral("key")).toString();
    return keys;
}

bool discardQuestionShown(NotificationWindow* window)
{
    return evaluate(window, QStringLiteral("document.getElementById('confirm').className")).toString() == "confirm shown";
}

} // namespace

Q_DECLARE_METATYPE(PopupStep)

class TestPopups : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup() { QVERIFY(closeAll()); }
    void stackedPlacement_data();
    void stackedPlacement();
    void launchOpensOnceAndFeedsTheOpenWindow();
    void reflowAfterClose_data();
    void reflowAfterClose();
    void closeRequests_data();
    void closeRequests();
    void trayEntryAndReflow_data();
    void trayEntryAndReflow();
    void replyReachesMainPage();

private:
    NotificationWindow* openShown(const QString& key, int width = 300, int height = 200);
    QList<NotificationWindow*> openAll(const QList<PopupStep>& steps);
    bool closeAll();
    int scaled(int size) const { return int(size * mScale); }
    QList<PopupStep> popups(int count) const;

    TrayStandIn mTray;
    MainWindow* mMainWindow = nullptr;
    double mScale = 1.0;   // zoom in force: popup sizes
    double mOsScale = 1.0; // zoom of the screen: margins
    QRect mAvailable;
    bool mWindowManager = false;
    int mPerColumn = 0;  // standard popups that fit in one column
};

NotificationWindow* TestPopups::openShown(const QString& key, int width, int height)
{
    const QString json = QStringLiteral("{\"key\":\"%1\",\"name\":\"%1\",\"message\":\"Still on for tonight?\",\"sound\":false}").arg(key);
    QPointer<NotificationWindow> window = manager()->createNotificationWindow(key, json, width, height);
    if (!QTest::qWaitFor([&]() { return window && window->isVisible(); }, 10000) || !QTest::qWaitForWindowExposed(window))
        return nullptr;
    // The frame extents arrive after the window manager has reparented the window.
    if (mWindowManager && !QTest::qWaitFor([&]() { return window->frameGeometry().top() < window->geometry().top(); }, 5000))
        return nullptr;
    return window;
}

QList<NotificationWindow*> TestPopups::openAll(const QList<PopupStep>& steps)
{
    QList<NotificationWindow*> windows;
    for (const PopupStep& step : steps) {
        NotificationWindow* window = openShown(step.key, step.width, step.height);
        if (!window)
            return {};
        if (step.dragAway) {
            window->move(window->frameGeometry().left() - 150, window->frameGeometry().top() + 60);
            window->setProperty(PopupProperty::widgetMoved, true);
        }
        windows << window;
    }
    return windows;
}

bool TestPopups::closeAll()
{
    manager()->closeAllNotificationWindows();
    return QTest::qWaitFor([]() {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->property(PopupProperty::windowType) == QVariant(QStringLiteral("notification")))
                return false;
        }
        return true;
    }, 5000);
}

void TestPopups::initTestCase()
{
    // The start page stays unloaded: the staged program folder is entered only afterwards.
    mMainWindow = new MainWindow();
    QSignalSpy startPageDone(mMainWindow->indexWindow()->webView()->page(), &QWebPage::loadFinished);
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    QVERIFY(StagedFolder::enter());
    PopupTray::setInstance(&mTray);
    QVERIFY(QTest::qWaitForWindowExposed(mMainWindow));
    if (startPageDone.isEmpty())
        QVERIFY(startPageDone.wait(5000));
    mainPage()->evaluateJavaScript("window.popupCalls = [];"
                                   "window.genericNativeNotificationButtonClickedCallbackHelper = function (text) {"
                                   "  window.popupCalls.push(text); };");
    mScale = mMainWindow->getScaleFactor();
    mOsScale = mMainWindow->getOsScaleFactor();
    mAvailable = QGuiApplication::primaryScreen()->availableGeometry();
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK") });
    xprop.waitForFinished(5000);
    mWindowManager = xprop.readAllStandardOutput().contains("window id");

    // One close has happened in this process before any row runs, as in a running program.
    NotificationWindow* probe = openShown(QStringLiteral("probe"));
    QVERIFY(probe);
    QPointer<NotificationWindow> gone(probe);
    probe->forceClose();
    QTRY_VERIFY(!gone);

    // How many standard popups fill a column, by the placement rule.
    const QSize standard(scaled(300), scaled(200));
    QList<PopupGeometry::StackedPopup> column;
    for (PopupGeometry::StackPlace p; (p = PopupGeometry::stackedPlace(column, standard, mAvailable.size(), mOsScale)).column == 1;)
        column << PopupGeometry::StackedPopup { p.index, 1, p.y, standard.height(), QRect(QPoint(p.x, p.y), standard), p.x, true };
    mPerColumn = column.size();
    QVERIFY2(mPerColumn >= 3, "the tables need room for three popups in a column");
}

void TestPopups::cleanupTestCase()
{
    QVERIFY(closeAll());
    PopupTray::setInstance(nullptr);
    delete mMainWindow;
}

void TestPopups::init()
{
    mainPage()->evaluateJavaScript(QStringLiteral("window.popupCalls = [];"));
    mTray.added = mTray.removed = 0;
}

QList<PopupStep> TestPopups::popups(int count) const
{
    QList<PopupStep> steps;
    for (int i = 0; i < count; ++i)
        steps << PopupStep { 300, 200, QStringLiteral("p%1").arg(i), false };
    return steps;
}

void TestPopups::stackedPlacement_data()
{
    QTest::addColumn<QList<PopupStep>>("steps");

    QTest::newRow("column fills, overflows, second column continues") << popups(mPerColumn + 2);
    QList<PopupStep> dragged = popups(4);
    dragged[2].dragAway = true;
    QTest::newRow("dragged popup left out of the stack") << dragged;
    QTest::newRow("popup of another width") << QList<PopupStep> { { 400, 200, "wide", false }, { 300, 200, "narrow", false } };
    // As tall as a page may ask for: with the title bar above it, it doesn't fit, and goes off the left edge.
    QTest::newRow("first popup as tall as the screen")
        << QList<PopupStep> { { 300, int(mAvailable.height() / mScale), "tall", false } };
}

void TestPopups::stackedPlacement()
{
    QFETCH(QList<PopupStep>, steps);

    const QList<NotificationWindow*> windows = openAll(steps);
    QCOMPARE(windows.size(), steps.size());
    // Every quick reply offers the tray's close entry.
    QCOMPARE(mTray.added, steps.size());
    QList<PopupGeometry::StackedPopup> stack;
    for (int i = 0; i < windows.size(); ++i) {
        NotificationWindow* window = windows.at(i);
        const QSize size(scaled(steps.at(i).width), scaled(steps.at(i).height));
        const PopupGeometry::StackPlace want = PopupGeometry::stackedPlace(stack, size, mAvailable.size(), mOsScale);
        QCOMPARE(window->property(PopupProperty::widgetIndex).toInt(), want.index);
        QCOMPARE(window->property(PopupProperty::column).toInt(), want.column);
        QCOMPARE(window->property(PopupProperty::yPosition).toInt(), want.y);
        QCOMPARE(window->property(PopupProperty::finalXPosition).toInt(), want.x);
        QCOMPARE(window->size(), size);
        if (steps.at(i).dragAway)
            continue;
        // A window manager may keep part of a window on the screen; the place asked for is the record above.
        if (!(want.x < 0 && mWindowManager))
            QTRY_COMPARE(window->geometry().topLeft(), QPoint(want.x, want.y));
        stack << PopupGeometry::StackedPopup { want.index, want.column, want.y, size.height(), window->geometry(),
            window->frameGeometry().left(), true };
    }
}

// The page's route: a thread's first message opens its popup, later ones join it; a compose window
// holds its key without being a popup that can be fed.
void TestPopups::launchOpensOnceAndFeedsTheOpenWindow()
{
    IndexWindow* page = indexWindowHolder::get();
    QVERIFY(page->launchQuickReply("t1", R"({"key":"t1","name":"Ann","message":"one","sound":false})", 300, 200, "Ann"));
    NotificationWindow* window = manager()->getNotificationWindow("t1");
    QVERIFY(window);
    const QString count = QStringLiteral("document.querySelectorAll('.message').length");
    QTRY_COMPARE(evaluate(window, count).toInt(), 1);
    QTRY_VERIFY(window->isVisible());
    const QRect placed = window->geometry();
    QVERIFY(page->launchQuickReply("t1", R"({"message":"two"})", 500, 500, QString()));
    QTRY_COMPARE(evaluate(window, count).toInt(), 2);
    QCOMPARE(manager()->notificationWindowCount(), 1);
    QCOMPARE(window->geometry(), placed);

    QVERIFY(page->launchQuickReply("native_compose_new_window-1", "{}", 300, 200, QString()));
    QTRY_VERIFY(manager()->hasNotificationWindow("native_compose_new_window-1"));
    QVERIFY(page->launchQuickReply("native_compose_new_window-1", R"({"message":"x"})", 300, 200, QString()));
    QCOMPARE(manager()->notificationWindowCount(), 1);
}

// Closing a popup of the chain: which one, counted from 0 in the order they opened.
void TestPopups::reflowAfterClose_data()
{
    QTest::addColumn<QList<PopupStep>>("steps");
    QTest::addColumn<int>("closed");

    QTest::newRow("middle of one column") << popups(3) << 1;
    QTest::newRow("first: the second column empties into the first") << popups(mPerColumn + 1) << 0;
    QTest::newRow("first, with two in the second column") << popups(mPerColumn + 2) << 0;
    QTest::newRow("opener of the second column") << popups(mPerColumn + 2) << mPerColumn;
    QTest::newRow("newest: nothing moves") << popups(3) << 2;
    QList<PopupStep> dragged = popups(3);
    dragged[1].dragAway = true;
    QTest::newRow("first, with a dragged popup between") << dragged << 0;
}

void TestPopups::reflowAfterClose()
{
    QFETCH(QList<PopupStep>, steps);
    QFETCH(int, closed);

    const QList<NotificationWindow*> windows = openAll(steps);
    QCOMPARE(windows.size(), steps.size());
    NotificationWindow* closing = windows.at(closed);

    // All popups here have one width, so the order of the list doesn't matter.
    QList<PopupGeometry::ReflowPopup> records;
    for (NotificationWindow* window : windows)
        records << PopupGeometry::ReflowPopup { window->property(PopupProperty::widgetIndex).toInt(),
            window->property(PopupProperty::column).toInt(), window->property(PopupProperty::widgetMoved).toBool(), false,
            window->geometry(), window->frameGeometry() };
    QList<QRect> expected;
    QList<int> columns;
    for (const PopupGeometry::ReflowPopup& record : records) {
        expected << record.client;
        columns << record.column;
    }
    for (const PopupGeometry::ReflowMove& move : PopupGeometry::reflow(records, records.at(closed).index,
             records.at(closed).client.top(), records.at(closed).column, mAvailable.size(), mOsScale)) {
        expected[move.popup] = move.to;
        columns[move.popup] = move.column;
    }

    QPointer<NotificationWindow> gone(closing);
    closing->forceClose();
    QTRY_VERIFY(!gone);
    QCOMPARE(mTray.removed, 0);
    int chainEnd = 0;
    for (int i = 0; i < windows.size(); ++i) {
        if (i == closed)
            continue;
        QTRY_COMPARE(windows.at(i)->geometry(), expected.at(i));
        QCOMPARE(windows.at(i)->property(PopupProperty::column).toInt(), columns.at(i));
        if (!steps.at(i).dragAway)
            chainEnd = qMax(chainEnd, windows.at(i)->property(PopupProperty::widgetIndex).toInt());
    }
    // The next popup continues the chain after the newest window still in it.
    NotificationWindow* next = openShown(QStringLiteral("after"));
    QVERIFY(next);
    QCOMPARE(next->property(PopupProperty::widgetIndex).toInt(), chainEnd + 1);
}

// How a close is asked for and whether the reply box holds text.
void TestPopups::closeRequests_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<bool>("unsent");
    QTest::addColumn<bool>("closes");

    QTest::newRow("Ctrl+W, nothing unsent") << "ctrl-w" << false << true;
    QTest::newRow("Ctrl+W, unsent reply: the page asks first") << "ctrl-w" << true << false;
    QTest::newRow("Ctrl+W, unsent reply, then Discard") << "ctrl-w then discard" << true << true;
    QTest::newRow("main window's Close, unsent reply") << "main close" << true << false;
    QTest::newRow("closed by key from the main page") << "by key" << true << true;
    QTest::newRow("forceClose twice") << "forceClose twice" << false << true;
}

void TestPopups::closeRequests()
{
    QFETCH(QString, trigger);
    QFETCH(bool, unsent);
    QFETCH(bool, closes);

    NotificationWindow* target = openShown(QStringLiteral("target"));
    NotificationWindow* follower = openShown(QStringLiteral("follower"));
    QVERIFY(target && follower);
    const QRect targetPlace = target->geometry();
    const QRect followerPlace = follower->geometry();
    if (unsent)
        evaluate(target, QStringLiteral("document.getElementById('reply').value = 'see you at'; updateSend();"));
    QPointer<NotificationWindow> guard(target);

    if (trigger != "by key" && trigger != "forceClose twice") {
        QApplication::setActiveWindow(target);
        QTRY_VERIFY(target->isActiveWindow());
    }
    if (trigger.startsWith(QLatin1String("ctrl-w"))) {
        QTest::keyClick(target, Qt::Key_W, Qt::ControlModifier);
        if (trigger.endsWith(QLatin1String("discard"))) {
            QVERIFY(guard && discardQuestionShown(target));
            evaluate(target, QStringLiteral("document.getElementById('discard').click()"));
        }
    } else if (trigger == QLatin1String("main close")) {
        mMainWindow->closeActionClicked();
    } else if (trigger == QLatin1String("by key")) {
        manager()->closeNotificationWindow(QStringLiteral("target"));
    } else {
        target->forceClose();
        target->forceClose();
    }

    if (closes) {
        QTRY_VERIFY(!guard);
        QCOMPARE(markedRead(), QStringList { "target" });
        QTRY_COMPARE(follower->geometry().topLeft(), targetPlace.topLeft());
        return;
    }
    // Refused: everything as it was, and the page shows its question with the text kept.
    QVERIFY(guard && target->isVisible());
    QCOMPARE(manager()->getNotificationWindow(QStringLiteral("target")), target);
    QCOMPARE(markedRead(), QStringList {});
    QCOMPARE(follower->geometry(), followerPlace);
    QVERIFY(discardQuestionShown(target));
    QCOMPARE(evaluate(target, QStringLiteral("document.getElementById('reply').value")).toString(), "see you at");
}

// Which popups are open, which one closes, and what that does to the tray's entry and the stack.
void TestPopups::trayEntryAndReflow_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("closed");
    QTest::addColumn<int>("removed");
    QTest::addColumn<bool>("othersMove");

    const QString compose = QStringLiteral("native_compose_new_window");
    QTest::newRow("last quick reply") << QStringList { "q1" } << "q1" << 1 << false;
    QTest::newRow("compose beside two quick replies") << QStringList { "q1", "q2", compose } << compose << 0 << false;
    QTest::newRow("quick reply beside a live view") << QStringList { "q1", "phone_notif_live_view_1" } << "q1" << 0 << true;
}

void TestPopups::trayEntryAndReflow()
{
    QFETCH(QStringList, keys);
    QFETCH(QString, closed);
    QFETCH(int, removed);
    QFETCH(bool, othersMove);

    QMap<QString, QPointer<NotificationWindow>> windows;
    QMap<QString, QRect> before;
    for (const QString& key : keys) {
        windows.insert(key, openShown(key));
        QVERIFY(windows.value(key));
        before.insert(key, windows.value(key)->geometry());
    }
    windows.value(closed)->forceClose();
    QTRY_VERIFY(!windows.value(closed));
    QCOMPARE(mTray.removed, removed);
    QCOMPARE(markedRead(), QStringList { closed });
    for (const QString& key : keys) {
        if (key != closed)
            QTRY_COMPARE(windows.value(key)->geometry() != before.value(key), othersMove);
    }
}

void TestPopups::replyReachesMainPage()
{
    const QString reply = QString::fromUtf8("It's \"fine\" in C:\\temp\nsecond line\u2028third");
    NotificationWindow* window = openShown(QStringLiteral("thread-4"));
    QVERIFY(window);
    // A raw line separator ends a script string in this engine, so the test's own literal escapes it too.
    const QString literal = QString::fromUtf8(QJsonDocument(QJsonArray { reply }).toJson(QJsonDocument::Compact))
                                .replace(QChar(0x2028), QStringLiteral("\\u2028"));
    evaluate(window, QStringLiteral("document.getElementById('reply').value = %1[0]; updateSend();").arg(literal));
    evaluate(window, QStringLiteral("document.getElementById('send').click()"));

    const QList<QJsonObject> sent = mainPageCalls(QStringLiteral("reply"));
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent.first().value(QStringLiteral("key")).toString(), QStringLiteral("thread-4"));
    QCOMPARE(sent.first().value(QStringLiteral("text")).toString(), reply);
    // Sent, so nothing stands in the way of closing any more.
    QCOMPARE(evaluate(window, QStringLiteral("unsentText()")).toBool(), false);
}

QTEST_MAIN(TestPopups)
#include "tst_popups.moc"
