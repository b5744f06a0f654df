#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

// Where popups stand, as rules on plain figures: the free area's size, the two zooms and what the
// stack's windows record about themselves go in, places come out. The window code gathers the
// figures from the windows' properties and applies the results.
namespace PopupGeometry {

// The screen's zoom sets the margins, truncated toward zero.
int titleBarAllowance(double osScale);
int windowSpacing(double osScale);

// A size the page asks for, held between a small minimum and what fits the free area at the zoom
// in force (an empty area counts as 4096 square).
QSize boundedSize(QSize asked, QSize available, double zoom);
// The asked size at the zoom in force, truncated toward zero.
QSize scaledSize(QSize asked, double zoom);

// The compose window: centred on the tray icon's left edge, above it, kept off the screen's edges.
QPoint composePlace(QRect trayIcon, QSize scaled, int availableWidth, int screenWidth, double osScale);

// A popup already in the stack, as a new placement reads it: one that is stacked, indexed and not
// dragged away, in the order of the application's top-level widgets.
struct StackedPopup
{
    int index = 0;
    int column = 0;
    int recordedY = 0; // "yPosition"
    int recordedHeight = 0; // "height"
    QRect client;
    int frameLeft = 0;
    bool otherKey = true; // has a key, and not the new popup's
};

struct StackPlace
{
    int x = 0;
    int y = 0;
    int column = 0;
    int index = 0;
};

// A new stacked popup continues below the newest of the stack; a full column opens the next one to
// its left. Only the free area's size counts, never its origin.
StackPlace stackedPlace(const QList<StackedPopup>& stack, QSize scaled, QSize available, double osScale);

// A popup as the reflow after a close reads it: every stacked, indexed one, dragged or not, in the
// order of the application's top-level widgets, the closing one included.
struct ReflowPopup
{
    int index = 0;
    int column = 0;
    bool moved = false; // dragged away by the user
    bool liveView = false; // the live phone view, which never sets the line for others
    QRect client;
    QRect frame;
};

struct ReflowMove
{
    int popup = 0; // position in the list given
    int column = 0;
    int recordedX = 0; // "widget-finalX-position", before the line-up with a wider neighbour
    int y = 0;
    bool moving = false;
    QRect from; // frame corner, client size
    QRect to;
    int leftMargin = 0; // for the log only
    int rightMargin = 0;
};

// The popups placed after the closed one and not dragged away slide up into its gap, in index order.
QList<ReflowMove> reflow(const QList<ReflowPopup>& popups, int closedIndex, int closedY, int closedColumn,
    QSize available, double osScale);

} // namespace PopupGeometry
