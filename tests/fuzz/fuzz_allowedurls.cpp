// The allowed-URL document comes over plain http from the service host, so anyone on the path can
// change it. Any reply body must be read without a memory error, and the two built-in sign-in
// pages must stay allowed whatever the document says.
#include <QByteArray>
#include <QNetworkReply>
#include <QUrl>

#include <cstdlib>
#include <cstring>

#include "core/servicehost.h"
#include "fuzzsupport.h"
#include "web/containerallowedurls.h"

namespace {

// A finished reply that hands out the fuzz input as its body.
class CannedReply : public QNetworkReply
{
public:
    explicit CannedReply(const QByteArray& body)
        : mBody(body)
    {
        setUrl(ContainerAllowedUrls::documentUrl());
        setError(NoError, QString());
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, 200);
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        setFinished(true);
    }

    void abort() override {}
    qint64 bytesAvailable() const override { return mBody.size() - mOffset + QNetworkReply::bytesAvailable(); }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* out, qint64 maxSize) override
    {
        const qint64 count = qMin<qint64>(maxSize, mBody.size() - mOffset);
        if (count <= 0)
            return -1;
        memcpy(out, mBody.constData() + mOffset, size_t(count));
        mOffset += count;
        return count;
    }

private:
    QByteArray mBody;
    qint64 mOffset = 0;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    ContainerAllowedUrls urls(nullptr);
    CannedReply reply(body);
    urls.requestFinished(&reply);

    const QString signIn = QStringLiteral("https://") + ServiceHost::signInHost();
    if (!urls.isUrlAllowed(QUrl(signIn + QStringLiteral("/ServiceLogin?continue=x")))
        || !urls.isUrlAllowed(QUrl(signIn + QStringLiteral("/AccountChooser"))))
        abort();
    urls.isUrlAllowed(QUrl(QStringLiteral("https://elsewhere.example/page")));
    return 0;
}
