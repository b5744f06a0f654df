#include "html5webpage.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QWebInspector>
#include <QWebSettings>
#include <QWebView>

#include "core/logger.h"
#include "web/cookiejar.h"
#include "web/diskcachesetup.h"
#include "web/sslerrorpolicy.h"

namespace {
const QString logModule = QStringLiteral("html5webpage");
}

Html5WebPage::Html5WebPage(QObject* parent)
    : QWebPage(parent)
{
    Logger::Debug(logModule, QStringLiteral("[constructor] - called"));
}

QWebPage* Html5WebPage::createWindow(QWebPage::WebWindowType /*type*/)
{
    Logger::Debug(logModule, QStringLiteral("[createWindow] called"));
    auto* view = new QWebView();
    // A plain QWebPage: windows opened from this window follow the engine's own rule.
    auto* page = new QWebPage(view);
    QNetworkAccessManager* manager = page->networkAccessManager();
    DiskCacheSetup::install(manager, view, logModule, QStringLiteral("[createWindow]"));
    manager->setCookieJar(new CookieJar());
    connect(manager, &QNetworkAccessManager::sslErrors, this, &Html5WebPage::sslErrors);

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

void Html5WebPage::sslErrors(QNetworkReply* networkReply, QList<QSslError> sslErrorList)
{
    // The count line carries the module of the main page's handler.
    SslErrorPolicy::ignoreAll(networkReply, sslErrorList, QStringLiteral("indexwindow"));
}
