// The development service host's own rules: what it serves to whom, and the session cookie that a
// sign-out deletes as the service does. The end-to-end test drives the rest through the real client.
#include <QtTest>

#include "devhost.h"

class TestDevHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void routes_data();
    void routes();

private:
    QTemporaryDir mTemp;
    const QString mSite = mTemp.filePath(QStringLiteral("site"));
};

void TestDevHost::initTestCase()
{
    const QList<QPair<QString, QByteArray>> files = {
        {mSite + "/signin.html", "<form action=\"/signin\" method=\"post\"></form>"},
        {mSite + "/signout.html", "signing out"},
        {mSite + "/main.html", "<h1>@USER_NAME@ at @SERVICE_HOST@</h1>"},
        {mSite + "/media/pic.png", "\x89PNG@SERVICE_HOST@"}, // left as it is
        {mSite + "/versioncheck.json", "{\"download_path_pc\": \"http://@SERVICE_HOST@/downloads/@UPDATE_INSTALLER@\"}"},
        {mSite + "/downloads/both.sh", "from the site"},
        {mTemp.filePath("downloads/both.sh"), "from the build"},
        {mTemp.filePath("downloads/demo.deb"), "!<arch>\ndebian-binary @SERVICE_HOST@"},
        {mTemp.filePath("secret.txt"), "secret"}, // beside the site: nothing may reach it
    };
    for (const auto& file : files) {
        QDir().mkpath(QFileInfo(file.first).path());
        QFile out(file.first);
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file.second) == file.second.size());
    }
}

void TestDevHost::routes_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("cookie");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QByteArray>("answer"); // in the body or the Set-Cookie header

    const QByteArray get("GET"), none;
    QTest::newRow("sign-in while signed out") << get << "/signin" << none << none << 200 << none << QByteArray("action=\"/signin\"");
    QTest::newRow("sign-in leaves a lasting session") << QByteArray("POST") << "/signin" << none << QByteArray("name=Ann+B%C3%B6&password=x")
        << 303 << QByteArray("/main.html") << QByteArray("kg_session=Ann%20B%C3%B6; Path=/; Expires=");
    QTest::newRow("session among other cookies") << get << "/signin?x=1" << QByteArray("a=1; kg_session=Ann; b=2") << none << 302 << QByteArray("/main.html") << none;
    QTest::newRow("empty session is signed out") << get << "/signin" << QByteArray("kg_session=") << none << 200 << none << QByteArray("action=");
    QTest::newRow("look-alike cookie is signed out") << get << "/signin" << QByteArray("old_kg_session=Ann") << none << 200 << none << QByteArray("action=");
    QTest::newRow("sign-out deletes the session") << get << "/signout?continue_web=http%3A%2F%2F127.0.0.1%3A9876%2Fx" << QByteArray("kg_session=Ann")
        << none << 200 << none << QByteArray("kg_session=; Path=/; Expires=Thu, 01 Jan 1970 00:00:00 GMT");
    QTest::newRow("messenger needs a session") << get << "/main.html" << none << none << 302 << QByteArray("/signin") << none;
    QTest::newRow("messenger names the user, escaped") << get << "/main.html" << QByteArray("kg_session=%3Cb%3EAnn") << none << 200 << none
        << QByteArray("<h1>&lt;b&gt;Ann at 127.0.0.1:9876</h1>");
    QTest::newRow("messenger through an encoded detour") << get << "/media/%2e%2e/main.html" << none << none << 302 << QByteArray("/signin") << none;
    QTest::newRow("binary files are left alone") << get << "/media/pic.png" << none << none << 200 << none << QByteArray("\x89PNG@SERVICE_HOST@");
    QTest::newRow("climbing out of the site") << get << "/../secret.txt" << none << none << 404 << none << none;
    QTest::newRow("encoded climb") << get << "/%2e%2e/secret.txt" << none << none << 404 << none << none;
    QTest::newRow("backslash path") << get << "/media%5Cpic.png" << none << none << 404 << none << none;
    QTest::newRow("the update named by the host") << get << "/versioncheck.json" << none << none << 200 << none
        << QByteArray("\"http://127.0.0.1:9876/downloads/demo.deb\"");
    QTest::newRow("package from the build's downloads") << get << "/downloads/demo.deb" << none << none << 200 << none
        << QByteArray("!<arch>\ndebian-binary @SERVICE_HOST@");
    QTest::newRow("the site's own download wins") << get << "/downloads/both.sh" << none << none << 200 << none << QByteArray("from the site");
    QTest::newRow("climbing out of the downloads") << get << "/downloads/%2e%2e/%2e%2e/secret.txt" << none << none << 404 << none << none;
    QTest::newRow("POST to a file is refused") << QByteArray("POST") << "/main.html" << QByteArray("kg_session=Ann") << QByteArray("x") << 405 << none << none;
}

void TestDevHost::routes()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, cookie);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    QFETCH(QByteArray, answer);
    HttpServer::Request request{method, path, "HTTP/1.1", {}, body};
    if (!cookie.isEmpty())
        request.headers.append({"Cookie", cookie});
    DevHost host(mSite, QStringLiteral("127.0.0.1:9876"));
    host.setDownloadsFolder(mTemp.filePath(QStringLiteral("downloads")));
    host.setUpdateInstaller(QStringLiteral("demo.deb"));
    const HttpServer::Reply reply = host.handle(request);
    QMap<QByteArray, QByteArray> headers;
    for (const auto& header : reply.headers)
        headers.insert(header.first.toLower(), header.second);
    QCOMPARE(reply.status, status);
    QCOMPARE(headers.value("location"), location);
    const QByteArray seen = reply.body + '\n' + headers.value("set-cookie");
    QVERIFY2(seen.contains(answer) && !seen.contains("secret"), seen.constData());
}

QTEST_GUILESS_MAIN(TestDevHost)
#include "tst_devhost.moc"
