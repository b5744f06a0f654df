#include "winmenubaricon.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QIcon>
#include <QJsonObject>
#include <QMenu>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/statusbariconactions.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "platform/desktopnotifier.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("winmenubaricon");
}

WinMenuBarIcon* WinMenuBarIcon::sInstance = nullptr;
bool WinMenuBarIcon::sInstanceFlag = false;

WinMenuBarIcon* WinMenuBarIcon::getInstance(QObject* parent)
{
    if (!sInstanceFlag) {
        sInstance = new WinMenuBarIcon(parent);
        sInstanceFlag = true;
    }
    return sInstance;
}

WinMenuBarIcon::WinMenuBarIcon(QObject* parent)
    : QObject(parent)
    , mTrayIcon(nullptr)
    , mContextMenu(nullptr)
    , trayComposeNewAction(nullptr)
    , trayPreferencesAction(nullptr)
    , trayCloseQuickReplyWindowsAction(nullptr)
    , trayOpenMainWindowAction(nullptr)
    , trayQuitAction(nullptr)
    , trayLivePhoneViewAction(nullptr)
    , trayPhoneDialerAction(nullptr)
    , mBatteryAction(nullptr)
    , mStatusBarIconActions(nullptr)
    , mIndexWindow(nullptr)
{
    mClickTimer.setSingleShot(true);
    connect(&mClickTimer, &QTimer::timeout, this, &WinMenuBarIcon::openMenuFromClick);
}

QIcon WinMenuBarIcon::trayIconImage()
{
    // Each size a panel of any height and scale picks a sharp one from. Not the iconset's 256 and
    // 512: every size is decoded when added and kept for the program's life (those two alone are
    // 1.3 MiB), and launchers and task switchers take the installed theme icon. Relative on
    // purpose: the images ship in the program folder, not in the resources.
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64, 128})
        icon.addFile(QStringLiteral("kestrelgap.iconset/icon_%1x%1.png").arg(size), QSize(size, size));
    return icon;
}

void WinMenuBarIcon::show()
{
    Logger::Info(logModule, QStringLiteral("[show] called"));
    mStatusBarIconActions = new StatusBarIconActions(nullptr);
    mIndexWindow = indexWindowHolder::get();

    mTrayIcon = new QSystemTrayIcon(trayIconImage(), nullptr);
    mTrayIcon->setVisible(true);
    mTrayIcon->setToolTip(QStringLiteral("Kestrelgap"));
    mTrayIcon->setVisible(true);

    buildContextMenu(0, false);
    // Until the page reports a signed-in user only "Open" and "Quit" can be chosen.
    setLoginGatedActionsEnabled(false);

    connect(mTrayIcon, &QSystemTrayIcon::activated, this, &WinMenuBarIcon::activated);
}

void WinMenuBarIcon::hide()
{
    Logger::Info(logModule, QStringLiteral("[hide] called"));
    if (mTrayIcon)
        mTrayIcon->setVisible(false);
}

bool WinMenuBarIcon::ensureAction(QAction*& action, const QString& text, const QString& iconPath, const char* slot)
{
    if (action) {
        action->setText(text);
        return false;
    }
    action = new QAction(text, nullptr);
    if (!iconPath.isEmpty())
        action->setIcon(QIcon(iconPath));
    connect(action, SIGNAL(triggered()), this, slot);
    return true;
}

QString WinMenuBarIcon::batteryColourName(int status)
{
    if (status >= 60)
        return QStringLiteral("#67b422");
    if (status >= 20)
        return QStringLiteral("#FFA500");
    if (status > 0)
        return QStringLiteral("#f02828");
    return QString();
}

