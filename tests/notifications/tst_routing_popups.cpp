#include <QtTest>

#include <QAction>
#include <QGraphicsWebView>
#include <QScreen>
#include <QSettings>
#include <QWebFrame>
#include <QWebPage>
#include <QMenu>
#include <QPointer>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

int popupCount()
{
    int count = 0;
    for (QWidget* widget : QApplication::topLevelWidgets())
        count += widget->property("window-type") == QVariant(QStringLiteral("notification"));
    return count;
}

// Opens a popup the way the page does and waits until its page has shown it and the frame is on.
NotificationWindow* openShown(const QString& key, int width = 300, int height = 200)
{
    const QString json = QStringLiteral("{\"name\":\"%1\",\"message\":\"one\",\"sound\":false}").arg(key);
    indexWindowHolder::get()->launchQuickReply(key, json, width, height, QString());
    QPointer<NotificationWindow> window = NotificationWindowManager::getInstance()->getNotificationWindow(key);
    if (!QTest::qWaitFor([&] { return window && window->isVisible(); }, 10000) || !QTest::qWaitForWindowExposed(window))
        return nullptr;
    // With a window manager, wait for the frame; without one there is none to wait for.
    if (!QTest::qWaitFor([&] { return window->frameGeometry().top() < window->geometry().top(); }, 2000))
        qInfo("popup %s has no frame", qPrintable(key));
    return window;
}

int shownMessages(NotificationWindow* window)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript("document.querySelectorAll('.message').length").toInt();
}

// Records where a window's client area stands at each move it is told about.
struct MoveRecorder : QObject {
    QList<QPoint> moves;
    explicit MoveRecorder(QWidget* widget) { widget->installEventFilter(this); }
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Move)
            moves << static_cast<QWidget*>(watched)->geometry().topLeft();
        return false;
    }
};

} // namespace

class TestRoutingPopups : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void launchOpensOnceAndFeedsTheOpenWindow();
    void launchWithKeyButNoWindowOpensNothing();
    void trayEntryFollowsRealPopups();
    void drags_data();
    void drags();
    void resizeFigures_data();
    void resizeFigures();

private:
    // Moves the window's client area the way a drag by the user would, and waits for the move to arrive.
    bool moveBy(QWidget* window, int dx, int dy);

    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
};

void TestRoutingPopups::initTestCase()
{
    // The figures below are at the user's zoom of 1:1 on the runner's 1920x1080 screen.
    QSettings().setValue("mainWindowZoomFactor", "1");
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(StagedFolder::enter());
    QCOMPARE(mMainWindow->getScaleFactor(), 1.0);
    QCOMPARE(QGuiApplication::primaryScreen()->geometry().size(), QSize(1920, 1080));
    WinMenuBarIcon::getInstance(nullptr)->show();
}

void TestRoutingPopups::cleanupTestCase()
{
    delete mMainWindow;
}

void TestRoutingPopups::cleanup()
{
    NotificationWindowManager::getInstance()->closeAllNotificationWindows();
    QTRY_COMPARE(popupCount(), 0);
}

bool TestRoutingPopups::moveBy(QWidget* window, int dx, int dy)
{
    MoveRecorder recorder(window);
    const QPoint target = window->geometry().topLeft() + QPoint(dx, dy);
    window->setGeometry(QRect(target, window->size()));
    return QTest::qWaitFor([&] { return recorder.moves.contains(target); }, 5000);
}

void TestRoutingPopups::launchOpensOnceAndFeedsTheOpenWindow()
{
    const QString json = QStringLiteral("{\"key\":\"t1\",\"name\":\"Ann\",\"message\":\"one\",\"sound\":false}");
    QVERIFY(mIndexWindow->launchQuickReply(QStringLiteral("t1"), json, 300, 200, QStringLiteral("Ann")));
    auto* window = NotificationWindowManager::getInstance()->getNotificationWindow(QStringLiteral("t1"));
    QVERIFY(window);
    QTRY_VERIFY(window->isVisible());
    QTRY_COMPARE(shownMessages(window), 1);
    const QRect placed = window->geometry();

    // The same thread again: no second window, the message joins the open one, nothing else changes.
    QVERIFY(mIndexWindow->launchQuickReply(QStringLiteral("t1"), QStringLiteral("{\"message\":\"two\"}"), 500, 500,
        QString()));
    QCOMPARE(popupCount(), 1);
    QTRY_COMPARE(shownMessages(window), 2);
    QCOMPARE(window->windowTitle(), QStringLiteral("Ann"));
    QCOMPARE(window->geometry(), placed);
}

