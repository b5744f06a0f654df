#include "indexwindow.h"

#include <QDateTime>
#include <QDebug>
#include <QDesktopServices>
#include <QDesktopWidget>
#include <QApplication>
#include <QGraphicsWebView>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QWebElement>
#include <QWebFrame>
#include <QWebSettings>

#include "core/logger.h"
#include "core/properties.h"
#include "core/servicehost.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/containerallowedurls.h"
#include "web/html5webpage.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");

// Set by the first arrival at the messenger page of this process; never reset.
bool osInfoLogged = false;
}

IndexWindow::IndexWindow(QWidget* parent)
    : Html5ApplicationViewer(parent)
    , mWebPage(nullptr)
    , notificationWindow(nullptr)
    , nativeNotificationTrayIcon(nullptr)
    , notificator(nullptr)
    , mContainerAllowedUrls(nullptr)
    , mOpenFile(false)
    , mDefaultDownloadLocationKey(QStringLiteral("DefaultDownloadLocationKey"))
{
    nativeNotificationTrayIcon = new QSystemTrayIcon(parent);
    mWebPage = new Html5WebPage(this);

    // The page's web settings and persistent storage are the process's, set up by its first page.
    QNetworkAccessManager* manager = mWebPage->networkAccessManager();
    Html5WebPage::shareNetwork(manager, this, logModule, QStringLiteral("[constructor] "));
    webView()->setPage(mWebPage);

    connect(mWebPage->mainFrame(), &QWebFrame::javaScriptWindowObjectCleared, this, &IndexWindow::addJSObject);
    connect(mWebPage, &QWebPage::loadStarted, this, &IndexWindow::mainLoadStarted);
    connect(mWebPage, &QWebPage::loadFinished, this, &IndexWindow::mainLoadFinished);
    connect(manager, &QNetworkAccessManager::finished, this, &IndexWindow::replyFinished);
    connect(webView(), &QGraphicsWebView::linkClicked, this, &IndexWindow::linkClicked);

    // The list is fetched while the start page loads; its built-in entries serve until then.
    mContainerAllowedUrls = new ContainerAllowedUrls(parent);
    connect(mContainerAllowedUrls, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete, this,
        &IndexWindow::containerAllowedUrlsLoadComplete);
    mContainerAllowedUrls->loadObject();

    // Made a second time on purpose: the first object stays alive, unreferenced.
    nativeNotificationTrayIcon = new QSystemTrayIcon(parent);
}

IndexWindow::~IndexWindow()
{
    // The page is deleted with the base class's children, after this body, and aborts its replies
    // on the way out; their signals must not reach slots of a window that is already half gone.
    mWebPage->disconnect(this);
    mWebPage->mainFrame()->disconnect(this);
    mWebPage->networkAccessManager()->disconnect(this);
    webView()->disconnect(this);
}

QString IndexWindow::startPagePath()
{
    return Properties::getHtmlFolder() + QStringLiteral("/start.html");
}

IndexWindow::LoadedPage IndexWindow::classifyLoadedUrl(const QString& url)
{
    if (url.startsWith(ServiceHost::redirectPageAddress()))
        return LoadedPage::RedirectPage;
    if (url.endsWith(ServiceHost::signOutNextSuffix()))
        return LoadedPage::SignOutNext;
    if (url.endsWith(QLatin1String("main.html")))
        return LoadedPage::Messenger;
    return LoadedPage::Other;
}

void IndexWindow::addJSObject()
{
    Logger::Debug(logModule, QStringLiteral("[addJSObject] called"));
    mWebPage->mainFrame()->addToJavaScriptWindowObject(QStringLiteral("qtIndexWindow"), this, QWebFrame::QtOwnership);
}

void IndexWindow::mainLoadStarted()
{
    Logger::Debug(logModule, QStringLiteral("[mainLoadStarted] called"));
}

