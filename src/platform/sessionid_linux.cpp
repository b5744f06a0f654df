#include "sessionid.h"

#include <unistd.h>

// One desktop session per user here: the user id keeps two users' instances apart.
bool SessionId::fromSystem(quint32& id)
{
    id = quint32(getuid());
    return true;
}
