#pragma once

#include <QMutex>
#include <QSize>
#include <QString>

class NotificationWindow;
class QWidget;

// The record of a popup is a set of dynamic properties on its widget; an invalid property reads as
// false or 0. These are their names.
namespace PopupProperty {
inline constexpr char widgetType[] = "widget-type";
inline constexpr char widgetKey[] = "widget-key";
inline constexpr char windowType[] = "window-type";
inline constexpr char widgetIndex[] = "widget-index";
inline constexpr char column[] = "column";
inline constexpr char yPosition[] = "yPosition";
// QWidget's own read-only "width" and "height" answer under these two names, so writes to them are
// refused and reads give the live client size, which is what a popup's recorded size always is.
inline constexpr char width[] = "width";
inline constexpr char height[] = "height";
inline constexpr char widgetMoved[] = "widget-moved";
inline constexpr char widgetMoving[] = "widget-moving";
inline constexpr char finalXPosition[] = "widget-finalX-position";
inline constexpr char finalYPosition[] = "widget-finalY-position";
inline constexpr char windowRepositioned[] = "window-repositioned";
inline constexpr char resizingWindow[] = "resizing-window";
inline constexpr char resizingWidth[] = "resizing-width";
inline constexpr char resizingHeight[] = "resizing-height";
inline constexpr char mainAppWasActive[] = "main-app-was-active-when-notif-focused";
}

// Values of "widget-type" and "window-type", and the marks the page puts in a popup's key.
namespace PopupKind {
inline constexpr char notificationWindow[] = "notification-window";
inline constexpr char composeNewWindow[] = "native_compose_new_window";
inline constexpr char notification[] = "notification";
inline constexpr char hackWindow[] = "hackwindow";
inline constexpr char liveViewKeyPrefix[] = "phone_notif_live_view";
inline constexpr char withFocusKeySuffix[] = "-withfocus";
}

// Creates, finds, counts, closes and restacks the popups. It keeps no list of its own: the
// application's top-level widgets are the registry, so a destroyed popup drops out by itself.
class NotificationWindowManager
{
public:
    static NotificationWindowManager* getInstance();

    // Placement: stacked popups fill columns from the top right; the compose window stands at the tray icon.
    NotificationWindow* createNotificationWindow(QString key, QString json, int width, int height);

    bool hasNotificationWindow(QString key);
    NotificationWindow* getNotificationWindow(QString key);
    void closeNotificationWindow(QString key);
    NotificationWindow* getActiveNotificationWindow();
    int notificationWindowCount();
    void closeAllNotificationWindows();
    void closeAllQuickReplyWindows();

    // Slides the popups placed after a closed one into its gap.
    void repositionnotificationwindow(int indexOfJustClosedWindow, int xPositionOfClosedWindow,
        int yPositionOfClosedWindow, int columnOfClosedWindow);

    // The hidden 5x5 helper window: focus target at start-up and after the tray menu, and holder of
    // state shared by all popups.
    NotificationWindow* getHackWindow();

    void showNotificationWindow(NotificationWindow* window);
    void notificationWindowClosing(QString key);

    // The two zooms in force: popup sizes follow the user's zoom, margins follow the screen.
    static double scaleFactor();
    static double osScaleFactor();
    // A size the page asks for, held between a small minimum and what fits the free area at the
    // zoom in force, so that no arithmetic on it can overflow and no popup outgrows the screen.
    static QSize boundedPopupSize(int width, int height);

private:
    NotificationWindowManager() = default;

    QMutex mMutex;
};
