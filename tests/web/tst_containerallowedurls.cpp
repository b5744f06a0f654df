#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

#include "core/servicehost.h"
#include "httpserver.h"
#include "web/containerallowedurls.h"

namespace {

const QString documentPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

// "%SIGNIN%" stands for the sign-in host of the build, so the rows hold for any build setting.
QUrl makeUrl(QString text)
{
    text.replace(QLatin1String("%SIGNIN_CAPS%"), ServiceHost::signInHost().toUpper());
    return QUrl(text.replace(QLatin1String("%SIGNIN%"), ServiceHost::signInHost()));
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
    void initTestCase();
    void init();
    void cleanup();

    void builtInEntries_data();
    void builtInEntries();
    void fetchOutcome_data();
    void fetchOutcome();
    void decisionWithFetchedList_data();
    void decisionWithFetchedList();
    void onlyBuiltInsWhileFetchRuns();
    void secondLoadFetchesAgain();

private:
    // Starts the fetch and waits until its reply has been handled, signal or not.
    bool load(ContainerAllowedUrls& list);

    std::unique_ptr<HttpServer> mServer;
};

void TestContainerAllowedUrls::initTestCase()
{
    qRegisterMetaType<QNetworkReply*>();
}

void TestContainerAllowedUrls::init()
{
    mServer.reset(new HttpServer);
    QVERIFY(mServer->listen());
    ContainerAllowedUrls::setDocumentUrlForTests(mServer->url(documentPath));
}

void TestContainerAllowedUrls::cleanup()
{
    ContainerAllowedUrls::setDocumentUrlForTests(QUrl());
    mServer.reset();
}

bool TestContainerAllowedUrls::load(ContainerAllowedUrls& list)
{
    // The list's own manager is its child; its finished() is connected to requestFinished first,
    // so once this spy fires the reply has been handled.
    auto* manager = list.findChild<QNetworkAccessManager*>();
    if (!manager)
        return false;
    QSignalSpy finished(manager, &QNetworkAccessManager::finished);
    list.loadObject();
    return finished.wait(5000);
}

void TestContainerAllowedUrls::builtInEntries_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("allowed");

    QTest::newRow("sign-in page over https") << "https://%SIGNIN%/ServiceLogin?service=mail&continue=x" << true;
    QTest::newRow("account chooser") << "https://%SIGNIN%/AccountChooser?Email=a%40b.c" << true;
    QTest::newRow("path in capitals") << "https://%SIGNIN%/SERVICELOGIN" << false;
    QTest::newRow("host in capitals is lowered by the URL") << "https://%SIGNIN_CAPS%/ServiceLogin" << true;
    QTest::newRow("other page of the sign-in host") << "https://%SIGNIN%/signin/v2/identifier" << false;
    QTest::newRow("unlisted host") << "https://www.example.com/" << false;
    QTest::newRow("fragment in query of another host")
        << "https://www.example.com/out?next=https://%SIGNIN%/ServiceLogin" << true;
    QTest::newRow("service host itself") << "https://" + ServiceHost::host() + "/web/main.html" << false;
    QTest::newRow("empty url") << "" << false;
}

void TestContainerAllowedUrls::builtInEntries()
{
    QFETCH(QString, url);
    QFETCH(bool, allowed);

    ContainerAllowedUrls fresh(nullptr);
    QCOMPARE(fresh.isUrlAllowed(makeUrl(url)), allowed);

    // A fetch that fails leaves exactly these answers in force.
    mServer->serve(documentPath, "gone", "text/plain", 500);
    ContainerAllowedUrls failed(nullptr);
    QSignalSpy complete(&failed, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QVERIFY(load(failed));
    QCOMPARE(complete.count(), 0);
    QCOMPARE(failed.isUrlAllowed(makeUrl(url)), allowed);
}

void TestContainerAllowedUrls::fetchOutcome_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<bool>("signalled");
    // Whether an unlisted page is allowed afterwards.
    QTest::addColumn<bool>("unlistedAllowed");

    QTest::newRow("list with entries") << jsonReply(R"({"urls":[{"url":"kestrelgap.test/help"}]})") << true << false;
    QTest::newRow("empty urls array") << jsonReply(R"({"urls":[]})") << true << false;
    QTest::newRow("no urls member") << jsonReply(R"({"version":"2.90"})") << true << false;
    QTest::newRow("urls not an array") << jsonReply(R"({"urls":"unlisted.example"})") << true << false;
    QTest::newRow("root is an array") << jsonReply(R"([{"url":"unlisted.example"}])") << true << false;
    QTest::newRow("malformed json") << jsonReply(R"({"urls":[{"url":"unlisted.example"})") << true << false;
    QTest::newRow("error status with a valid list") << jsonReply(R"({"urls":[{"url":"unlisted"}]})", 404) << false
                                                    << false;

    // An empty fragment is found in every URL.
    QTest::newRow("entry without url") << jsonReply(R"({"urls":[{"link":"kestrelgap.test"}]})") << true << true;
    QTest::newRow("empty url") << jsonReply(R"({"urls":[{"url":""}]})") << true << true;

    HttpServer::Reply redirect;
    redirect.status = 302;
    redirect.headers.append(qMakePair(QByteArray("Location"), QByteArray("/elsewhere.json")));
    QTest::newRow("redirect is not followed") << redirect << true << false;

    HttpServer::Reply dropped = jsonReply(R"({"urls":[{"url":"unlisted"}]})");
    dropped.dropAfterBodyBytes = 5;
    QTest::newRow("connection dropped mid-body") << dropped << false << false;
}

