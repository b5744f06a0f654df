// NotificationWindowManager: closing the gap a popup leaves. Later popups of the chain slide up,
// and into an earlier column when there is room, each with a short animation.
#include "notificationwindowmanager.h"

#include <QApplication>
#include <QGuiApplication>
#include <QMap>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVariant>
#include <QWidget>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("notificationwindowmanager");
const int animationDuration = 100;
}

void NotificationWindowManager::repositionnotificationwindow(int indexOfJustClosedWindow, int xPositionOfClosedWindow,
    int yPositionOfClosedWindow, int columnOfClosedWindow)
{
    Logger::Info(logModule, QStringLiteral("[repositionnotificationwindow] index=%1, x=%2, y=%3, column=%4")
            .arg(indexOfJustClosedWindow).arg(xPositionOfClosedWindow).arg(yPositionOfClosedWindow).arg(columnOfClosedWindow));

    int moveNextWindowToYPosition = yPositionOfClosedWindow;
    int moveNextWindowToColumn = columnOfClosedWindow;
    int leftMarginForWindowsInAColumn = 0;
    int lastNotMovedWindowXPosition = 0;
    int rightMarginForWindowsInAColumn = 0;

    // Collect the followers of the closed window. The closing window is still in the list and is
    // one of those that stay put.
    QMap<int, QWidget*> followers;
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* w : widgets) {
        if (w->property(PopupProperty::widgetType) != QVariant(QString::fromLatin1(PopupKind::notificationWindow)))
            continue;
        const QVariant index = w->property(PopupProperty::widgetIndex);
        if (!index.isValid())
            continue;
        const int frameLeft = w->frameGeometry().left();
        if ((leftMarginForWindowsInAColumn == 0 || frameLeft < leftMarginForWindowsInAColumn)
            && w->property(PopupProperty::column).toInt() == columnOfClosedWindow)
            leftMarginForWindowsInAColumn = frameLeft;
        if (w->property(PopupProperty::widgetMoved).toBool())
            continue;
        if (index.toInt() > indexOfJustClosedWindow) {
            followers.insert(index.toInt(), w);
            continue;
        }
        // The live phone view keeps to itself and never sets the line for the others.
        const QVariant key = w->property(PopupProperty::widgetKey);
        if (!key.isValid() || !key.toString().startsWith(QLatin1String(PopupKind::liveViewKeyPrefix)))
            lastNotMovedWindowXPosition = w->geometry().left();
    }

    const double factor = osScaleFactor();
    const int windowSpacing = int(factor * 8.0);
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect();
    const int availableWidth = available.width();
    const int availableHeight = available.height();

    for (auto it = followers.constBegin(); it != followers.constEnd(); ++it) {
        QWidget* w = it.value();
        const QRect frame = w->frameGeometry();
        const int currentWindowsXPosition = frame.left();
        const int currentWindowsYPosition = frame.top();
        const int frameHeight = frame.height();
        const int currentWindowsColumn = w->property(PopupProperty::column).toInt();
        const int currentWindowsWidth = w->geometry().width();
        const int currentWindowsHeight = w->geometry().height();

        // A window never moves to a higher column than it had, except when the column is full.
        moveNextWindowToColumn = qMin(moveNextWindowToColumn, currentWindowsColumn);
        if (currentWindowsHeight + moveNextWindowToYPosition > availableHeight) {
            ++moveNextWindowToColumn;
            moveNextWindowToYPosition = int(factor * 33.0);
            rightMarginForWindowsInAColumn = leftMarginForWindowsInAColumn;
        }
        int moveNextWindowToXPosition = availableWidth - (windowSpacing + currentWindowsWidth) * moveNextWindowToColumn;
        const bool widgetMoving = currentWindowsXPosition != moveNextWindowToXPosition
            || moveNextWindowToYPosition != currentWindowsYPosition;
        if (leftMarginForWindowsInAColumn > moveNextWindowToXPosition || leftMarginForWindowsInAColumn == 0)
            leftMarginForWindowsInAColumn = moveNextWindowToXPosition;

        w->setProperty(PopupProperty::column, moveNextWindowToColumn);
        w->setProperty(PopupProperty::widgetMoving, widgetMoving);
        w->setProperty(PopupProperty::finalXPosition, moveNextWindowToXPosition);
        w->setProperty(PopupProperty::finalYPosition, moveNextWindowToYPosition);
        w->setProperty(PopupProperty::yPosition, moveNextWindowToYPosition);

        // Line up with a wider neighbour that stays; the recorded final x keeps the unclamped value.
        if (lastNotMovedWindowXPosition < moveNextWindowToXPosition && lastNotMovedWindowXPosition > 0)
            moveNextWindowToXPosition = lastNotMovedWindowXPosition;

        // The animation's first move is ours, not a drag by the user.
        w->setProperty(PopupProperty::windowRepositioned, true);

        Logger::Info(logModule, QStringLiteral("[repositionnotificationwindow] - index=%1 to x=%2, y=%3, column=%4, "
                                               "leftMargin=%5, rightMargin=%6")
                .arg(it.key()).arg(moveNextWindowToXPosition).arg(moveNextWindowToYPosition).arg(moveNextWindowToColumn)
                .arg(leftMarginForWindowsInAColumn).arg(rightMarginForWindowsInAColumn));

        // Left to run out on its own; the finished animation object stays allocated.
        auto* animation = new QPropertyAnimation(w, "geometry", nullptr);
        animation->setDuration(animationDuration);
        animation->setStartValue(QRect(currentWindowsXPosition, currentWindowsYPosition, currentWindowsWidth, currentWindowsHeight));
        animation->setEndValue(QRect(moveNextWindowToXPosition, moveNextWindowToYPosition, currentWindowsWidth, currentWindowsHeight));
        animation->start(QAbstractAnimation::KeepWhenStopped);

        moveNextWindowToYPosition = int(frameHeight + moveNextWindowToYPosition + factor * 3.0);
    }
}
