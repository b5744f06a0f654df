#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

#include "httpserver.h"

// Other suites trust this server to misbehave exactly as told; these cases prove each answer mode
// they rely on really reaches a client that way.
namespace {

using ReplyPtr = std::unique_ptr<QNetworkReply>;

bool waitFinished(QNetworkReply* reply, int ms = 5000)
{
    if (reply->isFinished())
        return true;
    QSignalSpy spy(reply, &QNetworkReply::finished);
    return spy.wait(ms);
}

} // namespace

class TestHttpServer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void answerModes_data();
    void answerModes();
    void recordsRequests_data();
    void recordsRequests();
    void stallForeverEndsWithTheServer();

private:
    std::unique_ptr<HttpServer> mServer;
    std::unique_ptr<QNetworkAccessManager> mManager;
};

void TestHttpServer::init()
{
    mServer.reset(new HttpServer);
    QVERIFY(mServer->listen());
    mManager.reset(new QNetworkAccessManager);
}

void TestHttpServer::cleanup()
{
    mManager.reset();
    mServer.reset();
}

void TestHttpServer::answerModes_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("error");

    const QByteArray text("0123456789abcdef");
    QTest::newRow("served with headers") << "serve" << 200 << text << int(QNetworkReply::NoError);
    QTest::newRow("server error keeps its body") << "error" << 500 << text << int(QNetworkReply::InternalServerError);
    QTest::newRow("unknown path") << "unknown" << 404 << QByteArray("not found")
                                  << int(QNetworkReply::ContentNotFoundError);
    QTest::newRow("redirect is not followed") << "redirect" << 302 << QByteArray() << int(QNetworkReply::NoError);
    QTest::newRow("stall, then answer") << "stall" << 200 << text << int(QNetworkReply::NoError);
    QTest::newRow("headers, stall, body") << "headersThenStall" << 200 << text << int(QNetworkReply::NoError);
    QTest::newRow("dropped mid body") << "drop" << 200 << text.left(4) << int(QNetworkReply::RemoteHostClosedError);
    QTest::newRow("no content length") << "noLength" << 200 << text << int(QNetworkReply::NoError);
    QTest::newRow("chunked in slow pieces") << "chunked" << 200 << text << int(QNetworkReply::NoError);
    QTest::newRow("fallback handler") << "fallback" << 200 << text << int(QNetworkReply::NoError);
}

void TestHttpServer::answerModes()
{
    QFETCH(QString, mode);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(int, error);

    const QString path = QStringLiteral("/p");
    const QByteArray text("0123456789abcdef");
    if (mode == QLatin1String("serve"))
        mServer->serve(path, text, "text/plain", 200, {{"Set-Cookie", "SID=abc"}, {"Set-Cookie", "LANG=fr"}});
    else if (mode == QLatin1String("error"))
        mServer->serve(path, text, "text/plain", 500);
    else if (mode == QLatin1String("redirect"))
        mServer->serveRedirect(path, "http://127.0.0.1:1/new");
    else if (mode == QLatin1String("stall"))
        mServer->serveStall(path, 200, text);
    else if (mode == QLatin1String("headersThenStall"))
        mServer->serveHeadersThenStall(path, text, 200);
    else if (mode == QLatin1String("drop"))
        mServer->serveDrop(path, text, 4);
    else if (mode == QLatin1String("noLength"))
        mServer->serveWithoutContentLength(path, text);
    else if (mode == QLatin1String("fallback"))
        mServer->setFallbackHandler([text](const HttpServer::Request&) {
            HttpServer::Reply reply;
            reply.body = text;
            return reply;
        });
    else if (mode == QLatin1String("chunked")) {
        HttpServer::Reply slow;
        slow.body = text;
        slow.chunked = true;
        slow.pieceSize = 5;
        slow.pieceIntervalMs = 50;
        mServer->setReply(path, slow);
    }

    ReplyPtr reply(mManager->get(QNetworkRequest(mServer->url(path + QStringLiteral("?v=1")))));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
    QCOMPARE(int(reply->error()), error);
    QCOMPARE(reply->readAll(), body);
    QCOMPARE(mServer->requestCount(), 1);
    if (mode == QLatin1String("serve"))
        QCOMPARE(reply->rawHeader("Set-Cookie"), QByteArray("SID=abc\nLANG=fr"));
    if (mode == QLatin1String("redirect"))
        QCOMPARE(reply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl(),
                 QUrl(QStringLiteral("http://127.0.0.1:1/new")));
    if (mode == QLatin1String("noLength"))
        QVERIFY(!reply->hasRawHeader("Content-Length"));
    if (mode == QLatin1String("chunked"))
        QCOMPARE(reply->rawHeader("Transfer-Encoding"), QByteArray("chunked"));
}

void TestHttpServer::recordsRequests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("cookie");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("get with query and cookie") << QByteArray("GET") << "/a/b.json?x=1&y=%20z"
                                               << QByteArray("SID=abc; LANG=fr") << QByteArray();
    QTest::newRow("large put") << QByteArray("PUT") << "/put" << QByteArray() << QByteArray(70000, 'p');
}

void TestHttpServer::recordsRequests()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, cookie);
    QFETCH(QByteArray, body);

    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    QNetworkRequest request(mServer->url(path));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/x-www-form-urlencoded"));
    if (!cookie.isEmpty())
        request.setRawHeader("Cookie", cookie);
    ReplyPtr reply(mManager->sendCustomRequest(request, method, body));
    QVERIFY(waitFinished(reply.get()));
    QTRY_COMPARE(received.count(), 1);
    QCOMPARE(received.at(0).at(0).toString(), path);

    const HttpServer::Request recorded = mServer->lastRequest();
    QCOMPARE(recorded.method, method);
    QCOMPARE(recorded.path, path);
    QCOMPARE(recorded.header("cookie"), cookie);
    QCOMPARE(recorded.body, body);
    QCOMPARE(mServer->requestsFor(recorded.pathWithoutQuery()).size(), 1);
}

void TestHttpServer::stallForeverEndsWithTheServer()
{
    mServer->serveStall(QStringLiteral("/hang"));
    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    ReplyPtr reply(mManager->get(QNetworkRequest(mServer->url(QStringLiteral("/hang")))));
    QSignalSpy metaData(reply.get(), &QNetworkReply::metaDataChanged);
    QVERIFY(received.wait());
    QVERIFY(!metaData.wait(300));
    QVERIFY(!reply->isFinished());

    mServer.reset();
    QVERIFY(waitFinished(reply.get()));
    // The client retries a request that got no answer at all, so the port may already be gone.
    QVERIFY2(reply->error() == QNetworkReply::RemoteHostClosedError
                 || reply->error() == QNetworkReply::ConnectionRefusedError,
             qPrintable(reply->errorString()));
}

QTEST_GUILESS_MAIN(TestHttpServer)
#include "tst_httpserver.moc"
