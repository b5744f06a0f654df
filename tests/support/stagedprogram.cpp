#include "stagedprogram.h"

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

#include "stagedfolder.h"
#include "testenvironment.h"

namespace {
const int waitMs = 30000;
}

StagedProgram::StagedProgram(Home home)
    : environment(QProcessEnvironment::systemEnvironment())
    , workingDirectory(StagedFolder::path())
    , mTemp(TestEnvironment::homePath() + QStringLiteral("/program-XXXXXX"))
    , mHome(home == OwnHome ? mTemp.filePath(QStringLiteral("home")) : TestEnvironment::homePath())
{
    if (home == OwnHome) {
        environment.insert(QStringLiteral("HOME"), mHome);
        for (const char* name : {"CONFIG_HOME=config", "DATA_HOME=data", "CACHE_HOME=cache", "RUNTIME_DIR=runtime"}) {
            const QStringList pair = QString::fromLatin1(name).split(QLatin1Char('='));
            QDir().mkpath(mHome + QLatin1Char('/') + pair.last());
            environment.insert(QStringLiteral("XDG_") + pair.first(), mHome + QLatin1Char('/') + pair.last());
        }
        QFile::setPermissions(mHome + QStringLiteral("/runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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
    mProcess.kill();
    mProcess.waitForFinished(5000);
}

QString StagedProgram::binary()
{
    return StagedFolder::path() + QStringLiteral("/kestrelgap");
}

QString StagedProgram::settingsPath() const
{
    return environment.value(QStringLiteral("XDG_CONFIG_HOME")) + QStringLiteral("/Kestrelgap/Kestrelgap.conf");
}

QString StagedProgram::setting(const QString& key) const
{
    // The file as it is now: QSettings would answer from a parse it keeps while the size and time match.
    QFile file(settingsPath());
    const QString text = file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    const QRegularExpression line(QStringLiteral("^%1=(.*)$").arg(QRegularExpression::escape(key)), QRegularExpression::MultilineOption);
    return line.match(text).captured(1).trimmed();
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
    const bool ended = QTest::qWaitFor([this] { return mProcess.state() == QProcess::NotRunning; }, ms);
    mProcess.kill();
    mProcess.waitForFinished(5000);
    return ended && mProcess.exitStatus() == QProcess::NormalExit && mProcess.exitCode() == 0;
}

bool StagedProgram::quit(int ms)
{
    ::kill(pid_t(pid()), SIGTERM);
    return waitForExit(ms);
}

QString StagedProgram::xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    return process.waitForFinished(10000) ? QString::fromUtf8(process.readAllStandardOutput()).trimmed() : QString();
}

QRect StagedProgram::geometry(qulonglong window)
{
    const QString shell = xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), QString::number(window)});
    const auto field = [&shell](const char* name) {
        return QRegularExpression(QLatin1String(name) + QStringLiteral("=(-?\\d+)")).match(shell).captured(1).toInt();
    };
    return QRect(field("X"), field("Y"), field("WIDTH"), field("HEIGHT"));
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

QList<qulonglong> StagedProgram::windows(const QString& title) const
{
    QList<qulonglong> found;
    for (const QString& id : xdotool({QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"),
                                      QStringLiteral("--pid"), QString::number(pid()), QStringLiteral("--name"), title})
                                 .split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        found << id.toULongLong();
    return found;
}

qulonglong StagedProgram::mainWindow() const
{
    QMap<int, qulonglong> byArea;
    for (qulonglong window : windows(QStringLiteral("^Kestrelgap$")))
        byArea.insert(geometry(window).width() * geometry(window).height(), window);
    return byArea.isEmpty() ? 0 : byArea.last();
}

QSet<qulonglong> StagedProgram::settledWindows() const
{
    QMap<qulonglong, QRect> before, now;
    QTest::qWaitFor([&] {
        before = now;
        now.clear();
        for (qulonglong window : windows())
            now.insert(window, geometry(window));
        if (before != now)
            QTest::qWait(300); // looked at again a moment later
        return !now.isEmpty() && before == now;
    }, waitMs);
    const QList<qulonglong> ids = now.keys();
    return QSet<qulonglong>(ids.begin(), ids.end());
}

qulonglong StagedProgram::newWindow(const QSet<qulonglong>& known) const
{
    qulonglong found = 0;
    QTest::qWaitFor([&] {
        for (qulonglong window : windows())
            found = known.contains(window) ? found : window;
        return found != 0;
    }, waitMs);
    return found != 0 && settledWindows().contains(found) ? found : 0;
}

qulonglong StagedProgram::openTrayMenu(int button)
{
    const auto trayIcon = [this] {
        for (qulonglong window : windows()) {
            const QSize size = geometry(window).size();
            if (size.width() == size.height() && size.width() >= 16 && size.width() <= 64)
                return window;
        }
        return qulonglong(0);
    };
    qulonglong icon = 0;
    if (!QTest::qWaitFor([&] { return (icon = trayIcon()) != 0; }, waitMs))
        return 0;
    // A window still on its way must not pass for the menu.
    const QSet<qulonglong> known = settledWindows();
    click(icon, QPoint(geometry(icon).width() / 2, geometry(icon).height() / 2), button);
    return newWindow(known);
}
