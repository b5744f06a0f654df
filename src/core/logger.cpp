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
    if (!isLoggingEnabled())
        return;
    const QString key = module + QLogger::levelSuffix(level);
    setUp(key, level);
    QLogger::QLog_(key, level, message);
}

void Logger::Trace(const QString& module, const QString& message)
{
    logGated(module, QLogger::TraceLevel, message);
    toDebugOutput("Trace", module, message);
}

void Logger::Debug(const QString& module, const QString& message)
{
    toDebugOutput("Debug", module, message);
}

void Logger::Info(const QString& module, const QString& message)
{
    logGated(module, QLogger::InfoLevel, message);
    toDebugOutput("Info", module, message);
}

void Logger::Warn(const QString& module, const QString& message)
{
    logGated(module, QLogger::WarnLevel, message);
    toDebugOutput("Warn", module, message);
}

void Logger::Error(const QString& module, const QString& message)
{
    logGated(module, QLogger::ErrorLevel, message);
    toDebugOutput("Error", module, message);
}

void Logger::Fatal(const QString& module, const QString& message)
{
    logGated(module, QLogger::FatalLevel, message);
    toDebugOutput("Fatal", module, message);
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
