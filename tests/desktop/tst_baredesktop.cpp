// A bare window manager with a notification daemon and no tray (i3 or openbox with dunst): the main
// window must stay within reach, and notifications go through the desktop's real daemon.
#include <QtTest>

#include <QGraphicsWebView>
#include <QSystemTrayIcon>
#include <QWebFrame>
#include <QWebPage>
#include <QWindow>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "resourceinit.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

const char recordingPage[] = R"(<html><script>
  window.events = [];
  var _gaq = { push: function (a) {} }, _kmq = _gaq;
  function processJSONFromNativeNotificationClickHelper(json, reply) { window.events.push('json:' + json); }
</script></html>)";

const int windowManagerTimeout = 20000;

QString dunstctl(const QStringList& arguments)
{
    QProcess process;
    process.start("dunstctl", arguments);
    return process.waitForFinished(10000) && process.exitCode() == 0 ? QString::fromUtf8(process.readAllStandardOutput())
                                                                     : QStringLiteral("<failed>");
}

} // namespace

class TestBareDesktop : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void closeLeavesWayBack_data();
    void closeLeavesWayBack();
    void daemonNotificationClick();
    void daemonReplyButton();

private:
    QStringList events() const { return mFrame->evaluateJavaScript("window.events").toStringList(); }

    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    QWebFrame* mFrame = nullptr;
    QTemporaryDir mDir;
    QProcess mTray;
};

void TestBareDesktop::initTestCase()
{
    QVERIFY2(!QSystemTrayIcon::isSystemTrayAvailable(), "run inside scripts/desktop-session.sh --no-tray");
    QVERIFY(StagedFolder::enter());
    kestrelgapInitResources();
    mMainWindow = new MainWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    mFrame = mIndexWindow->webView()->page()->mainFrame();
    QFile page(mDir.filePath("recorder.html"));
    QVERIFY(page.open(QIODevice::WriteOnly) && page.write(recordingPage) > 0);
    page.close();
    QSignalSpy loaded(mFrame->page(), &QWebPage::loadFinished);
    mIndexWindow->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QTRY_VERIFY(!loaded.isEmpty() && loaded.last().first().toBool());
    mMainWindow->showInitialWindow();
    WinMenuBarIcon::getInstance(nullptr)->show();
}

void TestBareDesktop::cleanupTestCase()
{
    if (mTray.state() != QProcess::NotRunning) {
        mTray.terminate();
        mTray.waitForFinished(5000);
    }
}

// Rows run in order: the last one brings a tray, after which closing hides again.
void TestBareDesktop::closeLeavesWayBack_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("minimized"); // else hidden
    QTest::newRow("window manager's close minimises") << "close" << true;
    QTest::newRow("start without the main window still shows it") << "start hidden" << false;
    QTest::newRow("a tray appears: close hides") << "tray" << false;
}

void TestBareDesktop::closeLeavesWayBack()
{
    QFETCH(QString, how);
    QFETCH(bool, minimized);

    mMainWindow->showAlreadyRunningWindow();
    QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->windowHandle() && mMainWindow->windowHandle()->isExposed(), windowManagerTimeout);
    if (how == "start hidden") {
        mIndexWindow->setSetting("do-not-launch-main-window-on-start", "1");
        mMainWindow->setProperty("view", QString());
        mMainWindow->resizeWindowToMessengerSize(true);
        // Hiding and minimising both take effect on the widget at once.
        QVERIFY(mMainWindow->isVisible() && !mMainWindow->isMinimized());
        mIndexWindow->setSetting("do-not-launch-main-window-on-start", "0");
        return;
    }
    if (how == "tray") {
        mTray.start("trayer", {"--edge", "bottom", "--align", "right", "--widthtype", "request", "--height", "24"});
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), windowManagerTimeout);
    }
    mMainWindow->close();
    if (minimized)
        QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isMinimized() && mMainWindow->isVisible(), windowManagerTimeout);
    else
        QTRY_VERIFY_WITH_TIMEOUT(!mMainWindow->isVisible(), windowManagerTimeout);
}

// dunst as the service: what it was given for us, and its default action on one of ours.
void TestBareDesktop::daemonNotificationClick()
{
    mIndexWindow->showNotification("{\"thread\":8}", "Ann", "See you at 5", false);
    QTRY_COMPARE_WITH_TIMEOUT(dunstctl({"count", "displayed"}).trimmed(), QStringLiteral("1"), windowManagerTimeout);
    if (!qEnvironmentVariableIsEmpty("DESKTOP_SESSION_SCREENSHOT_DIR"))
        QProcess::execute("import", {"-window", "root", qEnvironmentVariable("DESKTOP_SESSION_SCREENSHOT_DIR") + "/dunst.png"});
    // Closed notifications go to the daemon's history, with what they were sent with.
    QCOMPARE(dunstctl({"close"}), QString());
    const QString history = dunstctl({"history"});
    QVERIFY2(history.contains("\"im.received\""), qPrintable(history));
    QVERIFY2(history.contains("icon_256x256.png\""), qPrintable(history));

    mMainWindow->hide();
    mFrame->evaluateJavaScript("window.events = [];");
    mIndexWindow->showNotification("{\"thread\":9}", "Bob", "On my way", false);
    QTRY_COMPARE_WITH_TIMEOUT(dunstctl({"count", "displayed"}).trimmed(), QStringLiteral("1"), windowManagerTimeout);
    QCOMPARE(dunstctl({"action", "0"}), QString());
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":9}"});
    QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isVisible(), windowManagerTimeout);
}

// dunst has actions and no inline reply: a Reply button, chosen from its menu, opens that thread.
void TestBareDesktop::daemonReplyButton()
{
    QCOMPARE(dunstctl({"close-all"}), QString());
    mMainWindow->hide();
    mFrame->evaluateJavaScript("window.events = [];");
    mIndexWindow->showNotification("{\"thread\":10}", "Cleo", "Lunch tomorrow?", false, true);
    QTRY_COMPARE_WITH_TIMEOUT(dunstctl({"count", "displayed"}).trimmed(), QStringLiteral("1"), windowManagerTimeout);
    if (!qEnvironmentVariableIsEmpty("DESKTOP_SESSION_SCREENSHOT_DIR"))
        QProcess::execute("import", {"-window", "root", qEnvironmentVariable("DESKTOP_SESSION_SCREENSHOT_DIR") + "/dunst-reply.png"});
    // A later balloon's payload is what a plain click would deliver; the button keeps to its own.
    mIndexWindow->setJsonForWindows("{\"thread\":99}");
    QCOMPARE(dunstctl({"context"}), QString());
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":10}"});
    QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isVisible(), windowManagerTimeout);
}

QTEST_MAIN(TestBareDesktop)
#include "tst_baredesktop.moc"
