// The local development service host: its routes, the session cookie, the demo event channel and
// the site it ships with, which the client's pages depend on.
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QSslKey>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "devhost.h"
#include "httpserver.h"

namespace {

const QString host = QStringLiteral("127.0.0.1:9876");

HttpServer::Request makeRequest(const QByteArray& method, const QString& path, const QByteArray& cookie = QByteArray(),
                                const QByteArray& body = QByteArray())
{
    HttpServer::Request request;
    request.method = method;
    request.path = path;
    request.version = "HTTP/1.1";
    if (!cookie.isNull())
        request.headers.append(qMakePair(QByteArray("Cookie"), cookie));
    request.body = body;
    return request;
}

QByteArray header(const HttpServer::Reply& reply, const QByteArray& name)
{
    for (const auto& h : reply.headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

class TestDevHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void routes_data();
    void routes();
    void signInCookieLastsAndSignOutEndsIt();
    void events_data();
    void events();
    void eventQueueDropsOldestBeyondItsLimit();
    void servesOverTheSharedServer_data();
    void servesOverTheSharedServer();
    void shippedSiteKeepsThePageContract_data();
    void shippedSiteKeepsThePageContract();
    void shippedDocumentsAreUsable();

private:
    QTemporaryDir mSite;
};

void TestDevHost::initTestCase()
{
    QVERIFY(mSite.isValid());
    const QString root = mSite.path();
    QVERIFY(writeFile(root + "/signin.html", "<form action=\"/signin\" method=\"post\"></form>"));
    QVERIFY(writeFile(root + "/main.html", "<h1>@USER_NAME@ at @SERVICE_HOST@</h1>"));
    QVERIFY(writeFile(root + "/signout.html", "signing out"));
    QVERIFY(writeFile(root + "/signout-next.html", "signed out"));
    QVERIFY(writeFile(root + "/doc/data.json", "{\"url\": \"http://@SERVICE_HOST@/x\"}"));
    // A binary file that happens to hold the placeholder must reach the client byte for byte.
    QVERIFY(writeFile(root + "/media/pic.png", QByteArray("\x89PNG@SERVICE_HOST@") + QByteArray(2, '\0')));
    QVERIFY(writeFile(root + "/media/50% off.txt", "sale"));
    // Outside the site: nothing may reach it.
    QVERIFY(writeFile(mSite.path() + "-secret.txt", "secret"));
}

void TestDevHost::cleanupTestCase()
{
    QFile::remove(mSite.path() + "-secret.txt");
}

void TestDevHost::routes_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("cookie");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QByteArray>("bodyContains");
    QTest::addColumn<QByteArray>("contentType");

    const QByteArray none;
    QTest::newRow("root goes to sign-in") << QByteArray("GET") << "/" << none << none << 302 << QByteArray("/signin") << none << none;
    QTest::newRow("sign-in page while signed out") << QByteArray("GET") << "/signin" << none << none << 200 << none
        << QByteArray("action=\"/signin\"") << QByteArray("text/html; charset=utf-8");
    QTest::newRow("sign-in with a session goes on") << QByteArray("GET") << "/signin" << QByteArray("kg_session=Ann") << none
        << 302 << QByteArray("/main.html") << none << none;
    QTest::newRow("session among other cookies") << QByteArray("GET") << "/signin?x=1" << QByteArray("a=1; kg_session=Ann; b=2")
        << none << 302 << QByteArray("/main.html") << none << none;
    QTest::newRow("empty session is signed out") << QByteArray("GET") << "/signin" << QByteArray("kg_session=") << none
        << 200 << none << QByteArray("action=") << none;
    QTest::newRow("look-alike cookie is signed out") << QByteArray("GET") << "/signin" << QByteArray("old_kg_session=Ann")
        << none << 200 << none << QByteArray("action=") << none;
    QTest::newRow("messenger needs a session") << QByteArray("GET") << "/main.html" << none << none << 302
        << QByteArray("/signin") << none << none;
    QTest::newRow("messenger names the user, escaped") << QByteArray("GET") << "/main.html"
        << QByteArray("kg_session=%3Cb%3EAnn") << none << 200 << none << QByteArray("<h1>&lt;b&gt;Ann at 127.0.0.1:9876</h1>") << none;
    QTest::newRow("messenger through a detour needs a session") << QByteArray("GET") << "/media/../main.html" << none
        << none << 302 << QByteArray("/signin") << none << none;
    QTest::newRow("messenger through an encoded detour") << QByteArray("GET") << "/media/%2e%2e/main.html" << none
        << none << 302 << QByteArray("/signin") << none << none;
    QTest::newRow("documents name the service host") << QByteArray("GET") << "/doc/data.json?t=5" << none << none << 200
        << none << QByteArray("http://127.0.0.1:9876/x") << QByteArray("application/json; charset=utf-8");
    QTest::newRow("binary files are left alone") << QByteArray("GET") << "/media/pic.png" << none << none << 200 << none
        << QByteArray("PNG@SERVICE_HOST@") << QByteArray("image/png");
    QTest::newRow("percent-encoded file name") << QByteArray("GET") << "/media/50%25%20off.txt" << none << none << 200
        << none << QByteArray("sale") << none;
    QTest::newRow("climbing out of the site") << QByteArray("GET") << "/../" + QFileInfo(mSite.path()).fileName() + "-secret.txt"
        << none << none << 404 << none << none << none;
    QTest::newRow("encoded climb") << QByteArray("GET") << "/%2e%2e/" + QFileInfo(mSite.path()).fileName() + "-secret.txt"
        << none << none << 404 << none << none << none;
    QTest::newRow("backslash path") << QByteArray("GET") << "/media%5Cpic.png" << none << none << 404 << none << none << none;
    QTest::newRow("POST to a file is refused") << QByteArray("POST") << "/main.html" << QByteArray("kg_session=Ann")
        << QByteArray("x") << 405 << none << none << none;
}

void TestDevHost::routes()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, cookie);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    QFETCH(QByteArray, bodyContains);
    QFETCH(QByteArray, contentType);

    DevHost devHost(mSite.path(), host);
    const HttpServer::Reply reply = devHost.handle(makeRequest(method, path, cookie, body));
    QCOMPARE(reply.status, status);
    QCOMPARE(header(reply, "Location"), location);
    if (!bodyContains.isEmpty())
        QVERIFY2(reply.body.contains(bodyContains), reply.body.constData());
    if (!contentType.isEmpty())
        QCOMPARE(header(reply, "Content-Type"), contentType);
    if (status != 404)
        QVERIFY(!reply.body.contains("secret"));
}

