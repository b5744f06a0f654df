#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QThread>

// A StatusNotifierItem panel: owns the watcher (Qt exports its tray icon this way only if one is on the
// bus before the first icon), and re-reads the item's menu only when the menu says it changed, as panels
// do. Answers from a thread of its own, so the GUI thread's blocking calls get their replies.
class StatusNotifierHost : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
public:
    StatusNotifierHost();
    ~StatusNotifierHost() override;

    bool start() { return mBus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")); }
    // The menu as the panel would draw it: "-" for a separator, "*" after an entry with an icon,
    // a disabled one in brackets, hidden ones left out. Empty until an item with a menu registered.
    QStringList menu() const;
    bool isHostRegistered() const { return true; }

public slots:
    void RegisterStatusNotifierItem(const QString& service);

private slots:
    void readLayout();
    void layoutReply(const QDBusMessage& reply);

private:
    mutable QMutex mMutex;
    QString mService;
    QStringList mMenu;
    QThread mThread;
    QDBusConnection mBus;
};
