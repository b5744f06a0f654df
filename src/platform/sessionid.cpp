#include "sessionid.h"

#include <QRegularExpression>

namespace {
SessionId::Source& installedSource()
{
    static SessionId::Source source;
    return source;
}
}

bool SessionId::current(QString& id)
{
    const Source& source = installedSource();
    if (!(source ? source(id) : fromSystem(id)))
        return false;
    // It becomes part of a file name: nothing but letters and digits.
    id.remove(QRegularExpression(QStringLiteral("[^A-Za-z0-9]")));
    id.truncate(32);
    return !id.isEmpty();
}

void SessionId::setSource(Source source)
{
    installedSource() = std::move(source);
}

QString SessionId::fromCgroups(const QByteArray& cgroups)
{
    static const QRegularExpression scope(QStringLiteral("/session-([^/]+)\\.scope(/|$)"));
    for (const QByteArray& line : cgroups.split('\n')) {
        const QRegularExpressionMatch match = scope.match(QString::fromUtf8(line));
        if (match.hasMatch())
            return match.captured(1);
    }
    return QString();
}
