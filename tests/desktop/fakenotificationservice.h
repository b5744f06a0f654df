#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QMutex>
#include <QThread>
#include <QVariantMap>

// A desktop notification service of our own on the session bus, answering from a thread of its own.
// Each start takes a new bus connection, so the program sees a new service as a real restart would show.
class FakeNotificationService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Notification {
        uint id, replacesId;
        QString appName, appIcon, summary, body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };

    FakeNotificationService()
    {
        mThread.start();
        moveToThread(&mThread);
    }
    ~FakeNotificationService() override
    {
        stop();
        mThread.quit();
        mThread.wait();
    }

    bool start()
    {
        stop();
        mBusName = QStringLiteral("fake-notifications-%1").arg(++mStarts);
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, mBusName);
        return bus.registerObject(path, this, QDBusConnection::ExportAllSlots) && bus.registerService(service);
    }
    void stop()
    {
        if (mBusName.isEmpty())
            return;
        QDBusConnection bus(mBusName);
        // Released at once, not whenever the bus notices the connection is gone.
        bus.unregisterService(service);
        bus.unregisterObject(path);
        QDBusConnection::disconnectFromBus(mBusName);
        mBusName.clear();
    }

    QList<Notification> received() const
    {
        QMutexLocker lock(&mMutex);
        return mReceived;
    }
    // capabilities: beyond "actions" and "body"; hang: take calls and never answer them.
    void reset(bool refuse = false, const QStringList& capabilities = {}, bool hang = false)
    {
        QMutexLocker lock(&mMutex);
        mReceived.clear();
        mRefuse = refuse;
        mCapabilities = QStringList {"actions", "body"} + capabilities;
        mHang = hang;
    }
    // What the desktop sends when the user clicks a notification or one of its buttons.
    void click(uint id, const QString& action = QStringLiteral("default"))
    {
        QDBusConnection(mBusName).send(QDBusMessage::createSignal(path, service, QStringLiteral("ActionInvoked")) << id << action);
    }

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary,
        const QString& body, const QStringList& actions, const QVariantMap& hints, int timeout)
    {
        QMutexLocker lock(&mMutex);
        if (mHang) {
            setDelayedReply(true);
            return 0;
        }
        if (mRefuse) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("refused"));
            return 0;
        }
        mReceived << Notification {replacesId ? replacesId : ++mLastId, replacesId, appName, appIcon, summary, body,
            actions, hints, timeout};
        return mReceived.last().id;
    }
    QStringList GetCapabilities()
    {
        QMutexLocker lock(&mMutex);
        if (mHang)
            setDelayedReply(true);
        return mCapabilities;
    }

private:
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    mutable QMutex mMutex;
    QList<Notification> mReceived;
    QStringList mCapabilities {"actions", "body"};
    bool mRefuse = false, mHang = false;
    uint mLastId = 0;
    int mStarts = 0;
    QString mBusName;
    QThread mThread;
};
