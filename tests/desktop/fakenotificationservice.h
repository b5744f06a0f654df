#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QVariantMap>

// A desktop notification service on the session bus. The program never waits on the service, so it
// can answer from the same thread. Each start takes a new bus connection, as a real restart would.
class FakeNotificationService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Notification {
        uint id, replacesId;
        QString appIcon, summary, body;
        QStringList actions;
        QVariantMap hints;
    };
    enum Mode { Answer, Refuse, Hang };

    ~FakeNotificationService() override { stop(); }

    bool start(Mode mode = Answer, const QStringList& capabilities = {})
    {
        stop();
        received.clear();
        closed.clear();
        mMode = mode;
        mCapabilities = QStringList {"actions", "body"} + capabilities;
        mBusName = QStringLiteral("fake-notifications-%1").arg(++mStarts);
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, mBusName);
        return bus.registerObject(path, this, QDBusConnection::ExportAllSlots) && bus.registerService(service);
    }
    void stop()
    {
        if (mBusName.isEmpty())
            return;
        // Released at once, not whenever the bus notices the connection is gone.
        QDBusConnection(mBusName).unregisterService(service);
        QDBusConnection(mBusName).unregisterObject(path);
        QDBusConnection::disconnectFromBus(mBusName);
        mBusName.clear();
    }
    void click(uint id, const QString& action = QStringLiteral("default")) { emitSignal("ActionInvoked", id, action); }
    void reply(uint id, const QString& text) { emitSignal("NotificationReplied", id, text); }

    QList<Notification> received;
    QList<uint> closed;

public slots:
    uint Notify(const QString&, uint replacesId, const QString& appIcon, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap& hints, int)
    {
        if (mMode != Answer) {
            mMode == Refuse ? sendErrorReply(QDBusError::Failed, QStringLiteral("refused")) : setDelayedReply(true);
            return 0;
        }
        const uint id = replacesId ? replacesId : ++mLastId;
        received << Notification {id, replacesId, appIcon, summary, body, actions, hints};
        return id;
    }
    void CloseNotification(uint id) { closed << id; }
    QStringList GetCapabilities()
    {
        setDelayedReply(mMode == Hang);
        return mCapabilities;
    }

private:
    void emitSignal(const char* name, uint id, const QString& text)
    {
        QDBusConnection(mBusName).send(QDBusMessage::createSignal(path, service, QLatin1String(name)) << id << text);
    }

    const QString service = QStringLiteral("org.freedesktop.Notifications");
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    QStringList mCapabilities;
    Mode mMode = Answer;
    uint mLastId = 0;
    int mStarts = 0;
    QString mBusName;
};
