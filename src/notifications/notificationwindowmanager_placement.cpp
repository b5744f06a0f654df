// NotificationWindowManager: where a new popup stands. Stacked popups continue below the newest
// one of the chain, read back from the windows' own properties; the compose window stands at the tray.
#include "notificationwindowmanager.h"

#include <QApplication>
#include <QGraphicsWebView>
#include <QGuiApplication>
#include <QMap>
#include <QScreen>
#include <QVariant>

#include "core/logger.h"
#include "core/properties.h"
#include "notifications/notificationwindow.h"
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
    const int smallest = 50;
    QRect available = primaryAvailableGeometry();
    if (available.isEmpty())
        available = QRect(0, 0, 4096, 4096);
    const double zoom = qBound(0.1, scaleFactor(), 10.0);
    const int widest = qMax(smallest, int(available.width() / zoom));
    const int tallest = qMax(smallest, int(available.height() / zoom));
    return QSize(qBound(smallest, width, widest), qBound(smallest, height, tallest));
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
    const int scaledWidth = int(width * scaleFactor());
    const int scaledHeight = int(height * scaleFactor());
    const int titleBarAllowance = int(osScaleFactor() * 33.0);

    int xPosition = 0;
    int yPosition = titleBarAllowance;

    if (widgetType == QLatin1String(PopupKind::composeNewWindow)) {
        // Centred on the icon's left edge, and kept clear of the screen's edges.
        const QRect g = PopupTray::instance()->geometry();
        xPosition = g.x() - scaledWidth / 2;
        const int availableWidth = primaryAvailableGeometry().width();
        if (xPosition + scaledWidth > availableWidth)
            xPosition = availableWidth - scaledWidth - 10;
        else if (xPosition < 0)
            xPosition = primaryScreenGeometry().width() - availableWidth + 10;
        yPosition = g.y() - scaledHeight - 10;
        if (yPosition < 0)
            yPosition = titleBarAllowance;
        Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - compose at x=%1, y=%2, tray x=%3, y=%4")
                .arg(xPosition).arg(yPosition).arg(g.x()).arg(g.y()));
    } else {
        if (!key.startsWith(QLatin1String(PopupKind::liveViewKeyPrefix)))
            PopupTray::instance()->addCloseQuickReplyWindowsOption();

        // The chain: every stacked popup the user hasn't dragged away, by index.
        QMap<int, QWidget*> chain;
        const QWidgetList widgets = QApplication::topLevelWidgets();
        for (QWidget* widget : widgets) {
            if (widget->property(PopupProperty::widgetType) != QVariant(QString::fromLatin1(PopupKind::notificationWindow)))
                continue;
            const QVariant index = widget->property(PopupProperty::widgetIndex);
            if (!index.isValid() || widget->property(PopupProperty::widgetMoved).toBool())
                continue;
            chain.insert(index.toInt(), widget);
        }

        int column = 1;
        int lastIndex = 0;
        int leftMarginForWindowsInAColumn = 0;
        const int windowSpacing = int(osScaleFactor() * 8.0);
        int rightMarginForWindowsInAColumn = windowSpacing;

        for (auto it = chain.constBegin(); it != chain.constEnd(); ++it) {
            QWidget* w = it.value();
            const QVariant wKey = w->property(PopupProperty::widgetKey);
            if (w->property(PopupProperty::widgetType) != QVariant(QString::fromLatin1(PopupKind::notificationWindow))
                || !wKey.isValid() || wKey == QVariant(key) || it.key() <= lastIndex)
                continue;
            lastIndex = it.key();
            // The pitch comes from the recorded place and size, plus one title bar and one gap.
            yPosition = w->property(PopupProperty::yPosition).toInt() + w->property(PopupProperty::height).toInt()
                + titleBarAllowance + windowSpacing;
            rightMarginForWindowsInAColumn = 0;
            const int wColumn = w->property(PopupProperty::column).toInt();
            if (wColumn > column) {
                // W opened a column not seen yet: line up with its right edge.
                rightMarginForWindowsInAColumn = w->geometry().left();
                xPosition = w->geometry().right() - scaledWidth + 1;
                column = wColumn;
            }
            if (leftMarginForWindowsInAColumn == 0 || w->frameGeometry().left() < leftMarginForWindowsInAColumn)
                leftMarginForWindowsInAColumn = w->frameGeometry().left();
        }

        // Only the size of the free area counts, not where it starts.
        const QRect available = primaryAvailableGeometry();
        const int availableWidth = available.width();
        const int availableHeight = available.height();
        logScreens();

        if (xPosition == 0)
            xPosition = availableWidth - (windowSpacing + scaledWidth) * column;
        if (yPosition + scaledHeight > availableHeight) {
            // Full: open the next column to the left. A result off the screen is used as it comes.
            ++column;
            xPosition = leftMarginForWindowsInAColumn - scaledWidth - rightMarginForWindowsInAColumn;
            yPosition = titleBarAllowance;
        }

        window->setProperty(PopupProperty::widgetIndex, lastIndex + 1);
        window->setProperty(PopupProperty::column, column);
        window->setProperty(PopupProperty::yPosition, yPosition);
        window->setProperty(PopupProperty::height, scaledHeight);
        window->setProperty(PopupProperty::width, scaledWidth);
        Logger::Info(logModule, QStringLiteral("[createNotificationWindow] - index=%1, column=%2, x=%3, y=%4")
                .arg(lastIndex + 1).arg(column).arg(xPosition).arg(yPosition));

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
