#include <QtTest>

#include <QGraphicsWebView>
#include <QNetworkCookie>
#include <QWebFrame>
#include <QWebPage>
#include <QWebView>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "httpserver.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

namespace {

// MD5 of "cookies": the key of the stored list and the group the policies are read from.
const QString cookiesKey = QStringLiteral("55e7dd3016ce4ac57b9a0f56af12f7c2");
const QUrl siteUrl(QStringLiteral("http://127.0.0.1/"));

// The cipher's expected forms were worked out by hand from the layout: version 3, flags (1 compressed,
// 2 checksum, 4 hash), then random byte | integrity (qChecksum big-endian, or SHA-1) | payload,
// enciphered as c[i] = b[i] ^ keyPart[i % 8] ^ c[i - 1], c[-1] = 0, keyPart[0] the lowest key byte.
const quint64 testKey = Q_UINT64_C(0x0F1E2D3C4B5A6978);

QString cookieFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + "/c.ini";
}

// Expiry in whole seconds, as the file keeps it.
QNetworkCookie makeCookie(const QByteArray& name, const QByteArray& value, int expiresInDays = 0)
{
    QNetworkCookie cookie(name, value);
    cookie.setPath("/");
    if (expiresInDays != 0)
        cookie.setExpirationDate(
            QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch() + expiresInDays * 86400LL, Qt::UTC));
    return cookie;
}

QByteArray storedRaw(const QByteArray& name, const QByteArray& value, int expiresInDays = 30)
{
    QNetworkCookie cookie = makeCookie(name, encryptSharedText(value.toBase64()).toUtf8(), expiresInDays);
    cookie.setDomain("127.0.0.1");
    return cookie.toRawForm(QNetworkCookie::Full);
}

// The file built by hand: a QVariant of user type (old id 127, type name), stream version, count, raw cookies.
QByteArray storedFile(qint32 version, qint32 count, const QList<QByteArray>& raws)
{
    QByteArray variant;
    QDataStream stream(&variant, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_4_0);
    stream << quint32(127) << "QList<QNetworkCookie>" << version << count;
    for (const QByteArray& raw : raws)
        stream << raw;
    return "[General]\n" + cookiesKey.toLatin1() + "=@Variant(\\x" + variant.toHex('x').replace("x", "\\x") + ")\n";
}

QByteArray readCookieFile()
{
    QFile file(cookieFile());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// QSettings reuses its parse of a file whose size and time look unchanged: each write gets a time of
// its own, so the next jar reads what is on disk as the next start would.
void writeCookieFile(const QByteArray& content)
{
    static QDateTime stamp = QDateTime::currentDateTime();
    QDir().mkpath(QFileInfo(cookieFile()).absolutePath());
    QFile file(cookieFile());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size());
    file.flush();
    QVERIFY(file.setFileTime(stamp = stamp.addSecs(1), QFileDevice::FileModificationTime));
}

QStringList pairs(const CookieJar& jar)
{
    QStringList pairs;
    for (const QNetworkCookie& cookie : jar.cookiesForUrl(siteUrl))
        pairs << QString::fromUtf8(cookie.name() + '=' + cookie.value());
    pairs.sort();
    return pairs;
}

QStringList pairsAtNextStart()
{
    writeCookieFile(readCookieFile());
    return pairs(CookieJar());
}

} // namespace

class TestCookieJar : public QObject {
    Q_OBJECT
    HttpServer mServer;

private slots:
    void initTestCase()
    {
        SimpleCrypt::setUpShared();
        QVERIFY(mServer.listen());
        mServer.serve("/signin", "<p>in</p>", "text/html", 200,
            { { "Set-Cookie", makeCookie("sid", "signed-in", 30).toRawForm() } });
        mServer.serve(
            "/signout", "<p>out</p>", "text/html", 200, { { "Set-Cookie", makeCookie("sid", "", -1).toRawForm() } });
        mServer.serve("/page", "<p>page</p>", "text/html");
    }

    void cleanup()
    {
        QFile::remove(cookieFile());
        QFile::remove(cookieFile() + ".damaged");
        QSettings().remove(cookiesKey);
    }

