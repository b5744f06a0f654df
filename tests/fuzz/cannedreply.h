#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QUrl>

// A finished network reply that hands out a fixed body, as if it had come from `url` with
// status 200: lets a target feed fuzz input straight into a reply handler.
class CannedReply : public QNetworkReply
{
public:
    CannedReply(const QUrl& url, const QByteArray& body);

    void abort() override {}
    qint64 bytesAvailable() const override;
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* out, qint64 maxSize) override;

private:
    QByteArray mBody;
    qint64 mOffset = 0;
};
