// Cost of the cookie file: load and save of persistent cookies (1,000 unless told) through CookieJar (values
// enciphered, policies, purge) against the same QSettings round trip of a plain QNetworkCookieJar
// in clear. Prints one line per operation and jar, then the ratio per operation.
//
// Usage: bench_cookies [rounds] [cookies]   (default 20 rounds, the median is reported; 1,000 cookies)
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <functional>

#include "web/cookiejar.h"
#include "web/simplecrypt.h"

namespace {

int cookieCount = 1000;
const QUrl siteUrl(QStringLiteral("http://www.example.com/"));

class PlainJar : public QNetworkCookieJar
{
public:
    using QNetworkCookieJar::allCookies;
    using QNetworkCookieJar::setAllCookies;
};

QString listKey()
{
    return QString::fromLatin1(QCryptographicHash::hash("cookies", QCryptographicHash::Md5).toHex());
}

QList<QNetworkCookie> makeCookies()
{
    QList<QNetworkCookie> cookies;
    const QDateTime expiry = QDateTime::currentDateTimeUtc().addDays(30);
    for (int i = 0; i < cookieCount; ++i) {
        const QByteArray number = QByteArray::number(i);
        QNetworkCookie cookie("cookie" + number, QCryptographicHash::hash(number, QCryptographicHash::Sha256).toHex());
        cookie.setPath(QStringLiteral("/"));
        cookie.setExpirationDate(expiry);
        cookies << cookie;
    }
    return cookies;
}

// Makes QSettings read the file again instead of reusing its parse, as a new process would.
void touch(const QString& path)
{
    static QDateTime stamp = QDateTime::currentDateTime();
    stamp = stamp.addSecs(1);
    QFile file(path);
    if (file.open(QIODevice::ReadWrite))
        file.setFileTime(stamp, QFileDevice::FileModificationTime);
}

double medianMs(int rounds, const std::function<void()>& prepare, const std::function<void()>& work)
{
    QVector<double> times;
    for (int round = 0; round < rounds; ++round) {
        prepare();
        QElapsedTimer clock;
        clock.start();
        work();
        times << clock.nsecsElapsed() / 1e6;
    }
    std::sort(times.begin(), times.end());
    return times.at(times.size() / 2);
}

void plainSave(PlainJar& jar, const QString& path)
{
    QSettings settings(path, QSettings::IniFormat);
    QList<QNetworkCookie> stored;
    for (const QNetworkCookie& cookie : jar.allCookies()) {
        if (!cookie.isSessionCookie())
            stored << cookie;
    }
    settings.setValue(listKey(), QVariant::fromValue(stored));
    settings.sync();
}

void plainLoad(PlainJar& jar, const QString& path)
{
    QSettings settings(path, QSettings::IniFormat);
    jar.setAllCookies(settings.value(listKey()).value<QList<QNetworkCookie>>());
}

} // namespace

int main(int argc, char** argv)
{
    // Keep the user's own files out of reach, and run without a display.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QGuiApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    qRegisterMetaTypeStreamOperators<QList<QNetworkCookie>>("QList<QNetworkCookie>");

    const int rounds = argc > 1 ? qMax(1, QByteArray(argv[1]).toInt()) : 20;
    if (argc > 2)
        cookieCount = qMax(1, QByteArray(argv[2]).toInt());
    const QString jarFile = QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/c.ini");
    const QString plainFile = home.filePath(QStringLiteral("plain.ini"));
    const QList<QNetworkCookie> cookies = makeCookies();

    CookieJar jar;
    jar.setCookiesFromUrl(cookies, siteUrl);
    PlainJar plain;
    plain.setCookiesFromUrl(cookies, siteUrl);
    if (jar.cookiesForUrl(siteUrl).size() != cookieCount || plain.cookiesForUrl(siteUrl).size() != cookieCount) {
        QTextStream(stderr) << "setting up the jars failed\n";
        return 1;
    }

    const auto noPreparation = [] {};
    const double jarSave = medianMs(rounds, noPreparation, [&jar] {
        QMetaObject::invokeMethod(&jar, "save", Qt::DirectConnection);
    });
    const double plainSaveMs = medianMs(rounds, noPreparation, [&plain, &plainFile] { plainSave(plain, plainFile); });

    int loaded = 0;
    const double jarLoad = medianMs(rounds, [&jarFile] { touch(jarFile); }, [&loaded] {
        CookieJar fresh;
        loaded = fresh.cookiesForUrl(siteUrl).size();
    });
    int plainLoaded = 0;
    const double plainLoadMs = medianMs(rounds, [&plainFile] { touch(plainFile); }, [&plainFile, &plainLoaded] {
        PlainJar fresh;
        plainLoad(fresh, plainFile);
        plainLoaded = fresh.cookiesForUrl(siteUrl).size();
    });
    if (loaded != cookieCount || plainLoaded != cookieCount) {
        QTextStream(stderr) << "round trip lost cookies: " << loaded << ", " << plainLoaded << '\n';
        return 1;
    }

    QTextStream out(stdout);
    out << "cookies " << cookieCount << ", rounds " << rounds << ", median times\n";
    out << QStringLiteral("save CookieJar          %1 ms\n").arg(jarSave, 0, 'f', 2);
    out << QStringLiteral("save QNetworkCookieJar  %1 ms\n").arg(plainSaveMs, 0, 'f', 2);
    out << QStringLiteral("load CookieJar          %1 ms\n").arg(jarLoad, 0, 'f', 2);
    out << QStringLiteral("load QNetworkCookieJar  %1 ms\n").arg(plainLoadMs, 0, 'f', 2);
    out << QStringLiteral("ratio save %1\n").arg(jarSave / plainSaveMs, 0, 'f', 2);
    out << QStringLiteral("ratio load %1\n").arg(jarLoad / plainLoadMs, 0, 'f', 2);
    return 0;
}
