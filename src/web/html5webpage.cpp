#include "html5webpage.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QWebInspector>
#include <QWebSettings>
#include <QWebView>

#include "core/logger.h"
#include "core/properties.h"
#include "web/cookiejar.h"
#include "web/diskcachesetup.h"
#include "web/sslerrorpolicy.h"

namespace {
const QString logModule = QStringLiteral("html5webpage");

bool firstPage = true;

// What every page of the process shares, done before the first page exists: QtWebKit binds a
// page's local storage when the page is made, so a page made before its folder is set keeps its
// items in memory only, apart from every other page's.
QObject* preparedProcess(QObject* parent)
{
    if (firstPage) {
        QWebSettings* settings = QWebSettings::globalSettings();
        settings->setLocalStoragePath(Properties::getPersistentStorageLocation() + QStringLiteral("/LocalStorage"));
        settings->setAttribute(QWebSettings::JavascriptCanOpenWindows, true);
        settings->setAttribute(QWebSettings::LocalStorageEnabled, true);
        settings->setAttribute(QWebSettings::LocalContentCanAccessRemoteUrls, true);
        // A resource no page uses any more stays in the engine's memory cache until the cache is
        // full; the page's event polls, each at a new address, leave one behind every time (some
        // 8 KiB of memory each) for hours. Dropped at once instead: what a page uses stays while
        // it does, and the disk cache answers if it is asked for again.
        QWebSettings::setObjectCacheCapacities(0, 0, 16 * 1024 * 1024);
    }
    return parent;
}

// The rest of the persistent storage (databases, application cache, icons) opens and sets up
// SQLite files, a sixth of the start-up's work: done once the first page has loaded, which uses
// none of them. It sets the same local storage folder as above.
void completePersistentStorage()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    QWebSettings::enablePersistentStorage(Properties::getPersistentStorageLocation());
}
}

Html5WebPage::Html5WebPage(QObject* parent)
    : QWebPage(preparedProcess(parent))
{
    Logger::Debug(logModule, QStringLiteral("[constructor] - called"));
    if (firstPage) {
        firstPage = false;
        connect(this, &QWebPage::loadFinished, this, &completePersistentStorage);
        // A first load that never ends doesn't hold the rest back for long.
        QTimer::singleShot(3000, &completePersistentStorage);
    }
    setLinkDelegationPolicy(QWebPage::DelegateExternalLinks);
}

void Html5WebPage::shareNetwork(QNetworkAccessManager* manager, QObject* cacheParent, const QString& module,
    const QString& tag)
{
    DiskCacheSetup::install(manager, cacheParent, module, tag);
    CookieJar::share(manager);
    QObject::connect(manager, &QNetworkAccessManager::sslErrors, manager,
        [module](QNetworkReply* reply, const QList<QSslError>& errors) { SslErrorPolicy::ignoreAll(reply, errors, module); });
}

QWebPage* Html5WebPage::createWindow(QWebPage::WebWindowType /*type*/)
{
    Logger::Debug(logModule, QStringLiteral("[createWindow] called"));
    auto* view = new QWebView();
    // A plain QWebPage: windows opened from this window follow the engine's own rule.
    auto* page = new QWebPage(view);
    // The count line carries the module of the main page's handler.
    shareNetwork(page->networkAccessManager(), view, QStringLiteral("indexwindow"), QStringLiteral("[createWindow]"));

    if (Logger::isDebugCodeValid()) {
        Logger::Debug(QStringLiteral("main"), QStringLiteral("[main] - show webinspect"));
        page->settings()->setAttribute(QWebSettings::DeveloperExtrasEnabled, true);
        auto* inspector = new QWebInspector();
        inspector->setPage(page);
    }

    view->setAttribute(Qt::WA_DeleteOnClose, true);
    view->setPage(page);
    view->show();
    return page;
}
