#include "fakenotificationservice.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {
const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
}

FakeNotificationService::FakeNotificationService()
    : mConnection(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("fake-notifications")))
{
    mThread.start();
    moveToThread(&mThread);
}

FakeNotificationService::~FakeNotificationService()
{
    stop();
    mThread.quit();
    mThread.wait();
    QDBusConnection::disconnectFromBus(QStringLiteral("fake-notifications"));
}

bool FakeNotificationService::start()
{
    if (!mConnection.isConnected())
        return false;
    mConnection.registerObject(objectPath, this, QDBusConnection::ExportAllSlots);
    return mConnection.registerService(serviceName);
}

void FakeNotificationService::stop()
{
    mConnection.unregisterService(serviceName);
    mConnection.unregisterObject(objectPath);
}

QList<FakeNotificationService::Notification> FakeNotificationService::received() const
{
    QMutexLocker lock(&mMutex);
    return mReceived;
}

void FakeNotificationService::clear()
{
    QMutexLocker lock(&mMutex);
    mReceived.clear();
}

void FakeNotificationService::setCapabilities(const QStringList& capabilities)
{
    QMutexLocker lock(&mMutex);
    mCapabilities = capabilities;
}

void FakeNotificationService::setRefuseNotify(bool refuse)
{
    QMutexLocker lock(&mMutex);
    mRefuse = refuse;
}

void FakeNotificationService::click(uint id, const QString& actionKey)
{
    QDBusMessage signal
        = QDBusMessage::createSignal(objectPath, QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("ActionInvoked"));
    signal << id << actionKey;
    mConnection.send(signal);
}

uint FakeNotificationService::Notify(const QString& appName, uint replacesId, const QString& /*appIcon*/,
    const QString& summary, const QString& body, const QStringList& actions, const QVariantMap& /*hints*/, int timeout)
{
    QMutexLocker lock(&mMutex);
    if (mRefuse) {
        sendErrorReply(QDBusError::Failed, QStringLiteral("refused"));
        return 0;
    }
    const uint id = replacesId ? replacesId : mNextId++;
    mReceived << Notification {id, appName, replacesId, summary, body, actions, timeout};
    return id;
}

QStringList FakeNotificationService::GetCapabilities()
{
    QMutexLocker lock(&mMutex);
    return mCapabilities;
}

void FakeNotificationService::CloseNotification(uint /*id*/)
{
}
