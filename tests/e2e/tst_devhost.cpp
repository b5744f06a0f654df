// The development service host's own rules: what it serves to whom, and the session cookie that a
// sign-out deletes as the service does. The end-to-end test drives the rest through the real client.
#include <QNetworkCookie>
#include <QtTest>

#include "devhost.h"

namespace {

const QString host = QStringLiteral("127.0.0.1:9876");

HttpServer::Request request(const QByteArray& method, const QString& path, const QByteArray& cookie = {}, const QByteArray& body = {})
{
    HttpServer::Request request{method, path, "HTTP/1.1", {}, body};
    if (!cookie.isEmpty())
        request.headers.append({"Cookie", cookie});
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
    void routes_data();
    void routes();
    void signInCookieLastsAndSignOutEndsIt();

private:
    QTemporaryDir mTemp;
    const QString mSite = mTemp.filePath(QStringLiteral("site"));
};

void TestDevHost::initTestCase()
{
    QVERIFY(writeFile(mSite + QStringLiteral("/signin.html"), "<form action=\"/signin\" method=\"post\"></form>"));
    QVERIFY(writeFile(mSite + QStringLiteral("/signout.html"), "signing out"));
    QVERIFY(writeFile(mSite + QStringLiteral("/main.html"), "<h1>@USER_NAME@ at @SERVICE_HOST@</h1>"));
    QVERIFY(writeFile(mSite + QStringLiteral("/media/pic.png"), "\x89PNG@SERVICE_HOST@")); // left as it is
    // Beside the site: nothing may reach it.
    QVERIFY(writeFile(mTemp.filePath("secret.txt"), "secret"));
}

void TestDevHost::routes_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("cookie");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QByteArray>("body"); // contained in the answer

    QTest::newRow("sign-in while signed out") << QByteArray("GET") << "/signin" << QByteArray() << 200 << QByteArray() << QByteArray("action=\"/signin\"");
    QTest::newRow("session among other cookies") << QByteArray("GET") << "/signin?x=1" << QByteArray("a=1; kg_session=Ann; b=2") << 302 << QByteArray("/main.html") << QByteArray();
    QTest::newRow("empty session is signed out") << QByteArray("GET") << "/signin" << QByteArray("kg_session=") << 200 << QByteArray() << QByteArray("action=");
    QTest::newRow("look-alike cookie is signed out") << QByteArray("GET") << "/signin" << QByteArray("old_kg_session=Ann") << 200 << QByteArray() << QByteArray("action=");
    QTest::newRow("messenger needs a session") << QByteArray("GET") << "/main.html" << QByteArray() << 302 << QByteArray("/signin") << QByteArray();
    QTest::newRow("messenger names the user, escaped") << QByteArray("GET") << "/main.html" << QByteArray("kg_session=%3Cb%3EAnn") << 200 << QByteArray() << QByteArray("<h1>&lt;b&gt;Ann at 127.0.0.1:9876</h1>");
    QTest::newRow("messenger through an encoded detour") << QByteArray("GET") << "/media/%2e%2e/main.html" << QByteArray() << 302 << QByteArray("/signin") << QByteArray();
    QTest::newRow("binary files are left alone") << QByteArray("GET") << "/media/pic.png" << QByteArray() << 200 << QByteArray() << QByteArray("\x89PNG@SERVICE_HOST@");
    QTest::newRow("climbing out of the site") << QByteArray("GET") << "/../secret.txt" << QByteArray() << 404 << QByteArray() << QByteArray();
    QTest::newRow("encoded climb") << QByteArray("GET") << "/%2e%2e/secret.txt" << QByteArray() << 404 << QByteArray() << QByteArray();
    QTest::newRow("backslash path") << QByteArray("GET") << "/media%5Cpic.png" << QByteArray() << 404 << QByteArray() << QByteArray();
    QTest::newRow("POST to a file is refused") << QByteArray("POST") << "/main.html" << QByteArray("kg_session=Ann") << 405 << QByteArray() << QByteArray();
}

void TestDevHost::routes()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, cookie);
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    QFETCH(QByteArray, body);
    const HttpServer::Reply reply = DevHost(mSite, host).handle(request(method, path, cookie));
    QCOMPARE(reply.status, status);
    QCOMPARE(header(reply, "Location"), location);
    QVERIFY2(reply.body.contains(body) && !reply.body.contains("secret"), reply.body.constData());
}

void TestDevHost::signInCookieLastsAndSignOutEndsIt()
{
    DevHost devHost(mSite, host);
    const HttpServer::Reply signedIn = devHost.handle(request("POST", "/signin", {}, "name=Ann+B%C3%B6&password=x"));
    QCOMPARE(signedIn.status, 303);
    QCOMPARE(header(signedIn, "Location"), QByteArray("/main.html"));
    // The client keeps only cookies with an expiry across restarts.
    const QList<QNetworkCookie> cookies = QNetworkCookie::parseCookies(header(signedIn, "Set-Cookie"));
    QCOMPARE(cookies.size(), 1);
    QVERIFY(cookies.first().expirationDate() > QDateTime::currentDateTimeUtc().addDays(29));
    QCOMPARE(cookies.first().path(), QStringLiteral("/"));
    const QByteArray sent = cookies.first().toRawForm(QNetworkCookie::NameAndValueOnly);
    QCOMPARE(DevHost::sessionUser(request("GET", "/main.html", sent)), QStringLiteral("Ann Bö"));

    // Sign-out deletes it as a service does: same name, empty, expired.
    const HttpServer::Reply signedOut = devHost.handle(request("GET", "/signout?continue_web=http%3A%2F%2F127.0.0.1%3A9876%2Fx", sent));
    QCOMPARE(signedOut.status, 200);
    const QList<QNetworkCookie> cleared = QNetworkCookie::parseCookies(header(signedOut, "Set-Cookie"));
    QCOMPARE(cleared.size(), 1);
    QCOMPARE(cleared.first().name(), cookies.first().name());
    QVERIFY(cleared.first().value().isEmpty() && cleared.first().expirationDate() < QDateTime::currentDateTimeUtc());
}

QTEST_GUILESS_MAIN(TestDevHost)
#include "tst_devhost.moc"
