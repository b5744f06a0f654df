// NotificationWindow: construction and the services its page calls.
#include "notificationwindow.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QEvent>
#include <QGraphicsWebView>
#include <QIcon>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QSettings>
#include <QShortcut>
#include <QTimer>
#include <QWebFrame>
#include <QWebSettings>

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "web/enginememory.h"
#include "web/html5webpage.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("notificationwindow");
const QString pageLogModule = QStringLiteral("notificationhtml");

// One of each for the whole program; each new timer replaces the pointer, its window still owns it.
// Guarded: the page of a later popup may call the slots that stop them after that window has gone.
QPointer<QTimer> delayedDisplayTimer;
QPointer<QTimer> tabFinishedTimer;

void logSslErrors(QNetworkReply*, const QList<QSslError>& sslErrorList)
{
    for (const QSslError& error : sslErrorList)
        Logger::Info(logModule, QStringLiteral("[sslErrors] - ") + error.errorString());
}

void logReply(QNetworkReply* reply)
{
    Logger::Debug(logModule, QStringLiteral("[replyFinished] - page=") + reply->request().url().toString()
            + QStringLiteral(", from cache=")
            + reply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toString());
}

// The network side of every popup open: one manager, one disk cache and the program's cookie
// jar, made with the first popup instead of for each one, and given back with the last.
QPointer<QNetworkAccessManager> popupNetwork;
int popupNetworkUsers = 0;

QNetworkAccessManager* takePopupNetwork(QObject* user)
{
    if (!popupNetwork) {
        popupNetwork = new QNetworkAccessManager();
        // Each error in words first, then the count line of the shared policy.
        QObject::connect(popupNetwork, &QNetworkAccessManager::sslErrors, &logSslErrors);
        Html5WebPage::shareNetwork(popupNetwork, popupNetwork, logModule, QStringLiteral("[constructor] "));
        QObject::connect(popupNetwork, &QNetworkAccessManager::finished, &logReply);
    }
    ++popupNetworkUsers;
    QObject::connect(user, &QObject::destroyed, [] {
        EngineMemory::noteActivity();
        // Later: the page of the popup going now may still be taking its replies down.
        if (--popupNetworkUsers == 0 && popupNetwork)
            popupNetwork->deleteLater();
    });
    return popupNetwork;
}
}

NotificationWindow::NotificationWindow(QWidget* parent, bool /*unused*/)
    : Html5ApplicationViewer(parent)
    , page(nullptr)
    , alreadyRunning(false)
    , doForceClose(false)
    , acceptCloseEvent(false)
{
    setWindowIcon(QIcon());

    // Ctrl+W takes the same road as the title bar's close button, so the page is asked first.
    auto* closeShortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_W), this, nullptr, nullptr, Qt::WindowShortcut);
    connect(closeShortcut, &QShortcut::activated, this, &QWidget::close);

    // Web settings and persistent storage are the process's, set up by its first page.
    page = new Html5WebPage(this);
    // The popup is signed in because the main window is: they share the cookie jar.
    page->setNetworkAccessManager(takePopupNetwork(page));

    connect(page->mainFrame(), &QWebFrame::javaScriptWindowObjectCleared, this, &NotificationWindow::addJSObject);
    connect(page, &QWebPage::loadFinished, this, &NotificationWindow::loadFinished);
    connect(webView(), &QGraphicsWebView::linkClicked, this, &NotificationWindow::linkClicked);

    webView()->setPage(page);
    // Taken once: zooming the main window later doesn't reach popups already open.
    webView()->setZoomFactor(NotificationWindowManager::scaleFactor());

    setWindowFlags(Qt::WindowCloseButtonHint | Qt::CustomizeWindowHint | Qt::WindowStaysOnTopHint);
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_NoChildEventsForParent);
    setAttribute(Qt::WA_NativeWindow);
    setFocusPolicy(Qt::NoFocus);
    alreadyRunning = false;
    doForceClose = false;
    acceptCloseEvent = false;
}

void NotificationWindow::setKey(QString newKey)
{
    key = newKey;
}

QString NotificationWindow::getKey() const
{
    return key;
}

void NotificationWindow::setJson(QString newJson)
{
    json = newJson;
}

void NotificationWindow::processJsonString()
{
    if (!alreadyRunning)
        return;
    evaluateInPage(QStringLiteral("displayJSONStringFromQTHelper('%1')").arg(json));
}

void NotificationWindow::show()
{
    Logger::Info(logModule, QStringLiteral("[show] called"));
    NotificationWindowManager::getInstance()->showNotificationWindow(this);
}

void NotificationWindow::showWindow()
{
    QWidget::show();
}

void NotificationWindow::focusWindow()
{
    Logger::Info(logModule, QStringLiteral("[focusWindow] called"));
    QWidget::activateWindow();
}

void NotificationWindow::addJSObject()
{
    Logger::Debug(logModule, QStringLiteral("[addJSObject] called"));
    page->mainFrame()->addToJavaScriptWindowObject(QStringLiteral("qtNotificationWindow"), this, QWebFrame::QtOwnership);
}

