#include "popuptestsupport.h"

#include <QApplication>
#include <QGraphicsWebView>
#include <QProcess>
#include <QScreen>
#include <QtTest>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

bool windowManagerRunning()
{
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK") });
    xprop.waitForFinished(5000);
    return xprop.readAllStandardOutput().contains("window id");
}

QWebFrame* mainPageFrame()
{
    return indexWindowHolder::get()->webView()->page()->mainFrame();
}

const char recorder[] = "window.popupCalls = window.popupCalls || [];"
                        "window.genericNativeNotificationButtonClickedCallbackHelper = function (text) {"
                        "  window.popupCalls.push(text); };";

} // namespace

MainWindow* PopupTest::setUp(TrayStandIn* tray)
{
    auto* mainWindow = new MainWindow();
    QSignalSpy startPageDone(mainWindow->indexWindow()->webView()->page(), &QWebPage::loadFinished);
    mainWindow->showInitialWindow();
    mainWindowHolder::set(mainWindow);
    // After the main window: its start page stays unloaded and the test never reaches the network.
    if (!StagedFolder::enter())
        qFatal("the build's staged program folder is missing");
    PopupTray::setInstance(tray);
    if (!QTest::qWaitForWindowExposed(mainWindow))
        qFatal("the main window never showed");
    // The recorder goes in once the failed start page load has settled, so nothing wipes it.
    if (startPageDone.isEmpty())
        startPageDone.wait(5000);
    mainPageFrame()->evaluateJavaScript(QString::fromLatin1(recorder));
    return mainWindow;
}

void PopupTest::tearDown(MainWindow* mainWindow)
{
    if (!closeAll())
        qWarning("popups left open at the end");
    PopupTray::setInstance(nullptr);
    delete mainWindow;
}

PopupScreen PopupTest::screen()
{
    PopupScreen s;
    MainWindow* mainWindow = mainWindowHolder::get();
    s.scale = mainWindow->getScaleFactor();
    s.osScale = mainWindow->getOsScaleFactor();
    QScreen* primary = QGuiApplication::primaryScreen();
    s.availableWidth = primary->availableGeometry().width();
    s.availableHeight = primary->availableGeometry().height();
    s.screenWidth = primary->geometry().width();
    static const bool wm = windowManagerRunning();
    s.windowManager = wm;
    return s;
}

NotificationWindow* PopupTest::openShown(const QString& key, int width, int height)
{
    const QString json = QStringLiteral("{\"key\":\"%1\",\"name\":\"%1\",\"message\":\"Are we still on for tonight?\",\"sound\":false}")
                             .arg(key);
    NotificationWindow* window =
        NotificationWindowManager::getInstance()->createNotificationWindow(key, json, width, height);
    QPointer<NotificationWindow> guard(window);
    if (!QTest::qWaitFor([&]() { return guard && guard->isVisible(); }, 10000))
        return nullptr;
    if (!waitFramed(window))
        return nullptr;
    return window;
}

bool PopupTest::waitFramed(NotificationWindow* window)
{
    if (!QTest::qWaitForWindowExposed(window))
        return false;
    if (!screen().windowManager)
        return true;
    // The frame extents arrive after the window manager has reparented the window.
    return QTest::qWaitFor([window]() { return window->frameGeometry().top() < window->geometry().top(); }, 5000);
}

bool PopupTest::closeAll()
{
    QList<QPointer<QWidget>> popups;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->property("window-type") == QVariant(QStringLiteral("notification")))
            popups << widget;
    }
    NotificationWindowManager::getInstance()->closeAllNotificationWindows();
    return QTest::qWaitFor([&popups]() {
        for (const QPointer<QWidget>& popup : popups) {
            if (popup)
                return false;
        }
        return true;
    }, 5000);
}

QVariant PopupTest::evaluate(NotificationWindow* window, const QString& script)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(script);
}

QStringList PopupTest::mainPageCalls()
{
    return mainPageFrame()->evaluateJavaScript(QStringLiteral("window.popupCalls")).toStringList();
}

void PopupTest::clearMainPageCalls()
{
    mainPageFrame()->evaluateJavaScript(QStringLiteral("window.popupCalls = [];"));
}
