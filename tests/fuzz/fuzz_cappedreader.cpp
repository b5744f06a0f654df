// The version document and the allowed-URL list are read through DocumentLimits. Fed in pieces of
// any size, a body past the cap must abort the reply, one within it never, and no read hands out
// more than the cap.
#include <QByteArray>
#include <QNetworkReply>

#include <cstdlib>

#include "fuzzsupport.h"
#include "updates/documentlimits.h"

namespace {

// A running reply whose body arrives as the target says, counting its aborts.
class PiecewiseReply : public QNetworkReply
{
public:
    PiecewiseReply()
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        setFinished(false);
    }
    void abort() override
    {
        ++aborts;
        setFinished(true);
    }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return body.size() - offset + QNetworkReply::bytesAvailable(); }
    void arrive(const QByteArray& piece)
    {
        body.append(piece);
        emit downloadProgress(body.size(), -1);
    }
    void announce(qint64 length)
    {
        setHeader(QNetworkRequest::ContentLengthHeader, length);
        emit metaDataChanged();
    }

    QByteArray body;
    qint64 offset = 0;
    int aborts = 0;

protected:
    qint64 readData(char* out, qint64 maxSize) override
    {
        const qint64 count = qMin<qint64>(maxSize, body.size() - offset);
        if (count <= 0)
            return -1;
        memcpy(out, body.constData() + offset, size_t(count));
        offset += count;
        return count;
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

// Input: one byte of repeat count, two of piece size, one announcing a length or not, then the body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4)
        return 0;
    const int repeat = 1 + data[0];
    const int pieceSize = 1 + (data[1] << 8 | data[2]) * 4;
    const bool announced = data[3] & 1;
    const QByteArray chunk(reinterpret_cast<const char*>(data + 4), int(size - 4));
    const QByteArray body = chunk.repeated(repeat);

    PiecewiseReply reply;
    DocumentLimits::guard(&reply);
    if (announced)
        reply.announce(body.size());
    for (int at = 0; at < body.size() && reply.isRunning(); at += pieceSize)
        reply.arrive(body.mid(at, pieceSize));
    const bool over = body.size() > DocumentLimits::maxBytes;
    if ((reply.aborts > 0) != over || reply.aborts > 1)
        abort();
    if (DocumentLimits::read(&reply).size() > DocumentLimits::maxBytes)
        abort();
    return 0;
}
