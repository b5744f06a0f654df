#include "httpserver.h"

#include <QHash>
#include <QHostAddress>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

namespace HttpServerDetail {

struct Shared
{
    mutable QMutex mutex;
    QHash<QString, HttpServer::Reply> replies;
    HttpServer::Handler fallback;
    QSslConfiguration tls;
    bool tlsEnabled = false;
    QList<HttpServer::Request> requests;
    int connections = 0;
};

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 206: return "Partial Content";
    case 301: return "Moved Permanently";
    case 302: return "Found";
    case 303: return "See Other";
    case 304: return "Not Modified";
    case 307: return "Temporary Redirect";
    case 308: return "Permanent Redirect";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    default: return "Status";
    }
}

bool hasHeader(const HttpServer::Headers& headers, const QByteArray& name)
{
    for (const auto& header : headers) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

class Connection;

// Requests held open on a channel until there is something to answer them with. Worker thread only.
using HeldRequests = QHash<Connection*, QString>;

// One client connection. Requests are answered one at a time, in order; bytes that arrive while an
// answer is under way wait in the buffer.
class Connection : public QObject
{
public:
    Connection(QTcpSocket* socket, std::shared_ptr<Shared> shared, QPointer<HttpServer> owner, HeldRequests* held,
               QObject* parent)
        : QObject(parent)
        , mSocket(socket)
        , mShared(std::move(shared))
        , mOwner(owner)
        , mHeld(held)
        , mTimer(this)
    {
        mSocket->setParent(this);
        mTimer.setSingleShot(true);
        // Tests measure these delays; a coarse timer may fire a few percent early.
        mTimer.setTimerType(Qt::PreciseTimer);
        connect(&mTimer, &QTimer::timeout, this, [this] { run(mNextStep); });
        connect(mSocket, &QTcpSocket::readyRead, this, &Connection::onReadyRead);
        connect(mSocket, &QTcpSocket::disconnected, this, [this] {
            mTimer.stop();
            deleteLater();
        });
    }

    ~Connection() override { mHeld->remove(this); }

    void wake()
    {
        if (mHeld->remove(this) == 0)
            return;
        mTimer.stop();
        mReply = replyFor(mRequest);
        run(Step::BeforeHeaders);
    }

private:
    enum class Step { BeforeHeaders, Headers, AfterHeaders, Body, Finish };

    void onReadyRead()
    {
        if (!mProtocolKnown) {
            // A TLS connection opens with a handshake record (type 22); plain HTTP with a method name.
            auto* tls = qobject_cast<QSslSocket*>(mSocket);
            if (tls && tls->mode() == QSslSocket::UnencryptedMode) {
                char first = 0;
                if (tls->peek(&first, 1) < 1)
                    return;
                mProtocolKnown = true;
                if (first == 0x16) {
                    tls->startServerEncryption();
                    return;
                }
            }
            mProtocolKnown = true;
        }
        mBuffer += mSocket->readAll();
        if (!mBusy)
            takeNextRequest();
    }

    void takeNextRequest()
    {
        const int headEnd = mBuffer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;

        const QList<QByteArray> lines = mBuffer.left(headEnd).split('\n');
        HttpServer::Request request;
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        request.method = requestLine.value(0);
        request.path = QString::fromLatin1(requestLine.value(1));
        request.version = requestLine.value(2);
        for (int i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const int colon = line.indexOf(':');
            if (colon <= 0)
                continue;
            request.headers.append(qMakePair(line.left(colon).trimmed(), line.mid(colon + 1).trimmed()));
        }

        bool ok = false;
        const int bodyLength = request.header("Content-Length").toInt(&ok);
        const int bodyStart = headEnd + 4;
        if (ok && bodyLength > 0) {
            if (mBuffer.size() - bodyStart < bodyLength)
                return; // the rest of the body is still on its way
            request.body = mBuffer.mid(bodyStart, bodyLength);
        }
        mBuffer.remove(0, bodyStart + request.body.size());

        {
            QMutexLocker lock(&mShared->mutex);
            mShared->requests.append(request);
        }
        mRequest = request;
        mReply = replyFor(request);

        if (mOwner) {
            const QString path = request.path;
            QPointer<HttpServer> owner = mOwner;
            QMetaObject::invokeMethod(
                mOwner.data(), [owner, path] {
                    if (owner)
                        emit owner->requestReceived(path);
                },
                Qt::QueuedConnection);
        }

        mHeadOnly = request.method == "HEAD";
        mKeepAlive = request.version == "HTTP/1.1"
                     && request.header("Connection").compare("close", Qt::CaseInsensitive) != 0;
        mSent = 0;
        mBusy = true;
        run(Step::BeforeHeaders);
    }

    HttpServer::Reply replyFor(const HttpServer::Request& request)
    {
        HttpServer::Handler fallback;
        {
            QMutexLocker lock(&mShared->mutex);
            const auto exact = mShared->replies.constFind(request.path);
            if (exact != mShared->replies.constEnd())
                return exact.value();
            const auto byPath = mShared->replies.constFind(request.pathWithoutQuery());
            if (byPath != mShared->replies.constEnd())
                return byPath.value();
            fallback = mShared->fallback;
        }
        // Outside the lock: a handler may take its time or look at the server's records.
        if (fallback)
            return fallback(request);
        HttpServer::Reply notFound;
        notFound.status = 404;
        notFound.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("text/plain")));
        notFound.body = "not found";
        return notFound;
    }

    void schedule(Step step, int ms)
    {
        if (ms < 0)
            return; // stalled for good; only the client or the server's end closes it
        mNextStep = step;
        mTimer.start(ms);
    }

    void run(Step step)
    {
        switch (step) {
        case Step::BeforeHeaders:
            if (!mReply.heldOn.isEmpty())
                mHeld->insert(this, mReply.heldOn);
            if (mReply.delayBeforeHeadersMs != 0)
                return schedule(Step::Headers, mReply.delayBeforeHeadersMs);
            Q_FALLTHROUGH();
        case Step::Headers:
            mHeld->remove(this);
            writeHead();
            if (mReply.dropAfterBodyBytes == 0)
                return drop();
            if (mReply.delayAfterHeadersMs != 0)
                return schedule(Step::Body, mReply.delayAfterHeadersMs);
            Q_FALLTHROUGH();
        case Step::AfterHeaders:
        case Step::Body:
            if (!mHeadOnly && mSent < mReply.body.size()) {
                int size = mReply.body.size() - mSent;
                if (mReply.pieceSize > 0)
                    size = qMin(size, mReply.pieceSize);
                if (mReply.dropAfterBodyBytes > 0)
                    size = qMin(size, mReply.dropAfterBodyBytes - mSent);
                writeBody(mReply.body.mid(mSent, size));
                mSent += size;
                if (mReply.dropAfterBodyBytes > 0 && mSent >= mReply.dropAfterBodyBytes)
                    return drop();
                if (mSent < mReply.body.size())
                    return schedule(Step::Body, mReply.pieceIntervalMs);
            }
            Q_FALLTHROUGH();
        case Step::Finish:
            finish();
            return;
        }
    }

    void writeHead()
    {
        QByteArray head = "HTTP/1.1 " + QByteArray::number(mReply.status) + ' '
                          + (mReply.reason.isEmpty() ? reasonPhrase(mReply.status) : mReply.reason) + "\r\n";
        for (const auto& header : qAsConst(mReply.headers))
            head += header.first + ": " + header.second + "\r\n";
        if (mReply.chunked) {
            if (!hasHeader(mReply.headers, "Transfer-Encoding"))
                head += "Transfer-Encoding: chunked\r\n";
        } else if (mReply.contentLength) {
            if (!hasHeader(mReply.headers, "Content-Length"))
                head += "Content-Length: " + QByteArray::number(mReply.body.size()) + "\r\n";
        }
        if (closesAfterReply() && !hasHeader(mReply.headers, "Connection"))
            head += "Connection: close\r\n";
        head += "\r\n";
        mSocket->write(head);
        mSocket->flush();
    }

    void writeBody(const QByteArray& piece)
    {
        if (mReply.chunked)
            mSocket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            mSocket->write(piece);
        mSocket->flush();
    }

    bool closesAfterReply() const
    {
        return !mKeepAlive || mReply.closeConnection || (!mReply.contentLength && !mReply.chunked);
    }

    void finish()
    {
        if (mReply.chunked && !mHeadOnly)
            mSocket->write("0\r\n\r\n");
        if (closesAfterReply())
            return drop();
        mSocket->flush();
        mBusy = false;
        takeNextRequest();
    }

    void drop()
    {
        mTimer.stop();
        mBuffer.clear();
        // Flushes what is written, then closes; disconnected() deletes this object.
        mSocket->disconnectFromHost();
    }

    QTcpSocket* mSocket;
    std::shared_ptr<Shared> mShared;
    QPointer<HttpServer> mOwner;
    HeldRequests* mHeld;
    QTimer mTimer;
    Step mNextStep = Step::Finish;
    QByteArray mBuffer;
    HttpServer::Request mRequest;
    HttpServer::Reply mReply;
    int mSent = 0;
    bool mBusy = false;
    bool mHeadOnly = false;
    bool mKeepAlive = true;
    bool mProtocolKnown = false;
};

