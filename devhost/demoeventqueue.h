#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMutex>
#include <QString>

// Events pushed to the open pages from outside (a developer's curl, a test), the way the real
// service pushes new messages. Each page fetches and so consumes the events meant for it.
// Thread-safe: the server answers on its own thread.
class DemoEventQueue
{
public:
    // Oldest events make room beyond this, so a runaway script can't grow the host without end.
    static constexpr int maxPending = 500;

    // Adds `event` for the page `audience` ("signin" or "main"); returns the id it was given.
    qint64 push(const QString& audience, QJsonObject event);
    // Removes and returns the events waiting for `audience`, oldest first, each with its "id".
    QJsonArray take(const QString& audience);
    int pendingCount() const;

private:
    struct Entry
    {
        QString audience;
        QJsonObject event;
    };

    mutable QMutex mMutex;
    QList<Entry> mPending;
    qint64 mNextId = 1;
};
