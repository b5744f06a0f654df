#include "popupgeometry.h"

#include <QMap>
#include <QtGlobal>

namespace PopupGeometry {

int titleBarAllowance(double osScale)
{
    return int(osScale * 33.0);
}

int windowSpacing(double osScale)
{
    return int(osScale * 8.0);
}

QSize boundedSize(QSize asked, QSize available, double zoom)
{
    const int smallest = 50;
    if (available.isEmpty())
        available = QSize(4096, 4096);
    zoom = qBound(0.1, zoom, 10.0);
    const int widest = qMax(smallest, int(available.width() / zoom));
    const int tallest = qMax(smallest, int(available.height() / zoom));
    return QSize(qBound(smallest, asked.width(), widest), qBound(smallest, asked.height(), tallest));
}

QSize scaledSize(QSize asked, double zoom)
{
    return QSize(int(asked.width() * zoom), int(asked.height() * zoom));
}

QPoint composePlace(QRect trayIcon, QSize scaled, int availableWidth, int screenWidth, double osScale)
{
    int x = trayIcon.x() - scaled.width() / 2;
    if (x + scaled.width() > availableWidth)
        x = availableWidth - scaled.width() - 10;
    else if (x < 0)
        x = screenWidth - availableWidth + 10; // clears a task bar docked at the left
    int y = trayIcon.y() - scaled.height() - 10;
    if (y < 0)
        y = titleBarAllowance(osScale);
    return QPoint(x, y);
}

StackPlace stackedPlace(const QList<StackedPopup>& stack, QSize scaled, QSize available, double osScale)
{
    // By index; of two with one index the later in the list counts.
    QMap<int, const StackedPopup*> chain;
    for (const StackedPopup& popup : stack)
        chain.insert(popup.index, &popup);

    const int titleBar = titleBarAllowance(osScale);
    const int spacing = windowSpacing(osScale);
    StackPlace place { 0, titleBar, 1, 0 };
    int lastIndex = 0;
    int leftMarginForWindowsInAColumn = 0;
    int rightMarginForWindowsInAColumn = spacing;

    for (const StackedPopup* w : chain) {
        if (!w->otherKey || w->index <= lastIndex)
            continue;
        lastIndex = w->index;
        // The pitch comes from the recorded place and size, plus one title bar and one gap.
        place.y = w->recordedY + w->recordedHeight + titleBar + spacing;
        rightMarginForWindowsInAColumn = 0;
        if (w->column > place.column) {
            // W opened a column not seen yet: line up with its right edge.
            rightMarginForWindowsInAColumn = w->client.left();
            place.x = w->client.right() - scaled.width() + 1;
            place.column = w->column;
        }
        if (leftMarginForWindowsInAColumn == 0 || w->frameLeft < leftMarginForWindowsInAColumn)
            leftMarginForWindowsInAColumn = w->frameLeft;
    }

    if (place.x == 0)
        place.x = available.width() - (spacing + scaled.width()) * place.column;
    if (place.y + scaled.height() > available.height()) {
        // Full: open the next column to the left. A result off the screen is used as it comes.
        ++place.column;
        place.x = leftMarginForWindowsInAColumn - scaled.width() - rightMarginForWindowsInAColumn;
        place.y = titleBar;
    }
    place.index = lastIndex + 1;
    return place;
}

QList<ReflowMove> reflow(const QList<ReflowPopup>& popups, int closedIndex, int closedY, int closedColumn,
    QSize available, double osScale)
{
    int leftMarginForWindowsInAColumn = 0;
    int lastNotMovedWindowXPosition = 0;
    int rightMarginForWindowsInAColumn = 0;

    // The closing window is still in the list and is one of those that stay put.
    QMap<int, int> followers;
    for (int i = 0; i < popups.size(); ++i) {
        const ReflowPopup& w = popups.at(i);
        if ((leftMarginForWindowsInAColumn == 0 || w.frame.left() < leftMarginForWindowsInAColumn)
            && w.column == closedColumn)
            leftMarginForWindowsInAColumn = w.frame.left();
        if (w.moved)
            continue;
        if (w.index > closedIndex)
            followers.insert(w.index, i);
        else if (!w.liveView)
            lastNotMovedWindowXPosition = w.client.left();
    }

    const int spacing = windowSpacing(osScale);
    int y = closedY;
    int column = closedColumn;
    QList<ReflowMove> moves;
    for (int i : followers) {
        const ReflowPopup& w = popups.at(i);
        // A window never moves to a higher column than it had, except when the column is full.
        column = qMin(column, w.column);
        if (w.client.height() + y > available.height()) {
            ++column;
            y = titleBarAllowance(osScale);
            rightMarginForWindowsInAColumn = leftMarginForWindowsInAColumn;
        }
        // Each window takes its own width.
        int x = available.width() - (spacing + w.client.width()) * column;
        ReflowMove move;
        move.popup = i;
        move.column = column;
        move.recordedX = x;
        move.y = y;
        move.moving = w.frame.left() != x || y != w.frame.top();
        if (leftMarginForWindowsInAColumn > x || leftMarginForWindowsInAColumn == 0)
            leftMarginForWindowsInAColumn = x;
        // Line up with a wider neighbour that stays; the recorded x keeps the value from before.
        if (lastNotMovedWindowXPosition < x && lastNotMovedWindowXPosition > 0)
            x = lastNotMovedWindowXPosition;
        move.from = QRect(w.frame.topLeft(), w.client.size());
        move.to = QRect(QPoint(x, y), w.client.size());
        move.leftMargin = leftMarginForWindowsInAColumn;
        move.rightMargin = rightMarginForWindowsInAColumn;
        moves << move;
        // The reflow's pitch is the real frame height plus three scaled pixels.
        y = int(w.frame.height() + y + osScale * 3.0);
    }
    return moves;
}

} // namespace PopupGeometry
