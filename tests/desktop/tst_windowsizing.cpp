// Shapes on a real X screen of any size, bare or with a window manager: windows land where the
// rules of tst_windowshapes say; only a maximised or full-screen window is the manager's to shape.
#include <QtTest>

#include <QGraphicsWebView>
#include <QScreen>
#include <QSettings>

#include <memory>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/indexwindow.h"

namespace {

const QStringList windowKeys {"mainWindowXPosition", "mainWindowYPosition", "mainWindowWidth", "mainWindowHeight",
    "mainWindowIsFullScreen", "mainWindowIsMaximized"};

QScreen* screen()
{
    return QGuiApplication::primaryScreen();
}

bool panels()
{
    return screen()->availableGeometry() != screen()->geometry();
}

QByteArray shape(const QWidget* window)
{
    const QRect r = window->geometry();
    return QString("%1,%2 %3x%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height()).toUtf8();
}

// Over panels the frame is where the rule says, inside the work area. Elsewhere the client area is
// (a saved shape: where it was); a window manager may push it down to keep its title bar on screen.
bool landed(MainWindow* window, const QString& rule, QRect expected = QRect())
{
    const QRect frame = window->frameGeometry(), client = window->geometry();
    const QMargins margins(client.left() - frame.left(), client.top() - frame.top(), frame.right() - client.right(),
        frame.bottom() - client.bottom());
    const QRect ruled = rule == "login"
        ? MainWindow::loginFrame(screen()->geometry(), screen()->availableGeometry(), margins, window->getScaleFactor())
        : MainWindow::messengerFrame(screen()->geometry(), screen()->availableGeometry(), margins, window->getOsScaleFactor());
    if (panels() && expected.isNull())
        return !margins.isNull() && frame == ruled && screen()->availableGeometry().contains(frame);
    if (expected.isNull())
        expected = ruled.marginsRemoved(margins);
    if (client == expected || margins.isNull())
        return client == expected;
    return client.size() == expected.size() && client.x() == expected.x() && expected.y() < margins.top()
        && client.y() > expected.y() && client.y() <= margins.top();
}

} // namespace

class TestWindowSizing : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init() { QSettings().clear(); }
    void shapes_data();
    void shapes();
    void savedOnlyAtMessenger_data();
    void savedOnlyAtMessenger();
    void zoomCarriesToNextStart_data();
    void zoomCarriesToNextStart();
    void doNotLaunchMainWindow_data();
    void doNotLaunchMainWindow();

private:
    // One start of the program as far as windows go: construct, show at login size.
    MainWindow* start()
    {
        mWindow = std::make_unique<MainWindow>();
        mWindow->showInitialWindow();
        mainWindowHolder::set(mWindow.get());
        [this] { QVERIFY(QTest::qWaitForWindowExposed(mWindow.get())); }();
        return mWindow.get();
    }

    bool mWindowManager = false;
    std::unique_ptr<MainWindow> mWindow;
};

void TestWindowSizing::initTestCase()
{
    // Only a window manager puts a frame around a client area.
    QWidget probe;
    probe.show();
    QVERIFY(QTest::qWaitForWindowExposed(&probe));
    mWindowManager = QTest::qWaitFor([&] { return probe.frameGeometry() != probe.geometry(); }, 1000);
}

void TestWindowSizing::shapes_data()
{
    QTest::addColumn<double>("savedZoom"); // 0: nothing saved
    QTest::addColumn<QRect>("saved");      // null: nothing saved
    QTest::addColumn<bool>("savedMaximized");
    QTest::addColumn<bool>("savedFullScreen");
    QTest::addColumn<int>("state"); // -1: maximised where the default shape fills the screen
    const QRect saved(50, 60, 900, 500);
    QTest::newRow("first run") << 0.0 << QRect() << false << false << -1;
    QTest::newRow("Actual Size saved: login at 100%") << 1.0 << QRect() << false << false << -1;
    QTest::newRow("saved shape comes back") << 0.0 << saved << false << false << int(Qt::WindowNoState);
    QTest::newRow("saved maximised") << 0.0 << saved << true << false << int(Qt::WindowMaximized);
    QTest::newRow("saved full screen wins over maximised") << 0.0 << saved << true << true << int(Qt::WindowFullScreen);
    QTest::newRow("saved shape filling the screen counts as maximised")
        << 0.0 << screen()->geometry() << false << false << int(Qt::WindowMaximized);
}

void TestWindowSizing::shapes()
{
    QFETCH(double, savedZoom);
    QFETCH(QRect, saved);
    QFETCH(bool, savedMaximized);
    QFETCH(bool, savedFullScreen);
    QFETCH(int, state);
    QSettings settings;
    if (savedZoom > 0)
        settings.setValue("mainWindowZoomFactor", savedZoom);
    if (!saved.isNull()) {
        const QVariantList values {saved.x(), saved.y(), saved.width(), saved.height(), savedFullScreen, savedMaximized};
        for (int i = 0; i < windowKeys.size(); ++i)
            settings.setValue(windowKeys.at(i), values.at(i));
    }
    MainWindow* window = start();
    QTRY_VERIFY2(landed(window, "login"), shape(window));
    window->resizeWindowToMessengerSize(true);
    // The state switch waits for the animation; it never happens inside the call.
    QCOMPARE(int(window->windowState()), int(Qt::WindowNoState));
    if (state < 0) {
        // A tray panel's strut leaves a work area the default shape can't fill.
        const QRect fill = MainWindow::messengerFrame(screen()->geometry(), screen()->geometry(), {}, window->getOsScaleFactor());
        state = fill == screen()->geometry() && !panels() ? Qt::WindowMaximized : Qt::WindowNoState;
    }
    QRect client = saved;
    if (state == Qt::WindowNoState || !mWindowManager) {
        QTRY_VERIFY2(landed(window, "messenger", saved), shape(window));
        client = window->geometry();
    }
    QTRY_COMPARE(int(window->windowState()), state);
    const QRect available = screen()->availableGeometry();
    if (!mWindowManager) {
        // With no manager a state is only a hint: the shape stays as the program set it.
        QCOMPARE(window->geometry(), client);
    } else if (state == Qt::WindowMaximized) {
        // The work area with the title bar on top; Qt may keep the old frame margins for a while.
        QTRY_VERIFY2(available.contains(window->geometry()) && window->geometry().width() == available.width()
                && window->geometry().bottom() == available.bottom() && window->geometry().top() < available.height() / 10,
            shape(window));
    } else if (state == Qt::WindowFullScreen) {
        QTRY_COMPARE(window->geometry(), screen()->geometry());
    }
}

