// Popups on a real X screen with the real popup page: where new popups stand, how the stack closes
// up after a close, and how a close is asked of the page. Every expected figure is worked out here
// from the screen in use, its scale factors and the frames the window manager draws, so the same
// tables hold on any screen size, with or without a window manager.
#include <QtTest>

#include <QApplication>
#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScreen>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/popuptray.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

// Records what the popups ask of the tray, and puts the tray icon wherever a test needs it.
class TrayStandIn : public PopupTray
{
public:
    QRect geometry() override { return iconGeometry; }
    void addCloseQuickReplyWindowsOption() override { ++added; }
    void removeCloseQuickReplyWindowsOption() override { ++removed; }

    QRect iconGeometry;
    int added = 0;
    int removed = 0;
};

// The desktop the popups are measured against, read from the running screen and window manager.
struct PopupScreen
{
    double scale = 1.0;     // zoom in force: popup sizes
    double osScale = 1.0;   // zoom of the screen: margins
    int availableWidth = 0;
    int availableHeight = 0;
    int screenWidth = 0;
    bool windowManager = false;

    int titleBarAllowance() const { return int(osScale * 33.0); }
    int windowSpacing() const { return int(osScale * 8.0); }
    int scaled(int pageSize) const { return int(pageSize * scale); }
};

bool windowManagerRunning()
{
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK") });
    xprop.waitForFinished(5000);
    return xprop.readAllStandardOutput().contains("window id");
}

QWebFrame* mainPageFrame()
{
    return indexWindowHolder::get()->webView()->page()->mainFrame();
}

const char recorder[] = "window.popupCalls = window.popupCalls || [];"
                        "window.genericNativeNotificationButtonClickedCallbackHelper = function (text) {"
                        "  window.popupCalls.push(text); };";

PopupScreen screen()
{
    PopupScreen s;
    MainWindow* mainWindow = mainWindowHolder::get();
    s.scale = mainWindow->getScaleFactor();
    s.osScale = mainWindow->getOsScaleFactor();
    QScreen* primary = QGuiApplication::primaryScreen();
    s.availableWidth = primary->availableGeometry().width();
    s.availableHeight = primary->availableGeometry().height();
    s.screenWidth = primary->geometry().width();
    static const bool wm = windowManagerRunning();
    s.windowManager = wm;
    return s;
}

// Waits until a shown popup is framed by the window manager, when there is one.
bool waitFramed(NotificationWindow* window)
{
    if (!QTest::qWaitForWindowExposed(window))
        return false;
    if (!screen().windowManager)
        return true;
    // The frame extents arrive after the window manager has reparented the window.
    return QTest::qWaitFor([window]() { return window->frameGeometry().top() < window->geometry().top(); }, 5000);
}

// Creates a popup the way the page's route does and waits until its page has shown it.
NotificationWindow* openShown(const QString& key, int width = 300, int height = 200)
{
    const QString json = QStringLiteral("{\"key\":\"%1\",\"name\":\"%1\",\"message\":\"Are we still on for tonight?\",\"sound\":false}")
                             .arg(key);
    NotificationWindow* window =
        NotificationWindowManager::getInstance()->createNotificationWindow(key, json, width, height);
    QPointer<NotificationWindow> guard(window);
    if (!QTest::qWaitFor([&]() { return guard && guard->isVisible(); }, 10000))
        return nullptr;
    if (!waitFramed(window))
        return nullptr;
    return window;
}

bool closeAll()
{
    QList<QPointer<QWidget>> popups;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->property("window-type") == QVariant(QStringLiteral("notification")))
            popups << widget;
    }
    NotificationWindowManager::getInstance()->closeAllNotificationWindows();
    return QTest::qWaitFor([&popups]() {
        for (const QPointer<QWidget>& popup : popups) {
            if (popup)
                return false;
        }
        return true;
    }, 5000);
}

QVariant evaluate(NotificationWindow* window, const QString& script)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(script);
}

QStringList mainPageCalls()
{
    return mainPageFrame()->evaluateJavaScript(QStringLiteral("window.popupCalls")).toStringList();
}

void clearMainPageCalls()
{
    mainPageFrame()->evaluateJavaScript(QStringLiteral("window.popupCalls = [];"));
}

struct PopupStep
{
    int width;
    int height;
    QString key;
    bool dragAway;   // the user drags it out of the stack right after it opened
};

