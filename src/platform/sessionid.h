#pragma once

#include <QString>

#include <functional>

// A text that sets one login session apart from another on the same machine, the same user's
// included, so that each session gets a first instance of its own.
class SessionId
{
public:
    // False when the platform can't tell; callers then leave the key out.
    static bool current(QString& id);

    using Source = std::function<bool(QString& id)>;
    // Tests install a stand-in here; an empty source restores the system's answer.
    static void setSource(Source source);

    // The session named in a process's cgroup list (/proc/<pid>/cgroup), as logind places it:
    // ".../session-<id>.scope". Empty when the process is in no login session.
    static QString fromCgroups(const QByteArray& cgroups);

private:
    static bool fromSystem(QString& id);
};
