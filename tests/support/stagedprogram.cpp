#include "stagedprogram.h"

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QSettings>
#include <QTest>

#include <csignal>

#include "stagedfolder.h"
#include "testenvironment.h"

StagedProgram::StagedProgram(Home home)
    : environment(QProcessEnvironment::systemEnvironment())
    , workingDirectory(StagedFolder::path())
    , mTemp(TestEnvironment::homePath() + QStringLiteral("/program-XXXXXX"))
{
    mHome = home == OwnHome ? mTemp.filePath(QStringLiteral("home")) : TestEnvironment::homePath();
    if (home == OwnHome) {
        for (const char* sub : {"config", "data", "cache", "runtime"})
            QDir().mkpath(mHome + QLatin1Char('/') + QLatin1String(sub));
        QFile::setPermissions(mHome + QStringLiteral("/runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        environment.insert(QStringLiteral("HOME"), mHome);
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), mHome + QStringLiteral("/config"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), mHome + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), mHome + QStringLiteral("/cache"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), mHome + QStringLiteral("/runtime"));
    }
    environment.insert(QStringLiteral("TMPDIR"), mTemp.path());
    mProcess.setStandardOutputFile(QProcess::nullDevice());
    connect(&mProcess, &QProcess::readyReadStandardError, this, [this] {
        const QByteArray chunk = mProcess.readAllStandardError();
        mErrors += QString::fromUtf8(chunk);
        fputs(chunk.constData(), stderr);
    });
}

StagedProgram::~StagedProgram()
{
    if (mProcess.state() != QProcess::NotRunning) {
        mProcess.kill();
        mProcess.waitForFinished(5000);
    }
}

QString StagedProgram::binary()
{
    return StagedFolder::path() + QStringLiteral("/kestrelgap");
}

QString StagedProgram::homePath() const
{
    return mHome;
}

QString StagedProgram::settingsPath() const
{
    return environment.value(QStringLiteral("XDG_CONFIG_HOME"), mHome + QStringLiteral("/.config"))
        + QStringLiteral("/Kestrelgap/Kestrelgap.conf");
}

QString StagedProgram::setting(const QString& key) const
{
    return QSettings(settingsPath(), QSettings::IniFormat).value(key).toString();
}

bool StagedProgram::start()
{
    mLaunchBefore = setting(QStringLiteral("ts-last-launch"));
    // The record has seconds: a launch within the same one would look like none.
    QTest::qWaitFor([this] { return QDateTime::currentDateTime().toString(Qt::TextDate) != mLaunchBefore; }, 2000);
    mProcess.setProcessEnvironment(environment);
    mProcess.setWorkingDirectory(workingDirectory);
    mProcess.start(binary(), QStringList());
    return mProcess.waitForStarted();
}

bool StagedProgram::waitForLaunch(int ms)
{
    const auto launched = [this] {
        const QString now = setting(QStringLiteral("ts-last-launch"));
        return !now.isEmpty() && now != mLaunchBefore;
    };
    QTest::qWaitFor([&] { return launched() || mProcess.state() == QProcess::NotRunning; }, ms);
    return launched() && mProcess.state() == QProcess::Running;
}

bool StagedProgram::waitForExit(int ms)
{
    if (!QTest::qWaitFor([this] { return mProcess.state() == QProcess::NotRunning; }, ms)) {
        mProcess.kill();
        mProcess.waitForFinished(5000);
        return false;
    }
    return mProcess.exitStatus() == QProcess::NormalExit && mProcess.exitCode() == 0;
}

bool StagedProgram::quit(int ms)
{
    ::kill(pid_t(mProcess.processId()), SIGTERM);
    return waitForExit(ms);
}

QString StagedProgram::xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    return process.waitForFinished(10000) ? QString::fromUtf8(process.readAllStandardOutput()).trimmed() : QString();
}

QList<qulonglong> StagedProgram::windows(const QString& title) const
{
    QList<qulonglong> found;
    for (const QString& id : xdotool({QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"),
                                      QStringLiteral("--pid"), QString::number(pid()), QStringLiteral("--name"), title})
                                 .split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        found << id.toULongLong();
    return found;
}

QRect StagedProgram::geometry(qulonglong window)
{
    const QString shell = xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), QString::number(window)});
    const auto field = [&shell](const char* name) {
        return QRegularExpression(QStringLiteral("%1=(-?\\d+)").arg(QLatin1String(name))).match(shell).captured(1).toInt();
    };
    return QRect(field("X"), field("Y"), field("WIDTH"), field("HEIGHT"));
}

qulonglong StagedProgram::mainWindow() const
{
    qulonglong best = 0;
    int bestArea = 0;
    for (qulonglong window : windows(QStringLiteral("^Kestrelgap$"))) {
        const QSize size = geometry(window).size();
        if (size.width() * size.height() > bestArea) {
            bestArea = size.width() * size.height();
            best = window;
        }
    }
    return best;
}

qulonglong StagedProgram::trayIcon() const
{
    for (qulonglong window : windows()) {
        const QSize size = geometry(window).size();
        if (size.width() == size.height() && size.width() >= 16 && size.width() <= 64)
            return window;
    }
    return 0;
}

void StagedProgram::keys(qulonglong window, const QString& keys)
{
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(window)});
    xdotool({QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys});
}

void StagedProgram::click(qulonglong window, const QPoint& at, int button)
{
    xdotool({QStringLiteral("mousemove"), QStringLiteral("--sync"), QStringLiteral("--window"), QString::number(window),
             QString::number(at.x()), QString::number(at.y()), QStringLiteral("click"), QString::number(button)});
}

QSet<qulonglong> StagedProgram::settledWindows(int ms) const
{
    QMap<qulonglong, QRect> before;
    QMap<qulonglong, QRect> now;
    QTest::qWaitFor([&] {
        before = now;
        now.clear();
        for (qulonglong window : windows())
            now.insert(window, geometry(window));
        if (before != now)
            QTest::qWait(300); // looked at again after a moment
        return !now.isEmpty() && before == now;
    }, ms);
    const QList<qulonglong> keys = now.keys();
    return QSet<qulonglong>(keys.begin(), keys.end());
}

qulonglong StagedProgram::newWindow(const QSet<qulonglong>& known, int ms) const
{
    qulonglong found = 0;
    QTest::qWaitFor([&] {
        for (qulonglong window : windows()) {
            if (!known.contains(window))
                found = window;
        }
        return found != 0;
    }, ms);
    if (found != 0)
        settledWindows(ms);
    return found;
}

qulonglong StagedProgram::openTrayMenu(int button)
{
    qulonglong icon = 0;
    if (!QTest::qWaitFor([&] { return (icon = trayIcon()) != 0; }, 30000))
        return 0;
    // A window still on its way must not pass for the menu.
    const QSet<qulonglong> known = settledWindows();
    click(icon, geometry(icon).center() - geometry(icon).topLeft(), button);
    return newWindow(known);
}
