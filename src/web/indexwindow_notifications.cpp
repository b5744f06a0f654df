// IndexWindow: balloons and the way back from a click, notification sounds, the tray's battery row.
#include "indexwindow.h"

#include <QCoreApplication>
#include <QGraphicsWebView>
#include <QIcon>
#include <QMutexLocker>
#include <QSoundEffect>
#include <QUrl>
#include <QWebFrame>
#include <QWebInspector>
#include <QWebPage>
#include <QWebSettings>

#include <mutex>

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/enginememory.h"
#include "desktop/winmenubaricon.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/notificator.h"
#include "notifications/soundplayer.h"
#include "platform/desktopnotifier.h"
#include "web/html5webpage.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
// The preview in the preferences dialog is what asks for a label, hence its module.
const QString labelLogModule = QStringLiteral("settingsdialog");
const char jsonProperty[] = "json";

bool isHexDigit(QChar c)
{
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || (c >= QLatin1Char('a') && c <= QLatin1Char('f'))
        || (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
}

// A sign that starts no escape ("10% off") means the text was never encoded: it is shown as sent,
// pluses and all.
bool hasStrayPercentSign(const QString& text)
{
    for (int i = text.indexOf(QLatin1Char('%')); i >= 0; i = text.indexOf(QLatin1Char('%'), i + 1)) {
        if (i + 2 >= text.size() || !isHexDigit(text.at(i + 1)) || !isHexDigit(text.at(i + 2)))
            return true;
    }
    return false;
}

QString soundFileForLabel(const QString& label)
{
    // Exact and case-sensitive: the dialog's display names ("Ping") are not labels.
    static const QStringList named = {QStringLiteral("ping"), QStringLiteral("spring"), QStringLiteral("tink"),
        QStringLiteral("yeah"), QStringLiteral("pillsbury")};
    if (named.contains(label))
        return label + QStringLiteral(".wav");
    return QStringLiteral("proxima.wav");
}
} // namespace

bool IndexWindow::launchQuickReply(QString key, QString json, int width, int height, QString title)
{
    Logger::Info(logModule, QStringLiteral("[launchQuickReply] width=%1, height=%2, title=").arg(width).arg(height) + title);
    EngineMemory::noteActivity();
    // The page's script runs inside this call (a payload is script in the popup) and may call back
    // here: the window for the key is on its way, so that call has nothing left to do.
    std::unique_lock<QMutex> lock(notificationMutex, std::try_to_lock);
    if (!lock.owns_lock()) {
        Logger::Info(logModule, QStringLiteral("[launchQuickReply] re-entered for key ") + key);
        return true;
    }
    const QSize bounded = NotificationWindowManager::boundedPopupSize(width, height);
    width = bounded.width();
    height = bounded.height();
    NotificationWindowManager* manager = NotificationWindowManager::getInstance();
    if (!manager->hasNotificationWindow(key)) {
        notificationWindow = manager->createNotificationWindow(key, json, width, height);
        if (Logger::isDebugCodeValid()) {
            QWebPage* page = notificationWindow->webView()->page();
            page->settings()->setAttribute(QWebSettings::DeveloperExtrasEnabled, true);
            auto* inspector = new QWebInspector();
            inspector->setPage(page);
        }
        if (!title.isEmpty())
            notificationWindow->setWindowTitle(title);
    } else {
        // A new message of a thread already open goes to its window; it is neither moved nor raised.
        notificationWindow = manager->getNotificationWindow(key);
        if (notificationWindow) {
            notificationWindow->webView()->page()->mainFrame()->evaluateJavaScript(
                QStringLiteral("processSecondJSONPayloadForAlreadyOpenedNotificationWindowHelper('%1');").arg(json));
        } else {
            // The compose window, or a popup already on its way out, holds the key: nothing more to open.
            Logger::Info(logModule, QStringLiteral("[launchQuickReply] no window to feed for key ") + key);
        }
    }
    return true;
}

void IndexWindow::showNotification(
    QString json, QString title, QString text, bool launchOnClick, bool showReplyButton, QString contactImage)
{
    Logger::Info(logModule, QStringLiteral("[showNotification] text=") + text);
    EngineMemory::noteActivity();
    text = decodeNotificationText(text);
    // The earlier one stays alive as a child of this window.
    notificator = new Notificator(QCoreApplication::applicationName(), json, nativeNotificationTrayIcon, this);
    const QIcon icon(QStringLiteral("kestrelgap.iconset/icon_16x16.png"));
    notificator->notify(Notificator::Information, json, title, text, icon, launchOnClick, showReplyButton, contactImage,
        30000);
}

