// NotificationWindowManager: where a new popup stands. Stacked popups continue below the newest
// one of the chain, read back from the windows' own properties; the compose window stands at the tray.
#include "notificationwindowmanager.h"

#include <QApplication>
#include <QGraphicsWebView>
#include <QGuiApplication>
#include <QScreen>
#include <QVariant>

#include "core/logger.h"
#include "core/properties.h"
#include "notifications/notificationwindow.h"
#include "notifications/popupgeometry.h"
#include "notifications/popuptray.h"

namespace {
const QString logModule = QStringLiteral("notificationwindowmanager");

QRect primaryAvailableGeometry()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

QRect primaryScreenGeometry()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

void logScreens()
{
    const QList<QScreen*> screens = QGuiApplication::screens();
    const int primaryIndex = screens.indexOf(QGuiApplication::primaryScreen());
    Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - screenCount=") + QString::number(screens.size()));
    Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - primary screen index=") + QString::number(primaryIndex));
    Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - default screen width=")
            + QString::number(primaryScreenGeometry().width()));
    const int secondWidth = screens.size() > 1 ? screens.at(1)->geometry().width() : 0;
    Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - secondary screen width=") + QString::number(secondWidth));
}

void showFocused(NotificationWindow* window)
{
    window->showNormal();
    window->raise();
    window->activateWindow();
    window->webView()->setFocus(Qt::MouseFocusReason);
}
}

QSize NotificationWindowManager::boundedPopupSize(int width, int height)
{
    return PopupGeometry::boundedSize(QSize(width, height), primaryAvailableGeometry().size(), scaleFactor());
}

NotificationWindow* NotificationWindowManager::createNotificationWindow(QString key, QString json, int width, int height)
{
    const QSize bounded = boundedPopupSize(width, height);
    width = bounded.width();
    height = bounded.height();
    const QString widgetType = key.startsWith(QLatin1String(PopupKind::composeNewWindow))
        ? QString::fromLatin1(PopupKind::composeNewWindow)
        : QString::fromLatin1(PopupKind::notificationWindow);
    Logger::Info(logModule, QStringLiteral("[createNotificationWindow] key ") + key
            + QStringLiteral(" not found, width=%1, height=%2, widgetType=").arg(width).arg(height) + widgetType);

    auto* window = new NotificationWindow(nullptr, true);
    window->setKey(key);
    window->setJson(json);
    window->setProperty(PopupProperty::widgetType, widgetType);
    window->setProperty(PopupProperty::widgetKey, key);
    window->setProperty(PopupProperty::windowType, QString::fromLatin1(PopupKind::notification));

    // Sizes follow the zoom in force, margins follow the screen.
    const QSize scaled = PopupGeometry::scaledSize(QSize(width, height), scaleFactor());
    const int scaledWidth = scaled.width();
    const int scaledHeight = scaled.height();
    int xPosition = 0;
    int yPosition = 0;

    if (widgetType == QLatin1String(PopupKind::composeNewWindow)) {
        const QRect g = PopupTray::instance()->geometry();
        const QPoint place = PopupGeometry::composePlace(g, scaled, primaryAvailableGeometry().width(),
            primaryScreenGeometry().width(), osScaleFactor());
        xPosition = place.x();
        yPosition = place.y();
        Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - compose at x=%1, y=%2, tray x=%3, y=%4")
                .arg(xPosition).arg(yPosition).arg(g.x()).arg(g.y()));
    } else {
        if (!key.startsWith(QLatin1String(PopupKind::liveViewKeyPrefix)))
            PopupTray::instance()->addCloseQuickReplyWindowsOption();

        // The stack: every stacked popup the user hasn't dragged away.
        QList<PopupGeometry::StackedPopup> stack;
        const QWidgetList widgets = QApplication::topLevelWidgets();
        for (QWidget* widget : widgets) {
            if (widget->property(PopupProperty::widgetType) != QVariant(QString::fromLatin1(PopupKind::notificationWindow)))
                continue;
            const QVariant index = widget->property(PopupProperty::widgetIndex);
            if (!index.isValid() || widget->property(PopupProperty::widgetMoved).toBool())
                continue;
            const QVariant wKey = widget->property(PopupProperty::widgetKey);
            stack << PopupGeometry::StackedPopup { index.toInt(), widget->property(PopupProperty::column).toInt(),
                widget->property(PopupProperty::yPosition).toInt(), widget->property(PopupProperty::height).toInt(),
                widget->geometry(), widget->frameGeometry().left(), wKey.isValid() && wKey != QVariant(key) };
        }
        logScreens();
        const PopupGeometry::StackPlace place
            = PopupGeometry::stackedPlace(stack, scaled, primaryAvailableGeometry().size(), osScaleFactor());
        xPosition = place.x;
        yPosition = place.y;

        window->setProperty(PopupProperty::widgetIndex, place.index);
        window->setProperty(PopupProperty::column, place.column);
        window->setProperty(PopupProperty::yPosition, yPosition);
        window->setProperty(PopupProperty::height, scaledHeight);
        window->setProperty(PopupProperty::width, scaledWidth);
        Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - index=%1, column=%2, x=%3, y=%4")
                .arg(place.index).arg(place.column).arg(xPosition).arg(yPosition));
    }

    window->setProperty(PopupProperty::finalXPosition, xPosition);
    // Sized and placed before it can show: a window shown first flashes at the default place, and
    // while the window manager settles that, the next placement would read its passing size.
    window->setFixedSize(scaledWidth, scaledHeight);
    window->setGeometry(QRect(xPosition, yPosition, scaledWidth, scaledHeight));
    // The compose window and focused popups are there at once, before the page loads; any other
    // popup stays hidden until its page has rendered and shows it.
    if (widgetType == QLatin1String(PopupKind::composeNewWindow) || key.endsWith(QLatin1String(PopupKind::withFocusKeySuffix)))
        showFocused(window);
    window->loadFile(Properties::getHtmlFolder() + QStringLiteral("/notification.html"));
    return window;
}