struct Placed
{
    int x;
    int y;
    int column;
    int index;
};

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
    for (const QString& call : mainPageCalls()) {
        const QJsonObject object = QJsonDocument::fromJson(call.toUtf8()).object();
        if (object.value(QStringLiteral("action")).toString() == QLatin1String("mark-read"))
            keys << object.value(QStringLiteral("key")).toString();
    }
    return keys;
}

void typeReply(NotificationWindow* window, const QString& text)
{
    evaluate(window, QStringLiteral("document.getElementById('reply').value = '%1'; updateSend();").arg(text));
}

bool discardQuestionShown(NotificationWindow* window)
{
    return evaluate(window, QStringLiteral("document.getElementById('confirm').className")).toString()
        == QLatin1String("confirm shown");
}

bool makeActive(QWidget* window)
{
    window->activateWindow();
    QApplication::setActiveWindow(window);
    return QTest::qWaitFor([window]() { return window->isActiveWindow(); }, 5000);
}

} // namespace

Q_DECLARE_METATYPE(PopupStep)
Q_DECLARE_METATYPE(Placed)

class TestPopups : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void stackedPlacement_data();
    void stackedPlacement();
    void composeWindowAtTrayIcon_data();
    void composeWindowAtTrayIcon();
    void shownAtCreation_data();
    void shownAtCreation();
    void reflowAfterClose_data();
    void reflowAfterClose();

    void lookups_data();
    void lookups();
    void bulkCloses_data();
    void bulkCloses();
    void closeRequests_data();
    void closeRequests();
    void trayEntryAndReflow_data();
    void trayEntryAndReflow();
    void replyReachesMainPage_data();
    void replyReachesMainPage();
    // Last: after quit the helper window is gone for the rest of the process.
    void hackWindowClosesAtQuit();

private:
    QList<NotificationWindow*> openAll(const QList<PopupStep>& steps);
    // Client x, client y, column, index of a standard 300x200 popup at a place in the chain.
    Placed standard(int column, int row, int index) const;


    TrayStandIn mTray;
    MainWindow* mMainWindow = nullptr;
    PopupScreen mScreen;
    int mLeftBorder = 0;    // client left minus frame left
    int mFrameExtra = 0;    // frame height minus client height
    int mPerColumn = 0;     // standard popups that fit in one column
};

void TestPopups::initTestCase()
{
    // The main window sets the zoom and stands in for the main page; its start page stays unloaded,
    // as the staged program folder is entered only afterwards, so nothing reaches the network.
    mMainWindow = new MainWindow();
    QSignalSpy startPageDone(mMainWindow->indexWindow()->webView()->page(), &QWebPage::loadFinished);
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    QVERIFY(StagedFolder::enter());
    PopupTray::setInstance(&mTray);
    QVERIFY(QTest::qWaitForWindowExposed(mMainWindow));
    if (startPageDone.isEmpty())
        QVERIFY(startPageDone.wait(5000));
    mainPageFrame()->evaluateJavaScript(QString::fromLatin1(recorder));

    // One close has happened in this process before any row runs, as in a running program.
    NotificationWindow* first = openShown(QStringLiteral("first"));
    QVERIFY(first);
    QPointer<NotificationWindow> gone(first);
    first->forceClose();
    QTRY_VERIFY(!gone);

    mScreen = screen();
    qInfo("screen: available %dx%d, scale %.1f, os scale %.1f, window manager %s", mScreen.availableWidth,
        mScreen.availableHeight, mScreen.scale, mScreen.osScale, mScreen.windowManager ? "yes" : "no");

    // The frame a popup gets on this desktop.
    NotificationWindow* probe = openShown(QStringLiteral("probe"));
    QVERIFY(probe);
    mLeftBorder = probe->geometry().left() - probe->frameGeometry().left();
    mFrameExtra = probe->frameGeometry().height() - probe->geometry().height();
    QCOMPARE(mFrameExtra > 0, mScreen.windowManager);
    QVERIFY(closeAll());

    const int height = mScreen.scaled(200);
    const int pitch = height + mScreen.titleBarAllowance() + mScreen.windowSpacing();
    while (mScreen.titleBarAllowance() + mPerColumn * pitch + height <= mScreen.availableHeight)
        ++mPerColumn;
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
    clearMainPageCalls();
    mTray.added = mTray.removed = 0;
}

