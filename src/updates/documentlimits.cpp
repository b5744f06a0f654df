#include "documentlimits.h"

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace {
int testTimeout = 0;

void abortOver(QNetworkReply* reply, qint64 bytes)
{
    if (bytes > DocumentLimits::maxBytes && reply->isRunning())
        reply->abort();
}
} // namespace

int DocumentLimits::timeoutMs()
{
    return testTimeout > 0 ? testTimeout : defaultTimeoutMs;
}

void DocumentLimits::setTimeoutMsForTests(int ms)
{
    testTimeout = ms;
}

void DocumentLimits::guard(QNetworkReply* reply)
{
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply,
        [reply] { abortOver(reply, reply->header(QNetworkRequest::ContentLengthHeader).toLongLong()); });
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
        [reply](qint64 received, qint64) { abortOver(reply, received); });
    // Gone with the reply, so a finished request leaves nothing behind.
    QTimer::singleShot(timeoutMs(), reply, [reply] {
        if (reply->isRunning())
            reply->abort();
    });
}

QByteArray DocumentLimits::read(QNetworkReply* reply)
{
    return reply->read(maxBytes);
}
