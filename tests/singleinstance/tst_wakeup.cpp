// The staged program itself on a real X display: a second start hands its wake-up to the first,
// brings the first's window back and leaves without a trace; the session's end signal is a quit.
#include <QtTest>

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSettings>
#include <QTemporaryDir>

#include "httpserver.h"
#include "stagedfolder.h"

#include <csignal>

namespace {

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(10000) ? QString::fromUtf8(process.readAllStandardOutput()).trimmed() : QString();
}

QString xdotool(const QStringList& arguments)
{
    return run("xdotool", arguments);
}

// Mapped main windows of the process; the program titles its main window with its name.
QStringList mainWindows(qint64 pid)
{
    return xdotool({ "search", "--all", "--onlyvisible", "--pid", QString::number(pid), "--name", "^Kestrelgap$" })
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool viewable(const QString& window)
{
    return run("xwininfo", { "-id", window }).contains(QLatin1String("Map State: IsViewable"));
}

QString lastLaunch()
{
    QSettings settings;
    settings.sync(); // written by the program
    return settings.value("ts-last-launch").toString();
}

} // namespace

class TestWakeUp : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void secondStartWakesFirst_data();
    void secondStartWakesFirst();
    void endSignalQuits_data();
    void endSignalQuits();
    void waylandSessionRunsOnX11_data();
    void waylandSessionRunsOnX11();

private:
    // Starts the program; as the first, waits for its window and its launch record.
    void start(QProcess& program, QString* window = nullptr);

    QTemporaryDir mRuntime;
};

void TestWakeUp::initTestCase()
{
    QVERIFY2(QFile::exists(StagedFolder::path() + "/kestrelgap"), "the build did not stage the program");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/desktop-session.sh --wm");
    QVERIFY2(!xdotool({ "version" }).isEmpty(), "xdotool is missing");
}

void TestWakeUp::start(QProcess& program, QString* window)
{
    // HOME and XDG are the test's own already; the lock and socket go to a folder of our own too.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", mRuntime.path());
    environment.remove("QT_QPA_PLATFORM");
    program.setProcessEnvironment(environment);
    program.setWorkingDirectory(StagedFolder::path());
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.setStandardOutputFile(QProcess::nullDevice());
    if (window) {
        window->clear();
        QSettings().remove("ts-last-launch");
    }
    program.start(StagedFolder::path() + "/kestrelgap", QStringList());
    if (!window)
        return;
    QStringList windows;
    const auto shown = [&] { return !(windows = mainWindows(program.processId())).isEmpty(); };
    // The launch is recorded just before the event loop starts.
    QVERIFY2(QTest::qWaitFor(shown, 60000), "the first start showed no main window");
    QCOMPARE(windows.size(), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!lastLaunch().isEmpty(), 60000);
    *window = windows.first();
}

void TestWakeUp::secondStartWakesFirst_data()
{
    QTest::addColumn<QString>("putAway");
    QTest::addColumn<bool>("earlierFirstKilled");

    QTest::newRow("minimised") << "windowminimize" << false;
    // The killed holder leaves its socket behind; the next first must still hear wake-ups.
    QTest::newRow("closed with Ctrl+W, after kill -9 of an earlier first") << "close" << true;
}

void TestWakeUp::secondStartWakesFirst()
{
    QFETCH(QString, putAway);
    QFETCH(bool, earlierFirstKilled);

    QString window;
    if (earlierFirstKilled) {
        QProcess crashed;
        start(crashed, &window);
        QVERIFY(!window.isEmpty());
        crashed.kill();
        QVERIFY(crashed.waitForFinished(10000));
    }
    QProcess first;
    start(first, &window);
    QVERIFY(!window.isEmpty());

    // Under Xvfb GL would pull in Mesa's software renderer, some 50 MB resident for nothing.
    QFile maps(QString("/proc/%1/maps").arg(first.processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QByteArray mapped = maps.readAll();
    QVERIFY(mapped.contains("libQt5Widgets"));
    for (const char* library : { "libqxcb-glx-integration", "libqxcb-egl-integration", "libGLX_mesa", "swrast_dri" })
        QVERIFY2(!mapped.contains(library), library);

    // A window only just mapped may not be managed yet and then misses the request.
    const QStringList command = putAway == "close"
        ? QStringList { "windowactivate", "--sync", window, "key", "--clearmodifiers", "ctrl+w" }
        : QStringList { putAway, window };
    bool putAwayDone = false;
    for (int attempt = 0; attempt < 10 && !putAwayDone; ++attempt) {
        xdotool(command);
        putAwayDone = QTest::qWaitFor([&] { return !viewable(window); }, 2000);
    }
    QVERIFY2(putAwayDone, "the main window could not be put away");

    // A second start that wrote its launch time would leave a different text behind.
    const QString recorded = lastLaunch();
    QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentDateTime().toString(Qt::TextDate) != recorded, 5000);
    QProcess second;
    start(second);
    QVERIFY(second.waitForFinished(60000));
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 0);

    QTRY_VERIFY_WITH_TIMEOUT(viewable(window), 10000);
    QCOMPARE(mainWindows(first.processId()), QStringList(window));
    QCOMPARE(first.state(), QProcess::Running);
    QCOMPARE(lastLaunch(), recorded);
    first.terminate();
    QVERIFY(first.waitForFinished(10000));
}

void TestWakeUp::endSignalQuits_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGHUP") << int(SIGHUP);
}

