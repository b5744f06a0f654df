#include <QtTest>

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <memory>

#include "core/servicehost.h"
#include "httpserver.h"
#include "updates/documentlimits.h"
#include "web/containerallowedurls.h"

namespace {

const QString documentPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

// "%SIGNIN%" stands for the sign-in host of the build, so the rows hold for any build setting.
QUrl makeUrl(QString text)
{
    text.replace("%SIGNIN_CAPS%", ServiceHost::signInHost().toUpper());
    return QUrl(text.replace("%SIGNIN%", ServiceHost::signInHost()));
}

HttpServer::Reply jsonReply(const QByteArray& body, int status = 200)
{
    HttpServer::Reply reply;
    reply.status = status;
    reply.body = body;
    reply.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    return reply;
}

} // namespace

class TestContainerAllowedUrls : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void decision_data();
    void decision();
    void fetchOutcome_data();
    void fetchOutcome();

private:
    // Starts the fetch and waits until its reply has been handled; returns how often the list said it loaded.
    int load(ContainerAllowedUrls& list);

    std::unique_ptr<HttpServer> mServer;
};

void TestContainerAllowedUrls::init()
{
    mServer.reset(new HttpServer);
    QVERIFY(mServer->listen());
    DocumentLimits::setTimeoutMsForTests(1500);
    ContainerAllowedUrls::setDocumentUrlForTests(mServer->url(documentPath));
}

void TestContainerAllowedUrls::cleanup()
{
    ContainerAllowedUrls::setDocumentUrlForTests(QUrl());
    mServer.reset();
}

int TestContainerAllowedUrls::load(ContainerAllowedUrls& list)
{
    // The list's manager is its child and reaches requestFinished first, so once this spy fires
    // the reply has been handled.
    auto* manager = list.findChild<QNetworkAccessManager*>();
    if (!manager)
        return -1;
    QSignalSpy finished(manager, &QNetworkAccessManager::finished);
    QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    list.loadObject();
    return finished.wait(5000) ? complete.count() : -1;
}

void TestContainerAllowedUrls::decision_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("builtIn"); // allowed by the built-in entries alone
    QTest::addColumn<bool>("fetched"); // allowed once the served list is in

    QTest::newRow("sign-in page") << "https://%SIGNIN%/ServiceLogin?service=mail&continue=x" << true << true;
    QTest::newRow("account chooser") << "https://%SIGNIN%/AccountChooser?Email=a%40b.c" << true << true;
    QTest::newRow("sign-in path in capitals") << "https://%SIGNIN%/SERVICELOGIN" << false << false;
    QTest::newRow("host in capitals is lowered by the URL") << "https://%SIGNIN_CAPS%/ServiceLogin" << true << true;
    QTest::newRow("other page of the sign-in host") << "https://%SIGNIN%/signin/v2/identifier" << false << false;
    QTest::newRow("built-in inside another host's query")
        << "https://www.example.com/out?next=https://%SIGNIN%/ServiceLogin" << true << true;
    QTest::newRow("empty url") << "" << false << false;
    // The served list: "kestrelgap.test/messages", "/Help", "https://secure.test".
    QTest::newRow("listed host and path") << "http://kestrelgap.test/messages/42" << false << true;
    QTest::newRow("listed host, other path") << "http://kestrelgap.test/settings" << false << false;
    QTest::newRow("listed path in capitals") << "http://kestrelgap.test/Messages" << false << false;
    QTest::newRow("listed fragment inside a query") << "https://other.test/?r=kestrelgap.test/messages" << false
                                                    << true;
    QTest::newRow("bare path fragment on any host") << "https://other.test/Help/faq" << false << true;
    QTest::newRow("bare path fragment, wrong case") << "https://other.test/help" << false << false;
    QTest::newRow("scheme in the fragment, other scheme") << "http://secure.test/a" << false << false;
    QTest::newRow("scheme in the fragment, same scheme") << "https://secure.test/a" << false << true;
}

