#include <QtTest>

#include <QNetworkCookie>
#include <QProcess>
#include <QSettings>
#include <QGraphicsWebView>
#include <QWebFrame>
#include <QWebPage>
#include <QWebSettings>
#include <QWebView>

#include <sys/stat.h>

#include "httpserver.h"
#include "web/autosaver.h"
#include "web/cookiejar.h"
#include "web/cookiemodel.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

namespace {

// MD5 of "cookies": the key of the stored list and the group the policies are read from.
const QString cookiesKey = QStringLiteral("55e7dd3016ce4ac57b9a0f56af12f7c2");
const QUrl siteUrl(QStringLiteral("http://127.0.0.1/"));

QString cookieFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/c.ini");
}

QNetworkCookie makeCookie(const QByteArray& name, const QByteArray& value, int expiresInDays = 0,
                          const QString& domain = QString())
{
    QNetworkCookie cookie(name, value);
    cookie.setPath(QStringLiteral("/"));
    if (!domain.isEmpty())
        cookie.setDomain(domain);
    if (expiresInDays != 0)
        cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(expiresInDays));
    return cookie;
}

// Raw form of a cookie as it lies in the file: attributes in clear, value enciphered.
QByteArray storedRaw(const QByteArray& name, const QByteArray& value)
{
    QNetworkCookie cookie = makeCookie(name, encryptSharedText(QString::fromLatin1(value.toBase64())).toUtf8(), 30);
    cookie.setDomain(QStringLiteral("127.0.0.1"));
    return cookie.toRawForm(QNetworkCookie::Full);
}

QByteArray listStream(qint32 version, qint32 count, const QList<QByteArray>& raws)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << version << count;
    for (const QByteArray& raw : raws)
        stream << raw;
    return bytes;
}

// A QVariant of a user type as QSettings streams it: old user type id 127, the type name, the data.
QByteArray variantStream(const QByteArray& data, const char* typeName = "QList<QNetworkCookie>")
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_4_0);
    stream << quint32(127) << typeName;
    return bytes + data;
}

// The INI text of a file holding `variant` as the stored list, every byte escaped.
QByteArray iniWithStoredList(const QByteArray& variant)
{
    QByteArray escaped;
    for (const char byte : variant)
        escaped += "\\x" + QByteArray::number(uchar(byte), 16);
    return "[General]\n" + cookiesKey.toLatin1() + "=@Variant(" + escaped + ")\n";
}

void writeFile(const QString& path, const QByteArray& content)
{
    // QSettings reuses its parse of a file whose size and time look unchanged; files of equal size
    // written within one clock tick would look alike, so each gets a time of its own.
    static QDateTime stamp = QDateTime::currentDateTime();
    stamp = stamp.addSecs(1);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.flush();
    QVERIFY(file.setFileTime(stamp, QFileDevice::FileModificationTime));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The stored list's bytes as QVariant streamed them, read back through the byte-array form of
// the same INI escaping so the test does not rely on the jar's own reader.
QByteArray storedListBytes()
{
    QTemporaryDir dir;
    const QString copy = dir.filePath(QStringLiteral("copy.ini"));
    QByteArray text = readFile(cookieFile());
    text.replace("@Variant(", "@ByteArray(");
    writeFile(copy, text);
    return QSettings(copy, QSettings::IniFormat).value(cookiesKey).toByteArray();
}

int permissionBits(const QString& path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

void saveNow(CookieJar* jar)
{
    QVERIFY(QMetaObject::invokeMethod(jar, "save", Qt::DirectConnection));
}

// "name=value" per cookie, in the jar's order.
QStringList pairsOf(const QList<QNetworkCookie>& cookies)
{
    QStringList pairs;
    for (const QNetworkCookie& cookie : cookies)
        pairs << QString::fromLatin1(cookie.name() + '=' + cookie.value());
    return pairs;
}

// A fresh jar on the file must take a new cookie and give it back after a save.
void checkJarRecovers()
{
    {
        CookieJar jar;
        QVERIFY(jar.setCookiesFromUrl({makeCookie("fresh", "again", 5)}, siteUrl));
        saveNow(&jar);
    }
    CookieJar jar;
    QVERIFY(pairsOf(jar.cookiesForUrl(siteUrl)).contains(QStringLiteral("fresh=again")));
}

// Parent that AutoSaver saves; records whether the save came from inside a change.
class SaveRecorder : public QObject
{
    Q_OBJECT

public:
    bool inChange = false;
    QList<bool> savedInsideChange;

public slots:
    void save() { savedInsideChange << inChange; }
};

} // namespace

class TestCookieJar : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void survivesRestart();
    void signInReachesPageOpenedWindow();
    void storedForm();
    void filePermissions_data();
    void filePermissions();
    void badFile_data();
    void badFile();

    void setters_data();
    void setters();
    void acceptance_data();
    void acceptance();
    void keepPolicyExpiry_data();
    void keepPolicyExpiry();
    void loadSettings_data();
    void loadSettings();
    void keepUntilExitEmptiesFileOnExit();
    void privateBrowsing();
    void savePurgesBeforeWriting();

    void autoSaverTiming_data();
    void autoSaverTiming();

    void cookieModel();
};

