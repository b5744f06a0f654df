#include <QtTest>

#include <QGraphicsWebView>
#include <QNetworkCookie>
#include <QSettings>
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
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + "/c.ini";
}

QNetworkCookie makeCookie(const QByteArray& name, const QByteArray& value, int expiresInDays = 0)
{
    QNetworkCookie cookie(name, value);
    cookie.setPath("/");
    if (expiresInDays != 0)
        cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(expiresInDays));
    return cookie;
}

// The list as it lies in the file, built by hand: stream version, count, raw cookies with enciphered values.
QByteArray storedFile(qint32 version, qint32 count, const QList<QByteArray>& raws,
    const char* typeName = "QList<QNetworkCookie>", const QByteArray& tail = QByteArray())
{
    QByteArray variant;
    QDataStream stream(&variant, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_4_0);
    // A QVariant of a user type as QSettings streams it: old user type id 127, the type name, the data.
    stream << quint32(127) << typeName << version << count;
    for (const QByteArray& raw : raws)
        stream << raw;
    QByteArray escaped;
    for (const char byte : variant + tail)
        escaped += "\\x" + QByteArray::number(uchar(byte), 16);
    return "[General]\n" + cookiesKey.toLatin1() + "=@Variant(" + escaped + ")\n";
}

QByteArray storedRaw(const QByteArray& name, const QByteArray& value)
{
    QNetworkCookie cookie = makeCookie(name, encryptSharedText(QString::fromLatin1(value.toBase64())).toUtf8(), 30);
    cookie.setDomain("127.0.0.1");
    return cookie.toRawForm(QNetworkCookie::Full);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& content)
{
    // QSettings reuses its parse of a file whose size and time look unchanged; each write gets a
    // time of its own, so the next jar reads what is on disk as a new start of the program would.
    static QDateTime stamp = QDateTime::currentDateTime();
    stamp = stamp.addSecs(1);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.flush();
    QVERIFY(file.setFileTime(stamp, QFileDevice::FileModificationTime));
}

void rereadAtNextJar()
{
    writeFile(cookieFile(), readFile(cookieFile()));
}

int permissionBits(const QString& path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

// "name=value" per cookie, in the jar's order.
QStringList pairsOf(const QList<QNetworkCookie>& cookies)
{
    QStringList pairs;
    for (const QNetworkCookie& cookie : cookies)
        pairs << QString::fromUtf8(cookie.name() + '=' + cookie.value());
    return pairs;
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
    void restartOfTheSurfaces_data();
    void restartOfTheSurfaces();
    void signInReachesPageOpenedWindow();
    void filePermissions();
    void badFile_data();
    void badFile();
    void acceptance_data();
    void acceptance();
    void keepPolicy_data();
    void keepPolicy();
    void policiesAtStart_data();
    void policiesAtStart();
    void privateBrowsing();
    void savePurgesExpired();
    void autoSaverTiming_data();
    void autoSaverTiming();
};

void TestCookieJar::initTestCase()
{
    SimpleCrypt::setUpShared();
}

void TestCookieJar::cleanup()
{
    QFile::remove(cookieFile());
    QSettings().remove(cookiesKey);
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, false);
}

void TestCookieJar::survivesRestart()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QNetworkCookie near = makeCookie("near", "n-value");
    near.setExpirationDate(now.addDays(30));
    QNetworkCookie far = makeCookie("far", "f-value");
    far.setExpirationDate(now.addYears(10));
    QNetworkCookie odd = makeCookie("odd", "s3cr\xc3\xa9t;value", 10);
    odd.setSecure(true);
    odd.setHttpOnly(true);
    {
        CookieJar jar;
        jar.setBlockedCookies({ "b.example", "a.example" });
        QVERIFY(jar.setCookiesFromUrl({ near, makeCookie("session", "gone"), far, odd }, siteUrl));
    } // a pending save is written on destruction
    QCOMPARE(permissionBits(cookieFile()), 0600);
    const QByteArray file = readFile(cookieFile());
    QVERIFY(!file.contains("n-value") && !file.contains("s3cr"));
    rereadAtNextJar();

    CookieJar next;
    QCOMPARE(next.blockedCookies(), QStringList({ "a.example", "b.example" }));
    QStringList restored;
    for (const QNetworkCookie& cookie : next.cookiesForUrl(QUrl("https://127.0.0.1/")))
        restored << QString::fromUtf8(cookie.toRawForm(QNetworkCookie::Full));
    restored.sort();
    // Expiry is kept to the second; the far one is not cut down under the default keep policy.
    QStringList expected;
    for (QNetworkCookie cookie : { far, near, odd }) {
        cookie.setDomain("127.0.0.1");
        cookie.setExpirationDate(QDateTime::fromSecsSinceEpoch(cookie.expirationDate().toSecsSinceEpoch(), Qt::UTC));
        expected << QString::fromUtf8(cookie.toRawForm(QNetworkCookie::Full));
    }
    QCOMPARE(restored, expected);
}