    // Texts worked out by hand under testKey; the reader follows each text's own flags.
    void decipher_data()
    {
        QTest::addColumn<QByteArray>("hex");
        QTest::addColumn<quint64>("key");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("error");

        const int integrity = SimpleCrypt::ErrorIntegrityFailed;
        // block 01 | 34bd | 68656c6c6f
        QTest::newRow("checksum") << QByteArray("03027924c3e0b9f88aea") << testKey << "hello" << 0;
        // block 33 | SHA-1 of the compressed payload | 00000040 78da4b4ca40c0000148d1841
        QTest::newRow("hash, compressed")
            << QByteArray("03054b00f61915ac1e6ea0a05fb763d92284380509ba99b4aaa59d8c0c0c7cf5e7e890ed3a6914") << testKey
            << QString(64, 'a') << 0;
        // "hello" under the hash, block ff | SHA-1 | payload, its last byte changed from 0x60 to 0x61.
        QTest::newRow("tampered") << QByteArray("03048744ea6746b76c8b51e20693a0b6e0c362a5565e2f6a11726661") << testKey
                                  << QString() << integrity;
        // 03 04 | 3 bytes: too short to hold a 20-byte digest.
        QTest::newRow("hash flag, too short") << QByteArray("0304000000") << testKey << QString() << integrity;
        QTest::newRow("no key") << QByteArray("03027924c3e0b9f88aea") << quint64(0) << QString()
                                << int(SimpleCrypt::ErrorNoKeySet);
    }

    void decipher()
    {
        QFETCH(QByteArray, hex);
        QFETCH(quint64, key);
        SimpleCrypt crypt;
        if (key)
            crypt.setKey(key);
        QTEST(crypt.decryptToString(QString::fromLatin1(QByteArray::fromHex(hex).toBase64())), "text");
        QTEST(int(crypt.lastError()), "error");
    }

    void compressedSizeClaim_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("expected");