void TestCookieJar::initTestCase()
{
    SimpleCrypt::setUpShared();
    QVERIFY(QStandardPaths::writableLocation(QStandardPaths::DataLocation).startsWith(QDir::homePath()));
}

void TestCookieJar::cleanup()
{
    QFile::remove(cookieFile());
    QSettings settings;
    settings.remove(QStringLiteral("cookies"));
    settings.remove(cookiesKey);
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, false);
}

void TestCookieJar::survivesRestart()
{
    HttpServer server;
    QVERIFY(server.listen());
    const QDateTime nearExpiry = QDateTime::currentDateTimeUtc().addDays(30);
    const QDateTime farExpiry = QDateTime::currentDateTimeUtc().addYears(10);
    QNetworkCookie persistent("persistent", "p-value");
    persistent.setExpirationDate(nearExpiry);
    QNetworkCookie far("far", "f-value");
    far.setExpirationDate(farExpiry);
    server.serve(QStringLiteral("/set"), "ok", "text/plain", 200,
                 {{"Set-Cookie", persistent.toRawForm()}, {"Set-Cookie", "session=s-value"},
                  {"Set-Cookie", far.toRawForm()}});
    server.serve(QStringLiteral("/check"), "ok");

    auto runClient = [](const QUrl& url) {
        QProcess client;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        client.setProcessEnvironment(environment);
        client.start(QStringLiteral(COOKIE_CLIENT_PATH), {url.toString()});
        client.waitForFinished(60000);
        const bool ok = client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0;
        return ok ? QString::fromUtf8(client.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
                  : QStringList(QStringLiteral("failed: ") + QString::fromUtf8(client.readAllStandardError()));
    };

    const QStringList firstRun = runClient(server.url(QStringLiteral("/set")));
    QVERIFY2(firstRun.size() == 3, qPrintable(firstRun.join(QLatin1Char('|'))));
    QCOMPARE(permissionBits(cookieFile()), 0600);
    QVERIFY(!readFile(cookieFile()).contains("p-value"));

    // Expiry is kept to the second; the far one is not cut down under the default keep policy.
    QStringList secondRun = runClient(server.url(QStringLiteral("/check")));
    secondRun.sort();
    QCOMPARE(secondRun, QStringList({QStringLiteral("cookie far=f-value ") + farExpiry.toString(Qt::ISODate),
                                     QStringLiteral("cookie persistent=p-value ") + nearExpiry.toString(Qt::ISODate)}));
    const QByteArray sent = server.requestsFor(QStringLiteral("/check")).value(0).header("Cookie");
    QVERIFY2(sent.contains("persistent=p-value") && sent.contains("far=f-value") && !sent.contains("session"),
             sent.constData());
}

void TestCookieJar::signInReachesPageOpenedWindow()
{
    HttpServer server;
    QVERIFY(server.listen());
    QNetworkCookie sid("sid", "signed-in");
    sid.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
    server.serve(QStringLiteral("/signin"), "<p>in</p>", "text/html", 200, {{"Set-Cookie", sid.toRawForm()}});
    server.serve(QStringLiteral("/inbox"), "<p>inbox</p>", "text/html");

    IndexWindow main;
    QWebPage* page = main.webView()->page();
    QSignalSpy loaded(page, &QWebPage::loadFinished);
    page->mainFrame()->load(server.url(QStringLiteral("/signin")));
    QVERIFY(loaded.wait(10000));
    // The windows share no jar object: the sign-in travels through the file once the main view saves.
    QTRY_VERIFY_WITH_TIMEOUT(readFile(cookieFile()).contains("sid="), 10000);

    const QWidgetList before = QApplication::topLevelWidgets();
    page->mainFrame()->evaluateJavaScript(
        QStringLiteral("window.open('%1');").arg(server.url(QStringLiteral("/inbox")).toString()));
    QTRY_COMPARE_WITH_TIMEOUT(server.requestsFor(QStringLiteral("/inbox")).size(), 1, 10000);
    QCOMPARE(server.requestsFor(QStringLiteral("/inbox")).value(0).header("Cookie"), QByteArray("sid=signed-in"));
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (!before.contains(widget) && qobject_cast<QWebView*>(widget))
            widget->close();
    }
}