void TestDevHost::signInCookieLastsAndSignOutEndsIt()
{
    DevHost devHost(mSite.path(), host);
    const HttpServer::Reply signedIn =
        devHost.handle(makeRequest("POST", "/signin", QByteArray(), "name=Ann+B%C3%B6&password=x"));
    QCOMPARE(signedIn.status, 303);
    QCOMPARE(header(signedIn, "Location"), QByteArray("/main.html"));

    // The client keeps only cookies with an expiry across restarts.
    const QList<QNetworkCookie> cookies = QNetworkCookie::parseCookies(header(signedIn, "Set-Cookie"));
    QCOMPARE(cookies.size(), 1);
    QCOMPARE(cookies.first().name(), DevHost::sessionCookieName);
    QVERIFY(!cookies.first().isSessionCookie());
    QVERIFY(cookies.first().expirationDate() > QDateTime::currentDateTimeUtc().addDays(DevHost::sessionDays - 1));
    QCOMPARE(cookies.first().path(), QStringLiteral("/"));

    // The cookie, sent back as a client sends it, names the user.
    const QByteArray sent = cookies.first().toRawForm(QNetworkCookie::NameAndValueOnly);
    QCOMPARE(DevHost::sessionUser(makeRequest("GET", "/main.html", sent)), QStringLiteral("Ann Bö"));


    const HttpServer::Reply signedOut = devHost.handle(
        makeRequest("GET", "/signout?continue_web=http%3A%2F%2F127.0.0.1%3A9876%2Fsignout-next", sent));
    QCOMPARE(signedOut.status, 200);
    const QList<QNetworkCookie> cleared = QNetworkCookie::parseCookies(header(signedOut, "Set-Cookie"));
    QCOMPARE(cleared.size(), 1);
    QCOMPARE(cleared.first().name(), DevHost::sessionCookieName);
    QVERIFY(cleared.first().value().isEmpty());
    QVERIFY(cleared.first().expirationDate() < QDateTime::currentDateTimeUtc());
}

