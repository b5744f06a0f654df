#include "popuptray.h"

#include "desktop/winmenubaricon.h"

namespace {

// The program's tray icon.
class ApplicationTray : public PopupTray
{
public:
    QRect geometry() override { return WinMenuBarIcon::getInstance(nullptr)->geometry(); }
    void addCloseQuickReplyWindowsOption() override { WinMenuBarIcon::getInstance(nullptr)->addCloseQuickReplyWindowsOption(); }
    void removeCloseQuickReplyWindowsOption() override
    {
        WinMenuBarIcon::getInstance(nullptr)->removeCloseQuickReplyWindowsOption();
    }
};

} // namespace

PopupTray* PopupTray::systemInstance()
{
    static ApplicationTray applicationTray;
    return &applicationTray;
}
