#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QMutex>
#include <QObject>
#include <QStringList>
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
        uint id;
        QString appName;
        uint replacesId;
        QString summary;
        QString body;
        QStringList actions;
        int timeout;
    };

    FakeNotificationService();
    ~FakeNotificationService() override;

    bool start();
    void stop();

    QList<Notification> received() const;
    void clear();
    void setCapabilities(const QStringList& capabilities);
    void setRefuseNotify(bool refuse);
    // What the desktop sends when the user clicks a notification or one of its buttons.
    void click(uint id, const QString& actionKey = QStringLiteral("default"));

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary,
        const QString& body, const QStringList& actions, const QVariantMap& hints, int timeout);
    QStringList GetCapabilities();
    void CloseNotification(uint id);

private:
    mutable QMutex mMutex;
    QList<Notification> mReceived;
    QStringList mCapabilities {QStringLiteral("actions"), QStringLiteral("body")};
    bool mRefuse = false;
    uint mNextId = 1;
    QThread mThread;
    QDBusConnection mConnection;
};
