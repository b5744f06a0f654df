#pragma once

#include <QtGlobal>

#include <functional>

// A number that sets one user's desktop session apart from another's on the same machine, so that
// each user gets a first instance of their own.
class SessionId
{
public:
    // False when the platform can't tell; callers then leave the number out.
    static bool current(quint32& id);

    using Source = std::function<bool(quint32& id)>;
    // Tests install a stand-in here; an empty source restores the system's answer.
    static void setSource(Source source);

private:
    static bool fromSystem(quint32& id);
};
