#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>

#include "httpserver.h"

namespace {

using ReplyPtr = std::unique_ptr<QNetworkReply>;

bool waitFinished(QNetworkReply* reply, int ms = 5000)
{
    if (reply->isFinished())
        return true;
    QSignalSpy spy(reply, &QNetworkReply::finished);
    return spy.wait(ms);
}

// Raw exchange for what QNetworkAccessManager hides: the exact head, the close of the connection.
struct RawClient
{
    QTcpSocket socket;
    QByteArray received;

    bool connectTo(quint16 port)
    {
        socket.connectToHost(QHostAddress::LocalHost, port);
        return socket.waitForConnected(5000);
    }
    void send(const QByteArray& bytes)
    {
        socket.write(bytes);
        socket.flush();
    }
    // Reads until `predicate` holds or `ms` pass; the server runs on its own thread, so blocking is fine.
    template <typename Predicate>
    bool readUntil(Predicate predicate, int ms = 5000)
    {
        QElapsedTimer timer;
        timer.start();
        while (!predicate()) {
            const int left = ms - int(timer.elapsed());
            if (left <= 0)
                return false;
            if (socket.state() != QAbstractSocket::ConnectedState && socket.bytesAvailable() == 0)
                return predicate();
            socket.waitForReadyRead(qMin(left, 100));
            received += socket.readAll();
        }
        return true;
    }
    bool readUntilClosed(int ms = 5000)
    {
        return readUntil([this] { return socket.state() == QAbstractSocket::UnconnectedState; }, ms);
    }
    QByteArray head() const { return received.left(received.indexOf("\r\n\r\n") + 4); }
    QByteArray body() const { return received.mid(received.indexOf("\r\n\r\n") + 4); }
};

} // namespace

class TestHttpServer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void servesStatusBodyAndHeaders_data();
    void servesStatusBodyAndHeaders();
    void sendsEveryHeaderGiven();
    void redirectIsNotFollowed_data();
    void redirectIsNotFollowed();
    void exactQueryBeatsPath();
    void recordsRequests_data();
    void recordsRequests();
    void waitsForWholeRequestBody();
    void stallForeverSendsNothing();
    void deletingServerEndsStalledReplies();
    void stallForAWhileThenAnswers_data();
    void stallForAWhileThenAnswers();
    void headersThenStallHoldsTheBody();
    void dropCutsTheReplyShort_data();
    void dropCutsTheReplyShort();
    void closeDelimitedBody();
    void slowBodyComesInPieces_data();
    void slowBodyComesInPieces();
    void keepsConnectionAlive();
    void answersPipelinedRequestsInOrder();
    void headRequestGetsNoBody();
    void listensOnAGivenPort();

private:
    std::unique_ptr<HttpServer> mServer;
    std::unique_ptr<QNetworkAccessManager> mManager;

    QNetworkReply* get(const QString& path, const QByteArray& cookie = QByteArray())
    {
        QNetworkRequest request(mServer->url(path));
        if (!cookie.isEmpty())
            request.setRawHeader("Cookie", cookie);
        return mManager->get(request);
    }
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

void TestHttpServer::servesStatusBodyAndHeaders_data()
{
    QTest::addColumn<QString>("servedPath");
    QTest::addColumn<QString>("requestedPath");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<int>("expectedStatus");
    QTest::addColumn<QByteArray>("expectedBody");
    QTest::addColumn<int>("expectedError");

    QTest::newRow("json 200") << "/doc.json" << "/doc.json" << 200 << QByteArray("{\"a\":1}")
                              << QByteArray("application/json") << 200 << QByteArray("{\"a\":1}")
                              << int(QNetworkReply::NoError);
    QTest::newRow("query ignored when only the path is served")
        << "/doc.json" << "/doc.json?v=2" << 200 << QByteArray("x") << QByteArray("text/plain") << 200
        << QByteArray("x") << int(QNetworkReply::NoError);
    QTest::newRow("empty body") << "/empty" << "/empty" << 200 << QByteArray() << QByteArray("text/plain") << 200
                                << QByteArray() << int(QNetworkReply::NoError);
    QTest::newRow("server error with body") << "/fail" << "/fail" << 500 << QByteArray("boom")
                                            << QByteArray("text/plain") << 500 << QByteArray("boom")
                                            << int(QNetworkReply::InternalServerError);
    QTest::newRow("unknown path is 404") << "/doc.json" << "/other.json" << 200 << QByteArray("x")
                                         << QByteArray("text/plain") << 404 << QByteArray("not found")
                                         << int(QNetworkReply::ContentNotFoundError);
    QByteArray big(300000, 'k');
    QTest::newRow("large body") << "/big" << "/big" << 200 << big << QByteArray("application/octet-stream") << 200
                                << big << int(QNetworkReply::NoError);
}