void TestCookieJar::restartOfTheSurfaces_data()
{
    QTest::addColumn<QStringList>("starts"); // per start of the program: "path script [popup]"
    QTest::addColumn<QString>("lastOutput");
    QTest::addColumn<QByteArray>("lastCookieHeader");

    const QString cookie = QStringLiteral("document.cookie");
    QTest::newRow("signed in stays signed in, popup too")
        << QStringList({ "/signin " + cookie, "/page " + cookie + " popup" })
        << "main sid=signed-in\npopup sid=signed-in\n" << QByteArray("sid=signed-in");
    QTest::newRow("sign-out sticks, popup too")
        << QStringList({ "/signin " + cookie, "/signout " + cookie, "/page " + cookie + " popup" })
        << "main \npopup \n" << QByteArray();
    // Set in the main view before a quit; read after the restart by the main view and by a popup.
    QTest::newRow("local storage kept and shared")
        << QStringList({ "/page localStorage.setItem('draft','hello')",
               "/page String(localStorage.getItem('draft')) popup" })
        << "main hello\npopup hello\n" << QByteArray();
}

void TestCookieJar::restartOfTheSurfaces()
{
    QFETCH(QStringList, starts);
    QFETCH(QString, lastOutput);
    QFETCH(QByteArray, lastCookieHeader);

    HttpServer server;
    QVERIFY(server.listen());
    server.serve("/signin", "<p>in</p>", "text/html", 200,
        { { "Set-Cookie", makeCookie("sid", "signed-in", 30).toRawForm() } });
    server.serve("/signout", "<p>out</p>", "text/html", 200,
        { { "Set-Cookie", makeCookie("sid", "", -1).toRawForm() } });
    server.serve("/page", "<p>page</p>", "text/html");

    QString output;
    for (const QString& start : starts) {
        QStringList arguments = start.split(' ');
        const bool popup = arguments.last() == QLatin1String("popup");
        if (popup)
            arguments.removeLast();
        const QString path = arguments.takeFirst();
        QStringList command = { server.url(path).toString(), arguments.join(' ') };
        if (popup)
            command << QStringLiteral("popup");
        QProcess program;
        program.start(QStringLiteral(SURFACE_CLIENT_PATH), command);
        QVERIFY2(program.waitForFinished(60000), "the program didn't quit");
        QCOMPARE(program.exitCode(), 0);
        output = QString::fromUtf8(program.readAllStandardOutput());
    }
    QCOMPARE(output, lastOutput);
    QCOMPARE(server.requestsFor("/page").last().header("Cookie"), lastCookieHeader);
}

void TestCookieJar::signInReachesPageOpenedWindow()
{
    HttpServer server;
    QVERIFY(server.listen());
    const QNetworkCookie sid = makeCookie("sid", "signed-in", 30);
    server.serve("/signin", "<p>in</p>", "text/html", 200, { { "Set-Cookie", sid.toRawForm() } });
    server.serve("/inbox", "<p>inbox</p>", "text/html");

    IndexWindow main;
    QWebPage* page = main.webView()->page();
    QSignalSpy loaded(page, &QWebPage::loadFinished);
    page->mainFrame()->load(server.url("/signin"));
    QVERIFY(loaded.wait(10000));
    // The windows share no jar object: the sign-in travels through the file once the main view saves.
    QTRY_VERIFY_WITH_TIMEOUT(readFile(cookieFile()).contains("sid="), 10000);

    const QWidgetList before = QApplication::topLevelWidgets();
    page->mainFrame()->evaluateJavaScript(QString("window.open('%1');").arg(server.url("/inbox").toString()));
    QTRY_COMPARE_WITH_TIMEOUT(server.requestsFor("/inbox").size(), 1, 10000);
    QCOMPARE(server.requestsFor("/inbox").value(0).header("Cookie"), QByteArray("sid=signed-in"));
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* view = qobject_cast<QWebView*>(widget); view && !before.contains(view)) {
            // A bare browser window: the native bridge is for the main page only.
            QCOMPARE(view->page()->mainFrame()->evaluateJavaScript("typeof qtIndexWindow").toString(),
                QStringLiteral("undefined"));
            view->close();
        }
    }
}

void TestCookieJar::filePermissions()
{
    writeFile(cookieFile(), storedFile(23, 1, { storedRaw("old", "v") }));
    QCOMPARE(::chmod(QFile::encodeName(cookieFile()).constData(), 0666), 0);
    const mode_t previous = ::umask(0);
    // QSettings replaces the file at each save, so the second save matters as much as the first.
    for (int save = 0; save < 2; ++save) {
        CookieJar jar;
        QVERIFY(jar.setCookiesFromUrl({ makeCookie("round", QByteArray::number(save), 5) }, siteUrl));
        QVERIFY(QMetaObject::invokeMethod(&jar, "save"));
        QCOMPARE(permissionBits(cookieFile()), 0600);
    }
    ::umask(previous);
}

