// Test helper: one run of a web surface's network side. Loads the URL given as the only argument
// through a QNetworkAccessManager with a CookieJar, prints the cookies the jar then holds for that
// URL as "cookie <name>=<value> <expiry or session>" lines, and ends, so the jar saves on its way
// out as it does when the program quits. Run twice, it shows what survives a restart.
#include <QCoreApplication>
#include <QDateTime>
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

    QTextStream out(stdout);
    if (argc != 2) {
        out << "usage: cookieclient <url>\n";
        return 2;
    }
    const QUrl url(QString::fromLocal8Bit(argv[1]));

    auto* manager = new QNetworkAccessManager();
    auto* jar = new CookieJar();
    manager->setCookieJar(jar);

    QNetworkReply* reply = manager->get(QNetworkRequest(url));
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const bool ok = reply->error() == QNetworkReply::NoError;

    for (const QNetworkCookie& cookie : jar->cookiesForUrl(url)) {
        out << "cookie " << cookie.name() << '=' << cookie.value() << ' '
            << (cookie.isSessionCookie() ? QStringLiteral("session")
                                         : cookie.expirationDate().toUTC().toString(Qt::ISODate))
            << '\n';
    }
    out.flush();

    delete reply;
    delete manager; // owns the jar, which writes pending changes as it goes
    return ok ? 0 : 1;
}
