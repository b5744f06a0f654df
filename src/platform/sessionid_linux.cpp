#include "sessionid.h"

#include <QFile>

// The login session logind gave us: the desktop exports it, and a process started outside the
// desktop's environment (cron, a systemd user unit) still sits in the session's scope when it has one.
bool SessionId::fromSystem(QString& id)
{
    id = QString::fromLocal8Bit(qgetenv("XDG_SESSION_ID"));
    if (!id.isEmpty())
        return true;
    QFile cgroups(QStringLiteral("/proc/self/cgroup"));
    if (cgroups.open(QIODevice::ReadOnly))
        id = fromCgroups(cgroups.readAll());
    return !id.isEmpty();
}
