#include "statusnotifierhost.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QMutexLocker>

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");
// Where Qt's item exports its menu, as its "Menu" property says.
const QString menuPath = QStringLiteral("/MenuBar");

// One (ia{sv}av) layout node; its children follow it, submenus flattened.
void readNode(const QDBusArgument& node, QStringList& out, bool root)
{
    int id = 0;
    QVariantMap item;
    node.beginStructure();
    node >> id >> item;
    if (!root && item.value("visible", true).toBool()) {
        const QString entry = item.value("type").toString() == "separator"
            ? QStringLiteral("-")
            : item.value("label").toString() + (item.value("icon-data").toByteArray().isEmpty() ? "" : "*");
        out << (item.value("enabled", true).toBool() ? entry : '[' + entry + ']');
    }
    node.beginArray();
    while (!node.atEnd()) {
        QDBusVariant child;
        node >> child;
        readNode(child.variant().value<QDBusArgument>(), out, false);
    }
    node.endArray();
    node.endStructure();
}

} // namespace

StatusNotifierHost::StatusNotifierHost()
    : mBus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("status-notifier-host")))
{
    mBus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
        QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties);
    mThread.start();
    moveToThread(&mThread);
}

StatusNotifierHost::~StatusNotifierHost()
{
    // Undone on the host's own thread, and the object handed back, before its thread ends.
    QThread* owner = QThread::currentThread();
    QMetaObject::invokeMethod(this, [this, owner] {
        for (const char* signal : {"LayoutUpdated", "ItemsPropertiesUpdated"})
            mBus.disconnect(QString(), menuPath, menuInterface, QLatin1String(signal), this, SLOT(readLayout()));
        mBus.unregisterService(watcherService);
        mBus.unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
        moveToThread(owner);
    }, Qt::BlockingQueuedConnection);
    mThread.quit();
    mThread.wait();
}

QStringList StatusNotifierHost::menu() const
{
    QMutexLocker lock(&mMutex);
    return mMenu;
}

void StatusNotifierHost::RegisterStatusNotifierItem(const QString& service)
{
    mService = service;
    // What a panel listens to: a menu that changes without saying so keeps its old copy on screen.
    // From any sender: matching the item's bus name would wait on its owner, losing signals meanwhile.
    for (const char* signal : {"LayoutUpdated", "ItemsPropertiesUpdated"})
        mBus.connect(QString(), menuPath, menuInterface, QLatin1String(signal), this, SLOT(readLayout()));
    readLayout();
}

void StatusNotifierHost::readLayout()
{
    QDBusMessage call = QDBusMessage::createMethodCall(mService, menuPath, menuInterface, QStringLiteral("GetLayout"));
    call << 0 << -1 << QStringList();
    mBus.callWithCallback(call, this, SLOT(layoutReply(QDBusMessage)));
}

void StatusNotifierHost::layoutReply(const QDBusMessage& reply)
{
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2)
        return;
    QStringList entries;
    readNode(reply.arguments().at(1).value<QDBusArgument>(), entries, true);
    QMutexLocker lock(&mMutex);
    mMenu = entries;
}
