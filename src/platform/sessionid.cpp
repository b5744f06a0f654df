#include "sessionid.h"

namespace {
SessionId::Source& installedSource()
{
    static SessionId::Source source;
    return source;
}
}

bool SessionId::current(quint32& id)
{
    const Source& source = installedSource();
    return source ? source(id) : fromSystem(id);
}

void SessionId::setSource(Source source)
{
    installedSource() = std::move(source);
}
