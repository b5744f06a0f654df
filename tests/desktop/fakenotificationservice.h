#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QMutex>
#include <QThread>
#include <QVariantMap>

// A desktop notification service of our own on the session bus. It answers from a thread of its own,
// so the program's blocking calls from the GUI thread get their replies.
class FakeNotificationService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Notification {
        uint id, replacesId;
        QString appName, summary, body;
        QStringList actions;
        int timeout;
    };

    FakeNotificationService() : mBus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "fake-notifications"))
    {
        mThread.start();
        moveToThread(&mThread);
        mBus.registerObject(path, this, QDBusConnection::ExportAllSlots);
    }
    ~FakeNotificationService() override
    {
        stop();
        mThread.quit();
        mThread.wait();
    }

    bool start() { return mBus.registerService(service); }
    void stop() { mBus.unregisterService(service); }

    QList<Notification> received() const
    {
        QMutexLocker lock(&mMutex);
        return mReceived;
    }
    void reset(bool refuse = false, bool markup = false)
    {
        QMutexLocker lock(&mMutex);
        mReceived.clear();
        mRefuse = refuse;
        mMarkup = markup;
    }
    // What the desktop sends when the user clicks a notification or one of its buttons.
    void click(uint id, const QString& action = QStringLiteral("default"))
    {
        mBus.send(QDBusMessage::createSignal(path, service, QStringLiteral("ActionInvoked")) << id << action);
    }

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString&, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap&, int timeout)
    {
        QMutexLocker lock(&mMutex);
        if (mRefuse) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("refused"));
            return 0;
        }
        mReceived << Notification {replacesId ? replacesId : ++mLastId, replacesId, appName, summary, body, actions, timeout};
        return mReceived.last().id;
    }
    QStringList GetCapabilities()
    {
        QMutexLocker lock(&mMutex);
        return mMarkup ? QStringList {"actions", "body", "body-markup"} : QStringList {"actions", "body"};
    }

private:
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    mutable QMutex mMutex;
    QList<Notification> mReceived;
    bool mRefuse = false, mMarkup = false;
    uint mLastId = 0;
    QThread mThread;
    QDBusConnection mBus;
};