void TestCookieJar::badFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("loaded");

    const QByteArray good = storedRaw("sid", "value-1");
    const QStringList sid("sid=value-1");
    QByteArray pastTheEnd;
    QDataStream(&pastTheEnd, QIODevice::WriteOnly) << quint32(0x7ffffff0);
    const QByteArray whole = storedFile(23, 1, { good });
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary += char((i * 7919) % 251);

    QTest::newRow("hand-built list") << whole << sid;
    QTest::newRow("other stream version") << storedFile(22, 1, { good }) << QStringList();
    QTest::newRow("unknown type name") << storedFile(23, 1, { good }, "QList<QNetworkCookiX>") << QStringList();
    QTest::newRow("count beyond the content") << storedFile(23, 5, { good }) << sid;
    QTest::newRow("huge count, no content") << storedFile(23, 0x7fffffff, {}) << QStringList();
    QTest::newRow("negative count") << storedFile(23, -1, { good }) << QStringList();
    const char* type = "QList<QNetworkCookie>";
    QTest::newRow("byte array longer than the stream") << storedFile(23, 1, {}, type, pastTheEnd + "abc")
                                                       << QStringList();
    QByteArray cut;
    QDataStream(&cut, QIODevice::WriteOnly) << quint32(good.size());
    QTest::newRow("stream cut inside a cookie") << storedFile(23, 2, { good }, type, cut + good.left(good.size() / 2))
                                                << sid;
    QTest::newRow("text cut inside the list") << whole.left(whole.size() / 2) << QStringList();
    QTest::newRow("unparsable raw cookie") << storedFile(23, 2, { "garbage", good }) << sid;
    QTest::newRow("value not a cyphertext") << storedFile(23, 1, { "sid=plain; path=/; domain=127.0.0.1" })
                                            << QStringList("sid=");
    QTest::newRow("not an INI: binary") << binary << QStringList();
    QTest::newRow("empty file") << QByteArray() << QStringList();
}

void TestCookieJar::badFile()
{
    QFETCH(QByteArray, content);

    QSettings().setValue("show-low-bat-alerts", "0");
    writeFile(cookieFile(), content);
    {
        CookieJar jar;
        QTEST(pairsOf(jar.cookiesForUrl(siteUrl)), "loaded");
        // The jar must still take a new cookie and keep it.
        QVERIFY(jar.setCookiesFromUrl({ makeCookie("fresh", "again", 5) }, siteUrl));
    }
    rereadAtNextJar();
    QVERIFY(pairsOf(CookieJar().cookiesForUrl(siteUrl)).contains("fresh=again"));
    // A damaged cookie file must cost the user none of their other settings.
    QCOMPARE(QSettings().value("show-low-bat-alerts").toString(), QStringLiteral("0"));
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
    const QStringList site("www.example.com");
    const QStringList parent("example.com");
    const QString foreign(".other.org");

    QTest::newRow("default, own host") << visited << none << none << none << QString() << true;
    QTest::newRow("always, blocked host") << always << site << none << none << QString() << false;
    QTest::newRow("default, blocked parent only") << visited << parent << none << none << QString() << true;
    QTest::newRow("never") << never << none << none << none << QString() << false;
    QTest::newRow("never, allowed host") << never << none << site << none << QString() << true;
    QTest::newRow("never, session host") << never << none << none << site << QString() << true;
    QTest::newRow("never, allowed parent only") << never << none << parent << none << QString() << false;
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
    QNetworkCookie cookie = makeCookie("name", "value", 5);
    cookie.setDomain(cookieDomain);
    QCOMPARE(jar.setCookiesFromUrl({ cookie }, QUrl("http://www.example.com/page")), stored);
    QCOMPARE(changed.count(), stored ? 1 : 0);
    QCOMPARE(CookieModel(&jar).rowCount(), stored ? 1 : 0);
}

void TestCookieJar::keepPolicy_data()
{
    QTest::addColumn<int>("policy");
    QTest::addColumn<int>("expiresInDays");
    QTest::addColumn<int>("keptDays"); // 0: a session cookie

    QTest::newRow("until expire, far") << int(CookieJar::KeepUntilExpire) << 200 << 200;
    QTest::newRow("time limit, far") << int(CookieJar::KeepUntilTimeLimit) << 200 << 90;
    QTest::newRow("time limit, near") << int(CookieJar::KeepUntilTimeLimit) << 10 << 10;
    QTest::newRow("time limit, session") << int(CookieJar::KeepUntilTimeLimit) << 0 << 0;
}

