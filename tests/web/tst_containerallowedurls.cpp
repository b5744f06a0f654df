#include <QtTest>

#include <QNetworkAccessManager>

#include "core/servicehost.h"
#include "httpserver.h"
#include "updates/documentlimits.h"
#include "web/containerallowedurls.h"

namespace {

const QString documentPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

HttpServer::Reply jsonReply(const QByteArray& body, int status = 200)
{
    HttpServer::Reply reply;
    reply.status = status;
    reply.body = body;
    reply.headers << qMakePair(QByteArray("Content-Type"), QByteArray("application/json"));
    return reply;
}

} // namespace

class TestContainerAllowedUrls : public QObject {
    Q_OBJECT

    HttpServer mServer;

    // Fetches the list and waits until its reply has been handled; answers how often it said it loaded.
    int load(ContainerAllowedUrls& list, const HttpServer::Reply& reply)
    {
        mServer.setReply(documentPath, reply);
        // The list's manager is its child and reaches the list first: once this spy fires, it is handled.
        QSignalSpy finished(list.findChild<QNetworkAccessManager*>(), &QNetworkAccessManager::finished);
        QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
        list.loadObject();
        return finished.wait(10000) ? complete.count() : -1;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(mServer.listen());
        DocumentLimits::setTimeoutMsForTests(1500);
        ContainerAllowedUrls::setDocumentUrlForTests(mServer.url(documentPath));
        mServer.serve("/elsewhere.json", R"({"urls":[{"url":"unlisted"}]})", "application/json");
    }

    void decision_data()
    {
        QTest::addColumn<QString>("url"); // %SIGNIN%: the build's sign-in host
        QTest::addColumn<bool>("builtIn"); // allowed by the built-in entries alone
        QTest::addColumn<bool>("fetched"); // allowed once the served list is in

        QTest::newRow("sign-in page") << "https://%SIGNIN%/ServiceLogin?service=mail&continue=x" << true << true;
        QTest::newRow("sign-in path in capitals") << "https://%SIGNIN%/SERVICELOGIN" << false << false;
        QTest::newRow("other page of the sign-in host") << "https://%SIGNIN%/signin/v2/identifier" << false << false;
        // The served list: "kestrelgap.test/messages", "http://secure.test".
        QTest::newRow("listed host and path") << "http://kestrelgap.test/messages/42" << false << true;
        QTest::newRow("listed host, other path") << "http://kestrelgap.test/settings" << false << false;
        QTest::newRow("listed text inside a query")
            << "https://other.test/?r=kestrelgap.test/messages" << false << true;
        QTest::newRow("listed scheme, other scheme") << "https://secure.test/a" << false << false;
    }

    void decision()
    {
        QFETCH(QString, url);
        const QUrl target(url.replace("%SIGNIN%", ServiceHost::signInHost()));
        ContainerAllowedUrls list(nullptr);
        QTEST(list.isUrlAllowed(target), "builtIn");
        const QByteArray served = R"({"version":1,"urls":[{"url":"kestrelgap.test/messages"},)"
                                  R"({"url":"http://secure.test","note":"x"}]})";
        QCOMPARE(load(list, jsonReply(served)), 1);
        QTEST(list.isUrlAllowed(target), "fetched");
    }

    void fetchOutcome_data()
    {
        QTest::addColumn<HttpServer::Reply>("reply");
        QTest::addColumn<int>("signalled");
        QTest::addColumn<bool>("unlistedAllowed"); // afterwards

        const QByteArray list = R"({"urls":[{"url":"unlisted"}]})";
        QTest::newRow("malformed json") << jsonReply(R"({"urls":[{"url":"unlisted"})") << 1 << false;
        QTest::newRow("error status with a valid list") << jsonReply(list, 404) << 0 << false;
        // An empty text is found in every URL.
        QTest::newRow("entry without url") << jsonReply(R"({"urls":[{"link":"x"}]})") << 1 << true;
        HttpServer::Reply redirect;
        redirect.status = 302;
        redirect.headers << qMakePair(QByteArray("Location"), QByteArray("/elsewhere.json"));
        QTest::newRow("redirect is not followed") << redirect << 1 << false;
        HttpServer::Reply dropped = jsonReply(list);
        dropped.dropAfterBodyBytes = 5;
        QTest::newRow("connection dropped mid-body") << dropped << 0 << false;
        // Padded with blanks, which JSON allows: only the size decides.
        QTest::newRow("just under the cap") << jsonReply(list + QByteArray(200 * 1024, ' ')) << 1 << true;
        QTest::newRow("announced too long") << jsonReply(list + QByteArray(300 * 1024, ' ')) << 0 << false;
        HttpServer::Reply endless = jsonReply(list + QByteArray(4 * 1024 * 1024, ' '));
        endless.contentLength = false;
        endless.pieceSize = 64 * 1024;
        endless.pieceIntervalMs = 5;
        QTest::newRow("no end in sight") << endless << 0 << false;
        HttpServer::Reply silent = jsonReply(list);
        silent.delayAfterHeadersMs = -1;
        QTest::newRow("headers, then silence") << silent << 0 << false;
    }

    void fetchOutcome()
    {
        QFETCH(HttpServer::Reply, reply);
        const int before = mServer.requestsFor("/elsewhere.json").size();
        ContainerAllowedUrls list(nullptr);
        QTEST(load(list, reply), "signalled");
        QCOMPARE(mServer.requestsFor("/elsewhere.json").size(), before);
        QVERIFY(mServer.lastRequest().header("Cookie").isEmpty());
        QTEST(list.isUrlAllowed(QUrl("https://unlisted.example/page")), "unlistedAllowed");
        // Whatever came back, the built-in entries stay in force.
        QVERIFY(list.isUrlAllowed(QUrl("https://" + ServiceHost::signInHost() + "/ServiceLogin")));
    }
};

QTEST_GUILESS_MAIN(TestContainerAllowedUrls)
#include "tst_containerallowedurls.moc"
