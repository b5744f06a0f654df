// Test helper: saves the cookie file over and over, each save a new generation of the same twenty
// cookies, and prints "saved <generation>" once each save has returned. It runs until killed.
#include <QDateTime>
#include <QGuiApplication>
#include <QNetworkCookie>

#include "web/cookiejar.h"
#include "web/simplecrypt.h"

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv); // the jar asks the web settings about private browsing
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    CookieJar jar;
    const QByteArray padding(300, 'p'); // long enough saves for a kill to land inside one
    for (int generation = 1;; ++generation) {
        QList<QNetworkCookie> cookies;
        for (int i = 0; i < 20; ++i) {
            cookies << QNetworkCookie("c" + QByteArray::number(i), "g" + QByteArray::number(generation) + '-' + padding);
            cookies.last().setPath(QStringLiteral("/"));
            cookies.last().setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
        }
        jar.setCookiesFromUrl(cookies, QUrl(QStringLiteral("http://127.0.0.1/")));
        QMetaObject::invokeMethod(&jar, "save", Qt::DirectConnection);
        printf("saved %d\n", generation);
        fflush(stdout);
    }
}
