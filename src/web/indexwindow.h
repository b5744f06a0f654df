#pragma once

#include <QJsonObject>
#include <QList>
#include <QMutex>
#include <QSoundEffect>
#include <QSslError>
#include <QSystemTrayIcon>
#include <QUrl>

#include "web/html5applicationviewer.h"

class ContainerAllowedUrls;
class Html5WebPage;
class NotificationWindow;
class Notificator;
class QNetworkDiskCache;
class QNetworkReply;
class VersionCheck;

// The native side of the hosted web application, published to its script as "qtIndexWindow".
// Every public slot is callable from the page.
class IndexWindow : public Html5ApplicationViewer
{
    Q_OBJECT
public:
    explicit IndexWindow(QWidget* parent = nullptr);
    ~IndexWindow() override;

    // What a finished load of this URL means for the window; the first matching rule wins.
    enum class LoadedPage { Other, RedirectPage, SignOutNext, Messenger };
    static LoadedPage classifyLoadedUrl(const QString& url);

    static QString startPagePath();

    // The text the page hands to showNotification as the balloon will show it: the page may send
    // it URL-encoded, and more than two percent signs say it did.
    static QString decodeNotificationText(QString text);

    void removeCachedFiles(QNetworkDiskCache* cache);

public slots:
    // Page life cycle
    void addJSObject();
    void mainLoadStarted();
    void mainLoadFinished(bool ok);
    void replyFinished(QNetworkReply* reply);
    void linkClicked(QUrl url);
    void containerAllowedUrlsLoadComplete(ContainerAllowedUrls* containerAllowedUrls);

    // Page to window
    void showMainWindow();
    void showWindow();
    void refreshWindow();
    void focusResponseField();
    bool isMainWindowFocused();
    void updateClientLoginStateForMenuItems(bool userLoggedIn);
    void setDockIconUnreadcount(int count);

    // Logging on behalf of the page
    void log(QString param);
    void logInfo(QString method, QString message);
    void logError(QString method, QString message);

    // Settings and properties
    void setSetting(QString key, QString value);
    QString getSetting(QString key, QString defaultValue);
    void removeSetting(QString key);
    void setDefaultDownloadLocationSetting(QString value);
    QString getDefaultDownloadLocationSetting();
    QString getApplicationProperty(QString key);
    void setNativeNotificationSetting(QString value);
    QString getNativeNotificationSetting();
    void setNotificationSoundSetting(QString value);
    QString getNotificationSoundSetting();
    void setNotificationSoundEnabled(QString value);
    bool isNotificationSoundEnabled();

    // Popups, balloons, the way back from a click, sounds and the tray's battery row
    bool launchQuickReply(QString key, QString json, int width, int height, QString title);
    void showNotification(QString json, QString title, QString text, bool launchOnClick, bool showReplyButton = false,
        QString contactImage = QString());
    void setJsonForWindows(QString json);
    void activated(QSystemTrayIcon::ActivationReason activationReason);
    void messageClicked();
    void processJson(QString json, QString reply = QString());
    void closeAllNotificationWindows();
    void closeNotificationWindow(QString key);
    void showBatteryStatus(int status, bool isCharging = false);
    bool isNotificationSoundEnabledForThisOSVersion();
    void playNotificationSound();
    void playNotificationSound(QString label);
    void soundEffectStatusChanged();

    // Analytics, forwarded to the page's trackers
    void logKissMetricsEvent(QString eventName, QJsonObject* json = new QJsonObject());
    void logGoogleAnalyticsEvent(QString eventName, QString eventLabel = QString());
    void logAnalyticsEvent(QString eventName, QString eventLabel = QString(), QJsonObject* json = new QJsonObject());

    // Menu actions handed to the page
    void composeNewActionClicked();
    void signoutActionClicked();
    void settingsActionClicked();
    void launchLivePhoneView();
    void launchPhoneDialer();

    // Version check at sign-in, and downloads the page asks for (indexwindow_downloads.cpp)
    void versionCheckLoadComplete(VersionCheck* versionCheck);
    void versionCheckErrorOccurred(VersionCheck* versionCheck);
    void downloadFile(QString downloadUrl, QString fileType, QString fileName, long fileSize, bool openFile);
    void mediaDownloadComplete(QString fileName, QString downloadLocation);
    void showInFolder(QString& pathIn);
    void opendDownloadedFile(QString& pathIn);
    // Display language, chosen in the page
    void changeLanguageCode(QString languageCode);
    // Background login-item registration
    void setAppToStartupAtLoginToMac();
    void logAnalyticsForSetAppToStartupAtLoginToMac(int removeTimeDiff, int addTimeDiff);

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void evaluateInMainFrame(const QString& script);
    // Sign-in reaches the tray actions and the version check once those exist.
    void setTrayActionsEnabledForLoggedInUser(bool enabled);
    void startVersionCheck();
    void closeAllPopupsAndClearBattery();

    Html5WebPage* mWebPage;
    NotificationWindow* notificationWindow;
    QSystemTrayIcon* nativeNotificationTrayIcon;
    Notificator* notificator;
    ContainerAllowedUrls* mContainerAllowedUrls;
    bool mOpenFile;
    QString mDefaultDownloadLocationKey;
    QMutex notificationMutex;
    QSoundEffect soundEffect;
};