void TestCookieJar::storedForm()
{
    QNetworkCookie secure = makeCookie("secure", "s3cr\xc3\xa9t;value", 10);
    secure.setSecure(true);
    secure.setHttpOnly(true);
    {
        CookieJar jar;
        jar.setBlockedCookies({QStringLiteral("b.example"), QStringLiteral("a.example")});
        QVERIFY(jar.setCookiesFromUrl({makeCookie("first", "one", 10), makeCookie("session", "gone"), secure},
                                      siteUrl));
        saveNow(&jar);
    }

    QDataStream stream(storedListBytes());
    stream.setVersion(QDataStream::Qt_4_0);
    quint32 typeId = 0;
    char* typeName = nullptr;
    qint32 version = 0;
    qint32 count = 0;
    QByteArray firstRaw;
    QByteArray secondRaw;
    stream >> typeId >> typeName >> version >> count >> firstRaw >> secondRaw;
    const QByteArray name(typeName);
    delete[] typeName;
    QCOMPARE(typeId, quint32(127));
    QCOMPARE(name, QByteArray("QList<QNetworkCookie>"));
    QCOMPARE(version, 23);
    QCOMPARE(count, 2);
    QVERIFY(stream.atEnd());

    // Reverse order of the jar, session cookie dropped, attributes in clear.
    const QNetworkCookie storedSecure = QNetworkCookie::parseCookies(firstRaw).value(0);
    QCOMPARE(QNetworkCookie::parseCookies(secondRaw).value(0).name(), QByteArray("first"));
    QCOMPARE(storedSecure.name(), QByteArray("secure"));
    QVERIFY(storedSecure.isSecure() && storedSecure.isHttpOnly());
    QCOMPARE(storedSecure.domain(), QStringLiteral("127.0.0.1"));
    QCOMPARE(storedSecure.path(), QStringLiteral("/"));
    QCOMPARE(storedSecure.expirationDate().toSecsSinceEpoch(), secure.expirationDate().toSecsSinceEpoch());

    // Value: Base64 of the real one, enciphered in the hash form of the shared cipher.
    const QByteArray cipher = QByteArray::fromBase64(storedSecure.value());
    QCOMPARE(cipher.at(0), char(3));
    QVERIFY(cipher.at(1) & 0x04);
    QCOMPARE(decryptSharedText(QString::fromUtf8(storedSecure.value())),
             QString::fromLatin1(secure.value().toBase64()));
    QVERIFY(!readFile(cookieFile()).contains("s3cr"));
    QCOMPARE(QSettings(cookieFile(), QSettings::IniFormat).value(QStringLiteral("Exceptions/block")).toStringList(),
             QStringList({QStringLiteral("a.example"), QStringLiteral("b.example")}));

    CookieJar reloaded;
    QCOMPARE(pairsOf(reloaded.cookiesForUrl(siteUrl)), QStringList(QStringLiteral("first=one")));
    QStringList secureSide = pairsOf(reloaded.cookiesForUrl(QUrl(QStringLiteral("https://127.0.0.1/"))));
    secureSide.sort();
    QCOMPARE(secureSide, QStringList({QStringLiteral("first=one"),
                                      QStringLiteral("secure=") + QString::fromLatin1(secure.value())}));
}

