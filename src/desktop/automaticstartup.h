#pragma once

#include <QString>

// Start at log-in. The registration itself is the state: no setting records it, so the preferences
// always show what the session will really do.
class AutomaticStartup
{
public:
    static void setAutomaticStartup();
    // True when the program is registered to start at log-in (the name is historical).
    static bool isSettingsAvailable();
    static void removeAutomaticStartup();

    // The analytics label for how long a login-item lookup took.
    static QString durationBucket(int milliseconds);
};
