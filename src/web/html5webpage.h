#pragma once

#include <QList>
#include <QSslError>
#include <QWebPage>

class QNetworkReply;

// Page class of every hosted surface. Windows the page opens become bare top-level browser windows.
class Html5WebPage : public QWebPage
{
    Q_OBJECT
public:
    explicit Html5WebPage(QObject* parent = nullptr);

public slots:
    void sslErrors(QNetworkReply* networkReply, QList<QSslError> sslErrorList);

protected:
    QWebPage* createWindow(QWebPage::WebWindowType type) override;
};