void TestCookieJar::filePermissions_data()
{
    QTest::addColumn<int>("existingMode");
    QTest::addColumn<int>("umask");

    QTest::newRow("new file, open umask") << -1 << 0;
    QTest::newRow("existing file readable by all") << 0644 << 022;
    QTest::newRow("existing file writable by all") << 0666 << 0;
}

void TestCookieJar::filePermissions()
{
    QFETCH(int, existingMode);
    QFETCH(int, umask);

    if (existingMode >= 0) {
        writeFile(cookieFile(), iniWithStoredList(variantStream(listStream(23, 1, {storedRaw("old", "v")}))));
        QCOMPARE(::chmod(QFile::encodeName(cookieFile()).constData(), mode_t(existingMode)), 0);
    }
    const mode_t previous = ::umask(mode_t(umask));
    for (int save = 0; save < 2; ++save) {
        CookieJar jar;
        QVERIFY(jar.setCookiesFromUrl({makeCookie("round", QByteArray::number(save), 5)}, siteUrl));
        saveNow(&jar);
        QCOMPARE(permissionBits(cookieFile()), 0600);
    }
    ::umask(previous);
}

void TestCookieJar::badFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("loaded");

    const auto file = [](qint32 version, qint32 count, const QList<QByteArray>& raws) {
        return iniWithStoredList(variantStream(listStream(version, count, raws)));
    };
    const QByteArray good = storedRaw("sid", "value-1");
    const QStringList sid(QStringLiteral("sid=value-1"));
    const QStringList none;

    QTest::newRow("hand-built list") << file(23, 1, {good}) << sid;
    QTest::newRow("other stream version") << file(22, 1, {good}) << none;
    QTest::newRow("unknown type name")
        << iniWithStoredList(variantStream(listStream(23, 1, {good}), "QList<QNetworkCookiX>")) << none;
    QTest::newRow("count beyond the content") << file(23, 5, {good}) << sid;
    QTest::newRow("huge count, no content") << file(23, 0x7fffffff, {}) << none;
    QTest::newRow("negative count") << file(23, -1, {good}) << none;
    QByteArray pastTheEnd;
    QDataStream(&pastTheEnd, QIODevice::WriteOnly) << qint32(23) << qint32(1) << quint32(0x7ffffff0);
    QTest::newRow("byte array longer than the stream") << iniWithStoredList(variantStream(pastTheEnd + "abc"))
                                                       << none;
    QByteArray cutInSecond = listStream(23, 2, {good, good});
    cutInSecond.chop(good.size() / 2);
    QTest::newRow("stream cut inside a cookie") << iniWithStoredList(variantStream(cutInSecond)) << sid;
    QByteArray cutText = file(23, 1, {good});
    QTest::newRow("text cut inside the list") << cutText.left(cutText.size() / 2) << none;
    QTest::newRow("unparsable raw cookie") << file(23, 2, {"garbage", good}) << sid;
    QTest::newRow("value not a cyphertext") << file(23, 1, {"sid=plain; path=/; domain=127.0.0.1"})
                                            << QStringList(QStringLiteral("sid="));
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary += char((i * 7919) % 251);
    QTest::newRow("not an INI: binary") << binary << none;
    QTest::newRow("empty file") << QByteArray() << none;
}

void TestCookieJar::badFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, loaded);

    QSettings().setValue(QStringLiteral("show-low-bat-alerts"), QStringLiteral("0"));
    writeFile(cookieFile(), content);
    {
        CookieJar jar;
        QCOMPARE(pairsOf(jar.cookiesForUrl(siteUrl)), loaded);
    }
    checkJarRecovers();
    // A damaged cookie file must cost the user none of their other settings.
    QCOMPARE(QSettings().value(QStringLiteral("show-low-bat-alerts")).toString(), QStringLiteral("0"));
}

void TestCookieJar::setters_data()
{
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("saved");

    const QStringList hosts({QStringLiteral("z.example"), QStringLiteral("a.example")});
    QTest::newRow("accept policy unchanged")
        << QByteArray("acceptPolicy") << QVariant(int(CookieJar::AcceptOnlyFromSitesNavigatedTo)) << false;
    QTest::newRow("accept policy changed") << QByteArray("acceptPolicy") << QVariant(int(CookieJar::AcceptNever))
                                           << true;
    QTest::newRow("keep policy changed")
        << QByteArray("keepPolicy") << QVariant(int(CookieJar::KeepUntilTimeLimit)) << true;
    QTest::newRow("blocked hosts") << QByteArray("blockedCookies") << QVariant(hosts) << true;
    QTest::newRow("session hosts") << QByteArray("allowForSessionCookies") << QVariant(hosts) << true;
    QTest::newRow("empty list still saves") << QByteArray("allowedCookies") << QVariant(QStringList()) << true;
}

