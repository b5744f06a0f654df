#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QThread>

// The tray side of a StatusNotifierItem panel on the session bus: it owns the watcher, takes the item
// that registers, and re-reads its menu only when the menu says its layout or entries changed, as
// panels do. Qt exports a tray icon this way, instead of through XEmbed, only while a watcher with a
// host is on the bus when the first icon is made. Answers from a thread of its own, so the GUI
// thread's blocking calls get their replies.
class StatusNotifierHost : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
public:
    StatusNotifierHost();
    ~StatusNotifierHost() override;

    bool start();
    // The menu as the panel would draw it: "-" for a separator, "*" after an entry with an icon,
    // a disabled one in brackets, hidden ones left out. Empty until an item with a menu registered.
    QStringList menu() const;
    bool isHostRegistered() const { return true; }

public slots:
    void RegisterStatusNotifierItem(const QString& service);

private slots:
    void readLayout();
    void menuPathReply(const QDBusMessage& reply);
    void layoutReply(const QDBusMessage& reply);

private:
    mutable QMutex mMutex;
    QString mService, mMenuPath;
    QStringList mMenu;
    QThread mThread;
    QDBusConnection mBus;
};
