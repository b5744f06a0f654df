#pragma once

#include <QObject>
#include <QRect>
#include <QSystemTrayIcon>
#include <QTimer>

#include "platform/desktopnotifier.h"

class IndexWindow;
class QAction;
class QMenu;
class StatusBarIconActions;

// The icon in the desktop's notification area and its context menu. One per process, never destroyed.
class WinMenuBarIcon : public QObject
{
    Q_OBJECT
public:
    static WinMenuBarIcon* getInstance(QObject* parent);

    void show();
    void hide();
    void updateBatteryStatus(int status, bool isCharging);
    void enableMenuOptionsForLoggedInUser();
    void disableMenuOptionsForLoggedInUser();
    void addCloseQuickReplyWindowsOption();
    void removeCloseQuickReplyWindowsOption();
    void translationChanged();
    // json, replyButton and image only reach a desktop notification service; Qt's balloon has no use for them.
    void showMessage(QString title, QString text, QSystemTrayIcon::MessageIcon icon, int millisTimeout,
        const QString& json = QString(), bool replyButton = false, const QString& image = QString());

    QSystemTrayIcon* trayIcon() const { return mTrayIcon; }
    QMenu* contextMenu() const { return mContextMenu; }

    // Colour name of the battery row for a level; empty where no row is shown.
    static QString batteryColourName(int status);

public slots:
    void windowsSystemTrayIconClicked();
    void activated(QSystemTrayIcon::ActivationReason activationReason);
    void composeNewActionClicked();
    void showMainWindow();
    void showPreferenceDialog();
    void quitActionClicked();
    void closeQuickReplyWindowsClicked();
    void livePhoneViewActionClicked();
    void phoneDialerActionClicked();
    QRect geometry();

    // The program's icon, for the tray and its windows.
    static QIcon trayIconImage();

private:
    explicit WinMenuBarIcon(QObject* parent);

    void buildContextMenu(int status, bool isCharging);
    void openMenuFromClick();
    void showQtBalloon(const DesktopNotifier::Notification& notification);
    void notificationReplied(const QString& json, const QString& text);
    void notificationReplyChosen(const QString& json);
    void setLoginGatedActionsEnabled(bool enabled);
    void activateHackWindow();
    void logMenuEvent(const QString& eventName, const QString& location);
    // Makes the action on the first build and only renames it later; true when it was made now.
    bool ensureAction(QAction*& action, const QString& text, const QString& iconPath, const char* slot);

    QSystemTrayIcon* mTrayIcon;
    QMenu* mContextMenu;
    QAction* trayComposeNewAction;
    QAction* trayPreferencesAction;
    QAction* trayCloseQuickReplyWindowsAction;
    QAction* trayOpenMainWindowAction;
    QAction* trayQuitAction;
    QAction* trayLivePhoneViewAction;
    QAction* trayPhoneDialerAction;
    QAction* mBatteryAction;
    // A left click waits out the double-click time: an open menu would grab the second click.
    QTimer mClickTimer;
    StatusBarIconActions* mStatusBarIconActions;
    IndexWindow* mIndexWindow;

    static WinMenuBarIcon* sInstance;
    static bool sInstanceFlag;
};