void TestHttpServer::servesStatusBodyAndHeaders()
{
    QFETCH(QString, servedPath);
    QFETCH(QString, requestedPath);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, contentType);
    QFETCH(int, expectedStatus);
    QFETCH(QByteArray, expectedBody);
    QFETCH(int, expectedError);

    mServer->serve(servedPath, body, contentType, status);
    ReplyPtr reply(get(requestedPath));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), expectedStatus);
    QCOMPARE(int(reply->error()), expectedError);
    QCOMPARE(reply->readAll(), expectedBody);
    if (expectedStatus == status)
        QCOMPARE(reply->rawHeader("Content-Type"), contentType);
    QCOMPARE(reply->rawHeader("Content-Length").toInt(), expectedBody.size());
}

void TestHttpServer::sendsEveryHeaderGiven()
{
    mServer->serve(QStringLiteral("/login"), "ok", "text/html", 200,
                   {{"Set-Cookie", "SID=abc; Path=/"}, {"Set-Cookie", "LANG=fr; Path=/"}, {"X-Extra", "1"}});
    ReplyPtr reply(get(QStringLiteral("/login")));
    QVERIFY(waitFinished(reply.get()));
    const auto cookies = reply->header(QNetworkRequest::SetCookieHeader).value<QList<QNetworkCookie>>();
    QCOMPARE(cookies.size(), 2);
    QCOMPARE(cookies.at(0).name(), QByteArray("SID"));
    QCOMPARE(cookies.at(0).value(), QByteArray("abc"));
    QCOMPARE(cookies.at(1).name(), QByteArray("LANG"));
    QCOMPARE(reply->rawHeader("X-Extra"), QByteArray("1"));
}

void TestHttpServer::redirectIsNotFollowed_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("301") << 301;
    QTest::newRow("302") << 302;
    QTest::newRow("307") << 307;
}

void TestHttpServer::redirectIsNotFollowed()
{
    QFETCH(int, status);
    mServer->serveRedirect(QStringLiteral("/old"), "http://127.0.0.1:1/new", status);
    ReplyPtr reply(get(QStringLiteral("/old")));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
    QCOMPARE(reply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl(),
             QUrl(QStringLiteral("http://127.0.0.1:1/new")));
    QCOMPARE(mServer->requestCount(), 1);
}

void TestHttpServer::exactQueryBeatsPath()
{
    mServer->serve(QStringLiteral("/v"), "plain");
    mServer->serve(QStringLiteral("/v?beta=1"), "beta");
    ReplyPtr plain(get(QStringLiteral("/v?beta=2")));
    ReplyPtr beta(get(QStringLiteral("/v?beta=1")));
    QVERIFY(waitFinished(plain.get()));
    QVERIFY(waitFinished(beta.get()));
    QCOMPARE(plain->readAll(), QByteArray("plain"));
    QCOMPARE(beta->readAll(), QByteArray("beta"));

    mServer->removeReply(QStringLiteral("/v?beta=1"));
    ReplyPtr after(get(QStringLiteral("/v?beta=1")));
    QVERIFY(waitFinished(after.get()));
    QCOMPARE(after->readAll(), QByteArray("plain"));
}

void TestHttpServer::recordsRequests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("cookie");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("get with query") << QByteArray("GET") << "/a/b.json?x=1&y=%20z" << QByteArray() << QByteArray();
    QTest::newRow("get with cookie") << QByteArray("GET") << "/c" << QByteArray("SID=abc; LANG=fr") << QByteArray();
    QTest::newRow("post with body") << QByteArray("POST") << "/form" << QByteArray() << QByteArray("k=v&k2=v2");
    QTest::newRow("put") << QByteArray("PUT") << "/put" << QByteArray() << QByteArray(70000, 'p');
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
    ReplyPtr reply(body.isEmpty() ? mManager->sendCustomRequest(request, method)
                                  : mManager->sendCustomRequest(request, method, body));
    QVERIFY(waitFinished(reply.get()));
    QTRY_COMPARE(received.count(), 1);
    QCOMPARE(received.at(0).at(0).toString(), path);

    QCOMPARE(mServer->requestCount(), 1);
    const HttpServer::Request recorded = mServer->lastRequest();
    QCOMPARE(recorded.method, method);
    QCOMPARE(recorded.path, path);
    QCOMPARE(recorded.version, QByteArray("HTTP/1.1"));
    QCOMPARE(recorded.header("cookie"), cookie);
    QCOMPARE(recorded.header("HOST"), QByteArray("127.0.0.1:") + QByteArray::number(mServer->port()));
    QCOMPARE(recorded.body, body);
    QCOMPARE(mServer->requestsFor(recorded.pathWithoutQuery()).size(), 1);

    mServer->clearRequests();
    QCOMPARE(mServer->requestCount(), 0);
}

