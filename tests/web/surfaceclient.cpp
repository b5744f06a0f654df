// One start of the program's web side, ended as a quit ends it, so what it keeps is written on the way out.
//   surfaceclient <url> <script> [popup]   the URL in a main view ("main <script's result>"), then a popup
//   cookieclient <url>                     the URL through a cookie jar alone ("cookie <name>=<value>")
#include <QApplication>
#include <QGraphicsWebView>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTextStream>
#include <QTimer>
#include <QWebFrame>
#include <QWebPage>

#include "notifications/notificationwindow.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

static QString runIn(QGraphicsWebView* view, const QUrl& url, const QString& script)
{
    QSignalSpy loaded(view->page(), &QWebPage::loadFinished);
    view->page()->mainFrame()->load(url);
    if (!loaded.wait(20000) || !loaded.first().first().toBool())
        return QStringLiteral("(not loaded)");
    return view->page()->mainFrame()->evaluateJavaScript(script).toString();
}

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    if (argc < 2)
        return 2;
    const QUrl url(QString::fromLocal8Bit(argv[1]));
    QTextStream out(stdout);
    if (argc == 2) {
        QNetworkAccessManager manager; // owns the jar, which writes what is pending when it goes
        auto* jar = new CookieJar();
        manager.setCookieJar(jar);
        QScopedPointer<QNetworkReply> reply(manager.get(QNetworkRequest(url)));
        QSignalSpy finished(reply.data(), &QNetworkReply::finished);
        finished.wait(30000);
        for (const QNetworkCookie& cookie : jar->cookiesForUrl(url))
            out << "cookie " << cookie.name() << '=' << cookie.value() << '\n';
        return reply->error() == QNetworkReply::NoError ? 0 : 1;
    }
    auto* main = new IndexWindow();
    out << "main " << runIn(main->webView(), url, QString::fromLocal8Bit(argv[2])) << '\n';
    NotificationWindow* popup = nullptr;
    if (argc > 3 && QByteArray(argv[3]) == "popup") {
        popup = new NotificationWindow(nullptr, false);
        out << "popup " << runIn(popup->webView(), url, QString::fromLocal8Bit(argv[2])) << '\n';
    }
    out.flush();
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    const int result = app.exec();
    delete popup;
    delete main;
    return result;
}
