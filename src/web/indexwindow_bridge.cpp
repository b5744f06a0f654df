// IndexWindow: slots the page calls to reach the window, the menus and the log.
#include "indexwindow.h"

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "notifications/notificationwindowmanager.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
const QString pageLogModule = QStringLiteral("mainhtml");
}

void IndexWindow::showMainWindow()
{
    Logger::Info(logModule, QStringLiteral("[showMainWindow] called"));
    if (MainWindow* mainWindow = mainWindowHolder::get()) {
        mainWindow->showAlreadyRunningWindow();
        mainWindow->raise();
    }
}

bool IndexWindow::isMainWindowFocused()
{
    MainWindow* mainWindow = mainWindowHolder::get();
    return mainWindow && mainWindow->isActiveWindow();
}

void IndexWindow::updateClientLoginStateForMenuItems(bool userLoggedIn)
{
    Logger::Info(logModule, QStringLiteral("[updateClientLoginStateForMenuItems] userLoggedIn=")
            + QVariant(userLoggedIn).toString());
    MainWindow* mainWindow = mainWindowHolder::get();
    if (userLoggedIn) {
        if (mainWindow)
            mainWindow->enableMenuOptionsForLoggedInUser();
        setTrayActionsEnabledForLoggedInUser(true);
        if (Logger::isLoggingEnabled())
            evaluateInMainFrame(QStringLiteral("informUserThatLoggingIsOnHelper();"));
        startVersionCheck();
        if (Logger::isDebugCodeValid())
            logAnalyticsEvent(QStringLiteral("native-app-session-with-inspect-element-on-qt"));
    } else {
        if (mainWindow)
            mainWindow->disableMenuOptionsForLoggedInUser();
        closeAllPopupsAndClearBattery();
        setTrayActionsEnabledForLoggedInUser(false);
    }
}

void IndexWindow::setTrayActionsEnabledForLoggedInUser(bool enabled)
{
    if (enabled)
        WinMenuBarIcon::getInstance(nullptr)->enableMenuOptionsForLoggedInUser();
    else
        WinMenuBarIcon::getInstance(nullptr)->disableMenuOptionsForLoggedInUser();
}

void IndexWindow::closeAllPopupsAndClearBattery()
{
    NotificationWindowManager::getInstance()->closeAllNotificationWindows();
    showBatteryStatus(0, false);
}

void IndexWindow::setDockIconUnreadcount(int count)
{
    // There is no dock badge on this desktop.
    Logger::Info(logModule, QStringLiteral("[setDockIconUnreadcount] - count=") + QString::number(count));
}

void IndexWindow::log(QString param)
{
    Logger::Info(pageLogModule, QStringLiteral("[log] - ") + param);
}

void IndexWindow::logInfo(QString method, QString message)
{
    Logger::Info(pageLogModule, QStringLiteral("[") + method + QStringLiteral("] - ") + message);
}

void IndexWindow::logError(QString method, QString message)
{
    Logger::Error(pageLogModule, QStringLiteral("[") + method + QStringLiteral("] - ") + message);
}

QString IndexWindow::getApplicationProperty(QString key)
{
    Logger::Info(logModule, QStringLiteral("[getProperty] key=") + key);
    return Properties::getInstance()->getValue(key);
}

void IndexWindow::composeNewActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[composeNewActionClicked] called"));
    evaluateInMainFrame(QStringLiteral("nativeAppWindowComposeSingleMessageHelper();"));
}

void IndexWindow::signoutActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[signoutActionClicked] called"));
    showMainWindow();
    evaluateInMainFrame(QStringLiteral("userClickedSignOutHelper();"));
}

void IndexWindow::settingsActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[settingsActionClicked] called"));
    showMainWindow();
    evaluateInMainFrame(QStringLiteral("settingsOptionClickedHelper();"));
}

void IndexWindow::launchLivePhoneView()
{
    Logger::Info(logModule, QStringLiteral("[launchLivePhoneView] called"));
    evaluateInMainFrame(QStringLiteral("openPhoneLiveViewInNativeAppWindow({'type':'phone_notif_live_view_standalone'});"));
}

void IndexWindow::launchPhoneDialer()
{
    Logger::Info(logModule, QStringLiteral("[launchPhoneDialer] called"));
    evaluateInMainFrame(QStringLiteral("openPhoneLiveViewInNativeAppWindow({'type':'dialer_view_standalone'});"));
}
