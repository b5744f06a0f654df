#include "logger.h"

#include <QDateTime>
#include <QDebug>
#include <QSettings>
#include <QStandardPaths>

#include "qloggermanager.h"

namespace {
const char debugCode[] = "KVTR-MOL";
}

void Logger::toDebugOutput(const char* levelName, const QString& module, const QString& message)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    qDebug() << QStringLiteral("[%1][%2][%3]%4").arg(stamp, QLatin1String(levelName), module, message);
}

void Logger::logGated(const QString& module, QLogger::LogLevel level, const QString& message)
{
    const QString key = module + QLogger::levelSuffix(level);
    setUp(key, level);
    QLogger::QLog_(key, level, message);
}

void Logger::line(const char* levelName, const QString& module, QLogger::LogLevel level, const QString& message)
{
    if (!isLoggingEnabled())
        return;
    logGated(module, level, message);
    toDebugOutput(levelName, module, message);
}

void Logger::Trace(const QString& module, const QString& message)
{
    line("Trace", module, QLogger::TraceLevel, message);
}

void Logger::Debug(const QString& module, const QString& message)
{
    if (isLoggingEnabled())
        toDebugOutput("Debug", module, message);
}

void Logger::Info(const QString& module, const QString& message)
{
    line("Info", module, QLogger::InfoLevel, message);
}

void Logger::Warn(const QString& module, const QString& message)
{
    line("Warn", module, QLogger::WarnLevel, message);
}

void Logger::Error(const QString& module, const QString& message)
{
    line("Error", module, QLogger::ErrorLevel, message);
}

void Logger::Fatal(const QString& module, const QString& message)
{
    line("Fatal", module, QLogger::FatalLevel, message);
}

void Logger::setUp(const QString& module, const QLogger::LogLevel& level)
{
    const QString fileDest = logFilePath();
    const bool added = QLogger::QLoggerManager::getInstance()->addDestination(fileDest, module, level);
    qDebug() << QStringLiteral("[logger][setup] - added=%1, module=%2, logLevel=%3, fileDest=%4")
                    .arg(added ? QStringLiteral("true") : QStringLiteral("false"), module)
                    .arg(int(level))
                    .arg(fileDest);
}

QString Logger::logFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/kg.log");
}

bool Logger::isLoggingEnabled()
{
    QSettings settings;
    QString value = settings.value(QStringLiteral("pref-debug-enabled")).toString();
    if (value.isEmpty())
        value = QStringLiteral("0");
    return value == QLatin1String("1");
}

bool Logger::isDebugCodeValid()
{
    QSettings settings;
    return settings.value(QStringLiteral("pref-debug-enabled-code")).toString() == QLatin1String(debugCode);
}
