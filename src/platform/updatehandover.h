#pragma once

#include "seam.h"

#include <QString>

class QObject;

// Hands the machine over to a downloaded installer: a script in the program folder stops this
// process at once, by force, runs the installer and starts the client again. A Debian package
// goes to the system's package installer, behind the desktop's privilege prompt, while the client
// still runs; it is stopped only once the package is in.
class UpdateHandOver : public Seam<UpdateHandOver>
{
public:
    virtual ~UpdateHandOver() = default;

    // Starts the hand-over in `programFolder`, with this process's id, the installer's path and a
    // volume name. The process object, if any, becomes a child of `owner`. A start that fails is
    // logged, not reported: the caller stays as it is.
    virtual void start(QObject* owner, const QString& programFolder, const QString& pid, const QString& installer,
        const QString& volume) = 0;

    // Why `installer` can't be handed over on this system, in words for the user; empty when it
    // can. Asked before anything is stopped, so a refusal leaves the client running.
    virtual QString refusal(const QString& installer) const;
    // The system's rule, apart so that it can be checked without a hand-over in force.
    static QString refusal(const QString& installer, const QString& programFolder);

    // The script's file name, beside the executable.
    static QString scriptName();

private:
    friend class Seam<UpdateHandOver>;
    static UpdateHandOver* systemInstance();
};
