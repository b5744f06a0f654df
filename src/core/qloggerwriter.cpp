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

void QLoggerWriter::write(const QString& module, const QString& message)
{
    // Historic behaviour: an empty "logs" folder in the working directory. Nothing goes in it.
    QDir dir(QDir::currentPath());
    if (!dir.exists(QStringLiteral("logs")))
        dir.mkdir(QStringLiteral("logs"));

    QFile file(m_fileDestination);
    QDir().mkpath(QFileInfo(m_fileDestination).absolutePath());

    const QString extension = m_fileDestination.section(QLatin1Char('.'), -1);
    QString newName = m_fileDestination.left(m_fileDestination.size() - extension.size() - 1);
    newName.append(QStringLiteral("_%1__%2.log"));

    bool renamed = false;
    if (file.size() >= rotationSize) {
        const QDateTime now = QDateTime::currentDateTime();
        newName = newName.arg(now.toString(QStringLiteral("dd_MM_yy")), now.toString(QStringLiteral("hh_mm_ss")));
        renamed = QFile::rename(m_fileDestination, newName);
    }

    file.setFileName(m_fileDestination);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
        return;

    QTextStream out(&file);
    out.setCodec("UTF-8");
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("dd-MM-yyyy hh:mm:ss.zzz"));
    if (renamed)
        out << QStringLiteral("%1 - Previuous log %2\n").arg(stamp, newName);
    out << QStringLiteral("[%1] [%2] [%3] %4\n").arg(stamp, levelToText(m_level), module, message);
    file.close();
}

} // namespace QLogger
