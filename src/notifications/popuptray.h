#pragma once

#include "platform/seam.h"

#include <QRect>

// What the popups need from the tray icon: where it stands, for the compose window, and the menu
// entry that closes all quick-reply popups, which only makes sense while one is open.
class PopupTray : public Seam<PopupTray>
{
public:
    virtual ~PopupTray() = default;

    // Screen geometry of the visible tray icon; empty when the desktop doesn't tell.
    virtual QRect geometry() = 0;
    virtual void addCloseQuickReplyWindowsOption() = 0;
    virtual void removeCloseQuickReplyWindowsOption() = 0;

private:
    friend class Seam<PopupTray>;
    static PopupTray* systemInstance();
};
