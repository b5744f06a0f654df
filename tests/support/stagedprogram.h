#pragma once

#include <QObject>
#include <QProcess>
#include <QRect>
#include <QSet>
#include <QTemporaryDir>

// The staged program, started for real from its folder with a TMPDIR of its own, in the test's HOME
// (a second start finds the first's settings, cookies and guard) or in a fresh home of its own. Its
// stderr is kept, and echoed for a failing run. On an X display it is driven with xdotool.
class StagedProgram : public QObject
{
public:
    enum Home { TestHome, OwnHome };
    explicit StagedProgram(Home home = TestHome);
    ~StagedProgram() override; // kills it if it still runs

    // Before start(): what it inherits and where it runs (the staged folder unless told).
    QProcessEnvironment environment;
    QString workingDirectory;

    static QString binary();
    QString homePath() const { return mHome; }
    QString settingsPath() const;
    QString setting(const QString& key) const;

    bool start();
    // Until it records its launch time, its last step before the event loop, while still running.
    bool waitForLaunch(int ms = 60000);
    // Until it ends, killed when the time is up; true for a clean exit 0.
    bool waitForExit(int ms = 30000);
    // SIGTERM, which the program takes as a quit.
    bool quit(int ms = 30000);
    QProcess& process() { return mProcess; }
    qint64 pid() const { return mProcess.processId(); }
    QString errors() const { return mErrors; }
    void clearErrors() { mErrors.clear(); }

    static QString xdotool(const QStringList& arguments);
    static QRect geometry(qulonglong window);
    // Activates the window and types, or clicks at a point of it, as a user does.
    static void keys(qulonglong window, const QString& keys);
    static void click(qulonglong window, const QPoint& at, int button = 1);
    // Its visible windows whose title matches `title` (a regular expression).
    QList<qulonglong> windows(const QString& title = QString()) const;
    // The largest window titled with the program's name; 0 while there is none.
    qulonglong mainWindow() const;
    // Until its windows and their places hold still for a moment.
    QSet<qulonglong> settledWindows() const;
    // Until a window not among `known` shows and all hold still; 0 if none shows.
    qulonglong newWindow(const QSet<qulonglong>& known) const;
    // Clicks the tray icon (its small square window) and returns the menu that opens, or 0.
    qulonglong openTrayMenu(int button);

private:
    QTemporaryDir mTemp;
    QString mHome;
    QProcess mProcess;
    QString mErrors;
    QString mLaunchBefore;
};
