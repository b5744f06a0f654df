#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QSslConfiguration>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QThread;

namespace HttpServerDetail {
struct Shared;
class Worker;
} // namespace HttpServerDetail

// Loopback HTTP/1.1 server for tests. It runs on a thread of its own, so a test that blocks its own
// thread (a synchronous wait, a nested dialog loop) still gets its answers. Each path is told what to
// send, including the ways a real server misbehaves: stalls, dropped connections, no Content-Length,
// trickled bodies. Every request is recorded for the test to inspect.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Headers = QList<QPair<QByteArray, QByteArray>>;

    struct Request
    {
        QByteArray method;
        // The request target as sent: path and query, still percent-encoded.
        QString path;
        QByteArray version;
        Headers headers;
        QByteArray body;

        // First header of that name, case-insensitive; empty if absent.
        QByteArray header(const QByteArray& name) const;
        QString pathWithoutQuery() const;
    };

    struct Reply
    {
        int status = 200;
        // Empty: the usual reason phrase of the status.
        QByteArray reason;
        // Sent as given, in order; repeat a name (Set-Cookie) to send it twice.
        Headers headers;
        QByteArray body;

        // Automatic Content-Length; false sends none and marks the end by closing (HTTP/1.0 style).
        bool contentLength = true;
        // Transfer-Encoding: chunked; each piece written below becomes one chunk.
        bool chunked = false;
        // Delays in ms before the status line and between headers and body; -1 waits forever.
        int delayBeforeHeadersMs = 0;
        int delayAfterHeadersMs = 0;
        // Trickle: pieces of this many body bytes, this many ms apart. 0 sends the body at once.
        int pieceSize = 0;
        int pieceIntervalMs = 0;
        // Close the connection once this many body bytes are out; 0 closes right after the headers.
        // -1 never drops. Content-Length still announces the whole body, so the client sees a short read.
        int dropAfterBodyBytes = -1;
        // Close after this answer even if the client would keep the connection.
        bool closeConnection = false;
        // Long polling: hold the request on this channel until wake() asks for its answer again,
        // or until delayBeforeHeadersMs (the longest hold; -1 for none) sends this one as it stands.
        QString heldOn;
    };

    explicit HttpServer(QObject* parent = nullptr);
    ~HttpServer() override;

    // Also speak TLS on the same port, told apart from plain HTTP by the first byte a client
    // sends, with this server configuration (certificate and key). Call before listen().
    void setTlsConfiguration(const QSslConfiguration& configuration);

    // 127.0.0.1 only. Port 0 picks a free one. Also called on first use of url() or port().
    bool listen(quint16 port = 0);
    bool isListening() const;
    quint16 port();
    // `pathAndQuery` such as "/a/b.json?x=1".
    QUrl url(const QString& pathAndQuery);

    // An answer for a request target: an exact match of path and query wins over a match of the
    // path alone. Unknown paths get 404.
    void setReply(const QString& path, const Reply& reply);
    void removeReply(const QString& path);
    void clearReplies();
    // Answers what no setReply() entry matches; runs on the server's thread, so it must be
    // thread-safe. Without one, unknown paths get 404.
    using Handler = std::function<Reply(const Request&)>;
    void setFallbackHandler(const Handler& handler);
    // Answers every request held on `channel` afresh, through the same lookup as when it came in.
    // Callable from any thread, handlers included.
    void wake(const QString& channel);

    void serve(const QString& path, const QByteArray& body, const QByteArray& contentType = "text/plain",
               int status = 200, const Headers& extraHeaders = Headers());
    void serveRedirect(const QString& path, const QByteArray& location, int status = 302);
    // Accepts the request and sends nothing for `ms` (forever by default), then the answer.
    void serveStall(const QString& path, int ms = -1, const QByteArray& body = QByteArray());
    // Sends the headers, then waits `ms` (forever by default) before the body.
    void serveHeadersThenStall(const QString& path, const QByteArray& body, int ms = -1);
    // Sends headers announcing `body` and closes after `bytesBeforeDrop` of it (0: right after the headers).
    void serveDrop(const QString& path, const QByteArray& body, int bytesBeforeDrop = 0);
    void serveWithoutContentLength(const QString& path, const QByteArray& body,
                                   const QByteArray& contentType = "text/plain");
    void serveSlowly(const QString& path, const QByteArray& body, int pieceSize, int intervalMs,
                     const QByteArray& contentType = "application/octet-stream");

    QList<Request> requests() const;
    QList<Request> requestsFor(const QString& pathWithoutQuery) const;
    int requestCount() const;
    Request lastRequest() const;
    void clearRequests();
    // Connections accepted so far.
    int connectionCount() const;

signals:
    // Queued from the server's thread, once the whole request (body included) has arrived.
    void requestReceived(const QString& path);

private:
    std::shared_ptr<HttpServerDetail::Shared> mShared;
    QThread* mThread = nullptr;
    HttpServerDetail::Worker* mWorker = nullptr;
    quint16 mPort = 0;
};

// So that replies and requests can sit in the columns of data-driven tests.
Q_DECLARE_METATYPE(HttpServer::Reply)
Q_DECLARE_METATYPE(HttpServer::Request)
