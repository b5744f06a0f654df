// A bare window manager with a notification daemon and no tray (openbox with dunst): the main window
// must stay within reach, and notifications go through the desktop's real daemon.
#include <QtTest>

#include <QSystemTrayIcon>

#include "desktop/mainwindow.h"
#include "guifixture.h"
#include "web/indexwindow.h"

namespace {

QString dunstctl(const QStringList& arguments)
{
    QProcess process;
    process.start("dunstctl", arguments);
    return process.waitForFinished(10000) && process.exitCode() == 0 ? QString::fromUtf8(process.readAllStandardOutput()).trimmed()
                                                                     : QStringLiteral("<failed>");
}

} // namespace

class TestBareDesktop : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(mGui.startWithTray());
        // Signals from the daemon count only once the program knows who it is; a first balloon shown is after that.
        mGui.indexWindow()->showNotification("{}", "Kestrelgap", "ready", false);
        QTRY_COMPARE_WITH_TIMEOUT(dunstctl({"count", "displayed"}), QStringLiteral("1"), windowManagerTimeout);
    }

    void daemon_data()
    {
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QString>("thread");
        // A later balloon's payload is what the body's action delivers; the Reply button keeps to its own.
        QTest::newRow("default action") << QStringList {"action", "0"} << "99";
        QTest::newRow("Reply, from the daemon's menu") << QStringList {"context"} << "10";
    }

    void daemon()
    {
        QFETCH(QStringList, command);
        QFETCH(QString, thread);
        QCOMPARE(dunstctl({"close-all"}), QString());
        mGui.mainWindow()->hide();
        mGui.takeCalls();
        mGui.indexWindow()->showNotification("{\"thread\":10}", "Cleo", "Lunch tomorrow?", false, true);
        QTRY_COMPARE_WITH_TIMEOUT(dunstctl({"count", "displayed"}), QStringLiteral("1"), windowManagerTimeout);
        mGui.indexWindow()->setJsonForWindows("{\"thread\":99}");
        QCOMPARE(dunstctl(command), QString());
        QTRY_VERIFY_WITH_TIMEOUT(mGui.calls().contains("processJSONFromNativeNotificationClickHelper {\"thread\":" + thread + "}")
                && mGui.mainWindow()->isVisible(), windowManagerTimeout);
    }

    // Rows run in order: the last one brings a tray, after which closing hides again.
    void closeLeavesWayBack_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("minimized"); // else hidden
        QTest::newRow("window manager's close minimises") << "close" << true;
        QTest::newRow("start without the main window still shows it") << "start hidden" << false;
        QTest::newRow("a tray appears: close hides") << "tray" << false;
    }

    void closeLeavesWayBack()
    {
        QFETCH(QString, how);
        QFETCH(bool, minimized);
        MainWindow* window = mGui.mainWindow();
        window->showAlreadyRunningWindow();
        QTRY_VERIFY_WITH_TIMEOUT(exposed(window), windowManagerTimeout);
        if (how == "start hidden") {
            mGui.indexWindow()->setSetting("do-not-launch-main-window-on-start", "1");
            window->setProperty("view", QString());
            window->resizeWindowToMessengerSize(true);
            // Hiding and minimising both take effect on the widget at once.
            QVERIFY(window->isVisible() && !window->isMinimized());
            return;
        }
        if (how == "tray") {
            mTray.start("trayer", {"--edge", "bottom", "--align", "right", "--widthtype", "request", "--height", "24"});
            QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), windowManagerTimeout);
        }
        window->close();
        QTRY_VERIFY_WITH_TIMEOUT(window->isVisible() == minimized && (window->isMinimized() || !minimized), windowManagerTimeout);
    }

private:
    GuiFixture mGui;
    QProcess mTray; // ended with the test
};

QTEST_MAIN(TestBareDesktop)
#include "tst_baredesktop.moc"
