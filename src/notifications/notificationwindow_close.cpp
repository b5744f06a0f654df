// NotificationWindow: closing. A popup may hold an unsent reply, so a close request asks the page,
// which answers through doClose() or forceClose(); doClose does the application's work and
// runClose finishes the window.
#include "notificationwindow.h"

#include <QCloseEvent>
#include <QElapsedTimer>
#include <QGraphicsWebView>
#include <QScopeGuard>
#include <QWebFrame>

#include "core/logger.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/popuptray.h"
#include "web/html5webpage.h"

namespace {
const QString logModule = QStringLiteral("notificationwindow");

// The close event being delivered right now and its window. It is set only while closeEvent runs,
// so a page that answers after closeEvent has returned finds no event instead of a dead one.
struct PendingClose
{
    QCloseEvent* event = nullptr;
    NotificationWindow* window = nullptr;
};
PendingClose pendingCloseEvent;
bool closeEventSeen = false;
}

void NotificationWindow::closeEvent(QCloseEvent* event)
{
    Logger::Info(logModule, QStringLiteral("[closeEvent] ----------------- Start Close -----------------------"));
    Logger::Info(logModule, QStringLiteral("[closeEvent] acceptCloseEvent=") + QVariant(acceptCloseEvent).toString());

    // The page's answer can close another popup from inside this call; each event is restored on the way out.
    const PendingClose outer = pendingCloseEvent;
    pendingCloseEvent = { event, this };
    closeEventSeen = true;
    const auto restore = qScopeGuard([outer]() { pendingCloseEvent = outer; });

    if (acceptCloseEvent) {
        event->accept();
        return;
    }
    if (doForceClose) {
        doClose();
        return;
    }
    event->ignore();

    const QVariant widgetType = property(PopupProperty::widgetType);
    if (widgetType.isValid() && widgetType != QVariant(QString::fromLatin1(PopupKind::hackWindow))) {
        // Stays open until the page calls back, possibly from inside this very call.
        page->mainFrame()->evaluateJavaScript(QStringLiteral("checkforUnsentTextInNativeAppNotification()"));
        return;
    }
    event->accept();
}

void NotificationWindow::forceClose()
{
    doForceClose = true;
    QWidget::close();
}

void NotificationWindow::doClose()
{
    QElapsedTimer total;
    total.start();
    Logger::Info(logModule, QStringLiteral("[doClose] called"));
    NotificationWindowManager* manager = NotificationWindowManager::getInstance();
    manager->notificationWindowClosing(key);

    QElapsedTimer markTimer;
    markTimer.start();
    webView()->page()->mainFrame()->evaluateJavaScript(QStringLiteral("markMessagesAsReadOnPhoneHelper()"));
    Logger::Info(logModule, QStringLiteral("[doClose] mark messages as read duration ")
            + QString::number(markTimer.elapsed()) + QStringLiteral(" ms"));

    const int thisWindowIndex = property(PopupProperty::widgetIndex).toInt();
    const int thisWindowXPosition = geometry().x();
    const int thisWindowYPosition = geometry().y();
    const int thisWindowColumn = property(PopupProperty::column).toInt();
    const bool widgetMoved = property(PopupProperty::widgetMoved).toBool();
    const QVariant widgetType = property(PopupProperty::widgetType);
    Logger::Info(QStringLiteral("notificationWindow"), QStringLiteral("[doClose] - widgetType=") + widgetType.toString());

    // Reflow now, while this window still counts in the pass.
    if (widgetType != QVariant(QString::fromLatin1(PopupKind::composeNewWindow)) && !widgetMoved)
        manager->repositionnotificationwindow(thisWindowIndex, thisWindowXPosition, thisWindowYPosition, thisWindowColumn);

    // The compose window isn't counted, so closing it next to a single popup also reads as the last one.
    const int notificationWindowCount = manager->notificationWindowCount();
    const bool lastWindow = notificationWindowCount == 1;

    const bool applicationWasActive = manager->getHackWindow()->property(PopupProperty::mainAppWasActive).toBool();
    const bool isComposeNew = widgetType.isValid()
        && widgetType == QVariant(QString::fromLatin1(PopupKind::composeNewWindow));
    Logger::Info(logModule, QStringLiteral("[doClose] - applicationWasActive=%1, isActiveWindow=%2, isComposeNew=%3, count=%4")
            .arg(QVariant(applicationWasActive).toString(), QVariant(isActiveWindow()).toString(),
                QVariant(isComposeNew).toString())
            .arg(notificationWindowCount));

    Logger::Info(logModule, QStringLiteral("[doClose] - before close event accept"));
    runClose();

    if (lastWindow)
        PopupTray::instance()->removeCloseQuickReplyWindowsOption();
    Logger::Info(logModule, QStringLiteral("[doClose] - duration ") + QString::number(total.elapsed()) + QStringLiteral(" ms"));
}

void NotificationWindow::runClose()
{
    // From here on no lookup or count sees this window.
    setProperty(PopupProperty::widgetType, QString());
    doForceClose = true;
    acceptCloseEvent = true;

    if (pendingCloseEvent.event && pendingCloseEvent.window == this) {
        pendingCloseEvent.event->accept();
        Logger::Info(logModule, QStringLiteral("[runClose] - close event accepted ")
                + QVariant(pendingCloseEvent.event->isAccepted()).toString());
        deleteLater();
        return;
    }
    if (!closeEventSeen) {
        // With the flags set, the close event this raises is accepted at once.
        QWidget::close();
        return;
    }
    // The page answered after its close event was over: nothing is left to accept.
    Logger::Info(logModule, QStringLiteral("[runClose] - no close event in progress"));
    deleteLater();
}