void TestContainerAllowedUrls::decision()
{
    QFETCH(QString, url);
    QFETCH(bool, builtIn);
    QFETCH(bool, fetched);

    mServer->setReply(documentPath, jsonReply(R"({"version":1,"urls":[{"url":"kestrelgap.test/messages"},)"
                                              R"({"url":"/Help","note":"x"},{"url":"https://secure.test"}]})"));
    ContainerAllowedUrls list(nullptr);
    QCOMPARE(list.isUrlAllowed(makeUrl(url)), builtIn);
    QCOMPARE(load(list), 1);
    QCOMPARE(list.isUrlAllowed(makeUrl(url)), fetched);
}

void TestContainerAllowedUrls::fetchOutcome_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<int>("signalled");
    QTest::addColumn<bool>("unlistedAllowed"); // afterwards

    QTest::newRow("empty urls array") << jsonReply(R"({"urls":[]})") << 1 << false;
    QTest::newRow("no urls member") << jsonReply(R"({"version":"2.90"})") << 1 << false;
    QTest::newRow("urls not an array") << jsonReply(R"({"urls":"unlisted.example"})") << 1 << false;
    QTest::newRow("root is an array") << jsonReply(R"([{"url":"unlisted.example"}])") << 1 << false;
    QTest::newRow("malformed json") << jsonReply(R"({"urls":[{"url":"unlisted.example"})") << 1 << false;
    QTest::newRow("error status with a valid list") << jsonReply(R"({"urls":[{"url":"unlisted"}]})", 404) << 0
                                                    << false;
    QTest::newRow("server error") << jsonReply(R"({"urls":[{"url":"unlisted"}]})", 500) << 0 << false;
    // An empty fragment is found in every URL.
    QTest::newRow("entry without url") << jsonReply(R"({"urls":[{"link":"kestrelgap.test"}]})") << 1 << true;
    QTest::newRow("empty url") << jsonReply(R"({"urls":[{"url":""}]})") << 1 << true;
    HttpServer::Reply redirect;
    redirect.status = 302;
    redirect.headers.append(qMakePair(QByteArray("Location"), QByteArray("/elsewhere.json")));
    QTest::newRow("redirect is not followed") << redirect << 1 << false;
    HttpServer::Reply dropped = jsonReply(R"({"urls":[{"url":"unlisted"}]})");
    dropped.dropAfterBodyBytes = 5;
    QTest::newRow("connection dropped mid-body") << dropped << 0 << false;

    // A valid list padded with blanks, which JSON allows: only the size decides.
    const QByteArray list = R"({"urls":[{"url":"unlisted"}]})";
    QTest::newRow("just under the cap") << jsonReply(list + QByteArray(200 * 1024, ' ')) << 1 << true;
    HttpServer::Reply endless = jsonReply(list + QByteArray(4 * 1024 * 1024, ' '));
    endless.contentLength = false;
    endless.pieceSize = 64 * 1024;
    endless.pieceIntervalMs = 5;
    QTest::newRow("no end in sight") << endless << 0 << false;
    QTest::newRow("announced too long") << jsonReply(list + QByteArray(300 * 1024, ' ')) << 0 << false;
    HttpServer::Reply silent = jsonReply(list);
    silent.delayAfterHeadersMs = -1;
    QTest::newRow("headers, then silence") << silent << 0 << false;
}

void TestContainerAllowedUrls::fetchOutcome()
{
    QFETCH(HttpServer::Reply, reply);
    QFETCH(bool, unlistedAllowed);

    mServer->setReply(documentPath, reply);
    mServer->serve("/elsewhere.json", R"({"urls":[{"url":"unlisted"}]})", "application/json");
    ContainerAllowedUrls list(nullptr);
    QTEST(load(list), "signalled");
    QCOMPARE(mServer->requestsFor("/elsewhere.json").size(), 0);
    QVERIFY(mServer->lastRequest().header("Cookie").isEmpty());
    QCOMPARE(list.isUrlAllowed(QUrl("https://unlisted.example/page")), unlistedAllowed);
    // Whatever came back, the built-in entries stay in force.
    QVERIFY(list.isUrlAllowed(makeUrl("https://%SIGNIN%/ServiceLogin")));
}

QTEST_GUILESS_MAIN(TestContainerAllowedUrls)
#include "tst_containerallowedurls.moc"
