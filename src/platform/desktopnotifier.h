#pragma once

#include <QObject>
#include <QString>

// The desktop's own notification service, for balloons that can report a click back to us.
class DesktopNotifier : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Whether a service runs now, or would be started on demand.
    virtual bool isServiceAvailable() = 0;
    // Shows a notification that replaces the one shown before it. False when the service refused or
    // didn't answer, so the caller can fall back to another way.
    virtual bool show(const QString& appName, const QString& title, const QString& text, int millisTimeout) = 0;

    // The notifier in force: a stand-in installed by a test, or the system's.
    static DesktopNotifier* instance();
    // Not owned. nullptr restores the system's notifier.
    static void setInstance(DesktopNotifier* notifier);

signals:
    // The user clicked one of the notifications this notifier showed.
    void clicked();

private:
    static DesktopNotifier* systemNotifier();
};