void TestPopups::cleanup()
{
    QVERIFY(closeAll());
}

Placed TestPopups::standard(int column, int row, int index) const
{
    const int width = mScreen.scaled(300);
    const int pitch = mScreen.scaled(200) + mScreen.titleBarAllowance() + mScreen.windowSpacing();
    const int firstColumnX = mScreen.availableWidth - (mScreen.windowSpacing() + width);
    // A column opened by overflow stands against the frame of the one before it, with no gap.
    const int x = firstColumnX - (column - 1) * (width + mLeftBorder);
    return { x, mScreen.titleBarAllowance() + row * pitch, column, index };
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

void TestPopups::stackedPlacement_data()
{
    QTest::addColumn<QList<PopupStep>>("steps");
    QTest::addColumn<QList<Placed>>("expected");   // one per step, in order

    auto popups = [](int count, const QString& prefix) {
        QList<PopupStep> steps;
        for (int i = 1; i <= count; ++i)
            steps << PopupStep { 300, 200, prefix + QString::number(i), false };
        return steps;
    };
    const int n = mPerColumn;
    const int tallHeight = int(mScreen.availableHeight / mScreen.scale) + 10;
    const int sw = mScreen.scaled(300);

    {
        QList<Placed> expected;
        for (int row = 0; row < n; ++row)
            expected << standard(1, row, row + 1);
        expected << standard(2, 0, n + 1) << standard(2, 1, n + 2);
        QTest::newRow("column fills, overflows, second column continues") << popups(n + 2, QStringLiteral("q")) << expected;
    }
    {
        QList<PopupStep> steps = popups(4, QStringLiteral("d"));
        steps[2].dragAway = true;
        // The dragged third keeps its index 3, and the next popup takes index 3 and the place again.
        QTest::newRow("dragged popup left out of the stack")
            << steps << QList<Placed> { standard(1, 0, 1), standard(1, 1, 2), standard(1, 2, 3), standard(1, 2, 3) };
    }
    {
        QList<PopupStep> steps = popups(3, QStringLiteral("a"));
        steps[0].dragAway = steps[1].dragAway = true;
        // Each one is dragged before the next opens, so each finds the stack empty.
        QTest::newRow("all dragged away: next is placed like the first")
            << steps << QList<Placed> { standard(1, 0, 1), standard(1, 0, 1), standard(1, 0, 1) };
    }
    {
        const int wide = mScreen.scaled(400);
        const QList<PopupStep> steps { { 400, 200, QStringLiteral("wide"), false }, { 300, 200, QStringLiteral("narrow"), false } };
        // In the first column each popup keeps its own right margin, whatever its width.
        const Placed first { mScreen.availableWidth - (mScreen.windowSpacing() + wide), mScreen.titleBarAllowance(), 1, 1 };
        QTest::newRow("popup of another width") << steps << QList<Placed> { first, standard(1, 1, 2) };
    }
    {
        const QList<PopupStep> steps { { 300, tallHeight, QStringLiteral("tall"), false } };
        // No neighbour to stand against: off the left edge, and used as it comes.
        const Placed tall { -sw - mScreen.windowSpacing(), mScreen.titleBarAllowance(), 2, 1 };
        QTest::newRow("first popup taller than the screen") << steps << QList<Placed> { tall };
    }
    {
        QList<PopupStep> steps = popups(n + 1, QStringLiteral("o"));
        steps << PopupStep { 300, tallHeight, QStringLiteral("tall"), false };
        QList<Placed> expected;
        for (int row = 0; row < n; ++row)
            expected << standard(1, row, row + 1);
        const Placed opener = standard(2, 0, n + 1);
        expected << opener;
        // The opener's left edge is taken off as the right margin as well: far off the screen.
        expected << Placed { opener.x - mLeftBorder - sw - opener.x, mScreen.titleBarAllowance(), 3, n + 2 };
        QTest::newRow("tall popup after a column opener") << steps << expected;
    }
    {
        const QList<PopupStep> steps { { 300, 200, QStringLiteral("f1-withfocus"), false },
            { 300, 200, QStringLiteral("f2"), false }, { 300, 200, QStringLiteral("f1"), false } };
        QTest::newRow("focused popups stack like the others")
            << steps << QList<Placed> { standard(1, 0, 1), standard(1, 1, 2), standard(1, 2, 3) };
    }
}

void TestPopups::stackedPlacement()
{
    QFETCH(QList<PopupStep>, steps);
    QFETCH(QList<Placed>, expected);

    const int addedBefore = mTray.added;
    const QList<NotificationWindow*> windows = openAll(steps);
    QCOMPARE(windows.size(), steps.size());
    // Every quick reply offers the tray's close entry.
    QCOMPARE(mTray.added - addedBefore, steps.size());
    for (int i = 0; i < windows.size(); ++i) {
        NotificationWindow* window = windows.at(i);
        const Placed want = expected.at(i);
        QCOMPARE(window->property(PopupProperty::widgetIndex).toInt(), want.index);
        QCOMPARE(window->property(PopupProperty::column).toInt(), want.column);
        QCOMPARE(window->property(PopupProperty::yPosition).toInt(), want.y);
        QCOMPARE(window->property(PopupProperty::finalXPosition).toInt(), want.x);
        QCOMPARE(window->property(PopupProperty::width).toInt(), mScreen.scaled(steps.at(i).width));
        QCOMPARE(window->property(PopupProperty::height).toInt(), mScreen.scaled(steps.at(i).height));
        QCOMPARE(window->geometry().size(), QSize(mScreen.scaled(steps.at(i).width), mScreen.scaled(steps.at(i).height)));
        // A window manager may keep part of a window on the screen; the place asked for is the record above.
        const bool offScreen = want.x < 0 && mScreen.windowManager;
        if (!steps.at(i).dragAway && !offScreen)
            QTRY_COMPARE(window->geometry().topLeft(), QPoint(want.x, want.y));
    }
}

void TestPopups::composeWindowAtTrayIcon_data()
{
    QTest::addColumn<QRect>("icon");
    QTest::addColumn<QPoint>("expected");

    const int width = mScreen.scaled(400);
    const int height = mScreen.scaled(500);
    const int aw = mScreen.availableWidth;
    const int iconY = mScreen.availableHeight + 2;

    const int iconX = aw - 2 * width;
    QTest::newRow("room beside the icon: centred on its left edge")
        << QRect(iconX, iconY, 22, 22) << QPoint(iconX - width / 2, iconY - height - 10);
    QTest::newRow("icon near the right edge: kept inside")
        << QRect(aw - 10, iconY, 22, 22) << QPoint(aw - width - 10, iconY - height - 10);
    QTest::newRow("icon near the left edge: clear of a bar at the left")
        << QRect(width / 4, iconY, 22, 22) << QPoint(mScreen.screenWidth - aw + 10, iconY - height - 10);
    QTest::newRow("no icon geometry: left, below the title bar allowance")
        << QRect() << QPoint(mScreen.screenWidth - aw + 10, mScreen.titleBarAllowance());
}

void TestPopups::composeWindowAtTrayIcon()
{
    QFETCH(QRect, icon);
    QFETCH(QPoint, expected);

    mTray.iconGeometry = icon;
    const int addedBefore = mTray.added;
    NotificationWindow* compose = NotificationWindowManager::getInstance()->createNotificationWindow(
        QStringLiteral("native_compose_new_window_1"), QStringLiteral("{}"), 400, 500);
    QVERIFY(compose->isVisible());
    QVERIFY(waitFramed(compose));
    QTRY_COMPARE(compose->geometry().topLeft(), expected);
    QCOMPARE(compose->property(PopupProperty::finalXPosition).toInt(), expected.x());
    // Outside the stack: no record of a place in it, and no close entry for it.
    QVERIFY(!compose->property(PopupProperty::widgetIndex).isValid());
    QVERIFY(!compose->property(PopupProperty::column).isValid());
    QCOMPARE(mTray.added, addedBefore);
    QTRY_VERIFY(compose->isActiveWindow());
}

void TestPopups::shownAtCreation_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("shownAtOnce");

    QTest::newRow("quick reply waits for its page") << "thread-7" << false;
    QTest::newRow("focus suffix") << "thread-7-withfocus" << true;
    QTest::newRow("suffix not at the end") << "thread-withfocus-7" << false;
    QTest::newRow("live phone view waits too") << "phone_notif_live_view_standalone" << false;
    QTest::newRow("compose window") << "native_compose_new_window" << true;
    QTest::newRow("compose window with focus suffix") << "native_compose_new_window-withfocus" << true;
}