void TestDevHost::events_data()
{
    QTest::addColumn<QByteArray>("pushed");
    QTest::addColumn<int>("pushStatus");
    QTest::addColumn<QStringList>("forSignIn");
    QTest::addColumn<QStringList>("forMain");

    QTest::newRow("one text") << QByteArray(R"({"type":"text","text":"hi"})") << 200 << QStringList()
                              << QStringList{"text"};
    QTest::newRow("sign-in goes to the sign-in page only")
        << QByteArray(R"([{"type":"signin"},{"type":"battery","level":45},{"type":"text"}])") << 200
        << QStringList{"signin"} << QStringList{"battery", "text"};
    QTest::newRow("malformed JSON") << QByteArray("{\"type\":") << 400 << QStringList() << QStringList();
    QTest::newRow("an event without a type spoils the whole batch")
        << QByteArray(R"([{"type":"text"},{"level":45}])") << 400 << QStringList() << QStringList();
}

void TestDevHost::events()
{
    QFETCH(QByteArray, pushed);
    QFETCH(int, pushStatus);
    QFETCH(QStringList, forSignIn);
    QFETCH(QStringList, forMain);

    DevHost devHost(mSite.path(), host);
    QStringList woken;
    devHost.setEventsPushed([&woken](const QString& audience) { woken << audience; });
    QCOMPARE(devHost.handle(makeRequest("POST", "/demo/events", QByteArray(), pushed)).status, pushStatus);
    // The pages waiting for what came in are woken, each once.
    QStringList expectedWoken;
    if (!forMain.isEmpty())
        expectedWoken << "main";
    if (!forSignIn.isEmpty())
        expectedWoken << "signin";
    woken.sort();
    QCOMPARE(woken, expectedWoken);

    const auto typesFor = [&devHost](const QString& audience) {
        const HttpServer::Reply reply = devHost.handle(makeRequest("GET", "/demo/events?for=" + audience));
        // Held open (long poll) exactly when there is nothing to hand out.
        const bool empty = QJsonDocument::fromJson(reply.body).object().value("events").toArray().isEmpty();
        if (reply.heldOn.isEmpty() == empty)
            return QStringList{QStringLiteral("<held wrongly>")};
        QStringList types;
        qint64 lastId = 0;
        for (const QJsonValue& event : QJsonDocument::fromJson(reply.body).object().value("events").toArray()) {
            types << event.toObject().value("type").toString();
            const qint64 id = qint64(event.toObject().value("id").toDouble());
            if (id <= lastId)
                types << QStringLiteral("<ids out of order>");
            lastId = id;
        }
        return types;
    };
    QCOMPARE(typesFor("signin"), forSignIn);
    QCOMPARE(typesFor("main"), forMain);
    // Each event is delivered once.
    QCOMPARE(typesFor("signin"), QStringList());
    QCOMPARE(typesFor("main"), QStringList());
    QCOMPARE(devHost.handle(makeRequest("GET", "/demo/events?for=popup")).status, 400);
}

void TestDevHost::eventQueueDropsOldestBeyondItsLimit()
{
    DemoEventQueue queue;
    for (int i = 0; i < DemoEventQueue::maxPending + 10; ++i)
        queue.push(QStringLiteral("main"), QJsonObject{{"type", "text"}, {"n", i}});
    QCOMPARE(queue.pendingCount(), DemoEventQueue::maxPending);
    const QJsonArray taken = queue.take(QStringLiteral("main"));
    QCOMPARE(taken.size(), DemoEventQueue::maxPending);
    QCOMPARE(taken.first().toObject().value("n").toInt(), 10);
    QCOMPARE(taken.last().toObject().value("n").toInt(), DemoEventQueue::maxPending + 9);
}

void TestDevHost::servesOverTheSharedServer_data()
{
    QTest::addColumn<QStringList>("schemes");

    QTest::newRow("http") << QStringList{"http"};
#ifdef KESTRELGAP_DEVHOST_TLS
    QTest::newRow("https") << QStringList{"https"};
    QTest::newRow("both on one port, one after the other") << QStringList{"https", "http", "https"};
#endif
}

void TestDevHost::servesOverTheSharedServer()
{
    QFETCH(QStringList, schemes);

    DevHost devHost(mSite.path(), host);
    HttpServer server;
#ifdef KESTRELGAP_DEVHOST_TLS
    QFile certificateFile(QStringLiteral(KESTRELGAP_DEVHOST_TLS "/cert.pem"));
    QFile keyFile(QStringLiteral(KESTRELGAP_DEVHOST_TLS "/key.pem"));
    QVERIFY(certificateFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly));
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(&certificateFile, QSsl::Pem));
    configuration.setPrivateKey(QSslKey(&keyFile, QSsl::Ec, QSsl::Pem));
    server.setTlsConfiguration(configuration);
