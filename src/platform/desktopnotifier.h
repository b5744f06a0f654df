#pragma once

#include "seam.h"

#include <QObject>
#include <QString>

// The desktop's own notification service, for balloons that can report a click back to us.
class DesktopNotifier : public QObject, public Seam<DesktopNotifier>
{
    Q_OBJECT
public:
    struct Notification
    {
        QString appName;
        QString title;
        QString text;
        int millisTimeout = -1;
        // Whether the balloon should sound; the service is asked to stay silent otherwise.
        bool sound = false;
        // The page's payload, handed back with a reply to this notification.
        QString json;
        // Offer a reply where the service can take one: typed in place, or a button.
        bool replyButton = false;
        // A local picture or an http(s) address; one that can't be had within a second is left out.
        QString image;
    };

    using QObject::QObject;

    // Whether a service runs now, or would be started on demand.
    virtual bool isServiceAvailable() = 0;
    // Queues a notification that replaces the one shown before it and returns at once; a service
    // that refuses it or doesn't answer leads to `failed`.
    virtual void show(const Notification& notification) = 0;
    // Whether the running service plays a sound of its own with a notification. False while its
    // capabilities are still unread.
    virtual bool playsSound() = 0;

signals:
    // The user clicked one of the notifications this notifier showed.
    void clicked();
    // The service turned this notification down, so another way must show it.
    void failed(const DesktopNotifier::Notification& notification);
    // The user typed a reply into the notification that carried `json`.
    void replied(const QString& json, const QString& text);
    // The user chose the reply button of the notification that carried `json`.
    void replyChosen(const QString& json);

private:
    friend class Seam<DesktopNotifier>;
    static DesktopNotifier* systemInstance();
};