void TestRoutingPopups::launchWithKeyButNoWindowOpensNothing()
{
    // A compose window holds its key without being a popup that can be fed.
    const QString key = QStringLiteral("native_compose_new_window-1");
    QVERIFY(mIndexWindow->launchQuickReply(key, QStringLiteral("{}"), 300, 200, QString()));
    QTRY_VERIFY(NotificationWindowManager::getInstance()->hasNotificationWindow(key));
    QVERIFY(!NotificationWindowManager::getInstance()->getNotificationWindow(key));
    const int before = popupCount();
    QVERIFY(mIndexWindow->launchQuickReply(key, QStringLiteral("{\"message\":\"x\"}"), 300, 200, QString()));
    QCOMPARE(popupCount(), before);
}

void TestRoutingPopups::trayEntryFollowsRealPopups()
{
    WinMenuBarIcon* tray = WinMenuBarIcon::getInstance(nullptr);
    auto closeEntry = [tray] {
        for (QAction* action : tray->contextMenu()->actions()) {
            if (action->text() == QLatin1String("Close All Popup Windows"))
                return action;
        }
        return static_cast<QAction*>(nullptr);
    };
    QVERIFY(!closeEntry()->isVisible());
    QVERIFY(openShown(QStringLiteral("a")));
    QVERIFY(openShown(QStringLiteral("b")));
    QVERIFY(closeEntry()->isVisible());

    closeEntry()->trigger();
    QTRY_COMPARE(popupCount(), 0);
    QVERIFY(!closeEntry()->isVisible());
}

void TestRoutingPopups::drags_data()
{
    QTest::addColumn<bool>("pageResizedIt");
    QTest::addColumn<QList<QPoint>>("steps");
    QTest::addColumn<bool>("moved");

    QTest::newRow("4 left, 100 down") << false << QList<QPoint> {{-4, 100}} << false;
    QTest::newRow("5 left") << false << QList<QPoint> {{-5, 0}} << true;
    QTest::newRow("back within 5") << false << QList<QPoint> {{-120, 40}, {117, 0}} << false;
    // Judged at its requested size from then on, it can't be dragged out of the stack.
    QTest::newRow("after the page resized it") << true << QList<QPoint> {{-300, 0}} << false;
}

void TestRoutingPopups::drags()
{
    QFETCH(bool, pageResizedIt);
    QFETCH(QList<QPoint>, steps);
    QFETCH(bool, moved);

    NotificationWindow* window = openShown(QStringLiteral("drag"));
    QVERIFY(window);
    if (pageResizedIt) {
        window->resizeWindow(QStringLiteral("drag"), 340, 260);
        QTRY_COMPARE(window->size(), QSize(340, 260));
    }
    for (const QPoint& step : steps)
        QVERIFY(moveBy(window, step.x(), step.y()));
    QCOMPARE(window->property("widget-moved").toBool(), moved);
}

void TestRoutingPopups::resizeFigures_data()
{
    QTest::addColumn<QRect>("start");
    QTest::addColumn<QSize>("request");
    QTest::addColumn<QPoint>("placed");

    QTest::newRow("wider keeps right edge") << QRect(1612, 100, 300, 200) << QSize(400, 200) << QPoint(1512, 100);
    QTest::newRow("growth past left edge") << QRect(50, 100, 300, 200) << QSize(400, 200) << QPoint(50, 100);
    QTest::newRow("taller than the screen below") << QRect(1612, 900, 300, 100) << QSize(300, 300) << QPoint(1612, 747);
    QTest::newRow("fits exactly") << QRect(1612, 780, 300, 100) << QSize(300, 300) << QPoint(1612, 780);
}

void TestRoutingPopups::resizeFigures()
{
    QFETCH(QRect, start);
    QFETCH(QSize, request);
    QFETCH(QPoint, placed);

    NotificationWindow* window = openShown(QStringLiteral("figures"), start.width(), start.height());
    QVERIFY(window);
    window->setGeometry(start);
    QTRY_COMPARE(window->geometry(), start);

    window->resizeWindow(QStringLiteral("figures"), request.width(), request.height());
    QTRY_COMPARE(window->geometry(), QRect(placed, request));
    QCOMPARE(window->property("yPosition").toInt(), placed.y());
    QCOMPARE(window->maximumSize(), request);
}

QTEST_MAIN(TestRoutingPopups)
#include "tst_routing_popups.moc"
