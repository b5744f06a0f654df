#pragma once

#include <QObject>
#include <QProcess>
#include <QRect>
#include <QSet>
#include <QTemporaryDir>

// The staged program, started for real from its folder with a TMPDIR of its own, in the test's HOME
// (so a second start finds the first's settings, cookies and guard) or in a fresh home of its own.
// Its stderr is kept, and echoed for a failing run. On an X display it is driven with xdotool.
class StagedProgram : public QObject
{
public:
    enum Home { TestHome, OwnHome };
    explicit StagedProgram(Home home = TestHome);
    // Kills the program if it still runs.
    ~StagedProgram() override;

    // Before start(): what the program inherits and where it runs (default the staged folder).
    QProcessEnvironment environment;
    QString workingDirectory;

    static QString binary();
    QString homePath() const;
    QString settingsPath() const;
    QString setting(const QString& key) const;

    bool start();
    // Until the launch time is recorded (the last step before the event loop) while it runs.
    bool waitForLaunch(int ms = 60000);
    // Until it ends, killed when the time is up; true for a clean exit 0.
    bool waitForExit(int ms = 30000);
    // SIGTERM, which the program takes as a quit, then waitForExit().
    bool quit(int ms = 30000);
    QProcess& process() { return mProcess; }
    qint64 pid() const { return mProcess.processId(); }
    QString errors() const { return mErrors; }
    void clearErrors() { mErrors.clear(); }

    static QString xdotool(const QStringList& arguments);
    // Its visible windows whose title matches `title` (a regular expression; empty: any).
    QList<qulonglong> windows(const QString& title = QString()) const;
    static QRect geometry(qulonglong window);
    // The largest visible window titled with the program's name; 0 while there is none.
    qulonglong mainWindow() const;
    // The window of ours the tray holds: a small square.
    qulonglong trayIcon() const;
    // Activates the window and types, as a keyboard does.
    static void keys(qulonglong window, const QString& keys);
    static void click(qulonglong window, const QPoint& at, int button = 1);
    // Until its windows hold still for a moment; returns them.
    QSet<qulonglong> settledWindows(int ms = 30000) const;
    // Until a visible window of ours not among `known` shows and holds still; 0 if none does.
    qulonglong newWindow(const QSet<qulonglong>& known, int ms = 30000) const;
    // Opens the tray icon's menu with that button; 0 if none opens.
    qulonglong openTrayMenu(int button);

private:
    QTemporaryDir mTemp;
    QString mHome;
    QProcess mProcess;
    QString mErrors;
    QString mLaunchBefore;
};