void TestHttpServer::waitsForWholeRequestBody()
{
    mServer->serve(QStringLiteral("/upload"), "stored");
    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("POST /upload HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\n01234");
    QVERIFY(!received.wait(200));
    QCOMPARE(mServer->requestCount(), 0);
    client.send("56789");
    QVERIFY(client.readUntil([&] { return client.body() == "stored"; }));
    QCOMPARE(mServer->lastRequest().body, QByteArray("0123456789"));
}

void TestHttpServer::stallForeverSendsNothing()
{
    mServer->serveStall(QStringLiteral("/hang"));
    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    ReplyPtr reply(get(QStringLiteral("/hang")));
    QSignalSpy metaData(reply.get(), &QNetworkReply::metaDataChanged);
    QVERIFY(received.wait());
    QVERIFY(!metaData.wait(300));
    QVERIFY(!reply->isFinished());
    reply->abort();
    QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
}

void TestHttpServer::deletingServerEndsStalledReplies()
{
    mServer->serveStall(QStringLiteral("/hang"));
    QSignalSpy received(mServer.get(), &HttpServer::requestReceived);
    ReplyPtr reply(get(QStringLiteral("/hang")));
    QVERIFY(received.wait());
    mServer.reset();
    QVERIFY(waitFinished(reply.get()));
    // The client retries a request that got no answer at all, so the port may already be gone.
    QVERIFY2(reply->error() == QNetworkReply::RemoteHostClosedError
                 || reply->error() == QNetworkReply::ConnectionRefusedError,
             qPrintable(reply->errorString()));
}

void TestHttpServer::stallForAWhileThenAnswers_data()
{
    QTest::addColumn<bool>("beforeHeaders");
    QTest::newRow("before headers") << true;
    QTest::newRow("between headers and body") << false;
}

