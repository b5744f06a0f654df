#include "desktopnotifier.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QFileInfo>
#include <QSet>
#include <QVariantMap>
#include <optional>

#include "core/logger.h"

namespace {

const QString logModule = QStringLiteral("desktopnotifier");
const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");
const QString defaultActionKey = QStringLiteral("default");
// Long enough for a service started on demand; nothing waits on it but the fallback balloon.
const int callTimeoutMs = 5000;
const int maxPending = 4;

// The name the launcher is installed under, which ties our notifications to the desktop's
// per-application notification settings.
const QString desktopEntry = QStringLiteral("kestrelgap");

QString appIcon()
{
    // The program folder's copy is there also when running uninstalled; installed, both are the same picture.
    const QFileInfo staged(QStringLiteral("kestrelgap.iconset/icon_256x256.png"));
    return staged.exists() ? staged.absoluteFilePath() : desktopEntry;
}

// The freedesktop notification service on the session bus. Nothing here blocks on the service:
// a hung one must not freeze the window.
class FreedesktopNotifier : public DesktopNotifier
{
    Q_OBJECT
public:
    FreedesktopNotifier()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.connect(serviceName, objectPath, interfaceName, QStringLiteral("ActionInvoked"), this,
            SLOT(actionInvoked(uint, QString)));
        bus.connect(serviceName, objectPath, interfaceName, QStringLiteral("NotificationClosed"), this,
            SLOT(notificationClosed(uint, uint)));
        // Read ahead, so that the first balloon already knows whether the service sounds.
        if (isServiceAvailable())
            readCapabilities();
    }

    bool isServiceAvailable() override
    {
        // Questions to the bus itself, never to the notification service.
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected() || !bus.interface())
            return false;
        const QDBusReply<QString> owner = bus.interface()->serviceOwner(serviceName);
        if (owner.isValid() && !owner.value().isEmpty()) {
            // A service that came back, or another one, may speak differently.
            if (owner.value() != mOwner) {
                mOwner = owner.value();
                mCapabilities.reset();
                mLastId = 0;
            }
            if (!mCapabilities)
                readCapabilities();
            return true;
        }
        const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
        return activatable.isValid() && activatable.value().contains(serviceName);
    }

    bool playsSound() override
    {
        return mCapabilities && mCapabilities->contains(QStringLiteral("sound"));
    }

    void show(const Notification& notification) override
    {
        // Sent one at a time, so that each replaces the one before it. A service that hangs holds
        // back only the last few; older ones would have been replaced on screen anyway.
        mPending.append(notification);
        while (mPending.size() > maxPending)
            mPending.removeFirst();
        sendPending();
    }

private slots:
    void actionInvoked(uint id, const QString& actionKey)
    {
        Logger::Info(logModule, QStringLiteral("[actionInvoked] id=") + QString::number(id) + QStringLiteral(", key=")
                + actionKey);
        // The service tells every client about every notification; only ours count.
        if (actionKey == defaultActionKey && mShownIds.contains(id))
            emit clicked();
    }

    void notificationClosed(uint id, uint reason)
    {
        Logger::Debug(logModule, QStringLiteral("[notificationClosed] id=") + QString::number(id)
                + QStringLiteral(", reason=") + QString::number(reason));
        mShownIds.remove(id);
        if (id == mLastId)
            mLastId = 0;
    }

private:
    void readCapabilities()
    {
        if (mCapabilitiesCall)
            return;
        const QDBusMessage call
            = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("GetCapabilities"));
        mCapabilitiesCall = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, callTimeoutMs), this);
        connect(mCapabilitiesCall, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* watcher) {
            const QDBusPendingReply<QStringList> reply = *watcher;
            // A service that can't say is taken to do nothing beyond the basics.
            mCapabilities = reply.isError() ? QStringList() : reply.value();
            Logger::Info(logModule, QStringLiteral("[readCapabilities] ") + mCapabilities->join(QLatin1Char(',')));
            watcher->deleteLater();
            mCapabilitiesCall = nullptr;
            sendPending();
        });
    }

    void sendPending()
    {
        if (mPending.isEmpty() || mNotifyCall)
            return;
        if (!mCapabilities) {
            readCapabilities();
            return;
        }
        const Notification notification = mPending.takeFirst();

        // A service that reads markup would swallow "<" and "&" in a message; escape for those only.
        const QString body = mCapabilities->contains(QStringLiteral("body-markup")) ? notification.text.toHtmlEscaped()
                                                                                   : notification.text;
        QVariantMap hints;
        hints.insert(QStringLiteral("desktop-entry"), desktopEntry);
        hints.insert(QStringLiteral("category"), QStringLiteral("im.received"));
        if (mCapabilities->contains(QStringLiteral("sound"))) {
            if (notification.sound)
                hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
            else
                hints.insert(QStringLiteral("suppress-sound"), true);
        }
        QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("Notify"));
        // Replacing the last one keeps a single balloon on screen, the one whose payload a click delivers.
        call << notification.appName << mLastId << appIcon() << notification.title << body
             << QStringList {defaultActionKey, tr("Open")} << hints << notification.millisTimeout;
        mNotifyCall = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, callTimeoutMs), this);
        connect(mNotifyCall, &QDBusPendingCallWatcher::finished, this, [this, notification](QDBusPendingCallWatcher* watcher) {
            const QDBusPendingReply<uint> reply = *watcher;
            watcher->deleteLater();
            mNotifyCall = nullptr;
            if (reply.isError()) {
                Logger::Warn(logModule, QStringLiteral("[show] Notify failed: ") + reply.error().message());
                // Its capabilities may be what changed; read them again for the next one.
                mCapabilities.reset();
                emit failed(notification);
            } else {
                mLastId = reply.value();
                mShownIds.insert(mLastId);
                Logger::Info(logModule, QStringLiteral("[show] id=") + QString::number(mLastId));
            }
            sendPending();
        });
    }

    QString mOwner;
    std::optional<QStringList> mCapabilities;
    QList<Notification> mPending;
    QDBusPendingCallWatcher* mCapabilitiesCall = nullptr;
    QDBusPendingCallWatcher* mNotifyCall = nullptr;
    uint mLastId = 0;
    QSet<uint> mShownIds;
};

} // namespace

DesktopNotifier* DesktopNotifier::systemNotifier()
{
    // Never destroyed: it must not outlive the bus connection in static teardown.
    static FreedesktopNotifier* notifier = new FreedesktopNotifier();
    return notifier;
}

#include "desktopnotifier_linux.moc"