void TestCookieJar::setters()
{
    QFETCH(QByteArray, property);
    QFETCH(QVariant, value);
    QFETCH(bool, saved);

    {
        CookieJar jar;
        QVERIFY(jar.setProperty(property.constData(), value));
        QStringList sorted = value.toStringList();
        sorted.sort();
        if (value.type() == QVariant::StringList)
            QCOMPARE(jar.property(property.constData()).toStringList(), sorted);
    } // a pending save is written on destruction

    QCOMPARE(QFile::exists(cookieFile()), saved);
    if (!saved)
        return;
    // Written to the "cookies" group as names, never read back from there.
    QSettings settings;
    QCOMPARE(settings.value(QStringLiteral("cookies/acceptCookies")).toString(),
             property == "acceptPolicy" ? QStringLiteral("AcceptNever")
                                        : QStringLiteral("AcceptOnlyFromSitesNavigatedTo"));
    QCOMPARE(settings.value(QStringLiteral("cookies/keepCookiesUntil")).toString(),
             property == "keepPolicy" ? QStringLiteral("KeepUntilTimeLimit") : QStringLiteral("KeepUntilExpire"));
    CookieJar reloaded;
    QCOMPARE(reloaded.acceptPolicy(), CookieJar::AcceptOnlyFromSitesNavigatedTo);
    QCOMPARE(reloaded.keepPolicy(), CookieJar::KeepUntilExpire);
}

void TestCookieJar::acceptance_data()
{
    QTest::addColumn<int>("policy");
    QTest::addColumn<QStringList>("block");
    QTest::addColumn<QStringList>("allow");
    QTest::addColumn<QStringList>("allowSession");
    QTest::addColumn<QString>("cookieDomain");
    QTest::addColumn<bool>("stored");

    const int always = CookieJar::AcceptAlways;
    const int never = CookieJar::AcceptNever;
    const int visited = CookieJar::AcceptOnlyFromSitesNavigatedTo;
    const QStringList none;
    const QStringList site({QStringLiteral("www.example.com")});
    const QStringList parent({QStringLiteral("example.com")});
    const QString foreign = QStringLiteral(".other.org");

    QTest::newRow("default, own host") << visited << none << none << none << QString() << true;
    QTest::newRow("always, blocked host") << always << site << none << none << QString() << false;
    QTest::newRow("default, blocked parent only") << visited << parent << none << none << QString() << true;
    QTest::newRow("never") << never << none << none << none << QString() << false;
    QTest::newRow("never, allowed host") << never << none << site << none << QString() << true;
    QTest::newRow("never, session host") << never << none << none << site << QString() << true;
    QTest::newRow("never, allowed parent only") << never << none << parent << none << QString() << false;
    QTest::newRow("never, allowed and blocked") << never << site << site << none << QString() << true;
    QTest::newRow("always, foreign domain forced in") << always << none << none << none << foreign << true;
    QTest::newRow("default, foreign domain") << visited << none << none << none << foreign << false;
}

void TestCookieJar::acceptance()
{
    QFETCH(int, policy);
    QFETCH(QStringList, block);
    QFETCH(QStringList, allow);
    QFETCH(QStringList, allowSession);
    QFETCH(QString, cookieDomain);
    QFETCH(bool, stored);

    CookieJar jar;
    jar.setAcceptPolicy(CookieJar::AcceptPolicy(policy));
    jar.setBlockedCookies(block);
    jar.setAllowedCookies(allow);
    jar.setAllowForSessionCookies(allowSession);
    QSignalSpy changed(&jar, &CookieJar::cookiesChanged);
    const QUrl url(QStringLiteral("http://www.example.com/page"));
    QCOMPARE(jar.setCookiesFromUrl({makeCookie("name", "value", 5, cookieDomain)}, url), stored);
    QCOMPARE(changed.count(), stored ? 1 : 0);
    QCOMPARE(CookieModel(&jar).rowCount(), stored ? 1 : 0);
}

