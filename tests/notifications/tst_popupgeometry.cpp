// Where popups stand on a real X screen: placement of new popups and the reflow after a close.
// Every expected figure is worked out here from the screen in use, its scale factors and the
// frames the window manager draws, so the same tables hold on any screen size, with or without
// a window manager.
#include <QtTest>

#include <QApplication>
#include <QScreen>

#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "popuptestsupport.h"

namespace {

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

} // namespace

Q_DECLARE_METATYPE(PopupStep)
Q_DECLARE_METATYPE(Placed)

class TestPopupGeometry : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void stackedPlacement_data();
    void stackedPlacement();
    void composeWindowAtTrayIcon_data();
    void composeWindowAtTrayIcon();
    void shownAtCreation_data();
    void shownAtCreation();
    void reflowAfterClose_data();
    void reflowAfterClose();

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

void TestPopupGeometry::initTestCase()
{
    mMainWindow = PopupTest::setUp(&mTray);
    mScreen = PopupTest::screen();
    qInfo("screen: available %dx%d, scale %.1f, os scale %.1f, window manager %s", mScreen.availableWidth,
        mScreen.availableHeight, mScreen.scale, mScreen.osScale, mScreen.windowManager ? "yes" : "no");

    // The frame a popup gets on this desktop.
    NotificationWindow* probe = PopupTest::openShown(QStringLiteral("probe"));
    QVERIFY(probe);
    mLeftBorder = probe->geometry().left() - probe->frameGeometry().left();
    mFrameExtra = probe->frameGeometry().height() - probe->geometry().height();
    QCOMPARE(mFrameExtra > 0, mScreen.windowManager);
    QVERIFY(PopupTest::closeAll());

    const int height = mScreen.scaled(200);
    const int pitch = height + mScreen.titleBarAllowance() + mScreen.windowSpacing();
    while (mScreen.titleBarAllowance() + mPerColumn * pitch + height <= mScreen.availableHeight)
        ++mPerColumn;
    QVERIFY2(mPerColumn >= 3, "the tables need room for three popups in a column");
}

void TestPopupGeometry::cleanupTestCase()
{
    PopupTest::tearDown(mMainWindow);
}

void TestPopupGeometry::cleanup()
{
    QVERIFY(PopupTest::closeAll());
}

Placed TestPopupGeometry::standard(int column, int row, int index) const
{
    const int width = mScreen.scaled(300);
    const int pitch = mScreen.scaled(200) + mScreen.titleBarAllowance() + mScreen.windowSpacing();
    const int firstColumnX = mScreen.availableWidth - (mScreen.windowSpacing() + width);
    // A column opened by overflow stands against the frame of the one before it, with no gap.
    const int x = firstColumnX - (column - 1) * (width + mLeftBorder);
    return { x, mScreen.titleBarAllowance() + row * pitch, column, index };
}

QList<NotificationWindow*> TestPopupGeometry::openAll(const QList<PopupStep>& steps)
{
    QList<NotificationWindow*> windows;
    for (const PopupStep& step : steps) {
        NotificationWindow* window = PopupTest::openShown(step.key, step.width, step.height);
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

void TestPopupGeometry::stackedPlacement_data()
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

void TestPopupGeometry::stackedPlacement()
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

void TestPopupGeometry::composeWindowAtTrayIcon_data()
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

void TestPopupGeometry::composeWindowAtTrayIcon()
{
    QFETCH(QRect, icon);
    QFETCH(QPoint, expected);

    mTray.iconGeometry = icon;
    const int addedBefore = mTray.added;
    NotificationWindow* compose = NotificationWindowManager::getInstance()->createNotificationWindow(
        QStringLiteral("native_compose_new_window_1"), QStringLiteral("{}"), 400, 500);
    QVERIFY(compose->isVisible());
    QVERIFY(PopupTest::waitFramed(compose));
    QTRY_COMPARE(compose->geometry().topLeft(), expected);
    QCOMPARE(compose->property(PopupProperty::finalXPosition).toInt(), expected.x());
    // Outside the stack: no record of a place in it, and no close entry for it.
    QVERIFY(!compose->property(PopupProperty::widgetIndex).isValid());
    QVERIFY(!compose->property(PopupProperty::column).isValid());
    QCOMPARE(mTray.added, addedBefore);
    QTRY_VERIFY(compose->isActiveWindow());
}

void TestPopupGeometry::shownAtCreation_data()
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

void TestPopupGeometry::shownAtCreation()
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
void TestPopupGeometry::reflowAfterClose_data()
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

void TestPopupGeometry::reflowAfterClose()
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

    const int highestIndex = windows.last()->property(PopupProperty::widgetIndex).toInt();
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
    }

    // The chain keeps its indices, so the next popup continues below the newest.
    NotificationWindow* next = PopupTest::openShown(QStringLiteral("after"));
    QVERIFY(next);
    const int expectedIndex = closed == windows.size() - 1 ? closed + 1 : highestIndex + 1;
    QCOMPARE(next->property(PopupProperty::widgetIndex).toInt(), expectedIndex);
}

QTEST_MAIN(TestPopupGeometry)
#include "tst_popupgeometry.moc"
