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

// Over panels the frame is where the rule says, inside the work area. Elsewhere the client area is
// (a saved shape: where it was); a window manager may push it down to keep its title bar on screen.
// Empty when it landed there, else where it did.
QString landed(MainWindow* window, const QString& rule, QRect expected = QRect())
{
    const QRect frame = window->frameGeometry(), client = window->geometry(), work = screen()->availableGeometry();
    const QMargins margins(client.left() - frame.left(), client.top() - frame.top(), frame.right() - client.right(),
        frame.bottom() - client.bottom());
    const QRect ruled = rule == "login"
        ? MainWindow::loginFrame(screen()->geometry(), work, margins, window->getScaleFactor())
        : MainWindow::messengerFrame(screen()->geometry(), work, margins, window->getOsScaleFactor());
    bool ok = false;
    if (work != screen()->geometry() && expected.isNull()) {
        ok = !margins.isNull() && frame == ruled && work.contains(frame);
    } else {
        expected = expected.isNull() ? ruled.marginsRemoved(margins) : expected;
        ok = client == expected
            || (!margins.isNull() && client.size() == expected.size() && client.x() == expected.x()
                && expected.y() < margins.top() && client.y() > expected.y() && client.y() <= margins.top());
    }
    return ok ? QString() : QString("%1,%2 %3x%4").arg(client.x()).arg(client.y()).arg(client.width()).arg(client.height());
}

} // namespace