void TestCookieJar::keepPolicyExpiry_data()
{
    QTest::addColumn<int>("policy");
    QTest::addColumn<int>("expiresInDays");
    QTest::addColumn<int>("keptDays");

    QTest::newRow("until expire, far") << int(CookieJar::KeepUntilExpire) << 200 << 200;
    QTest::newRow("time limit, far") << int(CookieJar::KeepUntilTimeLimit) << 200 << 90;
    QTest::newRow("time limit, near") << int(CookieJar::KeepUntilTimeLimit) << 10 << 10;
    QTest::newRow("time limit, session") << int(CookieJar::KeepUntilTimeLimit) << 0 << 0;
}

void TestCookieJar::keepPolicyExpiry()
{
    QFETCH(int, policy);
    QFETCH(int, expiresInDays);
    QFETCH(int, keptDays);

    CookieJar jar;
    jar.setKeepPolicy(CookieJar::KeepPolicy(policy));
    QVERIFY(jar.setCookiesFromUrl({makeCookie("name", "value", expiresInDays)}, siteUrl));
    const QNetworkCookie kept = jar.cookiesForUrl(siteUrl).value(0);
    QCOMPARE(kept.isSessionCookie(), keptDays == 0);
    const qint64 expected = QDateTime::currentDateTimeUtc().addDays(keptDays).toSecsSinceEpoch();
    QVERIFY(keptDays == 0 || qAbs(kept.expirationDate().toSecsSinceEpoch() - expected) < 60);
}

void TestCookieJar::loadSettings_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("accept");
    QTest::addColumn<QString>("keep");
    QTest::addColumn<int>("expectedAccept");
    QTest::addColumn<int>("expectedKeep");

    const int visited = CookieJar::AcceptOnlyFromSitesNavigatedTo;
    const int expire = CookieJar::KeepUntilExpire;
    QTest::newRow("nothing stored") << QString() << QString() << QString() << visited << expire;
    QTest::newRow("digest group") << cookiesKey << QStringLiteral("AcceptAlways")
                                  << QStringLiteral("KeepUntilTimeLimit") << int(CookieJar::AcceptAlways)
                                  << int(CookieJar::KeepUntilTimeLimit);
    QTest::newRow("numbers are not names") << cookiesKey << QStringLiteral("1") << QStringLiteral("2") << visited
                                           << expire;
    QTest::newRow("group written by save is not read") << QStringLiteral("cookies") << QStringLiteral("AcceptNever")
                                                        << QStringLiteral("KeepUntilExit") << visited << expire;
    QTest::newRow("keep until exit empties the jar") << cookiesKey << QStringLiteral("AcceptNever")
                                                     << QStringLiteral("KeepUntilExit") << int(CookieJar::AcceptNever)
                                                     << int(CookieJar::KeepUntilExit);
}

void TestCookieJar::loadSettings()
{
    QFETCH(QString, group);
    QFETCH(QString, accept);
    QFETCH(QString, keep);
    QFETCH(int, expectedAccept);
    QFETCH(int, expectedKeep);

    writeFile(cookieFile(), iniWithStoredList(variantStream(listStream(23, 1, {storedRaw("sid", "v")}))));
    if (!group.isEmpty()) {
        QSettings settings;
        settings.setValue(group + QStringLiteral("/acceptCookies"), accept);
        settings.setValue(group + QStringLiteral("/keepCookiesUntil"), keep);
    }
    CookieJar jar;
    QCOMPARE(int(jar.acceptPolicy()), expectedAccept);
    QCOMPARE(int(jar.keepPolicy()), expectedKeep);
    QCOMPARE(jar.cookiesForUrl(siteUrl).size(), expectedKeep == CookieJar::KeepUntilExit ? 0 : 1);
}

void TestCookieJar::keepUntilExitEmptiesFileOnExit()
{
    QSettings().setValue(cookiesKey + QStringLiteral("/keepCookiesUntil"), QStringLiteral("KeepUntilExit"));
    {
        CookieJar jar;
        QVERIFY(jar.setCookiesFromUrl({makeCookie("name", "value", 5)}, siteUrl));
        QCOMPARE(jar.cookiesForUrl(siteUrl).size(), 1);
    }
    QSettings().remove(cookiesKey);
    QVERIFY(CookieJar().cookiesForUrl(siteUrl).isEmpty());
    QVERIFY(QFile::exists(cookieFile()));
}