void TestPopups::shownAtCreation()
{
    QFETCH(QString, key);
    QFETCH(bool, shownAtOnce);

    mTray.iconGeometry = QRect();
    NotificationWindow* window =
        NotificationWindowManager::getInstance()->createNotificationWindow(key, QStringLiteral("{}"), 300, 200);
    QCOMPARE(window->isVisible(), shownAtOnce);
    if (shownAtOnce)
        QTRY_VERIFY(window->isActiveWindow());
    // Either way the page shows it once it has rendered.
    QTRY_VERIFY(window->isVisible());
}

// Closing a popup of the chain. Rows name popups by their place in the order they were opened,
// from 0; all are 300x200 unless the row gives another width.
void TestPopups::reflowAfterClose_data()
{
    QTest::addColumn<QList<PopupStep>>("steps");
    QTest::addColumn<int>("closed");

    auto popups = [](int count) {
        QList<PopupStep> steps;
        for (int i = 0; i < count; ++i)
            steps << PopupStep { 300, 200, QStringLiteral("r%1").arg(i), false };
        return steps;
    };
    QTest::newRow("middle of one column") << popups(3) << 1;
    QTest::newRow("first: the second column empties into the first") << popups(mPerColumn + 1) << 0;
    QTest::newRow("first, with two in the second column") << popups(mPerColumn + 2) << 0;
    QTest::newRow("newest: nothing moves") << popups(3) << 2;
    QTest::newRow("opener of the second column") << popups(mPerColumn + 2) << mPerColumn;
    {
        QList<PopupStep> steps = popups(3);
        steps[1].dragAway = true;
        QTest::newRow("first, with a dragged popup between") << steps << 0;
    }
    {
        QList<PopupStep> steps = popups(3);
        steps[0].width = 400;
        QTest::newRow("after a wider popup that stays") << steps << 1;
    }
    {
        QList<PopupStep> steps = popups(4);
        steps[1].key = QStringLiteral("phone_notif_live_view_1");
        steps[1].width = 400;
        QTest::newRow("a wider live view that stays never sets the line") << steps << 2;
    }
}

