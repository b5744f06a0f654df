// NotificationWindowManager: the registry walks, bulk closes and the hidden helper window.
#include "notificationwindowmanager.h"

#include <QApplication>
#include <QGuiApplication>
#include <QLayout>
#include <QScreen>
#include <QVariant>
#include <QWidget>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"

namespace {
const QString logModule = QStringLiteral("notificationwindowmanager");

NotificationWindowManager* instance = nullptr;
bool instanceInitialised = false;
NotificationWindow* hackWindow = nullptr;
bool hackWindowInitialised = false;

bool propertyEquals(const QWidget* widget, const char* name, const char* text)
{
    return widget->property(name) == QVariant(QString::fromLatin1(text));
}

bool propertyIsValidAndEquals(const QWidget* widget, const char* name, const QString& text)
{
    const QVariant value = widget->property(name);
    return value.isValid() && value == QVariant(text);
}
}

NotificationWindowManager* NotificationWindowManager::getInstance()
{
    if (!instanceInitialised) {
        Logger::Debug(logModule, QStringLiteral("[getInstance] create"));
        instance = new NotificationWindowManager();
        instanceInitialised = true;
    } else {
        Logger::Trace(logModule, QStringLiteral("[getInstance] return"));
    }
    return instance;
}

double NotificationWindowManager::scaleFactor()
{
    MainWindow* mainWindow = mainWindowHolder::get();
    return mainWindow ? mainWindow->getScaleFactor() : 1.0;
}

double NotificationWindowManager::osScaleFactor()
{
    MainWindow* mainWindow = mainWindowHolder::get();
    return mainWindow ? mainWindow->getOsScaleFactor() : 1.0;
}

bool NotificationWindowManager::hasNotificationWindow(QString key)
{
    // Any type counts here, the empty one of a closing window too: a key stays taken until its widget is gone.
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (widget->property(PopupProperty::widgetType).isValid()
            && propertyIsValidAndEquals(widget, PopupProperty::widgetKey, key))
            return true;
    }
    return false;
}

NotificationWindow* NotificationWindowManager::getNotificationWindow(QString key)
{
    Logger::Info(logModule, QStringLiteral("[getNotificationWindow] key ") + key + QStringLiteral(" found"));
    NotificationWindow* found = nullptr;
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (propertyIsValidAndEquals(widget, PopupProperty::widgetType, QString::fromLatin1(PopupKind::notificationWindow))
            && propertyIsValidAndEquals(widget, PopupProperty::widgetKey, key)) {
            Logger::Info(logModule, QStringLiteral("[getNotificationWindow] - key ") + key + QStringLiteral(" found"));
            found = qobject_cast<NotificationWindow*>(widget);
        }
    }
    return found;
}

void NotificationWindowManager::closeNotificationWindow(QString key)
{
    NotificationWindow* window = getNotificationWindow(key);
    Logger::Info(logModule, QStringLiteral("[closeNotificationWindow] key=") + key
            + QStringLiteral(", window is null=") + QVariant(window == nullptr).toString());
    if (window)
        window->forceClose();
}

NotificationWindow* NotificationWindowManager::getActiveNotificationWindow()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        const QVariant widgetType = widget->property(PopupProperty::widgetType);
        if (!widgetType.isValid())
            continue;
        if ((widgetType == QVariant(QString::fromLatin1(PopupKind::notificationWindow))
                || widgetType == QVariant(QString::fromLatin1(PopupKind::composeNewWindow)))
            && widget->isActiveWindow())
            return qobject_cast<NotificationWindow*>(widget);
    }
    return nullptr;
}

int NotificationWindowManager::notificationWindowCount()
{
    int count = 0;
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (propertyEquals(widget, PopupProperty::widgetType, PopupKind::notificationWindow))
            ++count;
    }
    return count;
}

void NotificationWindowManager::closeAllNotificationWindows()
{
    // Each close reflows at once, while the later windows of this walk are still open.
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (!propertyEquals(widget, PopupProperty::windowType, PopupKind::notification))
            continue;
        Logger::Info(logModule, QStringLiteral("[closeAllNotificationWindows] key=")
                + widget->property(PopupProperty::widgetKey).toString());
        if (auto* window = qobject_cast<NotificationWindow*>(widget))
            window->forceClose();
    }
}

void NotificationWindowManager::closeAllQuickReplyWindows()
{
    // The compose window and the live phone view aren't quick replies and stay open.
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (!propertyEquals(widget, PopupProperty::windowType, PopupKind::notification)
            || !propertyIsValidAndEquals(widget, PopupProperty::widgetType, QString::fromLatin1(PopupKind::notificationWindow)))
            continue;
        const QVariant key = widget->property(PopupProperty::widgetKey);
        if (key.isValid() && key.toString().startsWith(QLatin1String(PopupKind::liveViewKeyPrefix)))
            continue;
        if (auto* window = qobject_cast<NotificationWindow*>(widget))
            window->forceClose();
    }
}

NotificationWindow* NotificationWindowManager::getHackWindow()
{
    Logger::Trace(logModule, QStringLiteral("[getHackWindow] called"));
    if (hackWindowInitialised)
        return hackWindow;
    hackWindowInitialised = true;

    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect screenGeometry = screen ? screen->geometry() : QRect();
    // Counted from (0, 0), not from the screen's own origin.
    const int right = screenGeometry.right() - screenGeometry.left();
    const int bottom = screenGeometry.bottom() - screenGeometry.top();

    hackWindow = new NotificationWindow(nullptr, true);
    // Its mark is the window type alone: with no widget type, no lookup finds it and a close is accepted at once.
    hackWindow->setProperty(PopupProperty::windowType, QString::fromLatin1(PopupKind::hackWindow));
    hackWindow->setStyleSheet(QStringLiteral("background:transparent;"));
    hackWindow->setAttribute(Qt::WA_TranslucentBackground);
    hackWindow->setWindowOpacity(0);
    hackWindow->setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint);
    // Without this the web view's minimum size would grow the window once shown.
    hackWindow->layout()->setSizeConstraint(QLayout::SetNoConstraint);
    hackWindow->setGeometry(QRect(QPoint(right - 4, bottom - 4), QPoint(right, bottom)));
    // Transparency needs a compositor; without one the window would be a black square over the tray
    // corner. It is shown and activated only to hold state and focus, so it is never put on screen.
    hackWindow->setAttribute(Qt::WA_DontShowOnScreen);
    return hackWindow;
}

void NotificationWindowManager::showNotificationWindow(NotificationWindow* window)
{
    window->showWindow();
}

void NotificationWindowManager::notificationWindowClosing(QString /*key*/)
{
}