void WinMenuBarIcon::buildContextMenu(int status, bool isCharging)
{
    Logger::Debug(logModule, QStringLiteral("[buildContextMenu] status=") + QString::number(status)
            + QStringLiteral(", isCharging=") + QVariant(isCharging).toString());

    // Every entry outlives the rebuilds, so enabled state and visibility carry over.
    ensureAction(trayComposeNewAction, tr("New Message..."),
        QStringLiteral(":/images/kestrelgap.iconset/compose_new.png"), SLOT(composeNewActionClicked()));
    if (ensureAction(trayPreferencesAction, tr("Preferences"), QString(), SLOT(showPreferenceDialog())))
        trayPreferencesAction->setMenuRole(QAction::NoRole);
    if (ensureAction(trayCloseQuickReplyWindowsAction, tr("Close All Popup Windows"), QString(),
            SLOT(closeQuickReplyWindowsClicked())))
        trayCloseQuickReplyWindowsAction->setVisible(false);
    if (ensureAction(trayLivePhoneViewAction, tr("Live Phone Notifications"),
            QStringLiteral(":/images/kestrelgap.iconset/teal_pnlv_logo.png"), SLOT(livePhoneViewActionClicked())))
        trayLivePhoneViewAction->setMenuRole(QAction::NoRole);
    if (ensureAction(trayPhoneDialerAction, tr("Phone Dialer"),
            QStringLiteral(":/images/kestrelgap.iconset/teal_phone_dialer_logo2.png"), SLOT(phoneDialerActionClicked())))
        trayPhoneDialerAction->setMenuRole(QAction::NoRole);

    ensureAction(trayOpenMainWindowAction, tr("Open Kestrelgap"),
        QStringLiteral(":/images/kestrelgap.iconset/popup_menu_logo.png"), SLOT(showMainWindow()));
    if (ensureAction(trayQuitAction, tr("Quit Kestrelgap"), QString(), SLOT(quitActionClicked())))
        trayQuitAction->setMenuRole(QAction::NoRole);

    // One menu for the whole run, refilled in place: a StatusNotifierItem host only re-reads a menu
    // whose layout changes, and ignores one handed over anew. The page may report the battery often,
    // so nothing made here may pile up either.
    const bool firstBuild = !mContextMenu;
    if (firstBuild)
        mContextMenu = new QMenu();
    mContextMenu->clear();
    mContextMenu->addAction(trayComposeNewAction);
    mContextMenu->addAction(trayOpenMainWindowAction);
    mContextMenu->addSeparator();
    mContextMenu->addAction(trayLivePhoneViewAction);
    mContextMenu->addAction(trayPhoneDialerAction);
    mContextMenu->addAction(trayPreferencesAction);
    mContextMenu->addAction(trayCloseQuickReplyWindowsAction);
    mContextMenu->addSeparator();

    if (status > 0) {
        // Worked out for the row, which is nonetheless drawn like any other entry.
        const QString colourName = batteryColourName(status);
        Logger::Debug(logModule, QStringLiteral("[buildContextMenu] battery colour=") + colourName);
        if (!mBatteryAction)
            mBatteryAction = new QAction(this);
        mBatteryAction->setText(tr("Phone Battery: %1%").arg(status));
        mBatteryAction->setIcon(isCharging ? QIcon(QStringLiteral(":/images/kestrelgap.iconset/icon-charging-blue.png"))
                                           : QIcon());
        mContextMenu->addAction(mBatteryAction);
        mContextMenu->addSeparator();
    }

    mContextMenu->addAction(trayQuitAction);
    if (mTrayIcon && mTrayIcon->contextMenu() != mContextMenu)
        mTrayIcon->setContextMenu(mContextMenu);
}

void WinMenuBarIcon::updateBatteryStatus(int status, bool isCharging)
{
    buildContextMenu(status, isCharging);
}

void WinMenuBarIcon::translationChanged()
{
    Logger::Info(logModule, QStringLiteral("[translationChanged] called"));
    buildContextMenu(0, false);
}

void WinMenuBarIcon::setLoginGatedActionsEnabled(bool enabled)
{
    for (QAction* action : {trayComposeNewAction, trayPreferencesAction, trayLivePhoneViewAction, trayPhoneDialerAction}) {
        if (action)
            action->setEnabled(enabled);
    }
}

void WinMenuBarIcon::enableMenuOptionsForLoggedInUser()
{
    Logger::Info(logModule, QStringLiteral("[enableMenuOptionsForLoggedInUser] called"));
    setLoginGatedActionsEnabled(true);
}

void WinMenuBarIcon::disableMenuOptionsForLoggedInUser()
{
    Logger::Info(logModule, QStringLiteral("[disableMenuOptionsForLoggedInUser] called"));
    setLoginGatedActionsEnabled(false);
}

void WinMenuBarIcon::addCloseQuickReplyWindowsOption()
{
    if (trayCloseQuickReplyWindowsAction)
        trayCloseQuickReplyWindowsAction->setVisible(true);
}

