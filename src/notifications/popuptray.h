#pragma once

#include <QRect>

// What the popups need from the tray icon: where it stands, for the compose window, and the menu
// entry that closes all quick-reply popups, which only makes sense while one is open.
class PopupTray
{
public:
    virtual ~PopupTray() = default;

    // Screen geometry of the visible tray icon; empty when the desktop doesn't tell.
    virtual QRect geometry() = 0;
    virtual void addCloseQuickReplyWindowsOption() = 0;
    virtual void removeCloseQuickReplyWindowsOption() = 0;

    // The tray in force: a stand-in installed by a test, or the program's own.
    static PopupTray* instance();
    // Not owned. nullptr restores the program's own tray.
    static void setInstance(PopupTray* tray);
};
