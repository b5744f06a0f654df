#pragma once

#include <QList>
#include <QSslError>
#include <QString>
#include <QUrl>

#include "web/html5applicationviewer.h"

class Html5WebPage;
class QCloseEvent;
class QDragMoveEvent;
class QMoveEvent;
class QNetworkReply;

// One popup web window: a quick-reply notification, the compose-new window, or the hidden helper
// window. Its page reaches it as "qtNotificationWindow". Popups are found again by the manager
// through the application's top-level widgets and their dynamic properties, never through a list.
class NotificationWindow : public Html5ApplicationViewer
{
    Q_OBJECT
public:
    // The second argument is there for callers that pass it; it changes nothing.
    NotificationWindow(QWidget* parent, bool unused);

    void setKey(QString key);
    QString getKey() const;
    void setJson(QString json);
    void processJsonString();
    void delayedDisplayLastApp();

    // The manager decides how a popup becomes visible.
    virtual void show();

public slots:
    void displayLastApp();
    void doClose();
    void logInfo(QString method, QString message);
    void logError(QString method, QString message);
    void loadFinished(bool param);
    void addJSObject();
    void closeQuickReply(QString key);
    QString getJson();
    QString getSetting(QString key, QString defaultValue);
    void setAlreadyRunning(bool ar);
    bool isAlreadyRunning();
    void linkClicked(QUrl url);
    void genericNativeNotificationButtonClicked(QString json);
    void resizeWindow(QString notificationId, int width, int height);
    void tabFinishedTimeout();
    void forceClose();
    void showWindow();
    void playNotificationSound();
    void focusWindow();

private slots:
    void tabToPreviousApp();
    void runClose();

protected:
    void enterEvent(QEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void evaluateInPage(const QString& script);

    Html5WebPage* page;
    QString key;
    QString json;
    bool alreadyRunning;
    bool doForceClose;
    bool acceptCloseEvent;
};