QString IndexWindow::decodeNotificationText(QString text)
{
    // One or two signs are an ordinary text that speaks of percentages; more mean the page sent it encoded.
    if (text.count(QLatin1Char('%')) <= 2 || hasStrayPercentSign(text))
        return text;
    // Decoded as a whole, never parsed as an address: read as one, a message with a colon in its
    // first words came out empty, and one that began like an address had that part lower-cased.
    text.replace(QLatin1Char('+'), QStringLiteral("%20"));
    return QUrl::fromPercentEncoding(text.toUtf8());
}

void IndexWindow::setJsonForWindows(QString json)
{
    setProperty(jsonProperty, json);
}

void IndexWindow::activated(QSystemTrayIcon::ActivationReason activationReason)
{
    Logger::Info(logModule, QStringLiteral("[activated] reason=") + QString::number(int(activationReason)));
    if (int(activationReason) < 0 || int(activationReason) > 4)
        return;
    MainWindow* mainWindow = mainWindowHolder::get();
    if (mainWindow && (mainWindow->isHidden() || mainWindow->isMinimized()))
        showMainWindow();
    const QString json = property(jsonProperty).toString();
    if (!json.isEmpty()) {
        processJson(json, QString());
        // A second click on the same balloon finds nothing to deliver.
        setJsonForWindows(QString());
    }
}

void IndexWindow::messageClicked()
{
    Logger::Info(logModule, QStringLiteral("[messageClicked] called"));
    const QVariant json = property(jsonProperty);
    if (json.isValid())
        processJson(json.toString(), QString());
}

void IndexWindow::processJson(QString json, QString reply)
{
    Logger::Info(logModule, QStringLiteral("[processJson] json=") + json + QStringLiteral(", url=")
            + mWebPage->mainFrame()->url().toString());
    // The payload goes in as a script expression: it is the page's own JSON.
    const QString script = reply.isEmpty()
        ? QStringLiteral("processJSONFromNativeNotificationClickHelper(JSON.stringify(%1));").arg(json)
        : QStringLiteral("processJSONFromNativeNotificationClickHelper(JSON.stringify(%1),'%2');").arg(json, reply);
    evaluateInMainFrame(script);
}

void IndexWindow::showBatteryStatus(int status, bool isCharging)
{
    Logger::Info(logModule, QStringLiteral("[showBatteryStatus] - status=") + QString::number(status)
            + QStringLiteral(", isCharging=") + QVariant(isCharging).toString());
    WinMenuBarIcon::getInstance(nullptr)->updateBatteryStatus(status, isCharging);
    EngineMemory::noteActivity();
}

bool IndexWindow::isNotificationSoundEnabledForThisOSVersion()
{
    // A notification service that plays sounds plays one with our notifications; a second from us would
    // double it. Any other service, and Qt's balloon, stay silent unless we sound.
    if (getNativeNotificationSetting() != QLatin1String("native-notification"))
        return true;
    DesktopNotifier* notifier = DesktopNotifier::instance();
    return !(notifier->isServiceAvailable() && notifier->playsSound());
}

void IndexWindow::playNotificationSound()
{
    const bool playSound = isNotificationSoundEnabled() && isNotificationSoundEnabledForThisOSVersion();
    Logger::Info(logModule, QStringLiteral("[playNotificationSound] - playSound=") + QVariant(playSound).toString());
    if (playSound)
        playNotificationSound(getNotificationSoundSetting());
}

void IndexWindow::playNotificationSound(QString label)
{
    Logger::Info(labelLogModule, QStringLiteral("[playNotificationSound] label=") + label);
    const QString file = soundFileForLabel(label);
    const QStringList mimeTypes = QSoundEffect::supportedMimeTypes();
    Logger::Debug(logModule, QStringLiteral("[playNotificationSound] - smt length=") + QString::number(mimeTypes.size()));
    for (int i = 0; i < mimeTypes.size(); ++i) {
        Logger::Debug(logModule,
            QStringLiteral("[playNotificationSound] - supported mimetype[%1]=").arg(i) + mimeTypes.at(i));
    }
    // Played whatever the list says: an empty list has been seen on systems that play wave files fine.
    SoundPlayer::instance()->play(QStringLiteral(":/sounds/sounds/") + file);
}

void IndexWindow::soundEffectStatusChanged()
{
    Logger::Info(logModule, QStringLiteral("[soundEffectStatusChanged] status=") + QString::number(soundEffect.status()));
    if (soundEffect.status() == QSoundEffect::Ready)
        soundEffect.play();
}

void IndexWindow::closeAllNotificationWindows()
{
    Logger::Info(logModule, QStringLiteral("[closeAllNotificationWindows] called"));
    NotificationWindowManager::getInstance()->closeAllQuickReplyWindows();
    WinMenuBarIcon::getInstance(nullptr)->removeCloseQuickReplyWindowsOption();
}

void IndexWindow::closeNotificationWindow(QString key)
{
    Logger::Info(logModule, QStringLiteral("[closeNotificationWindow] key=") + key);
    NotificationWindowManager::getInstance()->closeNotificationWindow(key);
}