void TestCookieJar::keepPolicy()
{
    QFETCH(int, policy);
    QFETCH(int, expiresInDays);
    QFETCH(int, keptDays);

    CookieJar jar;
    jar.setKeepPolicy(CookieJar::KeepPolicy(policy));
    QVERIFY(jar.setCookiesFromUrl({ makeCookie("name", "value", expiresInDays) }, siteUrl));
    const QNetworkCookie kept = jar.cookiesForUrl(siteUrl).value(0);
    QCOMPARE(kept.isSessionCookie(), keptDays == 0);
    const qint64 expected = QDateTime::currentDateTimeUtc().addDays(keptDays).toSecsSinceEpoch();
    QVERIFY(keptDays == 0 || qAbs(kept.expirationDate().toSecsSinceEpoch() - expected) < 60);
}

void TestCookieJar::policiesAtStart_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("accept");
    QTest::addColumn<QString>("keep");
    QTest::addColumn<int>("expectedAccept");
    QTest::addColumn<int>("expectedKeep");

    const int visited = CookieJar::AcceptOnlyFromSitesNavigatedTo;
    const int expire = CookieJar::KeepUntilExpire;
    QTest::newRow("nothing stored") << QString() << QString() << QString() << visited << expire;
    QTest::newRow("digest group") << cookiesKey << "AcceptAlways" << "KeepUntilTimeLimit"
                                  << int(CookieJar::AcceptAlways) << int(CookieJar::KeepUntilTimeLimit);
    QTest::newRow("numbers are not names") << cookiesKey << "1" << "2" << visited << expire;
    // save() writes the policies there, but a changed policy must not outlive the run.
    QTest::newRow("group written by save is not read") << "cookies" << "AcceptNever" << "KeepUntilExit" << visited
                                                       << expire;
    QTest::newRow("keep until exit empties the jar") << cookiesKey << "AcceptNever" << "KeepUntilExit"
                                                     << int(CookieJar::AcceptNever) << int(CookieJar::KeepUntilExit);
}

void TestCookieJar::policiesAtStart()
{
    QFETCH(QString, group);
    QFETCH(QString, accept);
    QFETCH(QString, keep);
    QFETCH(int, expectedKeep);

    writeFile(cookieFile(), storedFile(23, 1, { storedRaw("sid", "v") }));
    QSettings settings;
    settings.remove("cookies");
    if (!group.isEmpty()) {
        settings.setValue(group + "/acceptCookies", accept);
        settings.setValue(group + "/keepCookiesUntil", keep);
    }
    const bool untilExit = expectedKeep == CookieJar::KeepUntilExit;
    {
        CookieJar jar;
        QTEST(int(jar.acceptPolicy()), "expectedAccept");
        QCOMPARE(int(jar.keepPolicy()), expectedKeep);
        QCOMPARE(jar.cookiesForUrl(siteUrl).size(), untilExit ? 0 : 1);
        QVERIFY(jar.setCookiesFromUrl({ makeCookie("name", "value", 5) }, siteUrl) || untilExit);
    }
    // Kept until exit: nothing is left in the file for the next start either.
    settings.remove(cookiesKey);
    rereadAtNextJar();
    QCOMPARE(CookieJar().cookiesForUrl(siteUrl).isEmpty(), untilExit);
}

void TestCookieJar::privateBrowsing()
{
    CookieJar jar;
    QVERIFY(jar.setCookiesFromUrl({ makeCookie("before", "1", 5) }, siteUrl));
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, true);
    QVERIFY(jar.cookiesForUrl(siteUrl).isEmpty());
    QVERIFY(!jar.setCookiesFromUrl({ makeCookie("during", "2", 5) }, siteUrl));
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PrivateBrowsingEnabled, false);
    QCOMPARE(pairsOf(jar.cookiesForUrl(siteUrl)), QStringList("before=1"));
}

void TestCookieJar::savePurgesExpired()
{
    CookieJar jar;
    // Only the accept-always rule lets an already expired cookie into the jar.
    jar.setAcceptPolicy(CookieJar::AcceptAlways);
    QVERIFY(jar.setCookiesFromUrl({ makeCookie("live", "1", 5), makeCookie("dead", "2", -1) }, siteUrl));
    CookieModel model(&jar);
    QCOMPARE(model.rowCount(), 2);
    QVERIFY(QMetaObject::invokeMethod(&jar, "save"));
    QCOMPARE(model.rowCount(), 1);
    rereadAtNextJar();
    QCOMPARE(pairsOf(CookieJar().cookiesForUrl(siteUrl)), QStringList("live=1"));
}

void TestCookieJar::autoSaverTiming_data()
{
    QTest::addColumn<int>("changeIntervalMs"); // 0: a single change
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

QTEST_MAIN(TestCookieJar)
#include "tst_cookiejar.moc"