void WinMenuBarIcon::removeCloseQuickReplyWindowsOption()
{
    if (trayCloseQuickReplyWindowsAction)
        trayCloseQuickReplyWindowsAction->setVisible(false);
}

void WinMenuBarIcon::showMessage(QString title, QString text, QSystemTrayIcon::MessageIcon icon, int millisTimeout,
    const QString& json, bool replyButton, const QString& image)
{
    Logger::Info(logModule, QStringLiteral("[showMessage] title=") + title);
    // The desktop's own notification service reports clicks back to us; Qt's balloon is the fallback.
    DesktopNotifier* notifier = DesktopNotifier::instance();
    if (notifier->isServiceAvailable()) {
        DesktopNotifier::Notification notification;
        notification.appName = QCoreApplication::applicationName();
        notification.title = title;
        notification.text = text;
        notification.millisTimeout = millisTimeout;
        notification.json = json;
        notification.replyButton = replyButton;
        notification.image = image;
        // The service sounds only where the program keeps quiet; see IndexWindow::playNotificationSound.
        notification.sound = mIndexWindow && mIndexWindow->isNotificationSoundEnabled()
            && !mIndexWindow->isNotificationSoundEnabledForThisOSVersion();
        connect(notifier, &DesktopNotifier::failed, this, &WinMenuBarIcon::showQtBalloon, Qt::UniqueConnection);
        connect(notifier, &DesktopNotifier::replied, this, &WinMenuBarIcon::notificationReplied, Qt::UniqueConnection);
        connect(notifier, &DesktopNotifier::replyChosen, this, &WinMenuBarIcon::notificationReplyChosen,
            Qt::UniqueConnection);
        notifier->show(notification);
        // A new connection per balloon: after n balloons a click runs the slot n times, as with Qt's balloon.
        connect(notifier, &DesktopNotifier::clicked, this, &WinMenuBarIcon::windowsSystemTrayIconClicked);
    } else if (mTrayIcon) {
        mTrayIcon->showMessage(title, text, icon, millisTimeout);
        connect(mTrayIcon, &QSystemTrayIcon::messageClicked, this, &WinMenuBarIcon::windowsSystemTrayIconClicked);
    } else {
        Logger::Warn(logModule, QStringLiteral("[showMessage] no tray icon and no notification service"));
    }
    if (mIndexWindow)
        QApplication::alert(mIndexWindow, 0);
}

void WinMenuBarIcon::showQtBalloon(const DesktopNotifier::Notification& notification)
{
    if (!mTrayIcon)
        return;
    mTrayIcon->showMessage(notification.title, notification.text, QSystemTrayIcon::NoIcon, notification.millisTimeout);
    connect(mTrayIcon, &QSystemTrayIcon::messageClicked, this, &WinMenuBarIcon::windowsSystemTrayIconClicked);
}

namespace {
// The text as the body of a single-quoted script string: the page's helper gets it in a script.
QString scriptStringBody(const QString& text)
{
    QString body;
    for (const QChar c : text) {
        if (c == QLatin1Char('\\') || c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            body += QLatin1Char('\\');
            body += c;
        }
        else if (c.unicode() < 0x20 || c == QLatin1Char('<') || c == QLatin1Char('>') || c.unicode() == 0x2028
            || c.unicode() == 0x2029)
            body += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            body += c;
    }
    return body;
}
} // namespace

void WinMenuBarIcon::notificationReplied(const QString& json, const QString& text)
{
    Logger::Info(logModule, QStringLiteral("[notificationReplied] called"));
    // The page's payload is its own script expression; the typed text is not, so it goes in escaped.
    if (mIndexWindow && !json.isEmpty())
        mIndexWindow->processJson(json, scriptStringBody(text));
}

void WinMenuBarIcon::notificationReplyChosen(const QString& json)
{
    Logger::Info(logModule, QStringLiteral("[notificationReplyChosen] called"));
    if (!mIndexWindow)
        return;
    // As a click on it, with this notification's own payload: the page opens its reply view.
    mIndexWindow->showMainWindow();
    if (!json.isEmpty())
        mIndexWindow->processJson(json, QString());
}

void WinMenuBarIcon::windowsSystemTrayIconClicked()
{
    Logger::Info(logModule, QStringLiteral("[windowsSystemTrayIconClicked] called"));
    if (!mIndexWindow)
        return;
    mIndexWindow->activated(QSystemTrayIcon::Trigger);
    mIndexWindow->showMainWindow();
}

