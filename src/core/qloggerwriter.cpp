#include "qloggerwriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace QLogger {

QLoggerWriter::QLoggerWriter(const QString& fileDestination, LogLevel level)
    : m_fileDestination(fileDestination)
    , m_level(level)
{
}

QString QLoggerWriter::rotatedName(const QString& fileDestination, const QDateTime& when)
{
    // Built by concatenation, not arg(): a '%' in the user's data folder must not become a placeholder.
    const QString extension = fileDestination.section(QLatin1Char('.'), -1);
    return fileDestination.left(fileDestination.size() - extension.size() - 1) + QLatin1Char('_')
        + when.toString(QStringLiteral("dd_MM_yy")) + QStringLiteral("__") + when.toString(QStringLiteral("hh_mm_ss"))
        + QStringLiteral(".log");
}

void QLoggerWriter::write(const QString& module, const QString& message)
{
    // Historic behaviour: an empty "logs" folder in the working directory. Nothing goes in it.
    QDir dir(QDir::currentPath());
    if (!dir.exists(QStringLiteral("logs")))
        dir.mkdir(QStringLiteral("logs"));

    QFile file(m_fileDestination);
    // On a fresh account nothing else may have made the data folder yet.
    QDir().mkpath(QFileInfo(m_fileDestination).absolutePath());

    QString newName;
    bool renamed = false;
    if (file.size() >= rotationSize) {
        newName = rotatedName(m_fileDestination, QDateTime::currentDateTime());
        // A second rotation within the same second gets a counted name rather than no rotation.
        for (int n = 2; QFile::exists(newName) && n < 100; ++n)
            newName = rotatedName(m_fileDestination, QDateTime::currentDateTime()).chopped(4) + QStringLiteral("_%1.log").arg(n);
        renamed = QFile::rename(m_fileDestination, newName);
        if (renamed)
            pruneRotated();
    }

    file.setFileName(m_fileDestination);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
        return;

    QTextStream out(&file);
    out.setCodec("UTF-8");
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("dd-MM-yyyy hh:mm:ss.zzz"));
    if (renamed)
        out << QStringLiteral("%1 - Previuous log %2\n").arg(stamp, newName);
    // A page can log megabytes in one line; the cut keeps rotation and the folder's bound meaningful.
    const QString line = message.size() > longestLine
        ? message.left(longestLine) + QStringLiteral(" [cut, %1 characters]").arg(message.size())
        : message;
    out << QStringLiteral("[%1] [%2] [%3] %4\n").arg(stamp, levelToText(m_level), module, line);
    file.close();
}

void QLoggerWriter::pruneRotated() const
{
    const QFileInfo current(m_fileDestination);
    const QString pattern = current.completeBaseName() + QStringLiteral("_*__*.log");
    // Newest first by time of change: the names' day-month-year order doesn't sort.
    const QFileInfoList rotated = current.dir().entryInfoList({ pattern }, QDir::Files, QDir::Time);
    for (int i = keptRotations; i < rotated.size(); ++i)
        QFile::remove(rotated.at(i).absoluteFilePath());
}

} // namespace QLogger