void TestWakeUp::endSignalQuits()
{
    QFETCH(int, signal);
    // The service hands out a lasting cookie with its sign-in page; the page's image carries it back.
    HttpServer service;
    const QString host(KESTRELGAP_SERVICE_HOST);
    QVERIFY2(service.listen(quint16(host.section(':', 1).toUInt())), "the service's port is taken");
    const QByteArray cookie = "kg_logout" + QByteArray::number(signal) + "=kept";
    const HttpServer::Headers setCookie { { "Set-Cookie",
        cookie + "; Path=/; Expires=" + QDateTime::currentDateTimeUtc().addDays(30).toString(Qt::RFC2822Date).toLatin1() } };
    service.serve("/prod-assets/desktop-client/versioncheck.json", "{}", "application/json");
    service.serve("/signin", "<html><body><img src=\"/pixel.gif\">sign in</body></html>", "text/html", 200, setCookie);
    service.serve("/pixel.gif", "GIF89a", "image/gif");
    const auto cookieCameBack = [&] {
        for (const HttpServer::Request& request : service.requests())
            if (request.header("Cookie").contains(cookie))
                return true;
        return false;
    };

    QProcess program;
    QString window;
    start(program, &window);
    QVERIFY(!window.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(cookieCameBack(), 30000);
    // Well inside the cookie jar's delayed save.
    ::kill(pid_t(program.processId()), signal);
    QVERIFY(program.waitForFinished(10000));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);

    service.clearRequests();
    QProcess next;
    start(next, &window);
    // Sent with the first sign-in request, before this run was given the cookie again.
    QTRY_VERIFY_WITH_TIMEOUT(!service.requestsFor("/signin").isEmpty(), 30000);
    const QByteArray sent = service.requestsFor("/signin").first().header("Cookie");
    QVERIFY2(sent.contains(cookie), sent.constData());
    next.terminate();
    QVERIFY(next.waitForFinished(10000));
    QCOMPARE(next.exitCode(), 0);
}

void TestWakeUp::waylandSessionRunsOnX11_data()
{
    QTest::addColumn<QString>("platform"); // QT_QPA_PLATFORM as the session sets it; empty: unset
    QTest::newRow("Plasma-like session, nothing chosen") << "";
    QTest::newRow("session that chooses wayland") << "wayland";
}

void TestWakeUp::waylandSessionRunsOnX11()
{
    QFETCH(QString, platform);
    if (QStandardPaths::findExecutable("weston").isEmpty() || QStandardPaths::findExecutable("Xwayland").isEmpty())
        QSKIP("weston and xwayland are not installed (scripts/install-deps.sh installs them)");

    // A headless Wayland session of our own, with XWayland, in a runtime folder of our own.
    QTemporaryDir runtime;
    QProcess weston;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", runtime.path());
    environment.remove("DISPLAY");
    weston.setProcessEnvironment(environment);
    weston.setProcessChannelMode(QProcess::MergedChannels);
    weston.start("weston", { "--backend=headless-backend.so", "--xwayland", "--socket=wayland-kg", "--idle-time=0" });
    QString westonLog;
    QString display;
    const auto listening = [&] {
        westonLog += QString::fromUtf8(weston.readAll());
        const QRegularExpressionMatch match = QRegularExpression("xserver listening on display (:\\d+)").match(westonLog);
        display = match.captured(1);
        return !display.isEmpty() || weston.state() == QProcess::NotRunning;
    };
    QVERIFY2(QTest::qWaitFor(listening, 20000) && !display.isEmpty(), qPrintable(westonLog));

    environment.insert("WAYLAND_DISPLAY", "wayland-kg");
    environment.insert("XDG_SESSION_TYPE", "wayland");
    environment.insert("DISPLAY", display);
    if (platform.isEmpty())
        environment.remove("QT_QPA_PLATFORM");
    else
        environment.insert("QT_QPA_PLATFORM", platform);
    QProcess program;
    program.setProcessEnvironment(environment);
    program.setWorkingDirectory(StagedFolder::path());
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.setStandardOutputFile(QProcess::nullDevice());
    program.start(StagedFolder::path() + "/kestrelgap", QStringList());

    // Its main window is an X11 window on XWayland, where placement by coordinates works.
    QProcess search;
    QProcessEnvironment onXWayland = QProcessEnvironment::systemEnvironment();
    onXWayland.insert("DISPLAY", display);
    search.setProcessEnvironment(onXWayland);
    const auto x11Window = [&] {
        search.start("xdotool", { "search", "--onlyvisible", "--pid", QString::number(program.processId()), "--name",
                                    "^Kestrelgap$" });
        search.waitForFinished(10000);
        return !search.readAllStandardOutput().trimmed().isEmpty() || program.state() == QProcess::NotRunning;
    };
    QVERIFY2(QTest::qWaitFor(x11Window, 60000) && program.state() == QProcess::Running,
        "no X11 main window on XWayland");
    QFile maps(QString("/proc/%1/maps").arg(program.processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QByteArray mapped = maps.readAll();
    QVERIFY(mapped.contains("libqxcb"));
    QVERIFY(!mapped.contains("libqwayland"));
    // What it starts (xdg-open and the programs it opens) keeps the session's own choice.
    QFile environ(QString("/proc/%1/environ").arg(program.processId()));
    QVERIFY(environ.open(QIODevice::ReadOnly));
    QCOMPARE(environ.readAll().split('\0').contains("QT_QPA_PLATFORM=xcb"), false);

    program.terminate();
    QVERIFY(program.waitForFinished(10000));
    QCOMPARE(program.exitCode(), 0);
    weston.terminate();
    weston.waitForFinished(10000);
}

QTEST_GUILESS_MAIN(TestWakeUp)
#include "tst_wakeup.moc"