void WinMenuBarIcon::activated(QSystemTrayIcon::ActivationReason activationReason)
{
    // The fall-through is deliberate: a middle click opens the menu just like a left click.
    switch (activationReason) {
    case QSystemTrayIcon::MiddleClick:
        Logger::Info(logModule, QStringLiteral("[activated] - middle click"));
        Q_FALLTHROUGH();
    case QSystemTrayIcon::Unknown:
        Logger::Info(logModule, QStringLiteral("[activated] - unknown"));
        Q_FALLTHROUGH();
    case QSystemTrayIcon::Trigger:
        Logger::Info(logModule, QStringLiteral("[activated] - trigger"));
        // The second press of a double click reports a trigger too; the first one's wait already runs.
        if (!mClickTimer.isActive())
            mClickTimer.start(QApplication::doubleClickInterval());
        break;
    case QSystemTrayIcon::Context:
        // The platform opens the context menu itself.
        Logger::Info(logModule, QStringLiteral("[activated] - context"));
        break;
    case QSystemTrayIcon::DoubleClick:
        Logger::Info(logModule, QStringLiteral("[activated] - double click"));
        mClickTimer.stop();
        showMainWindow();
        break;
    }
}

void WinMenuBarIcon::openMenuFromClick()
{
    if (mContextMenu)
        mContextMenu->popup(QCursor::pos());
    activateHackWindow();
}

void WinMenuBarIcon::activateHackWindow()
{
    // Lets the menu take focus, so that a click elsewhere closes it.
    NotificationWindowManager::getInstance()->getHackWindow()->activateWindow();
}

void WinMenuBarIcon::logMenuEvent(const QString& eventName, const QString& location)
{
    if (!mIndexWindow)
        return;
    auto* json = new QJsonObject();
    if (!location.isEmpty())
        json->insert(QStringLiteral("location"), location);
    mIndexWindow->logAnalyticsEvent(eventName, location, json);
}

void WinMenuBarIcon::composeNewActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[composeNewActionClicked] called"));
    logMenuEvent(QStringLiteral("compose-new-from-k-icon-dropdown-qt"), QString());
    if (mIndexWindow)
        mIndexWindow->composeNewActionClicked();
}

void WinMenuBarIcon::livePhoneViewActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[livePhoneViewActionClicked] called"));
    logMenuEvent(QStringLiteral("live-phone-view-from-k-icon-dropdown-qt"), QStringLiteral("k-icon"));
    if (mIndexWindow)
        mIndexWindow->launchLivePhoneView();
}

void WinMenuBarIcon::phoneDialerActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[phoneDialerActionClicked] called"));
    logMenuEvent(QStringLiteral("phone-dialer-from-k-icon-dropdown-qt"), QStringLiteral("k-icon"));
    if (mIndexWindow)
        mIndexWindow->launchPhoneDialer();
}

void WinMenuBarIcon::closeQuickReplyWindowsClicked()
{
    Logger::Info(logModule, QStringLiteral("[closeQuickReplyWindowsClicked] called"));
    logMenuEvent(QStringLiteral("close-quickreply-windows-kg-qt"), QStringLiteral("k-icon"));
    if (mIndexWindow)
        mIndexWindow->closeAllNotificationWindows();
}

void WinMenuBarIcon::showMainWindow()
{
    Logger::Info(logModule, QStringLiteral("[showMainWindow] called"));
    logMenuEvent(QStringLiteral("open-kg-main-window-qt"), QStringLiteral("k-icon"));
    if (mIndexWindow)
        mIndexWindow->showMainWindow();
}

void WinMenuBarIcon::showPreferenceDialog()
{
    Logger::Info(logModule, QStringLiteral("[showPreferenceDialog] called"));
    logMenuEvent(QStringLiteral("preferences-clicked-from-kg-menu-qt"), QStringLiteral("k-icon"));
    mStatusBarIconActions->showPreferenceDialog();
}

void WinMenuBarIcon::quitActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[quitActionClicked] called"));
    // Logged before the confirmation, so a declined quit is counted too.
    logMenuEvent(QStringLiteral("quit-kg-qt"), QStringLiteral("k-icon"));
    mStatusBarIconActions->quitActionClicked();
}

QRect WinMenuBarIcon::geometry()
{
    return mTrayIcon ? mTrayIcon->geometry() : QRect();
}
