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
        mClosed.clear();
        mApart = false;
        mRefuse = refuse;
        mCapabilities = QStringList {"actions", "body"} + capabilities;
        mHang = hang;
    }
    QList<uint> closed() const
    {
        QMutexLocker lock(&mMutex);
        return mClosed;
    }
    // What a service with inline replies sends when the user typed one into a notification.
    void reply(uint id, const QString& text)
    {
        emitSignal(QDBusMessage::createSignal(path, service, QStringLiteral("NotificationReplied")) << id << text);
    }
    // What the desktop sends when the user clicks a notification or one of its buttons.
    void click(uint id, const QString& action = QStringLiteral("default"))
    {
        emitSignal(QDBusMessage::createSignal(path, service, QStringLiteral("ActionInvoked")) << id << action);
    }
    // Each notification stays on screen with an id of its own, whatever it asked to replace.
    void keepApart(bool apart)
    {
        QMutexLocker lock(&mMutex);
        mApart = apart;
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
        mReceived << Notification {replacesId && !mApart ? replacesId : ++mLastId, replacesId, appName, appIcon, summary, body,
            actions, hints, timeout};
        return mReceived.last().id;
    }
    void CloseNotification(uint id)
    {
        QMutexLocker lock(&mMutex);
        mClosed << id;
    }
    QStringList GetCapabilities()
    {
        QMutexLocker lock(&mMutex);
        if (mHang)
            setDelayedReply(true);
        return mCapabilities;
    }

private:
    // From the service's own thread, so it follows the reply to a call that thread is answering.
    void emitSignal(const QDBusMessage& signal)
    {
        const QString busName = mBusName;
        QMetaObject::invokeMethod(this, [busName, signal] { QDBusConnection(busName).send(signal); }, Qt::QueuedConnection);
    }

    const QString service = QStringLiteral("org.freedesktop.Notifications");
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    mutable QMutex mMutex;
    QList<Notification> mReceived;
    QList<uint> mClosed;
    QStringList mCapabilities {"actions", "body"};
    bool mRefuse = false, mHang = false, mApart = false;
    uint mLastId = 0;
    int mStarts = 0;
    QString mBusName;
    QThread mThread;
};
