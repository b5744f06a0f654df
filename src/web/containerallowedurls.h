#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QStringList>
#include <QUrl>

class QNetworkReply;

// Fragments of URLs that stay in the hosted view. Two sign-in pages are built in; the service can add
// more through a small JSON document fetched once at start.
class ContainerAllowedUrls : public QObject
{
    Q_OBJECT

public:
    explicit ContainerAllowedUrls(QObject* parent);

    void loadObject();
    bool isUrlAllowed(QUrl url);

    // Tests point the fetch at a loopback server; an empty URL restores the service host's document.
    static void setDocumentUrlForTests(const QUrl& url);
    static QUrl documentUrl();

signals:
    void containerAllowedUrlsLoadComplete(ContainerAllowedUrls* containerAllowedUrlsLoadComplete);

public slots:
    void requestFinished(QNetworkReply* mNetworkReply);

private:
    QNetworkAccessManager mNetworkManager;
    QStringList mAllowedUrls;
};
