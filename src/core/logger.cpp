#include "logger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QMutex>
#include <QSettings>
#include <QStandardPaths>

#include <sys/stat.h>

#include "qloggermanager.h"

namespace {
const char debugCode[] = "KVTR-MOL";

// What identifies one version of the settings file. QSettings writes by replacing the file, so every
// write gives it a new inode and change time.
struct FileStamp
{
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified {};
    timespec changed {};

    static FileStamp of(const QByteArray& path)
    {
        FileStamp stamp;
        struct stat status;
        if (::stat(path.constData(), &status) == 0) {
            stamp = {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
        }
        return stamp;
    }
    bool operator==(const FileStamp& other) const
    {
        return exists == other.exists && device == other.device && inode == other.inode && size == other.size
            && modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec
            && changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

// Every log line asks whether logging is on, and parsing the settings for that was most of a short
// line's cost; the answer is kept until the settings file changes or the program writes a setting.
struct LoggingSwitch
{
    QMutex mutex;
    QString owner; // organisation and application the file belongs to
    QByteArray path;
    FileStamp stamp;
    bool known = false;
    bool enabled = false;

    bool isOn()
    {
        QMutexLocker locker(&mutex);
        const QString currentOwner = QCoreApplication::organizationName() + QLatin1Char('/') + QCoreApplication::applicationName();
        if (currentOwner != owner || path.isEmpty()) {
            owner = currentOwner;
            path = QFile::encodeName(QSettings().fileName());
            known = false;
        }
        const FileStamp now = FileStamp::of(path);
        if (!known || !(now == stamp)) {
            const QString value = QSettings().value(QStringLiteral("pref-debug-enabled")).toString();
            enabled = value == QLatin1String("1");
            stamp = now;
            known = true;
        }
        return enabled;
    }
    void forget()
    {
        QMutexLocker locker(&mutex);
        known = false;
    }
};

LoggingSwitch& loggingSwitch()
{
    static LoggingSwitch instance;
    return instance;
}
} // namespace

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
    return loggingSwitch().isOn();
}

void Logger::settingsWritten()
{
    loggingSwitch().forget();
}

bool Logger::isDebugCodeValid()
{
    QSettings settings;
    return settings.value(QStringLiteral("pref-debug-enabled-code")).toString() == QLatin1String(debugCode);
}