// Hands out sockets that can still turn to TLS when the server has a certificate.
class Listener : public QTcpServer
{
public:
    Listener(std::shared_ptr<Shared> shared, QObject* parent)
        : QTcpServer(parent)
        , mShared(std::move(shared))
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        QSslConfiguration tls;
        {
            QMutexLocker lock(&mShared->mutex);
            if (!mShared->tlsEnabled)
                return QTcpServer::incomingConnection(descriptor);
            tls = mShared->tls;
        }
        auto* socket = new QSslSocket(this);
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        socket->setSslConfiguration(tls);
        addPendingConnection(socket);
    }

private:
    std::shared_ptr<Shared> mShared;
};

class Worker : public QObject
{
public:
    Worker(std::shared_ptr<Shared> shared, HttpServer* owner)
        : mShared(std::move(shared))
        , mOwner(owner)
        , mServer(mShared, this) // a child, so that moveToThread takes it along
    {
        connect(&mServer, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = mServer.nextPendingConnection()) {
                {
                    QMutexLocker lock(&mShared->mutex);
                    ++mShared->connections;
                }
                new Connection(socket, mShared, mOwner, &mHeld, this);
            }
        });
    }

    ~Worker() override
    {
        // Connections leave the held list as they go, so they must go while it still exists.
        const QObjectList connections = children();
        for (QObject* child : connections) {
            if (child != &mServer)
                delete child;
        }
    }

    void wake(const QString& channel)
    {
        const QList<Connection*> waiting = mHeld.keys(channel);
        for (Connection* connection : waiting)
            connection->wake();
    }

    quint16 listen(quint16 port)
    {
        if (!mServer.listen(QHostAddress::LocalHost, port))
            return 0;
        return mServer.serverPort();
    }

