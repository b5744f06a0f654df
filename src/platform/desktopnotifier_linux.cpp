#include "desktopnotifier.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QSet>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>
#include <optional>

#include "core/logger.h"

namespace {

const QString logModule = QStringLiteral("desktopnotifier");
const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");
const QString defaultActionKey = QStringLiteral("default");
const QString replyActionKey = QStringLiteral("reply");
const QString inlineReplyActionKey = QStringLiteral("inline-reply");
// A contact picture that takes longer than this is left out rather than holding up the notification.
const int imageFetchMs = 1000;
const qint64 maxImageBytes = 4 * 1024 * 1024;
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
        bus.connect(serviceName, objectPath, interfaceName, QStringLiteral("NotificationReplied"), this,
            SLOT(notificationReplied(uint, QString)));
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
        const QUrl image = QUrl::fromUserInput(notification.image);
        if (image.scheme() == QLatin1String("http") || image.scheme() == QLatin1String("https")) {
            fetchImage(notification, image);
            return;
        }
        Notification local = notification;
        const QFileInfo file(image.isLocalFile() ? image.toLocalFile() : QString());
        local.image = file.isFile() && file.isReadable() ? file.absoluteFilePath() : QString();
        enqueue(local);
    }

private:
    void enqueue(const Notification& notification)
    {
        // Sent one at a time, so that each replaces the one before it. A service that hangs holds
        // back only the last few; older ones would have been replaced on screen anyway.
        mPending.append(notification);
        while (mPending.size() > maxPending)
            mPending.removeFirst();
        sendPending();
    }

    // Fetched into the cache folder, where the service can read it; a slow or failed fetch shows the
    // notification without it.
    void fetchImage(const Notification& notification, const QUrl& url)
    {
        if (!mNetwork)
            mNetwork = new QNetworkAccessManager(this);
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
        QNetworkReply* reply = mNetwork->get(request);
        QTimer::singleShot(imageFetchMs, reply, &QNetworkReply::abort);
        connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
            if (received > maxImageBytes)
                reply->abort();
        });
        connect(reply, &QNetworkReply::finished, this, [this, reply, notification] {
            reply->deleteLater();
            Notification withImage = notification;
            withImage.image.clear();
            const QByteArray data = reply->error() == QNetworkReply::NoError ? reply->readAll() : QByteArray();
            const QString folder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
            if (!data.isEmpty() && data.size() <= maxImageBytes && QDir().mkpath(folder)) {
                // One file, overwritten each time: only the notification on screen needs it.
                QSaveFile file(folder + QStringLiteral("/notification-image"));
                if (file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit())
                    withImage.image = file.fileName();
            }
            enqueue(withImage);
        });
    }

private slots:
    void actionInvoked(uint id, const QString& actionKey)
    {
        Logger::Info(logModule, QStringLiteral("[actionInvoked] id=") + QString::number(id) + QStringLiteral(", key=")
                + actionKey);
        // The service tells every client about every notification; only ours count.
        if (!mShownIds.contains(id))
            return;
        if (actionKey == defaultActionKey)
            emit clicked();
        else if (actionKey == replyActionKey)
            emit replyChosen(mJsonById.value(id));
    }

    void notificationReplied(uint id, const QString& text)
    {
        Logger::Info(logModule, QStringLiteral("[notificationReplied] id=") + QString::number(id));
        if (!mShownIds.contains(id))
            return;
        emit replied(mJsonById.value(id), text);
        QDBusMessage close
            = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("CloseNotification"));
        close << id;
        QDBusConnection::sessionBus().asyncCall(close, callTimeoutMs);
    }

    void notificationClosed(uint id, uint reason)
    {
        Logger::Debug(logModule, QStringLiteral("[notificationClosed] id=") + QString::number(id)
                + QStringLiteral(", reason=") + QString::number(reason));
        mShownIds.remove(id);
        mJsonById.remove(id);
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
        if (!notification.image.isEmpty())
            hints.insert(QStringLiteral("image-path"), notification.image);
        QStringList actions {defaultActionKey, tr("Open")};
        if (notification.replyButton && mCapabilities->contains(inlineReplyActionKey))
            actions << inlineReplyActionKey << tr("Reply");
        else if (notification.replyButton && mCapabilities->contains(QStringLiteral("actions")))
            actions << replyActionKey << tr("Reply");
        QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("Notify"));
        // Replacing the last one keeps a single balloon on screen, the one whose payload a click delivers.
        call << notification.appName << mLastId << appIcon() << notification.title << body << actions << hints
             << notification.millisTimeout;
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
                mJsonById.insert(mLastId, notification.json);
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
    QNetworkAccessManager* mNetwork = nullptr;
    uint mLastId = 0;
    QSet<uint> mShownIds;
    // A reply goes with its own notification's payload, not the latest one's.
    QHash<uint, QString> mJsonById;
};

} // namespace

DesktopNotifier* DesktopNotifier::systemInstance()
{
    // Never destroyed: it must not outlive the bus connection in static teardown.
    static FreedesktopNotifier* notifier = new FreedesktopNotifier();
    return notifier;
}

#include "desktopnotifier_linux.moc"
