#pragma once

#include <QMap>
#include <QRecursiveMutex>
#include <QStringList>
#include <QThread>

#include "qloggerlevel.h"

namespace QLogger {

class QLoggerWriter;

void QLog_Trace(const QString& module, const QString& message);
void QLog_Debug(const QString& module, const QString& message);
void QLog_Info(const QString& module, const QString& message);
void QLog_Warning(const QString& module, const QString& message);
void QLog_Error(const QString& module, const QString& message);
void QLog_Fatal(const QString& module, const QString& message);
void QLog_(const QString& module, LogLevel level, const QString& message);

// Maps module keys to writers. Its thread only runs an empty event loop: writes stay on the
// caller's thread so that a line is on disk when the call returns.
class QLoggerManager : public QThread
{
    Q_OBJECT
public:
    static QLoggerManager* getInstance();
    // Lets tests see whether anything has been made yet without making it.
    static bool exists();

    bool addDestination(const QString& fileDest, const QString& module, LogLevel level);
    QLoggerWriter* getLogWriter(const QString& module);

    QRecursiveMutex mutex;

private:
    QLoggerManager();

    QMap<QString, QLoggerWriter*> moduleDest;
    static QLoggerManager* instance;
};

} // namespace QLogger