void IndexWindow::mainLoadFinished(bool ok)
{
    Logger::Info(logModule, QStringLiteral("[mainLoadFinished] ok=") + QVariant(ok).toString());
    if (!ok)
        return;

    QWebFrame* frame = mWebPage->mainFrame();
    const QString url = frame->url().toString();
    webView()->setAcceptHoverEvents(true);
    Logger::Info(logModule, QStringLiteral("[mainLoadFinished] url=") + url);

    QWebElement response = frame->findFirstElement(QStringLiteral(".textResponse"));
    response.setFocus();

    MainWindow* mainWindow = mainWindowHolder::get();
    switch (classifyLoadedUrl(url)) {
    case LoadedPage::RedirectPage:
        Logger::Info(logModule, QStringLiteral("[mainLoadFinished] redirect url found"));
        loadFile(startPagePath());
        break;
    case LoadedPage::SignOutNext:
        Logger::Info(logModule, QStringLiteral("[mainLoadFinished] signout next url found"));
        loadFile(startPagePath());
        if (mainWindow)
            mainWindow->resizeWindowToLoginSize(true);
        break;
    case LoadedPage::Messenger:
        Logger::Info(logModule, QStringLiteral("[mainLoadFinished] main.html loaded"));
        if (mainWindow)
            mainWindow->resizeWindowToMessengerSize(!osInfoLogged);
        if (!osInfoLogged) {
            logGoogleAnalyticsEvent(QStringLiteral("qt-os-info"), Properties::getOsVersion());
            osInfoLogged = true;
        }
        break;
    case LoadedPage::Other:
        break;
    }
}

void IndexWindow::replyFinished(QNetworkReply* reply)
{
    const QString url = reply->request().url().toString();
    if (url.startsWith(ServiceHost::httpsAddress(QString()))) {
        Logger::Info(logModule, QStringLiteral("[replyfinished] - page=") + url + QStringLiteral(", from cache=")
                + reply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toString());
    }
}

void IndexWindow::linkClicked(QUrl url)
{
    Logger::Info(logModule, QStringLiteral("[linkClicked] url=") + url.toString());
    const bool allowed = mContainerAllowedUrls->isUrlAllowed(url);
    Logger::Info(logModule, QStringLiteral("[linkClicked] allowed=") + QVariant(allowed).toString());
    if (allowed)
        loadUrl(url);
    else
        QDesktopServices::openUrl(url);
}

void IndexWindow::containerAllowedUrlsLoadComplete(ContainerAllowedUrls* containerAllowedUrls)
{
    Logger::Info(logModule, QStringLiteral("[containerAllowedUrlsLoadComplete] called"));
    mContainerAllowedUrls = containerAllowedUrls;
}

void IndexWindow::refreshWindow()
{
    Logger::Info(logModule, QStringLiteral("[refreshWindow] called"));
    showMainWindow();
    webView()->reload();
}

void IndexWindow::showWindow()
{
    QDesktopWidget desktop;
    const int width = desktop.width();
    const int height = desktop.height();
    Logger::Info(logModule, QStringLiteral("[showWindow] ") + QStringLiteral("height=%1").arg(height));
    Logger::Info(logModule, QStringLiteral("[showWindow] ") + QStringLiteral("width=%1").arg(width));
    if (height > 768 && width > 1366) {
        setGeometry((width - 1 - 1365) / 2, (height - 1 - 767) / 2, 1366, 768);
        show();
    } else {
        showMaximized();
    }
}

void IndexWindow::focusResponseField()
{
    QWebElement pinned = mWebPage->currentFrame()->findFirstElement(QStringLiteral("#pinnedContent"));
    if (pinned.isNull()) {
        Logger::Info(logModule, QStringLiteral("[focusResponseField] el is null"));
        return;
    }
    pinned.setFocus();
}

void IndexWindow::closeEvent(QCloseEvent* /*event*/)
{
    // MainWindow owns closing; the event is left as it came.
    Logger::Info(logModule, QStringLiteral("[closeEvent] called"));
}

void IndexWindow::changeEvent(QEvent* event)
{
    Logger::Debug(logModule, QStringLiteral("[changeEvent] event=") + QString::number(int(event->type())));
}

void IndexWindow::removeCachedFiles(QNetworkDiskCache* cache)
{
    const qint64 numberOfDays = 1;
    const qint64 daysToMillis = 86400000;
    Logger::Info(logModule, QStringLiteral("[removeCachedFiles] numberOfDays=") + QString::number(numberOfDays)
            + QStringLiteral(", daysToMillis=") + QString::number(daysToMillis));

    QSettings settings;
    const QVariant stored = settings.value(QStringLiteral("last-cache-remove-time-millis"));
    const qint64 lastRemoval = stored.isValid() ? stored.toLongLong() : 0;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const qint64 timeDiff = now - lastRemoval;
    if (timeDiff < 0 || timeDiff < numberOfDays * daysToMillis)
        return;

    cache->remove(QUrl(
        ServiceHost::httpsAddress(QStringLiteral("/prod-assets/desktop-client/web-assets/channel-https-override-qt.js"))));
    settings.setValue(QStringLiteral("last-cache-remove-time-millis"), QString::number(now));
}

void IndexWindow::evaluateInMainFrame(const QString& script)
{
    mWebPage->mainFrame()->evaluateJavaScript(script);
}
