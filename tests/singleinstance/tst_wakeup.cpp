// The staged program itself on a real X display: a second start hands its wake-up to the first and
// leaves without a trace; the session's end signal is a quit; the tray quits it even without pages.
#include <QtTest>

#include "httpserver.h"
#include "stagedprogram.h"

#include <csignal>

namespace {

QByteArray mapped(qint64 pid)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    return maps.open(QIODevice::ReadOnly) ? maps.readAll() : QByteArray();
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
    void trayQuitsWithoutPageFolder_data();
    void trayQuitsWithoutPageFolder();
    void waylandSessionRunsOnX11_data();
    void waylandSessionRunsOnX11();
};

void TestWakeUp::initTestCase()
{
    QVERIFY2(QFile::exists(StagedProgram::binary()), "the build did not stage the program");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/desktop-session.sh --wm");
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
    if (earlierFirstKilled) {
        StagedProgram crashed;
        QVERIFY(crashed.start() && crashed.waitForLaunch());
        crashed.process().kill();
        QVERIFY(crashed.process().waitForFinished(10000));
    }
    StagedProgram first;
    QVERIFY(first.start() && first.waitForLaunch());
    QTRY_COMPARE_WITH_TIMEOUT(first.windows(QStringLiteral("^Kestrelgap$")).size(), 1, 60000);
    const qulonglong window = first.mainWindow();

    // Under Xvfb GL would pull in Mesa's software renderer, some 50 MB resident for nothing.
    const QByteArray libraries = mapped(first.pid());
    QVERIFY(libraries.contains("libQt5Widgets"));
    for (const char* library : {"libqxcb-glx-integration", "libqxcb-egl-integration", "libGLX_mesa", "swrast_dri"})
        QVERIFY2(!libraries.contains(library), library);

    // A window only just mapped may not be managed yet and then misses the request.
    bool putAwayDone = false;
    for (int attempt = 0; attempt < 10 && !putAwayDone; ++attempt) {
        if (putAway == QLatin1String("close"))
            StagedProgram::keys(window, QStringLiteral("ctrl+w"));
        else
            StagedProgram::xdotool({putAway, QString::number(window)});
        putAwayDone = QTest::qWaitFor([&] { return !first.windows().contains(window); }, 2000);
    }
    QVERIFY2(putAwayDone, "the main window could not be put away");

    const QString recorded = first.setting(QStringLiteral("ts-last-launch"));
    StagedProgram second;
    QVERIFY(second.start());
    QVERIFY(second.waitForExit(60000));
    QTRY_COMPARE_WITH_TIMEOUT(first.windows(QStringLiteral("^Kestrelgap$")), QList<qulonglong>{window}, 10000);
    QCOMPARE(first.setting(QStringLiteral("ts-last-launch")), recorded);
    QVERIFY(first.quit());
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
    QVERIFY2(service.listen(quint16(QStringLiteral(KESTRELGAP_SERVICE_HOST).section(':', 1).toUInt())), "the service's port is taken");
    const QByteArray cookie = "kg_logout" + QByteArray::number(signal) + "=kept";
    const QByteArray expires = QDateTime::currentDateTimeUtc().addDays(30).toString(Qt::RFC2822Date).toLatin1();
    service.serve("/prod-assets/desktop-client/versioncheck.json", "{}", "application/json");
    service.serve("/signin", "<html><body><img src=\"/pixel.gif\">sign in</body></html>", "text/html", 200,
                  {{"Set-Cookie", cookie + "; Path=/; Expires=" + expires}});
    service.serve("/pixel.gif", "GIF89a", "image/gif");

    StagedProgram program;
    QVERIFY(program.start() && program.waitForLaunch());
    QTRY_VERIFY_WITH_TIMEOUT(!service.requestsFor("/pixel.gif").isEmpty()
                             && service.requestsFor("/pixel.gif").last().header("Cookie").contains(cookie), 30000);
    // Well inside the cookie jar's delayed save.
    ::kill(pid_t(program.pid()), signal);
    QVERIFY(program.waitForExit(10000));

    // Sent with the next start's first sign-in request, before this run was given the cookie again.
    service.clearRequests();
    QVERIFY(program.start());
    QTRY_VERIFY_WITH_TIMEOUT(!service.requestsFor("/signin").isEmpty(), 30000);
    const QByteArray sent = service.requestsFor("/signin").first().header("Cookie");
    QVERIFY2(sent.contains(cookie), sent.constData());
    QVERIFY(program.quit());
}