void TestPopups::reflowAfterClose()
{
    QFETCH(QList<PopupStep>, steps);
    QFETCH(int, closed);

    const QList<NotificationWindow*> windows = openAll(steps);
    QCOMPARE(windows.size(), steps.size());
    NotificationWindow* closing = windows.at(closed);

    // The x a window that stays supplies: the last one in the application's own window list.
    int lastStayingX = 0;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* window = qobject_cast<NotificationWindow*>(widget);
        if (!windows.contains(window) || window->property(PopupProperty::widgetMoved).toBool())
            continue;
        if (windows.indexOf(window) <= closed && !window->getKey().startsWith(QLatin1String("phone_notif_live_view")))
            lastStayingX = window->geometry().left();
    }

    // Where everything should end up: followers step down by their frame height plus 3 scaled
    // pixels from the closed window's place, each column keeping one spacing from the next.
    QMap<NotificationWindow*, QRect> expected;
    QMap<NotificationWindow*, int> expectedColumn;
    QMap<NotificationWindow*, int> expectedFinalX;
    int y = closing->geometry().top();
    int column = closing->property(PopupProperty::column).toInt();
    for (int i = 0; i < windows.size(); ++i) {
        NotificationWindow* window = windows.at(i);
        if (i <= closed || steps.at(i).dragAway) {
            expected.insert(window, window->geometry());
            continue;
        }
        const QRect client = window->geometry();
        column = qMin(column, window->property(PopupProperty::column).toInt());
        if (client.height() + y > mScreen.availableHeight) {
            ++column;
            y = mScreen.titleBarAllowance();
        }
        const int x = mScreen.availableWidth - (mScreen.windowSpacing() + client.width()) * column;
        const int clampedX = (lastStayingX > 0 && lastStayingX < x) ? lastStayingX : x;
        expected.insert(window, QRect(QPoint(clampedX, y), client.size()));
        expectedColumn.insert(window, column);
        expectedFinalX.insert(window, x);
        y = int(window->frameGeometry().height() + y + mScreen.osScale * 3.0);
    }

    // The next popup continues below the newest window still in the stack.
    int chainEnd = 0;
    for (int i = 0; i < closed; ++i) {
        if (!steps.at(i).dragAway)
            chainEnd = qMax(chainEnd, windows.at(i)->property(PopupProperty::widgetIndex).toInt());
    }
    const int removedBefore = mTray.removed;
    QPointer<NotificationWindow> gone(closing);
    closing->forceClose();
    QTRY_VERIFY(!gone);
    QCOMPARE(mTray.removed, removedBefore);

    for (NotificationWindow* window : windows) {
        if (window == closing)
            continue;
        QTRY_COMPARE(window->geometry(), expected.value(window));
        if (!expectedColumn.contains(window)) {
            QVERIFY(!window->property(PopupProperty::windowRepositioned).isValid());
            continue;
        }
        QCOMPARE(window->property(PopupProperty::column).toInt(), expectedColumn.value(window));
        QCOMPARE(window->property(PopupProperty::yPosition).toInt(), expected.value(window).top());
        QCOMPARE(window->property(PopupProperty::finalYPosition).toInt(), expected.value(window).top());
        QCOMPARE(window->property(PopupProperty::finalXPosition).toInt(), expectedFinalX.value(window));
        // Held short of its recorded place by 5 pixels or more, a window counts as dragged away.
        const bool droppedOut = qAbs(expected.value(window).left() - expectedFinalX.value(window)) >= 5;
        QCOMPARE(window->property(PopupProperty::widgetMoved).toBool(), droppedOut);
        if (!droppedOut)
            chainEnd = qMax(chainEnd, window->property(PopupProperty::widgetIndex).toInt());
    }

    // The chain keeps its indices.
    NotificationWindow* next = openShown(QStringLiteral("after"));
    QVERIFY(next);
    QCOMPARE(next->property(PopupProperty::widgetIndex).toInt(), chainEnd + 1);
}

