// One start of a web surface's network side: cookieclient <url>. Loads the URL through a jar, prints
// "cookie <name>=<value> <expiry or session>" per cookie the jar holds for it, and ends, so the jar
// saves on its way out as at a quit.
#include <QEventLoop>
#include <QGuiApplication>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QTextStream>

#include "web/cookiejar.h"
#include "web/simplecrypt.h"

int main(int argc, char** argv)
{
    // The jar asks the web settings about private browsing, which needs a GUI application.
    QGuiApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    if (argc != 2)
        return 2;
    const QUrl url(QString::fromLocal8Bit(argv[1]));
    auto* manager = new QNetworkAccessManager();
    auto* jar = new CookieJar();
    manager->setCookieJar(jar);
    QNetworkReply* reply = manager->get(QNetworkRequest(url));
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    QTextStream out(stdout);
    for (const QNetworkCookie& cookie : jar->cookiesForUrl(url))
        out << "cookie " << cookie.name() << '=' << cookie.value() << ' '
            << (cookie.isSessionCookie() ? QStringLiteral("session")
                                         : cookie.expirationDate().toUTC().toString(Qt::ISODate))
            << '\n';
    out.flush();
    const bool ok = reply->error() == QNetworkReply::NoError;
    delete reply;
    delete manager; // and the jar with it, which writes what is pending
    return ok ? 0 : 1;
}
