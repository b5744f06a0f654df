#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

#include "qloggerlevel.h"

namespace QLogger {

// Appends lines to one file, opening it for each line and rotating it at 1 MiB.
class QLoggerWriter : public QObject
{
    Q_OBJECT
public:
    QLoggerWriter(const QString& fileDestination, LogLevel level);

    LogLevel getLevel() const { return m_level; }
    QString fileDestination() const { return m_fileDestination; }
    void write(const QString& module, const QString& message);

    static constexpr qint64 rotationSize = 1048576;
    // Rotated files kept beside the current one; older ones go. With lines cut at longestLine the
    // folder stays within (keptRotations + 1) * (rotationSize + longestLine).
    static constexpr int keptRotations = 5;
    static constexpr int longestLine = 64 * 1024;

private:
    // Name the full file takes when it is rotated: "kg.log" becomes "kg_dd_MM_yy__hh_mm_ss.log".
    static QString rotatedName(const QString& fileDestination, const QDateTime& when);
    // Removes all but the newest keptRotations rotated files of this log.
    void pruneRotated() const;

    QString m_fileDestination;
    LogLevel m_level;
};

} // namespace QLogger
