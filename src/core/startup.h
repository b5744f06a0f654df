#pragma once

#include <QString>

// The program's start-up sequence, kept out of main() so its decisions can be tested.
class Startup
{
public:
    // Returns a new array of argc + 1 pointers (no terminating null): argv[0..argc-1], then the
    // one-element platform argument. newArgc receives the new count.
    static char** rewriteArguments(int argc, char** argv, int& newArgc);

    static const char* extraArgument();

    // First launch only when neither key has a value. A "start-on-launch" leftover with any value
    // must be removed, and also proves an earlier launch.
    struct LaunchDecision {
        bool firstLaunch;
        bool removeStartOnLaunch;
    };
    static LaunchDecision decideLaunch(const QString& tsLastLaunch, const QString& startOnLaunch);

    static int run(int argc, char** argv);

    // Makes the application object use the X11 platform unless a platform without a display was
    // chosen; true when it changed the environment.
    static bool choosePlatform();
    static void restorePlatformChoice(bool chosenHere, const QByteArray& before);

private:
    static void setUpTextCipher();
    static void quitOnEndSignals();
    static void showTrayIcon(bool firstLaunch);
    static void showHackWindow();
};

// Background upkeep of the login items. Nothing calls it here: the autostart entry needs no upkeep.
void manageLoginItems();
