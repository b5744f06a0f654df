#include "qloggermanager.h"

#include <QMutexLocker>

#include "qloggerwriter.h"

namespace QLogger {

QLoggerManager* QLoggerManager::instance = nullptr;

QLoggerManager::QLoggerManager()
{
    start(QThread::InheritPriority);
}

QLoggerManager* QLoggerManager::getInstance()
{
    if (!instance)
        instance = new QLoggerManager();
    return instance;
}

bool QLoggerManager::exists()
{
    return instance != nullptr;
}

bool QLoggerManager::addDestination(const QString& fileDest, const QString& module, LogLevel level)
{
    if (moduleDest.contains(module))
        return false;
    moduleDest.insert(module, new QLoggerWriter(fileDest, level));
    return true;
}

QLoggerWriter* QLoggerManager::getLogWriter(const QString& module)
{
    return moduleDest.value(module, nullptr);
}

void QLog_(const QString& module, LogLevel level, const QString& message)
{
    QLoggerManager* manager = QLoggerManager::getInstance();
    // The lock ends with its statement: a slow disk must never hold up another thread's line.
    { QMutexLocker locker(&manager->mutex); }

    QLoggerWriter* writer = manager->getLogWriter(module);
    if (!writer || writer->getLevel() > level)
        return;
    writer->write(module, message);
}

void QLog_Trace(const QString& module, const QString& message) { QLog_(module, TraceLevel, message); }
void QLog_Debug(const QString& module, const QString& message) { QLog_(module, DebugLevel, message); }
void QLog_Info(const QString& module, const QString& message) { QLog_(module, InfoLevel, message); }
void QLog_Warning(const QString& module, const QString& message) { QLog_(module, WarnLevel, message); }
void QLog_Error(const QString& module, const QString& message) { QLog_(module, ErrorLevel, message); }
void QLog_Fatal(const QString& module, const QString& message) { QLog_(module, FatalLevel, message); }

} // namespace QLogger
