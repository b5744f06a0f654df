#pragma once

#include <QString>

#include "qloggerlevel.h"

// Static front end of the log. While the user has logging switched on, every line reaches the
// debug output and all levels but Debug the shared log file. Off, nothing does: lines carry
// message texts, names and numbers, and a desktop session keeps a program's stderr in its journal.
class Logger
{
public:
    static void Trace(const QString& module, const QString& message);
    static void Debug(const QString& module, const QString& message);
    static void Info(const QString& module, const QString& message);
    static void Warn(const QString& module, const QString& message);
    static void Error(const QString& module, const QString& message);
    static void Fatal(const QString& module, const QString& message);

    static void setUp(const QString& module, const QLogger::LogLevel& level);
    static QString logFilePath();

    static bool isLoggingEnabled();
    // A setting was written in this process: the next line reads the logging switch afresh.
    static void settingsWritten();
    static bool isDebugCodeValid();

private:
    static void logGated(const QString& module, QLogger::LogLevel level, const QString& message);
    static void line(const char* levelName, const QString& module, QLogger::LogLevel level, const QString& message);
    static void toDebugOutput(const char* levelName, const QString& module, const QString& message);
};
