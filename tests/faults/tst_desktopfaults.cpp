// Faults the user meets on the desktop itself: the real program from a program folder that lost a
// part, driven through the X display with xdotool as a user's mouse and keyboard drive it.
#include <QtTest>

#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "stagedfolder.h"

namespace {

constexpr int waitMs = 30000;

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Whether an X window sits inside the tray's panel (trayer's, on the private desktop), however
// deep: the tray may wrap each icon in a socket window, a window manager frames top-levels instead.
bool insideTray(qulonglong window)
{
    static const QRegularExpression parentLine(QStringLiteral("Parent window id: (0x[0-9a-f]+)"));
    static const QRegularExpression rootLine(QStringLiteral("Root window id: (0x[0-9a-f]+)"));
    QString id = QString::number(window);
    for (int depth = 0; depth < 4; ++depth) {
        const QString tree = run(QStringLiteral("xwininfo"), {QStringLiteral("-children"), QStringLiteral("-id"), id});
        const QString parent = parentLine.match(tree).captured(1);
        if (parent.isEmpty() || parent == rootLine.match(tree).captured(1))
            return false;
        id = parent;
        if (run(QStringLiteral("xprop"), {QStringLiteral("-id"), id, QStringLiteral("WM_CLASS")}).contains(QLatin1String("trayer")))
            return true;
    }
    return false;
}

} // namespace

class TestDesktopFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void trayQuitsWithPageFolderMissing_data();
    void trayQuitsWithPageFolderMissing();

private:
    QSet<qulonglong> visibleWindows() const;
    // The program's window that the tray holds: its icon.
    qulonglong trayIconWindow() const;
    QRect geometry(qulonglong window) const;
    // Waits for a visible window of ours that is not among `known`.
    qulonglong newWindow(const QSet<qulonglong>& known) const;
    void xdotool(const QStringList& arguments) const { run(mXdotool, arguments); }

    QString mXdotool;
    QTemporaryDir mTmp;
    QProcess mProgram;
};

void TestDesktopFaults::initTestCase()
{
    mXdotool = QStandardPaths::findExecutable(QStringLiteral("xdotool"));
    QVERIFY2(!mXdotool.isEmpty(), "xdotool is needed to drive the program (scripts/install-deps.sh installs it)");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs inside scripts/desktop-session.sh");
    QVERIFY2(QFile::exists(StagedFolder::path() + QStringLiteral("/kestrelgap")), "the build did not stage the program");
    // Its own single-instance lock and socket, apart from any other copy for the same user.
    QVERIFY(mTmp.isValid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), mTmp.path());
    mProgram.setProcessEnvironment(environment);
    mProgram.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    mProgram.setStandardOutputFile(QProcess::nullDevice());
}

void TestDesktopFaults::cleanup()
{
    if (mProgram.state() != QProcess::NotRunning) {
        mProgram.kill();
        mProgram.waitForFinished(5000);
    }
}

QSet<qulonglong> TestDesktopFaults::visibleWindows() const
{
    QSet<qulonglong> windows;
    const QString found = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                                         QString::number(mProgram.processId())});
    for (const QString& id : found.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        windows << id.toULongLong();
    return windows;
}

qulonglong TestDesktopFaults::trayIconWindow() const
{
    for (qulonglong window : visibleWindows()) {
        if (insideTray(window))
            return window;
    }
    return 0;
}

QRect TestDesktopFaults::geometry(qulonglong window) const
{
    QMap<QString, int> values;
    const QString shell = run(mXdotool, {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), QString::number(window)});
    for (const QString& line : shell.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        values.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1).toInt());
    return QRect(values.value(QStringLiteral("X")), values.value(QStringLiteral("Y")), values.value(QStringLiteral("WIDTH")),
        values.value(QStringLiteral("HEIGHT")));
}

qulonglong TestDesktopFaults::newWindow(const QSet<qulonglong>& known) const
{
    qulonglong found = 0;
    const bool appeared = QTest::qWaitFor(
        [&] {
            const QSet<qulonglong> fresh = visibleWindows() - known;
            found = fresh.isEmpty() ? 0 : *fresh.begin();
            return found != 0;
        },
        waitMs);
    return appeared ? found : 0;
}

void TestDesktopFaults::trayQuitsWithPageFolderMissing_data()
{
    QTest::addColumn<int>("button");

    // The desktop opens the menu on a right click, the program itself on a left one.
    QTest::newRow("right click") << 3;
    QTest::newRow("left click") << 1;
}

void TestDesktopFaults::trayQuitsWithPageFolderMissing()
{
    QFETCH(int, button);

    // The program folder as installed, less its page folder. The view then shows which start page
    // it could not open (tst_faults checks that text).
    QTemporaryDir programFolder;
    for (const QString& part : {QStringLiteral("kestrelgap"), QStringLiteral("kestrelgap.iconset")})
        QVERIFY(QFile::link(StagedFolder::path() + QLatin1Char('/') + part, programFolder.filePath(part)));
    mProgram.setWorkingDirectory(programFolder.path());
    mProgram.start(programFolder.filePath(QStringLiteral("kestrelgap")), QStringList());
    QVERIFY(mProgram.waitForStarted());

    qulonglong icon = 0;
    QTRY_VERIFY_WITH_TIMEOUT((icon = trayIconWindow()) != 0, waitMs);
    const QRect iconPlace = geometry(icon);
    QVERIFY2(iconPlace.width() >= 16 && iconPlace.height() >= 16, "the tray shows no icon of the program");

    // The main window may still be on its way; a window that shows now must not pass for the menu.
    QSet<qulonglong> known;
    QTRY_VERIFY_WITH_TIMEOUT([&] {
        const QSet<qulonglong> before = visibleWindows();
        QTest::qWait(500);
        known = visibleWindows();
        return known == before && known.size() >= 2;
    }(), waitMs);
    xdotool({QStringLiteral("mousemove"), QStringLiteral("--sync"), QString::number(iconPlace.center().x()),
        QString::number(iconPlace.center().y()), QStringLiteral("click"), QString::number(button)});
    const qulonglong menu = newWindow(known);
    QVERIFY2(menu != 0, "no menu opened at the tray icon");

    // "Quit Kestrelgap" is the menu's last entry whatever else it holds. A slow program may still
    // be sizing and placing the menu; it is clicked once it holds still.
    QRect menuPlace;
    QTRY_VERIFY_WITH_TIMEOUT([&] {
        const QRect before = geometry(menu);
        QTest::qWait(300);
        menuPlace = geometry(menu);
        return menuPlace == before && menuPlace.height() > 40;
    }(), waitMs);
    known = visibleWindows();
    xdotool({QStringLiteral("mousemove"), QStringLiteral("--sync"), QString::number(menuPlace.center().x()),
        QString::number(menuPlace.bottom() - 10), QStringLiteral("click"), QStringLiteral("1")});
    const qulonglong question = newWindow(known);
    QVERIFY2(question != 0, "no question after Quit was chosen");
    QCOMPARE(mProgram.state(), QProcess::Running);

    // Yes is the default answer.
    xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), QString::number(question)});
    xdotool({QStringLiteral("key"), QStringLiteral("--clearmodifiers"), QStringLiteral("Return")});
    QVERIFY2(mProgram.waitForFinished(waitMs), "the program still runs after Quit");
    QCOMPARE(mProgram.exitStatus(), QProcess::NormalExit);
    QCOMPARE(mProgram.exitCode(), 0);
}

QTEST_MAIN(TestDesktopFaults)
#include "tst_desktopfaults.moc"
