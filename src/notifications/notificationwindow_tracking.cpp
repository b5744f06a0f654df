// NotificationWindow: telling a user's drag from the moves the program makes itself, and the page's
// size requests, which keep the top right corner where it is.
#include "notificationwindow.h"

#include <QDragMoveEvent>
#include <QGuiApplication>
#include <QMoveEvent>
#include <QScreen>

#include "core/logger.h"
#include "notifications/notificationwindowmanager.h"

namespace {
const QString logModule = QStringLiteral("notificationwindow");
// Sideways distance from the recorded place that makes a move a drag out of the stack. Not scaled.
const int dragThreshold = 5;
// Room kept below a popup that would run off the bottom of the screen.
const int bottomAllowance = 33;

int intOrZero(const QVariant& value)
{
    return value.isValid() ? value.toInt() : 0;
}
}

void NotificationWindow::moveEvent(QMoveEvent* event)
{
    // X11 confirms where a window was mapped with a move that changes nothing. Taken as a move, it
    // would raise and activate the window long after start-up, over whatever the user has focused.
    if (event->pos() == event->oldPos()) {
        Html5ApplicationViewer::moveEvent(event);
        return;
    }

    bool resized = false;
    QVariant resizingWindow = property(PopupProperty::resizingWindow);
    if (resizingWindow.isValid() && resizingWindow.toBool()) {
        QVariant resizingWidth = property(PopupProperty::resizingWidth);
        QVariant resizingHeight = property(PopupProperty::resizingHeight);
        const int currentWindowsWidth = width();
        const int currentWindowsHeight = height();
        if (!resizingWidth.isValid() || !resizingHeight.isValid() || resizingWidth.toInt() != currentWindowsWidth
            || resizingHeight.toInt() != currentWindowsHeight) {
            // The requested size hasn't arrived yet; this move belongs to the resize, not to the user.
            return;
        }
        resized = true;
        // Only these copies are cleared: the properties keep their values, so once resized a popup
        // is judged at its requested size for good.
        resizingWindow.clear();
        resizingWidth.clear();
        resizingHeight.clear();
    }

    Logger::Debug(logModule, QStringLiteral("[moveEvent] old x=%1, y=%2, new x=%3, y=%4")
            .arg(event->oldPos().x()).arg(event->oldPos().y()).arg(event->pos().x()).arg(event->pos().y()));

    // X11 reports the frame's corner here when a window manager draws one, the client's otherwise;
    // the recorded place is the client's, so the client's corner is what gets compared.
    const QPoint newPosition = geometry().topLeft();
    const int widgetFinalXPositionInt = intOrZero(property(PopupProperty::finalXPosition));
    const int widgetFinalYPositionInt = intOrZero(property(PopupProperty::finalYPosition));
    const int finalXMoveDiff = qAbs(widgetFinalXPositionInt - newPosition.x());
    const int finalYMoveDiff = qAbs(widgetFinalYPositionInt - newPosition.y());
    Logger::Debug(logModule, QStringLiteral("[moveEvent] finalXMoveDiff=%1, finalYMoveDiff=%2")
            .arg(finalXMoveDiff).arg(finalYMoveDiff));

    // The first step of a reflow animation: ours, not the user's.
    const QVariant repositioned = property(PopupProperty::windowRepositioned);
    if (repositioned.isValid() && repositioned.toBool()) {
        setProperty(PopupProperty::windowRepositioned, false);
        setProperty(PopupProperty::widgetMoved, false);
        return;
    }

    // Only the sideways distance counts: a popup dragged straight up or down stays in the stack.
    setProperty(PopupProperty::widgetMoved, !(finalXMoveDiff < dragThreshold || resized));
    Html5ApplicationViewer::moveEvent(event);
    raise();
    activateWindow();
}

void NotificationWindow::dragMoveEvent(QDragMoveEvent* event)
{
    Logger::Debug(logModule, QStringLiteral("[dragMoveEvent] - x=") + QString::number(qRound(event->posF().x()))
            + QStringLiteral(", y=") + QString::number(qRound(event->posF().y())));
}

void NotificationWindow::resizeWindow(QString notificationId, int width, int height)
{
    Logger::Info(logModule, QStringLiteral("[resizeWindow] id=%1, width=%2, height=%3")
            .arg(notificationId).arg(width).arg(height));
    const QSize bounded = NotificationWindowManager::boundedPopupSize(width, height);
    width = bounded.width();
    height = bounded.height();
    const double scale = NotificationWindowManager::scaleFactor();
    const int scaledWidth = int(width * scale);
    const int scaledHeight = int(height * scale);
    setProperty(PopupProperty::resizingWindow, true);
    setProperty(PopupProperty::resizingWidth, scaledWidth);
    setProperty(PopupProperty::resizingHeight, scaledHeight);

    const QRect client = geometry();
    const int widthDiff = client.width() - scaledWidth;
    const QScreen* screen = QGuiApplication::primaryScreen();
    const int screenHeight = screen ? screen->geometry().height() : 0;
    const int screenWidth = screen ? screen->geometry().width() : 0;

    int yPosition = client.y();
    if (scaledHeight + yPosition > screenHeight)
        yPosition = screenHeight - scaledHeight - bottomAllowance;
    // The right edge stays put; growth that would cross the screen's left edge goes right instead.
    const int xPosition = client.x() + widthDiff > 0 ? client.x() + widthDiff : client.x();
    Logger::Info(logModule, QStringLiteral("[resizeWindow] topRightEdge=%1, screenWidth=%2")
            .arg(scaledWidth + xPosition).arg(screenWidth));

    setProperty(PopupProperty::yPosition, yPosition);
    setProperty(PopupProperty::height, scaledHeight);
    setProperty(PopupProperty::width, scaledWidth);
    setFixedSize(scaledWidth, scaledHeight);
    setGeometry(QRect(xPosition, yPosition, scaledWidth, scaledHeight));
}
