// NotificationWindowManager: closing the gap a popup leaves. Later popups of the chain slide up,
// and into an earlier column when there is room, each with a short animation.
#include "notificationwindowmanager.h"

#include <QApplication>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVariant>
#include <QWidget>

#include "core/logger.h"
#include "notifications/popupgeometry.h"

namespace {
const QString logModule = QStringLiteral("notificationwindowmanager");
const int animationDuration = 100;
}

void NotificationWindowManager::repositionnotificationwindow(int indexOfJustClosedWindow, int xPositionOfClosedWindow,
    int yPositionOfClosedWindow, int columnOfClosedWindow)
{
    Logger::Info(logModule, QStringLiteral("[repositionnotificationwindow] index=%1, x=%2, y=%3, column=%4")
            .arg(indexOfJustClosedWindow).arg(xPositionOfClosedWindow).arg(yPositionOfClosedWindow).arg(columnOfClosedWindow));

    // Every stacked popup, dragged or not; the closing window is still one of them.
    QList<QWidget*> windows;
    QList<PopupGeometry::ReflowPopup> popups;
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* w : widgets) {
        if (w->property(PopupProperty::widgetType) != QVariant(QString::fromLatin1(PopupKind::notificationWindow)))
            continue;
        const QVariant index = w->property(PopupProperty::widgetIndex);
        if (!index.isValid())
            continue;
        const QVariant key = w->property(PopupProperty::widgetKey);
        windows << w;
        popups << PopupGeometry::ReflowPopup { index.toInt(), w->property(PopupProperty::column).toInt(),
            w->property(PopupProperty::widgetMoved).toBool(),
            key.isValid() && key.toString().startsWith(QLatin1String(PopupKind::liveViewKeyPrefix)), w->geometry(),
            w->frameGeometry() };
    }

    QScreen* screen = QGuiApplication::primaryScreen();
    const QSize available = screen ? screen->availableGeometry().size() : QSize();
    const QList<PopupGeometry::ReflowMove> moves = PopupGeometry::reflow(popups, indexOfJustClosedWindow,
        yPositionOfClosedWindow, columnOfClosedWindow, available, osScaleFactor());

    for (const PopupGeometry::ReflowMove& move : moves) {
        QWidget* w = windows.at(move.popup);
        w->setProperty(PopupProperty::column, move.column);
        w->setProperty(PopupProperty::widgetMoving, move.moving);
        w->setProperty(PopupProperty::finalXPosition, move.recordedX);
        w->setProperty(PopupProperty::finalYPosition, move.y);
        w->setProperty(PopupProperty::yPosition, move.y);
        // The animation's first move is ours, not a drag by the user.
        w->setProperty(PopupProperty::windowRepositioned, true);

        Logger::Info(logModule, QStringLiteral("[repositionnotificationwindow] - index=%1 to x=%2, y=%3, column=%4, "
                                               "leftMargin=%5, rightMargin=%6")
                .arg(popups.at(move.popup).index).arg(move.to.x()).arg(move.y).arg(move.column)
                .arg(move.leftMargin).arg(move.rightMargin));

        // Left to run out on its own; the finished animation object stays allocated.
        auto* animation = new QPropertyAnimation(w, "geometry", nullptr);
        animation->setDuration(animationDuration);
        animation->setStartValue(move.from);
        animation->setEndValue(move.to);
        animation->start(QAbstractAnimation::KeepWhenStopped);
    }
}
