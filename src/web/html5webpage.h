#pragma once

#include <QWebPage>

class QNetworkAccessManager;

// Page class of every hosted surface: links are the surface's to route, and windows the page opens
// become bare top-level browser windows.
class Html5WebPage : public QWebPage
{
    Q_OBJECT
public:
    explicit Html5WebPage(QObject* parent = nullptr);

    // What every surface's network manager shares: the one disk cache folder, the program's cookie
    // jar, and TLS errors passed over, counted in the log under `module`. `tag` prefixes the cache's
    // log lines.
    static void shareNetwork(QNetworkAccessManager* manager, QObject* cacheParent, const QString& module,
        const QString& tag);

protected:
    QWebPage* createWindow(QWebPage::WebWindowType type) override;
};
