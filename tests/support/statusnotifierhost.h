#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QThread>

// The tray side of a StatusNotifierItem panel on the session bus: it owns the watcher, takes the
// items that register, and keeps a copy of each item's menu that it refreshes only when the menu
// says its layout or its entries changed, as panels do. Qt exports a tray icon this way, instead of
// through XEmbed, only while a watcher with a host is on the bus when the first icon is made.
// Answers from a thread of its own, so the GUI thread's blocking calls get their replies.
class StatusNotifierHost : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
public:
    StatusNotifierHost();
    ~StatusNotifierHost() override;

    bool start();

    // The menu as the panel would draw it: "-" for a separator, "*" after an entry with an icon,
    // a disabled one in brackets, hidden ones left out. Empty until an item with a menu registered.
    QStringList menu() const;
    // The layout revision of the cached copy, as the menu reported it.
    uint revision() const;
    // The bus name the tray icon registered under; empty before it did.
    QString itemService() const;

    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const;

public slots:
    void RegisterStatusNotifierItem(const QString& service);
    void RegisterStatusNotifierHost(const QString&) {}

signals:
    void StatusNotifierItemRegistered(const QString& service);

private slots:
    void readLayout();
    void menuPathReply(const QDBusMessage& reply);
    void layoutReply(const QDBusMessage& reply);

private:
    mutable QMutex mMutex;
    QString mService, mMenuPath;
    QStringList mMenu;
    uint mRevision = 0;
    QThread mThread;
    QDBusConnection mBus;
};