void TestContainerAllowedUrls::fetchOutcome()
{
    QFETCH(HttpServer::Reply, reply);
    QFETCH(bool, signalled);
    QFETCH(bool, unlistedAllowed);

    mServer->setReply(documentPath, reply);
    mServer->serve(QStringLiteral("/elsewhere.json"), R"({"urls":[{"url":"unlisted"}]})", "application/json");
    ContainerAllowedUrls list(nullptr);
    QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QVERIFY(load(list));

    QCOMPARE(complete.count(), signalled ? 1 : 0);
    QCOMPARE(mServer->requestsFor(QStringLiteral("/elsewhere.json")).size(), 0);

    QCOMPARE(list.isUrlAllowed(QUrl(QStringLiteral("https://unlisted.example/page"))), unlistedAllowed);
    QVERIFY(list.isUrlAllowed(makeUrl(QStringLiteral("https://%SIGNIN%/ServiceLogin"))));
}

void TestContainerAllowedUrls::decisionWithFetchedList_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("allowed");

    // The served list, in order: "kestrelgap.test/messages", "/Help", "https://secure.test".
    QTest::newRow("listed host and path") << "http://kestrelgap.test/messages/42" << true;
    QTest::newRow("listed host, other path") << "http://kestrelgap.test/settings" << false;
    QTest::newRow("listed fragment, path in capitals") << "http://kestrelgap.test/Messages" << false;
    QTest::newRow("listed fragment inside a query") << "https://other.test/?r=kestrelgap.test/messages" << true;
    QTest::newRow("bare path fragment on any host") << "https://other.test/Help/faq" << true;
    QTest::newRow("bare path fragment, wrong case") << "https://other.test/help" << false;
    QTest::newRow("scheme in the fragment, same scheme") << "https://secure.test/a" << true;
    QTest::newRow("scheme in the fragment, other scheme") << "http://secure.test/a" << false;
    QTest::newRow("built-in still first") << "https://%SIGNIN%/ServiceLogin" << true;
    QTest::newRow("unlisted") << "https://other.test/" << false;
}

void TestContainerAllowedUrls::decisionWithFetchedList()
{
    QFETCH(QString, url);
    QFETCH(bool, allowed);

    mServer->setReply(documentPath,
                      jsonReply(R"({"version":1,"urls":[{"url":"kestrelgap.test/messages"},{"url":"/Help","note":"x"},)"
                                R"({"url":"https://secure.test"}]})"));
    ContainerAllowedUrls list(nullptr);
    QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QVERIFY(load(list));
    QCOMPARE(complete.count(), 1);
    QCOMPARE(list.isUrlAllowed(makeUrl(url)), allowed);
}

void TestContainerAllowedUrls::onlyBuiltInsWhileFetchRuns()
{
    mServer->serveStall(documentPath, 400, R"({"urls":[{"url":"kestrelgap.test"}]})");
    ContainerAllowedUrls list(nullptr);
    QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    list.loadObject();
    QVERIFY(received.wait());

    const QUrl listed(QStringLiteral("https://kestrelgap.test/"));
    QVERIFY(!list.isUrlAllowed(listed));
    QVERIFY(list.isUrlAllowed(makeUrl(QStringLiteral("https://%SIGNIN%/ServiceLogin"))));

    QVERIFY(complete.wait());
    QVERIFY(list.isUrlAllowed(listed));

    QVERIFY(mServer->lastRequest().header("Cookie").isEmpty());
}

void TestContainerAllowedUrls::secondLoadFetchesAgain()
{
    mServer->setReply(documentPath, jsonReply(R"({"urls":[{"url":"kestrelgap.test"}]})"));
    ContainerAllowedUrls list(nullptr);
    QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QVERIFY(load(list));
    // No refresh replaces the list: a later answer only adds to it.
    mServer->setReply(documentPath, jsonReply(R"({"urls":[{"url":"other.test"}]})"));
    QVERIFY(load(list));
    QCOMPARE(complete.count(), 2);
    QCOMPARE(mServer->requestsFor(documentPath).size(), 2);
    QVERIFY(list.isUrlAllowed(QUrl(QStringLiteral("https://kestrelgap.test/"))));
    QVERIFY(list.isUrlAllowed(QUrl(QStringLiteral("https://other.test/"))));
}

QTEST_GUILESS_MAIN(TestContainerAllowedUrls)
#include "tst_containerallowedurls.moc"
