// Test helper: saves the cookie file over and over, each save a new generation of the same
// cookies, and prints "saved <generation>" once each save has returned. It runs until killed.
#include <QDateTime>
#include <QGuiApplication>
#include <QNetworkCookie>
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

    CookieJar jar;
    const QUrl url(QStringLiteral("http://127.0.0.1/"));
    // Long values make each save long enough for a kill to land inside it.
    const QByteArray padding(300, 'p');
    QTextStream out(stdout);
    for (int generation = 1;; ++generation) {
        QList<QNetworkCookie> cookies;
        for (int i = 0; i < 20; ++i) {
            QNetworkCookie cookie("c" + QByteArray::number(i), "g" + QByteArray::number(generation) + '-' + padding);
            cookie.setPath(QStringLiteral("/"));
            cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
            cookies << cookie;
        }
        jar.setCookiesFromUrl(cookies, url);
        QMetaObject::invokeMethod(&jar, "save", Qt::DirectConnection);
        out << "saved " << generation << '\n';
        out.flush();
    }
}
