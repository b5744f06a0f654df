#include "popuptray.h"

namespace {

// The program's tray icon. Its menu and geometry come from the tray icon class; until that is
// wired in here, the icon reports no place and there is no close entry to show or hide.
class ApplicationTray : public PopupTray
{
public:
    QRect geometry() override { return QRect(); }
    void addCloseQuickReplyWindowsOption() override { }
    void removeCloseQuickReplyWindowsOption() override { }
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
