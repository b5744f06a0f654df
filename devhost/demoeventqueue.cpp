#include "demoeventqueue.h"

#include <QMutexLocker>

qint64 DemoEventQueue::push(const QString& audience, QJsonObject event)
{
    QMutexLocker lock(&mMutex);
    const qint64 id = mNextId++;
    event.insert(QStringLiteral("id"), double(id));
    mPending.append({audience, event});
    while (mPending.size() > maxPending)
        mPending.removeFirst();
    return id;
}

QJsonArray DemoEventQueue::take(const QString& audience)
{
    QMutexLocker lock(&mMutex);
    QJsonArray taken;
    for (auto it = mPending.begin(); it != mPending.end();) {
        if (it->audience == audience) {
            taken.append(it->event);
            it = mPending.erase(it);
        } else {
            ++it;
        }
    }
    return taken;
}

int DemoEventQueue::pendingCount() const
{
    QMutexLocker lock(&mMutex);
    return mPending.size();
}