void TestWakeUp::trayQuitsWithoutPageFolder_data()
{
    QTest::addColumn<int>("button");
    // The desktop opens the menu on a right click, the program itself on a left one.
    QTest::newRow("right click") << 3;
    QTest::newRow("left click") << 1;
}

void TestWakeUp::trayQuitsWithoutPageFolder()
{
    QFETCH(int, button);
    // Pages resolve against the working directory; this one has the icons and no pages.
    QTemporaryDir folder;
    QVERIFY(QFile::link(QFileInfo(StagedProgram::binary()).path() + QStringLiteral("/kestrelgap.iconset"),
                        folder.filePath(QStringLiteral("kestrelgap.iconset"))));
    StagedProgram program;
    program.workingDirectory = folder.path();
    QVERIFY(program.start());
    const qulonglong menu = program.openTrayMenu(button);
    QVERIFY2(menu != 0, "no menu opened at the tray icon");

    // "Quit Kestrelgap" is the menu's last entry whatever else it holds; Yes is the question's default.
    const QSet<qulonglong> known = program.settledWindows();
    const QRect place = StagedProgram::geometry(menu);
    QVERIFY(place.height() > 40);
    StagedProgram::click(menu, QPoint(place.width() / 2, place.height() - 10));
    const qulonglong question = program.newWindow(known);
    QVERIFY2(question != 0, "no question after Quit was chosen");
    StagedProgram::keys(question, QStringLiteral("Return"));
    QVERIFY2(program.waitForExit(), "the program did not quit cleanly");
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
    // A headless Wayland session of our own, with XWayland, in the test's runtime folder.
    QProcess weston;
    weston.setProcessChannelMode(QProcess::MergedChannels);
    weston.start("weston", {"--backend=headless-backend.so", "--xwayland", "--socket=wayland-kg", "--idle-time=0"});
    QString westonLog;
    const QRegularExpression listening("xserver listening on display (:\\d+)");
    QVERIFY2(QTest::qWaitFor([&] { return (westonLog += weston.readAll()).contains(listening); }, 20000), qPrintable(westonLog));
    const QByteArray display = listening.match(westonLog).captured(1).toLatin1();

    StagedProgram program;
    program.environment.insert("WAYLAND_DISPLAY", "wayland-kg");
    program.environment.insert("XDG_SESSION_TYPE", "wayland");
    program.environment.insert("DISPLAY", display);
    program.environment.remove("QT_QPA_PLATFORM");
    if (!platform.isEmpty())
        program.environment.insert("QT_QPA_PLATFORM", platform);
    QVERIFY(program.start() && program.waitForLaunch());
    // Its main window is an X11 window on XWayland, where placement by coordinates works.
    const QByteArray ownDisplay = qgetenv("DISPLAY");
    qputenv("DISPLAY", display);
    const bool onXWayland = QTest::qWaitFor([&] { return program.mainWindow() != 0; }, 30000);
    qputenv("DISPLAY", ownDisplay);
    QVERIFY2(onXWayland, "no X11 main window on XWayland");
    QVERIFY(mapped(program.pid()).contains("libqxcb") && !mapped(program.pid()).contains("libqwayland"));
    // What it starts (xdg-open and the programs it opens) keeps the session's own choice.
    QFile environ(QStringLiteral("/proc/%1/environ").arg(program.pid()));
    QVERIFY(environ.open(QIODevice::ReadOnly) && !environ.readAll().split('\0').contains("QT_QPA_PLATFORM=xcb"));
    QVERIFY(program.quit());
    weston.terminate();
    weston.waitForFinished(10000);
}

QTEST_GUILESS_MAIN(TestWakeUp)
#include "tst_wakeup.moc"
