#include "desktopnotifier.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QSet>
#include <QVariantMap>

#include "core/logger.h"

namespace {

const QString logModule = QStringLiteral("desktopnotifier");
const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");
const QString defaultActionKey = QStringLiteral("default");
// Long enough for a service started on demand, short enough not to freeze the window for long.
const int callTimeoutMs = 5000;

// The freedesktop notification service on the session bus.
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
    }

    bool isServiceAvailable() override
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected() || !bus.interface())
            return false;
        if (bus.interface()->isServiceRegistered(serviceName))
            return true;
        const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
        return activatable.isValid() && activatable.value().contains(serviceName);
    }

    bool show(const QString& appName, const QString& title, const QString& text, int millisTimeout) override
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        const QString body = supportsBodyMarkup(bus) ? text.toHtmlEscaped() : text;
        QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("Notify"));
        // Replacing the last one keeps a single balloon on screen, the one whose payload a click delivers.
        call << appName << mLastId << QString() << title << body
             << QStringList { defaultActionKey, tr("Open") } << QVariantMap() << millisTimeout;
        const QDBusReply<uint> reply = bus.call(call, QDBus::Block, callTimeoutMs);
        if (!reply.isValid()) {
            Logger::Warn(logModule, QStringLiteral("[show] Notify failed: ") + reply.error().message());
            return false;
        }
        mLastId = reply.value();
        mShownIds.insert(mLastId);
        Logger::Info(logModule, QStringLiteral("[show] id=") + QString::number(mLastId));
        return true;
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
    // A service that reads markup would swallow "<" and "&" in a message; escape for those only.
    bool supportsBodyMarkup(QDBusConnection& bus)
    {
        const QDBusMessage call
            = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("GetCapabilities"));
        const QDBusReply<QStringList> reply = bus.call(call, QDBus::Block, callTimeoutMs);
        return reply.isValid() && reply.value().contains(QStringLiteral("body-markup"));
    }

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