class TestWindowSizing : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // Only a window manager puts a frame around a client area.
        QWidget probe;
        probe.show();
        QVERIFY(QTest::qWaitForWindowExposed(&probe));
        mWindowManager = QTest::qWaitFor([&] { return probe.frameGeometry() != probe.geometry(); }, 1000);
    }

    void init() { QSettings().clear(); }

    void shapes_data()
    {
        QTest::addColumn<double>("savedZoom"); // 0: nothing saved
        QTest::addColumn<QRect>("saved");      // null: nothing saved
        QTest::addColumn<int>("savedState");
        QTest::addColumn<int>("state"); // -1: maximised where the default shape fills the screen
        const QRect saved(50, 60, 900, 500);
        const int none = Qt::WindowNoState, maximized = Qt::WindowMaximized, fullScreen = Qt::WindowFullScreen;
        QTest::newRow("first run") << 0.0 << QRect() << none << -1;
        QTest::newRow("Actual Size saved: login at 100%") << 1.0 << QRect() << none << -1;
        QTest::newRow("a zoom below zero saved is ignored") << -1.1 << QRect() << none << -1;
        QTest::newRow("saved shape comes back") << 0.0 << saved << none << none;
        QTest::newRow("saved maximised") << 0.0 << saved << maximized << maximized;
        QTest::newRow("saved full screen wins over maximised") << 0.0 << saved << (maximized | fullScreen) << fullScreen;
        QTest::newRow("saved shape filling the screen counts as maximised") << 0.0 << screen()->geometry() << none << maximized;
    }

    void shapes()
    {
        QFETCH(double, savedZoom);
        QFETCH(QRect, saved);
        QFETCH(int, savedState);
        QFETCH(int, state);
        QSettings settings;
        if (savedZoom != 0)
            settings.setValue("mainWindowZoomFactor", savedZoom);
        if (!saved.isNull()) {
            const QVariantList values {saved.x(), saved.y(), saved.width(), saved.height(), bool(savedState & Qt::WindowFullScreen),
                bool(savedState & Qt::WindowMaximized)};
            for (int i = 0; i < windowKeys.size(); ++i)
                settings.setValue(windowKeys.at(i), values.at(i));
        }
        MainWindow* window = start();
        QCOMPARE(window->getScaleFactor(), savedZoom > 0 ? savedZoom : window->getOsScaleFactor());
        QTRY_COMPARE(landed(window, "login"), QString());
        window->resizeWindowToMessengerSize(true);
        // The state switch waits for the animation; it never happens inside the call.
        QCOMPARE(int(window->windowState()), int(Qt::WindowNoState));
        if (state < 0) {
            // A tray panel's strut leaves a work area the default shape can't fill.
            const QRect fill = MainWindow::messengerFrame(screen()->geometry(), screen()->geometry(), {}, window->getOsScaleFactor());
            state = fill == screen()->geometry() && fill == screen()->availableGeometry() ? Qt::WindowMaximized : Qt::WindowNoState;
        }
        if (state == Qt::WindowNoState || !mWindowManager)
            QTRY_COMPARE(landed(window, "messenger", saved), QString());
        const QRect placed = window->geometry(), available = screen()->availableGeometry();
        QTRY_COMPARE(int(window->windowState()), state);
        // With no manager a state is only a hint: the shape stays as the program set it. A maximised one
        // fills the work area below its title bar; Qt may keep the old frame margins for a while.
        if (!mWindowManager)
            QCOMPARE(window->geometry(), placed);
        else if (state == Qt::WindowMaximized)
            QTRY_VERIFY2(available.contains(window->geometry()) && window->geometry().width() == available.width()
                    && window->geometry().bottom() == available.bottom() && window->geometry().top() < available.height() / 10,
                QTest::toString(window->geometry()));
        else if (state == Qt::WindowFullScreen)
            QTRY_COMPARE(window->geometry(), screen()->geometry());
    }

    void savedOnlyAtMessenger_data()
    {
        QTest::addColumn<bool>("atMessenger");
        QTest::newRow("closed at the login shape: nothing saved") << false;
        QTest::newRow("closed at the messenger shape: saved and restored") << true;
    }

    void savedOnlyAtMessenger()
    {
        QFETCH(bool, atMessenger);
        const QRect moved(70, 80, 820, 540);
        MainWindow* window = start();
        if (atMessenger) {
            window->resizeWindowToMessengerSize(false);
            QTRY_COMPARE(landed(window, "messenger"), QString());
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
        QTRY_COMPARE(landed(window, "login"), QString());
        window->resizeWindowToMessengerSize(true);
        QTRY_COMPARE(window->geometry(), moved);
    }

    // Each step is saved for the next start and shown at once; the login shape follows only at its next switch.
    void zoomIsSaved()
    {
        MainWindow* window = start();
        const double screenFactor = window->getOsScaleFactor();
        const QRect login = window->geometry();
        for (const auto& [slot, factor] : {std::pair {"zoomIn", screenFactor + 0.1}, {"zoomIn", screenFactor + 0.2},
                 {"zoomOut", screenFactor + 0.1}, {"zoomNormal", 1.0}}) {
            QVERIFY(QMetaObject::invokeMethod(window, slot));
            // The view keeps its zoom in single precision.
            QVERIFY2(qAbs(QSettings().value("mainWindowZoomFactor").toDouble() - factor) < 1e-9
                    && qAbs(window->indexWindow()->webView()->zoomFactor() - factor) < 1e-6, slot);
        }
        QCOMPARE(window->geometry(), login);
    }

    void doNotLaunchMainWindow()
    {
        QSettings().setValue("do-not-launch-main-window-on-start", "1");
        MainWindow* window = start();
        window->resizeWindowToMessengerSize(true);
        QTRY_VERIFY(window->isHidden());
        // Shaped all the same, ready for when the user opens it from the tray.
        QCOMPARE(landed(window, "messenger"), QString());
        // That close happens before the view changes, so it saves nothing.
        QVERIFY(!QSettings().contains("mainWindowWidth"));
        // Later arrivals in the same run leave the window as the user has it.
        window->showAlreadyRunningWindow();
        window->resizeWindowToMessengerSize(false);
        QVERIFY(window->isVisible());
    }

private:
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

QTEST_MAIN(TestWindowSizing)
#include "tst_windowsizing.moc"
