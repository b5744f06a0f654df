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

private:
    // Name the full file takes when it is rotated: "kg.log" becomes "kg_dd_MM_yy__hh_mm_ss.log".
    static QString rotatedName(const QString& fileDestination, const QDateTime& when);

    QString m_fileDestination;
    LogLevel m_level;
};

} // namespace QLogger
