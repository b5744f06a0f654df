#include "cannedreply.h"

#include <cstring>

CannedReply::CannedReply(const QUrl& url, const QByteArray& body)
    : mBody(body)
{
    setUrl(url);
    setError(NoError, QString());
    setAttribute(QNetworkRequest::HttpStatusCodeAttribute, 200);
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    setFinished(true);
}

qint64 CannedReply::bytesAvailable() const
{
    return mBody.size() - mOffset + QNetworkReply::bytesAvailable();
}

qint64 CannedReply::readData(char* out, qint64 maxSize)
{
    const qint64 count = qMin<qint64>(maxSize, mBody.size() - mOffset);
    if (count <= 0)
        return -1;
    memcpy(out, mBody.constData() + mOffset, size_t(count));
    mOffset += count;
    return count;
}