private:
    std::shared_ptr<Shared> mShared;
    QPointer<HttpServer> mOwner;
    HeldRequests mHeld;
    Listener mServer;
};

} // namespace HttpServerDetail

using namespace HttpServerDetail;

QByteArray HttpServer::Request::header(const QByteArray& name) const
{
    for (const auto& h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

QString HttpServer::Request::pathWithoutQuery() const
{
    const int query = path.indexOf(QLatin1Char('?'));
    return query < 0 ? path : path.left(query);
}

HttpServer::HttpServer(QObject* parent)
    : QObject(parent)
    , mShared(std::make_shared<Shared>())
    , mThread(new QThread)
{
    mWorker = new Worker(mShared, this);
    mWorker->moveToThread(mThread);
    connect(mThread, &QThread::finished, mWorker, &QObject::deleteLater);
    mThread->start();
}

HttpServer::~HttpServer()
{
    // The worker and its connections are deleted on their own thread as it winds down.
    mThread->quit();
    mThread->wait();
    delete mThread;
}

bool HttpServer::listen(quint16 port)
{
    if (mPort != 0)
        return port == 0 || port == mPort;
    quint16 bound = 0;
    QMetaObject::invokeMethod(
        mWorker, [this, port] { return mWorker->listen(port); }, Qt::BlockingQueuedConnection, &bound);
    mPort = bound;
    return mPort != 0;
}

bool HttpServer::isListening() const
{
    return mPort != 0;
}

quint16 HttpServer::port()
{
    if (mPort == 0)
        listen();
    return mPort;
}

QUrl HttpServer::url(const QString& pathAndQuery)
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port()) + pathAndQuery);
}

