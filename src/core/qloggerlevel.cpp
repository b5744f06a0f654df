#include "qloggerlevel.h"

namespace QLogger {

QString levelToText(LogLevel level)
{
    switch (level) {
    case TraceLevel:
        return QStringLiteral("Trace");
    case DebugLevel:
        return QStringLiteral("Debug");
    case InfoLevel:
        return QStringLiteral("Info");
    case WarnLevel:
        return QStringLiteral("Warning");
    case ErrorLevel:
        return QStringLiteral("Error");
    case FatalLevel:
        return QStringLiteral("Fatal");
    }
    return QString();
}

QString levelSuffix(LogLevel level)
{
    // Debug never reaches a writer, so it has no key of its own.
    return level == DebugLevel ? QString() : QStringLiteral("-%1").arg(int(level));
}

} // namespace QLogger
