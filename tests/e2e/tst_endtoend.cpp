// The whole program against the local development service host, as a user meets it: the real
// client from its staged folder and the real devhost, driven through the X display with xdotool
// (keys and window geometry) and followed through the devhost's request log.
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

#include "stagedfolder.h"

namespace {

constexpr int startTimeoutMs = 30000;

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void signInQuitAndComeBackSignedIn();

private:
    bool startDevHost();
    bool startClient();
    bool devHostSaw(const QString& requestPrefix) const;
    QList<qulonglong> clientWindows() const;
    // The main window: the client's largest window that carries the program's name.
    qulonglong mainWindow() const;
    QSize windowSize(qulonglong window) const;
    qulonglong activeClientWindow() const;
    void sendKeys(qulonglong window, const QString& keys);
    void quitWithCtrlQAndYes();

    QString mXdotool;
    QProcess mDevHost;
    QProcess mClient;
    QStringList mRequests;
};

void TestEndToEnd::initTestCase()
{
    mXdotool = QStandardPaths::findExecutable(QStringLiteral("xdotool"));
    QVERIFY2(!mXdotool.isEmpty(), "xdotool is needed to drive the client (scripts/install-deps.sh installs it)");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs inside scripts/desktop-session.sh --wm");
    QVERIFY2(StagedFolder::enter(), "the build stages the program folder");
    QVERIFY(QFileInfo(QStringLiteral(KESTRELGAP_DEVHOST_BINARY)).isExecutable());

    mDevHost.setProcessChannelMode(QProcess::MergedChannels);
    connect(&mDevHost, &QProcess::readyReadStandardOutput, this, [this] {
        while (mDevHost.canReadLine())
            mRequests << QString::fromUtf8(mDevHost.readLine()).trimmed();
    });
    mClient.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    mClient.setStandardOutputFile(QProcess::nullDevice());
}

void TestEndToEnd::cleanup()
{
    // A failed step must not leave either process behind for the next test.
    for (QProcess* process : {&mClient, &mDevHost}) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
}

bool TestEndToEnd::startDevHost()
{
    mRequests.clear();
    mDevHost.start(QStringLiteral(KESTRELGAP_DEVHOST_BINARY),
                   {QStringLiteral("--listen"), QStringLiteral(KESTRELGAP_SERVICE_HOST)});
    if (!mDevHost.waitForStarted())
        return false;
    (void)QTest::qWaitFor([this] { return devHostSaw(QStringLiteral("kestrelgap-devhost: serving"))
                                    || mDevHost.state() == QProcess::NotRunning; },
                    startTimeoutMs);
    // Not running here means the port is taken, most likely by a devhost someone left running.
    return mDevHost.state() == QProcess::Running;
}

bool TestEndToEnd::startClient()
{
    mRequests.clear();
    // The test's private HOME and XDG folders pass on to the client: its settings and cookie
    // store live there and survive from one start to the next.
    mClient.setWorkingDirectory(StagedFolder::path());
    mClient.start(QDir(StagedFolder::path()).filePath(QStringLiteral("kestrelgap")), QStringList());
    return mClient.waitForStarted();
}

bool TestEndToEnd::devHostSaw(const QString& requestPrefix) const
{
    for (const QString& line : mRequests) {
        if (line.startsWith(requestPrefix))
            return true;
    }
    return false;
}

QList<qulonglong> TestEndToEnd::clientWindows() const
{
    QList<qulonglong> windows;
    const QString found = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--pid"),
                                         QString::number(mClient.processId()), QStringLiteral("--name"),
                                         QStringLiteral("^Kestrelgap$")});
    for (const QString& id : found.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        windows << id.toULongLong();
    return windows;
}

qulonglong TestEndToEnd::mainWindow() const
{
    qulonglong best = 0;
    int bestArea = 0;
    for (qulonglong window : clientWindows()) {
        const QSize size = windowSize(window);
        if (size.width() * size.height() > bestArea) {
            bestArea = size.width() * size.height();
            best = window;
        }
    }
    return best;
}

QSize TestEndToEnd::windowSize(qulonglong window) const
{
    const QString shell =
        run(mXdotool, {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), QString::number(window)});
    const QRegularExpressionMatch width = QRegularExpression(QStringLiteral("WIDTH=(\\d+)")).match(shell);
    const QRegularExpressionMatch height = QRegularExpression(QStringLiteral("HEIGHT=(\\d+)")).match(shell);
    return QSize(width.captured(1).toInt(), height.captured(1).toInt());
}