void TestPopups::lookups_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<bool>("pastRunClose");
    QTest::addColumn<bool>("has");
    QTest::addColumn<bool>("found");
    QTest::addColumn<int>("count");

    QTest::newRow("quick reply") << "thread-1" << "thread-1" << false << true << true << 1;
    QTest::newRow("keys are case-sensitive") << "thread-1" << "THREAD-1" << false << false << false << 1;
    QTest::newRow("live phone view counts") << "phone_notif_live_view_x" << "phone_notif_live_view_x" << false << true
                                            << true << 1;
    QTest::newRow("compose window is there but not a popup")
        << "native_compose_new_window" << "native_compose_new_window" << false << true << false << 0;
    QTest::newRow("closing popup still holds its key") << "thread-1" << "thread-1" << true << true << false << 0;
}

void TestPopups::lookups()
{
    QFETCH(QString, key);
    QFETCH(QString, asked);
    QFETCH(bool, pastRunClose);
    QFETCH(bool, has);
    QFETCH(bool, found);
    QFETCH(int, count);

    NotificationWindow* window = openShown(key);
    QVERIFY(window);
    if (pastRunClose) {
        // Straight from the page: the window is finished and waits for the event loop to delete it.
        evaluate(window, QStringLiteral("qtNotificationWindow.doClose()"));
    }
    QCOMPARE(manager()->hasNotificationWindow(asked), has);
    QCOMPARE(manager()->getNotificationWindow(asked), found ? window : nullptr);
    QCOMPARE(manager()->notificationWindowCount(), count);
}

void TestPopups::bulkCloses_data()
{
    QTest::addColumn<bool>("quickRepliesOnly");
    QTest::addColumn<QStringList>("survivors");

    QTest::newRow("quick replies only") << true
                                        << QStringList { "native_compose_new_window", "phone_notif_live_view_a" };
    QTest::newRow("every popup") << false << QStringList {};
}