void TestCookieJar::privateBrowsing()
{
    CookieJar jar;
    QVERIFY(jar.setCookiesFromUrl({makeCookie("before", "1", 5)}, siteUrl));
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, true);
    QVERIFY(jar.cookiesForUrl(siteUrl).isEmpty());
    QVERIFY(!jar.setCookiesFromUrl({makeCookie("during", "2", 5)}, siteUrl));
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, false);
    QCOMPARE(pairsOf(jar.cookiesForUrl(siteUrl)), QStringList(QStringLiteral("before=1")));
}

void TestCookieJar::savePurgesBeforeWriting()
{
    CookieJar jar;
    // Only the accept-always rule lets an already expired cookie into the jar.
    jar.setAcceptPolicy(CookieJar::AcceptAlways);
    QVERIFY(jar.setCookiesFromUrl({makeCookie("live", "1", 5), makeCookie("dead", "2", -1)}, siteUrl));
    CookieModel model(&jar);
    QCOMPARE(model.rowCount(), 2);
    QList<bool> fileExistedAtSignal;
    connect(&jar, &CookieJar::cookiesChanged, this,
            [&fileExistedAtSignal] { fileExistedAtSignal << QFile::exists(cookieFile()); });
    saveNow(&jar);
    QCOMPARE(fileExistedAtSignal, QList<bool>({false}));
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(pairsOf(CookieJar().cookiesForUrl(siteUrl)), QStringList(QStringLiteral("live=1")));
}

void TestCookieJar::autoSaverTiming_data()
{
    QTest::addColumn<int>("changeIntervalMs");
    QTest::addColumn<bool>("insideChange");

    // One change is saved by the timer; a steady stream of changes must still be saved, from a change.
    QTest::newRow("single change") << 0 << false;
    QTest::newRow("steady stream") << 400 << true;
}

void TestCookieJar::autoSaverTiming()
{
    QFETCH(int, changeIntervalMs);
    QFETCH(bool, insideChange);

    SaveRecorder recorder;
    auto* saver = new AutoSaver(&recorder);
    auto change = [&recorder, saver] {
        recorder.inChange = true;
        saver->changeOccurred();
        recorder.inChange = false;
    };
    QTimer stream;
    connect(&stream, &QTimer::timeout, this, change);
    if (changeIntervalMs > 0)
        stream.start(changeIntervalMs);
    change();
    QTRY_COMPARE_WITH_TIMEOUT(recorder.savedInsideChange.size(), 1, 10000);
    stream.stop();
    QCOMPARE(recorder.savedInsideChange.value(0), insideChange);
    saver->saveIfNecessary(); // nothing pending
    QCOMPARE(recorder.savedInsideChange.size(), 1);
}

void TestCookieJar::cookieModel()
{
    CookieJar jar;
    QNetworkCookie secure = makeCookie("second", "two", 3);
    secure.setSecure(true);
    QVERIFY(jar.setCookiesFromUrl({makeCookie("first", "one", 3), secure, makeCookie("third", "three")}, siteUrl));

    CookieModel model(&jar);
    QCOMPARE(model.rowCount(), 3);
    int row = 0;
    while (row < model.rowCount() && model.index(row, CookieModel::NameColumn).data().toByteArray() != "second")
        ++row;
    QCOMPARE(model.index(row, CookieModel::WebsiteColumn).data().toString(), QStringLiteral("127.0.0.1"));
    QCOMPARE(model.index(row, CookieModel::SecureColumn).data().toBool(), true);
    QCOMPARE(model.index(row, CookieModel::ExpiresColumn).data().toDateTime(), secure.expirationDate());
    QCOMPARE(model.index(row, CookieModel::ContentsColumn).data().toByteArray(), QByteArray("two"));

    QVERIFY(!model.removeRows(2, 2));
    QVERIFY(model.removeRows(0, 2));
    QCOMPARE(jar.cookiesForUrl(siteUrl).size(), 1);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    jar.clear();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(model.rowCount(), 0);
}

QTEST_MAIN(TestCookieJar)

#include "tst_cookiejar.moc"