void TestHttpServer::stallForAWhileThenAnswers()
{
    QFETCH(bool, beforeHeaders);
    if (beforeHeaders)
        mServer->serveStall(QStringLiteral("/late"), 300, "finally");
    else
        mServer->serveHeadersThenStall(QStringLiteral("/late"), "finally", 300);
    QElapsedTimer timer;
    timer.start();
    ReplyPtr reply(get(QStringLiteral("/late")));
    QVERIFY(waitFinished(reply.get()));
    QVERIFY2(timer.elapsed() >= 290, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(reply->readAll(), QByteArray("finally"));
}

void TestHttpServer::headersThenStallHoldsTheBody()
{
    mServer->serveHeadersThenStall(QStringLiteral("/half"), "never sent");
    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("GET /half HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(client.readUntil([&] { return client.received.contains("\r\n\r\n"); }));
    QVERIFY(client.head().startsWith("HTTP/1.1 200 OK\r\n"));
    QVERIFY(client.head().contains("Content-Length: 10\r\n"));
    QVERIFY(!client.readUntil([&] { return !client.body().isEmpty(); }, 300));
    QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
}

void TestHttpServer::dropCutsTheReplyShort_data()
{
    QTest::addColumn<int>("bytesBeforeDrop");
    QTest::newRow("after headers") << 0;
    QTest::newRow("mid body") << 4;
}

void TestHttpServer::dropCutsTheReplyShort()
{
    QFETCH(int, bytesBeforeDrop);
    const QByteArray body("0123456789abcdef");
    mServer->serveDrop(QStringLiteral("/cut"), body, bytesBeforeDrop);

    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("GET /cut HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(client.readUntilClosed());
    QVERIFY(client.head().contains("Content-Length: 16\r\n"));
    QCOMPARE(client.body(), body.left(bytesBeforeDrop));

    ReplyPtr reply(get(QStringLiteral("/cut")));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->error(), QNetworkReply::RemoteHostClosedError);
}

void TestHttpServer::closeDelimitedBody()
{
    const QByteArray body("no length announced");
    mServer->serveWithoutContentLength(QStringLiteral("/stream"), body);

    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(client.readUntilClosed());
    QVERIFY(!client.head().contains("Content-Length"));
    QVERIFY(client.head().contains("Connection: close\r\n"));
    QCOMPARE(client.body(), body);

    ReplyPtr reply(get(QStringLiteral("/stream")));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QVERIFY(!reply->hasRawHeader("Content-Length"));
    QCOMPARE(reply->readAll(), body);
}

void TestHttpServer::slowBodyComesInPieces_data()
{
    QTest::addColumn<bool>("chunked");
    QTest::newRow("content length") << false;
    QTest::newRow("chunked encoding") << true;
}

void TestHttpServer::slowBodyComesInPieces()
{
    QFETCH(bool, chunked);
    QByteArray body;
    for (int i = 0; i < 5; ++i)
        body += QByteArray(1000, char('a' + i));
    HttpServer::Reply slow;
    slow.body = body;
    slow.chunked = chunked;
    slow.pieceSize = 1000;
    slow.pieceIntervalMs = 80;
    mServer->setReply(QStringLiteral("/slow"), slow);

    QElapsedTimer timer;
    timer.start();
    ReplyPtr reply(get(QStringLiteral("/slow")));
    QSignalSpy progress(reply.get(), &QNetworkReply::downloadProgress);
    QVERIFY(waitFinished(reply.get()));
    QVERIFY2(timer.elapsed() >= 4 * 80 - 10, qPrintable(QString::number(timer.elapsed())));
    QVERIFY2(progress.count() >= 3, qPrintable(QString::number(progress.count())));
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(reply->readAll(), body);
    QCOMPARE(reply->hasRawHeader("Transfer-Encoding"), chunked);
}

void TestHttpServer::keepsConnectionAlive()
{
    mServer->serve(QStringLiteral("/one"), "1");
    mServer->serve(QStringLiteral("/two"), "2");
    ReplyPtr first(get(QStringLiteral("/one")));
    QVERIFY(waitFinished(first.get()));
    ReplyPtr second(get(QStringLiteral("/two")));
    QVERIFY(waitFinished(second.get()));
    QCOMPARE(second->readAll(), QByteArray("2"));
    QCOMPARE(mServer->connectionCount(), 1);
}

void TestHttpServer::answersPipelinedRequestsInOrder()
{
    mServer->serveStall(QStringLiteral("/first"), 150, "first");
    mServer->serve(QStringLiteral("/second"), "second");
    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("GET /first HTTP/1.1\r\nHost: x\r\n\r\nGET /second HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    QVERIFY(client.readUntilClosed());
    QVERIFY(client.received.indexOf("first") < client.received.indexOf("second"));
    QCOMPARE(client.received.count("HTTP/1.1 200 OK"), 2);
    QCOMPARE(mServer->requestCount(), 2);
}

void TestHttpServer::headRequestGetsNoBody()
{
    mServer->serve(QStringLiteral("/h"), "body");
    RawClient client;
    QVERIFY(client.connectTo(mServer->port()));
    client.send("HEAD /h HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    QVERIFY(client.readUntilClosed());
    QVERIFY(client.head().contains("Content-Length: 4\r\n"));
    QCOMPARE(client.body(), QByteArray());
}

void TestHttpServer::listensOnAGivenPort()
{
    quint16 freePort = 0;
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        freePort = probe.serverPort();
    }
    HttpServer fixed;
    QVERIFY(fixed.listen(freePort));
    QCOMPARE(fixed.port(), freePort);
    QCOMPARE(fixed.url(QStringLiteral("/x?y=1")), QUrl(QStringLiteral("http://127.0.0.1:%1/x?y=1").arg(freePort)));

    HttpServer clash;
    QVERIFY(!clash.listen(freePort));
    QVERIFY(!clash.isListening());

    fixed.serve(QStringLiteral("/x"), "fixed");
    ReplyPtr reply(mManager->get(QNetworkRequest(fixed.url(QStringLiteral("/x")))));
    QVERIFY(waitFinished(reply.get()));
    QCOMPARE(reply->readAll(), QByteArray("fixed"));
}

QTEST_GUILESS_MAIN(TestHttpServer)
#include "tst_httpserver.moc"
