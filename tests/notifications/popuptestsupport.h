#pragma once

#include <QList>
#include <QPointer>
#include <QRect>
#include <QString>

#include "notifications/popuptray.h"

class MainWindow;
class NotificationWindow;

// Records what the popups ask of the tray, and puts the tray icon wherever a test needs it.
class TrayStandIn : public PopupTray
{
public:
    QRect geometry() override { return iconGeometry; }
    void addCloseQuickReplyWindowsOption() override { ++added; }
    void removeCloseQuickReplyWindowsOption() override { ++removed; }

    QRect iconGeometry;
    int added = 0;
    int removed = 0;
};

// The desktop the popups are measured against, read from the running screen and window manager.
struct PopupScreen
{
    double scale = 1.0;     // zoom in force: popup sizes
    double osScale = 1.0;   // zoom of the screen: margins
    int availableWidth = 0;
    int availableHeight = 0;
    int screenWidth = 0;
    bool windowManager = false;

    int titleBarAllowance() const { return int(osScale * 33.0); }
    int windowSpacing() const { return int(osScale * 8.0); }
    int scaled(int pageSize) const { return int(pageSize * scale); }
};

namespace PopupTest {
// Makes the main window that sets the zoom and answers for the main page, enters the staged program
// folder so popups load the real popup page, and installs the tray stand-in.
MainWindow* setUp(TrayStandIn* tray);
void tearDown(MainWindow* mainWindow);
PopupScreen screen();

// Creates a popup the way the page's route does and waits until its page has shown it.
NotificationWindow* openShown(const QString& key, int width = 300, int height = 200);
// Waits until a shown popup is framed by the window manager, when there is one.
bool waitFramed(NotificationWindow* window);
// Closes every popup left by a test; false when some didn't go.
bool closeAll();

// Script in a popup's page and in the main page.
QVariant evaluate(NotificationWindow* window, const QString& script);
// What the popups told the main page, one JSON text per call, oldest first.
QStringList mainPageCalls();
void clearMainPageCalls();
}