#endif
    server.setFallbackHandler([&devHost](const HttpServer::Request& request) { return devHost.handle(request); });
    QVERIFY(server.listen());

    QNetworkAccessManager manager;
    for (const QString& scheme : schemes) {
        QUrl url = server.url(QStringLiteral("/doc/data.json"));
        url.setScheme(scheme);
        QNetworkReply* reply = manager.get(QNetworkRequest(url));
        // Self-signed, as the client meets it; the client ignores every TLS error too.
        reply->ignoreSslErrors();
        QEventLoop loop;
        connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        QCOMPARE(reply->error(), QNetworkReply::NoError);
        QVERIFY(reply->readAll().contains("127.0.0.1:9876"));
        QCOMPARE(reply->attribute(QNetworkRequest::ConnectionEncryptedAttribute).toBool(), scheme == "https");
        reply->deleteLater();
    }
}

void TestDevHost::shippedSiteKeepsThePageContract_data()
{
    QTest::addColumn<QString>("page");
    QTest::addColumn<QString>("mustContain");

    // What the client calls in the messenger page, and what the page must call in the client.
    for (const char* function : {"nativeAppWindowComposeSingleMessageHelper", "userClickedSignOutHelper",
                                 "settingsOptionClickedHelper", "openPhoneLiveViewInNativeAppWindow",
                                 "informUserThatLoggingIsOnHelper", "processJSONFromNativeNotificationClickHelper",
                                 "genericNativeNotificationButtonClickedCallbackHelper"})
        QTest::newRow(function) << "main.html" << QStringLiteral("function %1(").arg(QLatin1String(function));
    QTest::newRow("_gaq") << "main.html" << "var _gaq = { push: function";
    QTest::newRow("_kmq") << "main.html" << "var _kmq = { push: function";
    QTest::newRow("announces sign-in") << "main.html" << R"(nativeCall("updateClientLoginStateForMenuItems", true))";
    QTest::newRow("announces sign-out") << "main.html" << R"(nativeCall("updateClientLoginStateForMenuItems", false))";
    QTest::newRow("sign-out returns through continue_web") << "main.html" << "/signout?continue_web=";
    QTest::newRow("sign-in posts its form") << "signin.html" << R"(method="post" action="/signin")";
}

void TestDevHost::shippedSiteKeepsThePageContract()
{
    QFETCH(QString, page);
    QFETCH(QString, mustContain);
    QFile file(QStringLiteral(KESTRELGAP_DEVHOST_SITE "/") + page);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    QVERIFY2(QString::fromUtf8(file.readAll()).contains(mustContain), qPrintable(mustContain));
}

void TestDevHost::shippedDocumentsAreUsable()
{
    DevHost devHost(QStringLiteral(KESTRELGAP_DEVHOST_SITE), host);

    const HttpServer::Reply urls = devHost.handle(makeRequest("GET", "/prod-assets/desktop-client/friendlyurls.json"));
    QCOMPARE(urls.status, 200);
    const QJsonArray entries = QJsonDocument::fromJson(urls.body).object().value("urls").toArray();
    QVERIFY(!entries.isEmpty());
    for (const QJsonValue& entry : entries) {
        // An empty fragment would let every link into the view.
        QVERIFY(!entry.toObject().value("url").toString().isEmpty());
    }

    const HttpServer::Reply version = devHost.handle(makeRequest("GET", "/prod-assets/desktop-client/versioncheck.json"));
    QCOMPARE(version.status, 200);
    const QJsonObject document = QJsonDocument::fromJson(version.body).object();
    QVERIFY(document.value("current_version_pc").isDouble());
    const QUrl installer(document.value("download_path_pc").toString());
    QCOMPARE(installer.authority(), host);
    // The update path downloads it from here: it must be served, and be a script that runs.
    const HttpServer::Reply download = devHost.handle(makeRequest("GET", installer.path()));
    QCOMPARE(download.status, 200);
    QVERIFY(download.body.startsWith("#!/bin/sh\n"));
    QVERIFY(QFileInfo(QStringLiteral(KESTRELGAP_DEVHOST_SITE) + installer.path()).isExecutable());

    const HttpServer::Reply redirectPage =
        devHost.handle(makeRequest("GET", "/prod-assets/desktop-client/desktop-client-redirect.html"));
    QCOMPARE(redirectPage.status, 200);
}

QTEST_GUILESS_MAIN(TestDevHost)
#include "tst_devhost.moc"
