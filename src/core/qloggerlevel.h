#pragma once

#include <QString>

namespace QLogger {

enum LogLevel { TraceLevel = 0, DebugLevel, InfoLevel, WarnLevel, ErrorLevel, FatalLevel };

// Text of a level as written in the file; empty outside the known range.
QString levelToText(LogLevel level);

// Suffix appended to a module name to make its key for this level ("-2" for Info).
QString levelSuffix(LogLevel level);

} // namespace QLogger
