#pragma once

#include <QString>

class QObject;

// Hands the machine over to a downloaded installer: a script in the program folder stops this
// process at once, by force, and runs the installer. Nothing waits for it and nothing restarts
// the client; that is the installer's business.
class UpdateHandOver
{
public:
    virtual ~UpdateHandOver() = default;

    // Starts the hand-over in `programFolder`, with this process's id, the installer's path and a
    // volume name. The process object, if any, becomes a child of `owner`. A start that fails is
    // logged, not reported: the caller stays as it is.
    virtual void start(QObject* owner, const QString& programFolder, const QString& pid, const QString& installer,
        const QString& volume) = 0;

    // The script's file name, beside the executable.
    static QString scriptName();

    // The hand-over in force: a stand-in installed by a test, or the system's.
    static UpdateHandOver* instance();
    // Not owned. nullptr restores the system's hand-over.
    static void setInstance(UpdateHandOver* handOver);

private:
    static UpdateHandOver* systemHandOver();
};