void TestPopups::bulkCloses()
{
    QFETCH(bool, quickRepliesOnly);
    QFETCH(QStringList, survivors);

    const QStringList keys { "thread-1", "phone_notif_live_view_a", "thread-2", "native_compose_new_window",
        "thread-3-withfocus" };
    QMap<QString, QPointer<NotificationWindow>> windows;
    for (const QString& key : keys) {
        windows.insert(key, openShown(key));
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
void TestPopups::closeRequests_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<bool>("unsent");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<bool>("closeEvent");

    QTest::newRow("Ctrl+W, nothing unsent: the page answers at once") << "ctrl-w" << false << true << true;
    QTest::newRow("Ctrl+W, unsent reply: the page refuses") << "ctrl-w" << true << false << true;
    QTest::newRow("Ctrl+W, unsent reply, then Discard") << "ctrl-w then discard" << true << true << true;
    QTest::newRow("main window's Close, unsent reply") << "main close" << true << false << true;
    QTest::newRow("page calls doClose directly") << "page doClose" << true << true << false;
    QTest::newRow("closed by key from the main page") << "by key" << true << true << true;
    QTest::newRow("forceClose twice") << "forceClose twice" << false << true << true;
}

void TestPopups::closeRequests()
{
    QFETCH(QString, trigger);
    QFETCH(bool, unsent);
    QFETCH(bool, closes);
    QFETCH(bool, closeEvent);

    NotificationWindow* target = openShown(QStringLiteral("target"));
    NotificationWindow* follower = openShown(QStringLiteral("follower"));
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
        if (trigger.endsWith(QLatin1String("discard"))) {
            QVERIFY(guard && discardQuestionShown(target));
            evaluate(target, QStringLiteral("document.getElementById('discard').click()"));
        }
    } else if (trigger == QLatin1String("main close")) {
        QVERIFY(makeActive(target));
        mMainWindow->closeActionClicked();
    } else if (trigger == QLatin1String("page doClose")) {
        evaluate(target, QStringLiteral("qtNotificationWindow.doClose()"));
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
    QVERIFY(discardQuestionShown(target));
    QCOMPARE(evaluate(target, QStringLiteral("document.getElementById('reply').value")).toString(),
        QStringLiteral("see you at"));
}

// Which popups are open, which one closes, and what that does to the tray and the stack.
void TestPopups::trayEntryAndReflow_data()
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

void TestPopups::trayEntryAndReflow()
{
    QFETCH(QStringList, keys);
    QFETCH(QString, closed);
    QFETCH(int, removed);
    QFETCH(bool, othersMove);

    QMap<QString, NotificationWindow*> windows;
    for (const QString& key : keys) {
        windows.insert(key, openShown(key));
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

void TestPopups::replyReachesMainPage_data()
{
    QTest::addColumn<QString>("reply");

    QTest::newRow("plain") << "On my way";
    QTest::newRow("quotes") << "It's \"fine\"";
    QTest::newRow("line break and backslash") << "C:\\temp\nsecond line";
    QTest::newRow("script line separator") << QString::fromUtf8("one\u2028two");
}

void TestPopups::replyReachesMainPage()
{
    QFETCH(QString, reply);

    NotificationWindow* window = openShown(QStringLiteral("thread-4"));
    QVERIFY(window);
    // A raw line separator ends a script string in this engine, so the test's own literal escapes it too.
    const QString literal = QString::fromUtf8(QJsonDocument(QJsonArray { reply }).toJson(QJsonDocument::Compact))
                                .replace(QChar(0x2028), QStringLiteral("\\u2028"));
    evaluate(window, QStringLiteral("document.getElementById('reply').value = %1[0]; updateSend();").arg(literal));
    evaluate(window, QStringLiteral("document.getElementById('send').click()"));

    const QStringList calls = mainPageCalls();
    QCOMPARE(calls.size(), 1);
    const QJsonObject sent = QJsonDocument::fromJson(calls.first().toUtf8()).object();
    QCOMPARE(sent.value(QStringLiteral("action")).toString(), QStringLiteral("reply"));
    QCOMPARE(sent.value(QStringLiteral("key")).toString(), QStringLiteral("thread-4"));
    QCOMPARE(sent.value(QStringLiteral("text")).toString(), reply);
    // Sent, so nothing stands in the way of closing any more.
    QCOMPARE(evaluate(window, QStringLiteral("unsentText()")).toBool(), false);
}

void TestPopups::hackWindowClosesAtQuit()
{
    QPointer<NotificationWindow> helper(manager()->getHackWindow());
    QCOMPARE(manager()->getHackWindow(), helper.data());
    helper->showNormal();
    // Shown, it still covers only the five by five pixels in the primary screen's corner.
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QTRY_COMPARE(helper->geometry(), QRect(screen.width() - 5, screen.height() - 5, 5, 5));
    CloseEventCounter closeEvents;
    helper->installEventFilter(&closeEvents);
    mMainWindow->aboutToQuit();
    QCOMPARE(closeEvents.count, 1);
    QTRY_VERIFY(!helper);
}

QTEST_MAIN(TestPopups)
#include "tst_popups.moc"