void TestEndToEnd::sendKeys(qulonglong window, const QString& keys)
{
    // Real key events through the X server to the active window, as a user's keyboard sends them.
    run(mXdotool, {QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(window)});
    run(mXdotool, {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys});
}

void TestEndToEnd::quitWithCtrlQAndYes()
{
    const qulonglong main = mainWindow();
    QVERIFY(main != 0);
    sendKeys(main, QStringLiteral("ctrl+q"));
    // The confirmation box takes the focus; Yes is its default button. Return goes to whichever
    // window is active, so it waits until that is the box.
    qulonglong box = 0;
    QTRY_VERIFY_WITH_TIMEOUT((box = activeClientWindow()) != 0 && box != main, startTimeoutMs);
    run(mXdotool, {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), QStringLiteral("Return")});
    QVERIFY(mClient.waitForFinished(startTimeoutMs));
    QCOMPARE(mClient.exitStatus(), QProcess::NormalExit);
    QCOMPARE(mClient.exitCode(), 0);
}

qulonglong TestEndToEnd::activeClientWindow() const
{
    const qulonglong active = run(mXdotool, {QStringLiteral("getactivewindow")}).trimmed().toULongLong();
    if (active == 0)
        return 0;
    const qint64 pid = run(mXdotool, {QStringLiteral("getwindowpid"), QString::number(active)}).trimmed().toLongLong();
    return pid == mClient.processId() ? active : 0;
}

void TestEndToEnd::signInQuitAndComeBackSignedIn()
{
    qInfo("starting the devhost");
    QVERIFY2(startDevHost(), "the devhost couldn't listen on " KESTRELGAP_SERVICE_HOST " (is another one running?)");

    // First start: the start page finds the service and goes on to its sign-in page.
    qInfo("first start");
    QVERIFY(startClient());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /signin 200")) || mClient.state() == QProcess::NotRunning,
                             startTimeoutMs);
    // The single-instance guard is per user: a client already running for this user anywhere
    // (another desktop session) takes the wake-up, and this one ends at once.
    QVERIFY2(mClient.state() == QProcess::Running, "the client ended at start: another one runs for this user");
    QTRY_VERIFY_WITH_TIMEOUT(mainWindow() != 0, startTimeoutMs);
    const QSize loginSize = windowSize(mainWindow());
    QVERIFY2(loginSize.width() < 1000, qPrintable(QStringLiteral("login size %1x%2").arg(loginSize.width()).arg(loginSize.height())));

    // The sign-in page puts the focus in its form; Return signs in with the name filled in.
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=signin")), startTimeoutMs);
    qInfo("signing in");
    sendKeys(mainWindow(), QStringLiteral("Return"));
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("POST /signin 303")), startTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /main.html 200")), startTimeoutMs);
    // The messenger page runs (it polls the service) and the window grows to messenger size.
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=main")), startTimeoutMs);
    // 1366 wide where the screen has room (more with a scale factor above 1), else nearly all of it.
    const int screenWidth = run(mXdotool, {QStringLiteral("getdisplaygeometry")}).section(QLatin1Char(' '), 0, 0).toInt();
    QVERIFY(screenWidth > 0);
    QTRY_VERIFY_WITH_TIMEOUT(windowSize(mainWindow()).width() >= qMin(1366, screenWidth - 100), startTimeoutMs);
    QVERIFY(windowSize(mainWindow()).height() > loginSize.height());

    qInfo("quitting");
    quitWithCtrlQAndYes();
    if (QTest::currentTestFailed())
        return;

    // Second start: the session cookie comes back from the client's own store, so the sign-in
    // page hands straight on to the messenger without anyone signing in.
    qInfo("second start");
    QVERIFY(startClient());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /main.html 200")), startTimeoutMs);
    QVERIFY(devHostSaw(QStringLiteral("GET /signin 302")));
    QVERIFY(!devHostSaw(QStringLiteral("POST /signin")));
    QTRY_VERIFY_WITH_TIMEOUT(windowSize(mainWindow()).width() > loginSize.width(), startTimeoutMs);

    quitWithCtrlQAndYes();
}

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