void HttpServer::setReply(const QString& path, const Reply& reply)
{
    QMutexLocker lock(&mShared->mutex);
    mShared->replies.insert(path, reply);
}

void HttpServer::removeReply(const QString& path)
{
    QMutexLocker lock(&mShared->mutex);
    mShared->replies.remove(path);
}

void HttpServer::clearReplies()
{
    QMutexLocker lock(&mShared->mutex);
    mShared->replies.clear();
}

void HttpServer::setTlsConfiguration(const QSslConfiguration& configuration)
{
    QMutexLocker lock(&mShared->mutex);
    mShared->tls = configuration;
    mShared->tlsEnabled = true;
}

void HttpServer::setFallbackHandler(const Handler& handler)
{
    QMutexLocker lock(&mShared->mutex);
    mShared->fallback = handler;
}

void HttpServer::wake(const QString& channel)
{
    Worker* worker = mWorker;
    QMetaObject::invokeMethod(worker, [worker, channel] { worker->wake(channel); }, Qt::QueuedConnection);
}

void HttpServer::serve(const QString& path, const QByteArray& body, const QByteArray& contentType, int status,
                       const Headers& extraHeaders)
{
    Reply reply;
    reply.status = status;
    reply.body = body;
    if (!contentType.isEmpty())
        reply.headers.append(qMakePair(QByteArray("Content-Type"), contentType));
    reply.headers += extraHeaders;
    setReply(path, reply);
}

void HttpServer::serveRedirect(const QString& path, const QByteArray& location, int status)
{
    Reply reply;
    reply.status = status;
    reply.headers.append(qMakePair(QByteArray("Location"), location));
    setReply(path, reply);
}

void HttpServer::serveStall(const QString& path, int ms, const QByteArray& body)
{
    Reply reply;
    reply.body = body;
    reply.delayBeforeHeadersMs = ms;
    setReply(path, reply);
}

void HttpServer::serveHeadersThenStall(const QString& path, const QByteArray& body, int ms)
{
    Reply reply;
    reply.body = body;
    reply.delayAfterHeadersMs = ms;
    setReply(path, reply);
}

void HttpServer::serveDrop(const QString& path, const QByteArray& body, int bytesBeforeDrop)
{
    Reply reply;
    reply.body = body;
    reply.dropAfterBodyBytes = bytesBeforeDrop;
    setReply(path, reply);
}

void HttpServer::serveWithoutContentLength(const QString& path, const QByteArray& body,
                                           const QByteArray& contentType)
{
    Reply reply;
    reply.body = body;
    reply.contentLength = false;
    reply.headers.append(qMakePair(QByteArray("Content-Type"), contentType));
    setReply(path, reply);
}

void HttpServer::serveSlowly(const QString& path, const QByteArray& body, int pieceSize, int intervalMs,
                             const QByteArray& contentType)
{
    Reply reply;
    reply.body = body;
    reply.pieceSize = pieceSize;
    reply.pieceIntervalMs = intervalMs;
    reply.headers.append(qMakePair(QByteArray("Content-Type"), contentType));
    setReply(path, reply);
}

QList<HttpServer::Request> HttpServer::requests() const
{
    QMutexLocker lock(&mShared->mutex);
    return mShared->requests;
}

QList<HttpServer::Request> HttpServer::requestsFor(const QString& pathWithoutQuery) const
{
    QList<Request> matching;
    for (const Request& request : requests()) {
        if (request.pathWithoutQuery() == pathWithoutQuery)
            matching.append(request);
    }
    return matching;
}

int HttpServer::requestCount() const
{
    QMutexLocker lock(&mShared->mutex);
    return mShared->requests.size();
}

HttpServer::Request HttpServer::lastRequest() const
{
    QMutexLocker lock(&mShared->mutex);
    return mShared->requests.isEmpty() ? Request() : mShared->requests.constLast();
}

void HttpServer::clearRequests()
{
    QMutexLocker lock(&mShared->mutex);
    mShared->requests.clear();
}

int HttpServer::connectionCount() const
{
    QMutexLocker lock(&mShared->mutex);
    return mShared->connections;
}
