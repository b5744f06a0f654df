// The staged program itself, started twice on a real X display: the second start must hand its
// wake-up to the first, bring the first's window back and leave without a trace. Started once, it
// must show its window without loading any GL.
#include <QtTest>

#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

#include "stagedfolder.h"

namespace {

const int startTimeout = 60000;

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// Mapped main windows of the process; the program titles its main window with its name.
QStringList mainWindows(qint64 pid)
{
    const QString ids = run(QStringLiteral("xdotool"),
        { QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
            QString::number(pid), QStringLiteral("--name"), QStringLiteral("^Kestrelgap$") });
    return ids.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool viewable(const QString& window)
{
    return run(QStringLiteral("xwininfo"), { QStringLiteral("-id"), window })
        .contains(QLatin1String("Map State: IsViewable"));
}

QString lastLaunch()
{
    QSettings settings;
    settings.sync();
    return settings.value(QStringLiteral("ts-last-launch")).toString();
}

// One start of the staged program.
class Program {
public:
    explicit Program(const QProcessEnvironment& environment)
    {
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(StagedFolder::path());
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(StagedFolder::path() + QStringLiteral("/kestrelgap"), QStringList());
    }
    ~Program()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(10000);
        }
    }
    bool running() const { return process.state() != QProcess::NotRunning; }

    QProcess process;
};

} // namespace

class TestWakeUp : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void secondStartWakesFirst_data();
    void secondStartWakesFirst();
    void noGlLoaded_data();
    void noGlLoaded();

private:
    // Starts the program as the first, waits for its window and its launch record.
    std::unique_ptr<Program> startFirst(QString& window);

    QTemporaryDir mTemp;
    QProcessEnvironment mEnvironment;
};

void TestWakeUp::initTestCase()
{
    QVERIFY2(
        QFile::exists(StagedFolder::path() + QStringLiteral("/kestrelgap")), "the build did not stage the program");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/desktop-session.sh --wm");
    QVERIFY2(!run(QStringLiteral("xdotool"), { QStringLiteral("version") }).isEmpty(), "xdotool is missing");
    QVERIFY(mTemp.isValid());

    // HOME and the XDG folders are already the test's own; the lock and the socket go to a temporary
    // folder of our own too, so a copy of the program running elsewhere on this machine is not ours.
    mEnvironment = QProcessEnvironment::systemEnvironment();
    mEnvironment.insert(QStringLiteral("TMPDIR"), mTemp.path());
    mEnvironment.remove(QStringLiteral("QT_QPA_PLATFORM"));
}

std::unique_ptr<Program> TestWakeUp::startFirst(QString& window)
{
    window.clear();
    QSettings().remove(QStringLiteral("ts-last-launch"));
    auto program = std::make_unique<Program>(mEnvironment);
    QStringList windows;
    const bool shown = QTest::qWaitFor(
        [&]() {
            windows = mainWindows(program->process.processId());
            return !windows.isEmpty() || !program->running();
        },
        startTimeout);
    // The launch is recorded just before the event loop starts.
    if (shown && windows.size() == 1 && program->running()
        && QTest::qWaitFor([]() { return !lastLaunch().isEmpty(); }, startTimeout))
        window = windows.first();
    return program;
}

void TestWakeUp::secondStartWakesFirst_data()
{
    QTest::addColumn<QString>("putAway");
    QTest::addColumn<bool>("earlierFirstKilled");

    QTest::newRow("closed to the tray") << QStringLiteral("close") << false;
    QTest::newRow("minimised") << QStringLiteral("minimise") << false;
    // The killed holder leaves its socket file behind; the next first must still hear wake-ups.
    QTest::newRow("closed, after kill -9 of an earlier first") << QStringLiteral("close") << true;
}

void TestWakeUp::secondStartWakesFirst()
{
    QFETCH(QString, putAway);
    QFETCH(bool, earlierFirstKilled);

    QString window;
    if (earlierFirstKilled) {
        const std::unique_ptr<Program> crashed = startFirst(window);
        QVERIFY2(!window.isEmpty(), "the earlier first start showed no main window");
        crashed->process.kill();
        QVERIFY(crashed->process.waitForFinished(10000));
    }

    const std::unique_ptr<Program> started = startFirst(window);
    QVERIFY2(!window.isEmpty(), "the first start showed no main window");
    Program& first = *started;

    // A window that has only just been mapped may not be managed yet and then misses the request.
    bool putAwayDone = false;
    for (int attempt = 0; attempt < 10 && !putAwayDone; ++attempt) {
        if (putAway == QLatin1String("close")) {
            // Ctrl+W closes the main window, which only hides it.
            run(QStringLiteral("xdotool"),
                { QStringLiteral("windowactivate"), QStringLiteral("--sync"), window, QStringLiteral("key"),
                    QStringLiteral("--clearmodifiers"), QStringLiteral("ctrl+w") });
        } else {
            run(QStringLiteral("xdotool"), { QStringLiteral("windowminimize"), window });
        }
        putAwayDone = QTest::qWaitFor([&]() { return !viewable(window); }, 2000);
    }
    QVERIFY2(putAwayDone, "the main window could not be put away");
    QVERIFY(first.running());

    // A start that wrote its launch time now would leave a different text behind.
    const QString recorded = lastLaunch();
    QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentDateTime().toString(Qt::TextDate) != recorded, 5000);

    Program second(mEnvironment);
    QVERIFY(second.process.waitForFinished(startTimeout));
    QCOMPARE(second.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.process.exitCode(), 0);

    QTRY_VERIFY_WITH_TIMEOUT(viewable(window), 10000);
    QCOMPARE(mainWindows(first.process.processId()), QStringList(window));
    QVERIFY(first.running());
    QCOMPARE(lastLaunch(), recorded);

    first.process.terminate();
    QVERIFY(first.process.waitForFinished(10000));
}

void TestWakeUp::noGlLoaded_data()
{
    QTest::addColumn<QString>("library");

    // Under Xvfb these pull in Mesa's software GL, some 50 MB resident for nothing painted with it.
    QTest::newRow("xcb GLX integration") << QStringLiteral("libqxcb-glx-integration.so");
    QTest::newRow("xcb EGL integration") << QStringLiteral("libqxcb-egl-integration.so");
    QTest::newRow("Mesa GLX") << QStringLiteral("libGLX_mesa.so");
    QTest::newRow("Mesa software rasteriser") << QStringLiteral("swrast_dri.so");
}

void TestWakeUp::noGlLoaded()
{
    QFETCH(QString, library);

    QString window;
    const std::unique_ptr<Program> started = startFirst(window);
    QVERIFY2(!window.isEmpty(), "the program showed no main window");
    QFile maps(QStringLiteral("/proc/%1/maps").arg(started->process.processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QString mapped = QString::fromUtf8(maps.readAll());
    QVERIFY(mapped.contains(QLatin1String("libQt5Widgets")));
    QVERIFY2(!mapped.contains(library), qPrintable(library + QStringLiteral(" is loaded")));
}

QTEST_GUILESS_MAIN(TestWakeUp)
#include "tst_wakeup.moc"