void NotificationWindow::loadFinished(bool param)
{
    if (!param)
        return;
    // The page shows itself once it has rendered; a finished load alone shows nothing.
    Logger::Info(logModule, QStringLiteral("[loadFinished] url=") + page->mainFrame()->url().toString());
}

void NotificationWindow::linkClicked(QUrl url)
{
    Logger::Info(logModule, QStringLiteral("[linkClicked] url=") + url.toString());
    QDesktopServices::openUrl(url);
}

void NotificationWindow::logInfo(QString method, QString message)
{
    Logger::Info(pageLogModule, QStringLiteral("[") + method + QStringLiteral("] - ") + message);
}

void NotificationWindow::logError(QString method, QString message)
{
    Logger::Error(pageLogModule, QStringLiteral("[") + method + QStringLiteral("] - ") + message);
}

void NotificationWindow::closeQuickReply(QString closeKey)
{
    // Whatever key the page names, it is this window that goes.
    Logger::Info(logModule, QStringLiteral("[closeQuickReply] key=") + closeKey);
    QWidget::close();
}

QString NotificationWindow::getJson()
{
    return json;
}

QString NotificationWindow::getSetting(QString settingKey, QString defaultValue)
{
    QSettings settings;
    const QString value = settings.value(settingKey, QVariant()).toString();
    Logger::Debug(QStringLiteral("indexwindow"), QStringLiteral("[getSetting] key=") + settingKey);
    return value.isEmpty() ? defaultValue : value;
}

void NotificationWindow::setAlreadyRunning(bool ar)
{
    alreadyRunning = ar;
}

bool NotificationWindow::isAlreadyRunning()
{
    return alreadyRunning;
}

void NotificationWindow::genericNativeNotificationButtonClicked(QString buttonJson)
{
    // A button on a popup is answered by the main page, which holds the conversation.
    IndexWindow* indexWindow = indexWindowHolder::get();
    if (!indexWindow) {
        Logger::Warn(logModule, QStringLiteral("[genericNativeNotificationButtonClicked] no main page"));
        return;
    }
    QElapsedTimer timer;
    timer.start();
    indexWindow->webView()->page()->mainFrame()->evaluateJavaScript(
        QStringLiteral("genericNativeNotificationButtonClickedCallbackHelper('%1')").arg(buttonJson));
    Logger::Info(logModule, QStringLiteral("[genericNativeNotificationButtonClicked] duration ")
            + QString::number(timer.elapsed()) + QStringLiteral(" ms"));
}

void NotificationWindow::playNotificationSound()
{
    // Under the main window's rules, so a popup sounds only when the user wants it to.
    Logger::Info(logModule, QStringLiteral("[playNotificationSound] called"));
    if (IndexWindow* indexWindow = indexWindowHolder::get())
        indexWindow->playNotificationSound();
}

void NotificationWindow::enterEvent(QEvent* event)
{
    Logger::Debug(logModule, QStringLiteral("[enterEvent] type=") + QString::number(int(event->type())));
    if (event->type() != QEvent::Enter)
        return;
    MainWindow* mainWindow = mainWindowHolder::get();
    if (mainWindow && mainWindow->isActiveWindow())
        NotificationWindowManager::getInstance()->getHackWindow()->setProperty(PopupProperty::mainAppWasActive, true);
}

void NotificationWindow::evaluateInPage(const QString& script)
{
    page->mainFrame()->evaluateJavaScript(script);
}

// Bringing back the application that was in front works through osascript, which only macOS has;
// elsewhere the process fails to start and only the log lines remain. Only the page can start it.
void NotificationWindow::delayedDisplayLastApp()
{
    Logger::Info(logModule, QStringLiteral("[delayedDisplayLastApp] called"));
    delayedDisplayTimer = new QTimer(this);
    connect(delayedDisplayTimer, &QTimer::timeout, this, &NotificationWindow::displayLastApp);
    delayedDisplayTimer->start(300);
}

void NotificationWindow::displayLastApp()
{
    if (delayedDisplayTimer)
        delayedDisplayTimer->stop();
    Logger::Info(logModule, QStringLiteral("[displayLastApp] called"));
    tabToPreviousApp();
}

void NotificationWindow::tabToPreviousApp()
{
    tabFinishedTimer = new QTimer(this);
    connect(tabFinishedTimer, &QTimer::timeout, this, &NotificationWindow::tabFinishedTimeout);
    tabFinishedTimer->start(1000);

    auto* process = new QProcess(this);
    process->start(QStringLiteral("/usr/bin/osascript"), { QStringLiteral("-l"), QStringLiteral("AppleScript") },
        QIODevice::ReadWrite);
    const QString script = QStringLiteral("tell application \"System Events\"\n"
                                          "    keystroke tab using command down\n"
                                          "end tell");
    process->write(script.toUtf8());
    process->closeWriteChannel();
    process->waitForFinished(30000);
    tabFinishedTimeout();
    Logger::Info(logModule, QStringLiteral("[tabToPreviousApp] - bring last app to front ran."));
}

void NotificationWindow::tabFinishedTimeout()
{
    Logger::Info(logModule, QStringLiteral("[tabFinishedTimeout] called"));
    if (tabFinishedTimer)
        tabFinishedTimer->stop();
}