void TestWindowSizing::savedOnlyAtMessenger_data()
{
    QTest::addColumn<bool>("atMessenger");
    QTest::newRow("closed at the login shape: nothing saved") << false;
    QTest::newRow("closed at the messenger shape: saved and restored") << true;
}

void TestWindowSizing::savedOnlyAtMessenger()
{
    QFETCH(bool, atMessenger);
    const QRect moved(70, 80, 820, 540);
    MainWindow* window = start();
    if (atMessenger) {
        window->resizeWindowToMessengerSize(false);
        QTRY_VERIFY2(landed(window, "messenger"), shape(window));
    }
    window->setGeometry(moved);
    QTRY_COMPARE(window->geometry(), moved);
    window->close();
    QTRY_VERIFY(window->isHidden());
    for (const QString& key : windowKeys)
        QVERIFY2(QSettings().contains(key) == atMessenger, qPrintable(key));
    if (!atMessenger)
        return;
    // The next start opens at the login shape, and the page's arrival brings the saved shape back.
    window = start();
    QTRY_VERIFY2(landed(window, "login"), shape(window));
    window->resizeWindowToMessengerSize(true);
    QTRY_COMPARE(window->geometry(), moved);
}

void TestWindowSizing::zoomCarriesToNextStart_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::addColumn<int>("times");
    QTest::addColumn<double>("nextStartShift"); // from the screen's own factor; NaN: back to 1.0
    QTest::newRow("Actual Size") << QByteArray("zoomNormal") << 1 << qQNaN();
    QTest::newRow("zoom in twice") << QByteArray("zoomIn") << 2 << 0.2;
    QTest::newRow("zoom out once") << QByteArray("zoomOut") << 1 << -0.1;
    // Below zero is saved as it is, and the next start ignores it.
    QTest::newRow("zoom out below zero") << QByteArray("zoomOut") << 25 << 0.0;
}

void TestWindowSizing::zoomCarriesToNextStart()
{
    QFETCH(QByteArray, slot);
    QFETCH(int, times);
    QFETCH(double, nextStartShift);
    MainWindow* window = start();
    const double screenFactor = window->getOsScaleFactor();
    QCOMPARE(window->getScaleFactor(), screenFactor);
    const QRect loginBefore = window->geometry();
    for (int i = 0; i < times; ++i)
        QVERIFY(QMetaObject::invokeMethod(window, slot.constData()));
    // The view keeps its zoom in single precision. The login shape follows the zoom only at its next switch.
    QVERIFY(qAbs(window->indexWindow()->webView()->zoomFactor() - window->getScaleFactor()) < 1e-6);
    QCOMPARE(window->geometry(), loginBefore);

    window = start();
    const double expected = qIsNaN(nextStartShift) ? 1.0 : screenFactor + nextStartShift;
    QVERIFY2(qAbs(window->getScaleFactor() - expected) < 1e-9, qPrintable(QString::number(window->getScaleFactor())));
    QVERIFY(qAbs(window->indexWindow()->webView()->zoomFactor() - expected) < 1e-6);
    QTRY_VERIFY2(landed(window, "login"), shape(window));
    // The screen's factor itself never follows the user's zoom.
    QCOMPARE(window->getOsScaleFactor(), screenFactor);
}

void TestWindowSizing::doNotLaunchMainWindow_data()
{
    QTest::addColumn<QString>("flag");
    QTest::addColumn<bool>("hiddenAtArrival");
    QTest::newRow("1 closes to the tray") << "1" << true;
    QTest::newRow("true is not 1") << "true" << false;
}

void TestWindowSizing::doNotLaunchMainWindow()
{
    QFETCH(QString, flag);
    QFETCH(bool, hiddenAtArrival);
    QSettings().setValue("do-not-launch-main-window-on-start", flag);
    MainWindow* window = start();
    window->resizeWindowToMessengerSize(true);
    QTRY_COMPARE(window->isHidden(), hiddenAtArrival);
    // Shaped all the same, ready for when the user opens it from the tray.
    if (hiddenAtArrival)
        QVERIFY2(landed(window, "messenger"), shape(window));
    // That close happens before the view changes, so it saves nothing.
    QVERIFY(!QSettings().contains("mainWindowWidth"));
    // Later arrivals in the same run leave the window as the user has it.
    window->resizeWindowToMessengerSize(false);
    QCOMPARE(window->isHidden(), hiddenAtArrival);
    window->showAlreadyRunningWindow();
    window->resizeWindowToMessengerSize(false);
    QVERIFY(window->isVisible());
}

QTEST_MAIN(TestWindowSizing)
#include "tst_windowsizing.moc"
