#pragma once

#include "seam.h"

#include <QString>

// The user's start-at-login registration of this program: one entry that the desktop session reads
// when the user logs in. The entry itself is the whole state; nothing else records it.
class AutostartEntry : public Seam<AutostartEntry>
{
public:
    struct Program
    {
        QString executable; // absolute path
        QString folder;     // the folder it runs in, so its relative page and icon paths resolve
        QString icon;       // absolute path of the icon file
    };

    virtual ~AutostartEntry() = default;

    // Where the entry lives, for the log.
    virtual QString location() = 0;
    // Writes the entry anew, replacing one that is there. False when it couldn't be written.
    virtual bool create(const Program& program) = 0;
    // Only the entry's presence counts, so one made by hand is a registration too.
    virtual bool exists() = 0;
    // False when there was nothing to remove or it couldn't be removed.
    virtual bool remove() = 0;

private:
    friend class Seam<AutostartEntry>;
    static AutostartEntry* systemInstance();
};