        const QByteArray run(1 << 20, 'a'); // deflate's best case, about 1000 to 1
        QTest::newRow("densest real stream") << qCompress(run, 9) << run;
        QTest::newRow("2 GiB announced by a few bytes")
            << QByteArray::fromHex("7ffffff0789c030000000001") << QByteArray();
    }

    void compressedSizeClaim()
    {
        QFETCH(QByteArray, payload);
        // Enciphered as is, then marked compressed: the flags byte is not enciphered.
        SimpleCrypt crypt(testKey);
        crypt.setCompressionMode(SimpleCrypt::CompressionNever);
        crypt.setProtectionMode(SimpleCrypt::ProtectionNone);
        QByteArray cypher = crypt.encryptToByteArray(payload);
        cypher[1] = 0x01;
        QTEST(crypt.decryptToByteArray(cypher), "expected");
    }

    void sharedKey()
    {
        // Earlier versions' cookie files were enciphered under this key, failed conversion and all.
        QCOMPARE(SimpleCrypt::shared()->key(), quint64(QStringLiteral("Kestrelgap482").toULongLong(nullptr, 64)));
    }

    void survivesRestart()
    {
        // A file left readable by all, under a umask that keeps nothing private: the save must close it.
        writeCookieFile(storedFile(23, 1, { storedRaw("old", "v") }));
        QVERIFY(QFile::setPermissions(cookieFile(), QFileDevice::Permissions(0x6666)));
        const mode_t previousMask = ::umask(0);
        QNetworkCookie odd = makeCookie("odd", "s3cr\xc3\xa9t;value", 10);
        odd.setSecure(true);
        odd.setHttpOnly(true);
        const QList<QNetworkCookie> kept { makeCookie("far", "f-value", 3650), odd };
        QVERIFY(CookieJar().setCookiesFromUrl(kept + QList<QNetworkCookie> { makeCookie("session", "x") }, siteUrl));
        ::umask(previousMask);
        QCOMPARE(int(QFile::permissions(cookieFile()) & 0x7077), 0x6000); // owner, group, others
        QVERIFY(!readCookieFile().contains("f-value") && !readCookieFile().contains("s3cr"));

        QCOMPARE(pairsAtNextStart(), QStringList({ "far=f-value", "old=v" })); // odd is for https only
        for (QNetworkCookie cookie : kept) {
            cookie.setDomain("127.0.0.1");
            QVERIFY2(CookieJar().cookiesForUrl(QUrl("https://127.0.0.1/")).contains(cookie), cookie.name());
        }
    }

    void restartOfTheSurfaces_data()
    {
        QTest::addColumn<QStringList>("starts"); // per start of the program: "path|script[|popup]"
        QTest::addColumn<QString>("lastOutput");
        QTest::addColumn<QByteArray>("lastCookieHeader");

        QTest::newRow("signed in stays signed in, popup too")
            << QStringList({ "/signin|document.cookie", "/page|document.cookie|popup" })
            << "main sid=signed-in\npopup sid=signed-in\n"
            << QByteArray("sid=signed-in");
        QTest::newRow("sign-out sticks, popup too")
            << QStringList({ "/signin|document.cookie", "/signout|document.cookie", "/page|document.cookie|popup" })
            << "main \npopup \n"
            << QByteArray();
        QTest::newRow("local storage kept and shared") << QStringList(
            { "/page|localStorage.setItem('draft','hello')", "/page|String(localStorage.getItem('draft'))|popup" })
                                                       << "main hello\npopup hello\n"
                                                       << QByteArray();
    }

    void restartOfTheSurfaces()
    {
        QFETCH(QStringList, starts);
        QString output;
        for (const QString& start : starts) {
            QStringList arguments = start.split('|');
            arguments.replace(0, mServer.url(arguments.at(0)).toString());
            QProcess program;
            program.start(QStringLiteral(SURFACE_CLIENT_PATH), arguments);
            QVERIFY2(program.waitForFinished(60000), "the program didn't quit");
            QCOMPARE(program.exitCode(), 0);
            output = QString::fromUtf8(program.readAllStandardOutput());
        }
        QTEST(output, "lastOutput");
        QTEST(mServer.requestsFor("/page").last().header("Cookie"), "lastCookieHeader");
    }

    void signInReachesPageOpenedWindow()
    {
        IndexWindow main;
        QWebFrame* frame = main.webView()->page()->mainFrame();
        QSignalSpy loaded(main.webView()->page(), &QWebPage::loadFinished);
        frame->load(mServer.url("/signin"));
        QVERIFY(loaded.wait(10000));
        const int before = mServer.requestsFor("/page").size();
        frame->evaluateJavaScript(QString("opened = window.open('%1');").arg(mServer.url("/page").toString()));
        QTRY_COMPARE_WITH_TIMEOUT(mServer.requestsFor("/page").size(), before + 1, 10000);
        QCOMPARE(mServer.requestsFor("/page").last().header("Cookie"), QByteArray("sid=signed-in"));
        // A bare browser window: the native bridge is for the main page only.
        QTRY_COMPARE(frame->evaluateJavaScript("opened.document.body.textContent").toString(), QStringLiteral("page"));
        QCOMPARE(frame->evaluateJavaScript("typeof qtIndexWindow + typeof opened.qtIndexWindow").toString(),
            QStringLiteral("objectundefined"));
        // The opened window goes now, and with it the last user of the shared jar, which saves as it goes.
        for (QWidget* widget : QApplication::topLevelWidgets())
            delete qobject_cast<QWebView*>(widget);
    }

    void badFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("loaded");
        QTest::addColumn<bool>("putAside"); // renamed to c.ini.damaged

        const QByteArray good = storedRaw("sid", "value-1");
        const QStringList sid("sid=value-1");
        const QByteArray whole = storedFile(23, 1, { good });
        QTest::newRow("hand-built list") << whole << sid << false;
        QTest::newRow("other stream version") << storedFile(22, 1, { good }) << QStringList() << false;
        QTest::newRow("count beyond the content") << storedFile(23, 5, { good }) << sid << false;
        QTest::newRow("huge count, no content") << storedFile(23, 0x7fffffff, {}) << QStringList() << false;
        QTest::newRow("unparsable raw cookie") << storedFile(23, 2, { "garbage", good }) << sid << false;
        QTest::newRow("value not a cyphertext")
            << storedFile(23, 1, { "sid=plain; path=/; domain=127.0.0.1" }) << QStringList("sid=") << false;
        // A list elsewhere in the file whose count asks for tens of gigabytes.
        QTest::newRow("lying count in another entry")
            << whole + "\n[Exceptions]\nblock=@Variant(\\0\\0\\0\\t\\x7f\\xff\\xff\\xf0)\n"
            << QStringList() << true;
    }

    void badFile()
    {
        QFETCH(QByteArray, content);
        QSettings().setValue("show-low-bat-alerts", "0");
        writeCookieFile(content);
        rlimit previous {};
        QVERIFY(::getrlimit(RLIMIT_AS, &previous) == 0);
        {
            // As on a machine with a few gigabytes free, where the lying count's allocation fails.
            const auto restore = qScopeGuard([&previous] { ::setrlimit(RLIMIT_AS, &previous); });
#if !defined(__SANITIZE_ADDRESS__)
            QFile status("/proc/self/statm");
            QVERIFY(status.open(QIODevice::ReadOnly));
            rlimit tight = previous;
            tight.rlim_cur
                = status.readAll().split(' ').value(0).toULongLong() * ::sysconf(_SC_PAGESIZE) + (3ULL << 30);
            QVERIFY(::setrlimit(RLIMIT_AS, &tight) == 0);
#endif
            CookieJar jar;
            QTEST(pairs(jar), "loaded");
            // The jar still takes a new cookie and keeps it.
            QVERIFY(jar.setCookiesFromUrl({ makeCookie("fresh", "again", 5) }, siteUrl));
        }
        QTEST(QFile::exists(cookieFile() + ".damaged"), "putAside");
        QVERIFY(pairsAtNextStart().contains("fresh=again"));
        // A damaged cookie file costs the user none of their other settings.
        QCOMPARE(QSettings().value("show-low-bat-alerts").toString(), QStringLiteral("0"));
    }

    void policies_data()
    {
        QTest::addColumn<QString>("stored"); // "group/accept/keep" in the settings
        QTest::addColumn<bool>("taken"); // a new cookie that asks for 200 days
        QTest::addColumn<int>("days"); // its life in the jar
        QTest::addColumn<QStringList>("atNextStart");

        const QString digest = cookiesKey;
        const QStringList both({ "new=n", "sid=v" });
        QTest::newRow("nothing stored") << QString() << true << 200 << both;
        QTest::newRow("time limit") << digest + "//KeepUntilTimeLimit" << true << 90 << both;
        QTest::newRow("never") << digest + "/AcceptNever/" << false << 0 << QStringList("sid=v");
        // save() writes the policies there, but a changed policy must not outlive the run.
        QTest::newRow("group written by save is not read")
            << "cookies/AcceptNever/KeepUntilExit" << true << 200 << both;
        QTest::newRow("keep until exit") << digest + "//KeepUntilExit" << true << 200 << QStringList();
    }

    void policies()
    {
        QFETCH(QString, stored);
        QFETCH(int, days);
        writeCookieFile(storedFile(23, 1, { storedRaw("sid", "v") }));
        QSettings settings;
        settings.remove("cookies");
        if (!stored.isEmpty()) {
            settings.setValue(stored.section('/', 0, 0) + "/acceptCookies", stored.section('/', 1, 1));
            settings.setValue(stored.section('/', 0, 0) + "/keepCookiesUntil", stored.section('/', 2, 2));
        }
        {
            CookieJar jar;
            QTEST(jar.setCookiesFromUrl({ makeCookie("new", "n", 200) }, siteUrl), "taken");
            for (const QNetworkCookie& kept : jar.cookiesForUrl(siteUrl)) {
                const qint64 life = QDateTime::currentDateTimeUtc().daysTo(kept.expirationDate());
                QVERIFY(kept.name() != "new" || qAbs(life - days) <= 1);
            }
        }
        settings.remove(cookiesKey);
        QTEST(pairsAtNextStart(), "atNextStart");
    }

    void savePurgesExpired()
    {
        // What expired while the program was not running leaves the file at the next save, unasked.
        writeCookieFile(storedFile(23, 2, { storedRaw("old", "x", -1), storedRaw("sid", "v") }));
        CookieJar().cookiesForUrl(siteUrl);
        QVERIFY(readCookieFile().contains("sid=") && !readCookieFile().contains("old="));
        // And what expires while it runs; only the accept-always rule lets an expired cookie in.
        CookieJar jar;
        jar.setAcceptPolicy(CookieJar::AcceptAlways);
        QVERIFY(jar.setCookiesFromUrl({ makeCookie("live", "1", 5), makeCookie("dead", "2", -1) }, siteUrl));
        QVERIFY(QMetaObject::invokeMethod(&jar, "save"));
        QVERIFY(readCookieFile().contains("live=") && !readCookieFile().contains("dead="));
    }

    void steadyChangesAreSaved()
    {
        // Each change puts the save off; a stream of them must still reach the file.
        CookieJar jar;
        int count = 0;
        QTimer stream;
        connect(&stream, &QTimer::timeout,
            [&] { jar.setCookiesFromUrl({ makeCookie("stream", QByteArray::number(++count), 5) }, siteUrl); });
        stream.start(400);
        QTRY_VERIFY_WITH_TIMEOUT(readCookieFile().contains("stream="), 10000);
    }
};

QTEST_MAIN(TestCookieJar)
#include "tst_cookiejar.moc"
