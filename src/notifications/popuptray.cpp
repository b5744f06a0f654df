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

PopupTray* standIn = nullptr;

} // namespace

PopupTray* PopupTray::instance()
{
    static ApplicationTray applicationTray;
    return standIn ? standIn : &applicationTray;
}

void PopupTray::setInstance(PopupTray* tray)
{
    standIn = tray;
}
