#include "downloadtransfer.h"

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include "core/logger.h"
#include "web/sslerrorpolicy.h"

namespace {
int testWatchdogMs = 0;
}

void DownloadTransfer::setWatchdogMsForTests(int ms)
{
    testWatchdogMs = ms;
}

DownloadTransfer::DownloadTransfer(int retries, const QString& logModule, QObject* parent)
    : QObject(parent)
    , mLogModule(logModule)
    , mRetries(retries)
    , mWatchdog(new QTimer(this))
{
    connect(mWatchdog, &QTimer::timeout, this, &DownloadTransfer::timeout);
}

DownloadTransfer::~DownloadTransfer()
{
    // The manager goes after this body; its replies must not call back into a half-gone owner.
    for (QNetworkReply* reply : mNetworkManager.findChildren<QNetworkReply*>())
        disconnect(reply, nullptr, this, nullptr);
}

void DownloadTransfer::useSizeOf(qint64 size)
{
    mOwnSize = qMax<qint64>(size, 0);
}

void DownloadTransfer::start(const QUrl& url, const QString& folder, const QString& name)
{
    Logger::Info(mLogModule, QStringLiteral("[startDownload] - url=") + url.toString() + QStringLiteral(", path=")
            + folder + QLatin1Char('/') + name + QStringLiteral(", retry=") + QString::number(mRetryCount));
    if (!DownloadFile::isDownloadable(url)) {
        abandon(QStringLiteral("refused source ") + url.scheme());
        return;
    }
    if (!mFile.open(folder, name)) {
        Logger::Error(mLogModule, QStringLiteral("[startDownload] - cannot open a file in ") + folder
                + QStringLiteral(": ") + mFile.errorString());
        return;
    }
    mReceivedBytes = false;
    QNetworkReply* reply = mNetworkManager.get(QNetworkRequest(url));
    mReply = reply;
    connect(reply, &QNetworkReply::sslErrors, this,
        [this, reply](const QList<QSslError>& errors) { SslErrorPolicy::ignoreAll(reply, errors, mLogModule); });
    connect(reply, &QNetworkReply::downloadProgress, this, &DownloadTransfer::downloadProgress);
    connect(reply, &QNetworkReply::finished, this, &DownloadTransfer::finished);
    connect(reply, &QNetworkReply::readyRead, this, &DownloadTransfer::readyRead);
    mWatchdog->start(testWatchdogMs > 0 ? testWatchdogMs : defaultWatchdogMs);
}

bool DownloadTransfer::takeRetry()
{
    Logger::Info(mLogModule, QStringLiteral("[doRetryOrDisplayError] - mRetryCount=") + QString::number(mRetryCount));
    if (mRetryCount > mRetries)
        return false;
    ++mRetryCount;
    return true;
}

void DownloadTransfer::readyRead()
{
    if (mReply && mFile.isOpen() && !mFile.write(mReply->readAll()))
        abandon(QStringLiteral("cannot write ") + mFile.path() + QStringLiteral(": ") + mFile.errorString());
}

void DownloadTransfer::abandon(const QString& reason)
{
    Logger::Error(mLogModule, QStringLiteral("[abandon] - ") + reason);
    // A full disk does not recover within a retry's few seconds, and a cut file is no download.
    stop();
    QMetaObject::invokeMethod(this, [this, reason] { emit unusable(reason); }, Qt::QueuedConnection);
}

void DownloadTransfer::downloadProgress(qint64 received, qint64 total)
{
    if (!mReceivedBytes)
        mReceivedBytes = received > 0;
    const qint64 basis = mOwnSize >= 0 ? mOwnSize : total;
    if (basis <= 0)
        return;
    mWatchdog->stop();
    emit progress(received, basis);
}

void DownloadTransfer::timeout()
{
    Logger::Info(mLogModule, QStringLiteral("[timeout] - mReceivedBytes=") + QVariant(mReceivedBytes).toString());
    if (!mReceivedBytes)
        emit stalled();
}

void DownloadTransfer::cancel()
{
    mWatchdog->stop();
    // The abort reports the reply finished at once, and what that starts becomes the attempt.
    if (mReply && !mReply->isFinished())
        mReply->abort();
    // Only the attempt's own temporary file: a file of the same name was never ours.
    mFile.discard();
}

void DownloadTransfer::stop()
{
    mWatchdog->stop();
    if (mReply) {
        disconnect(mReply, nullptr, this, nullptr);
        mReply->abort();
        mReply->deleteLater();
    }
    mFile.discard();
}

void DownloadTransfer::finished()
{
    QNetworkReply* reply = mReply;
    if (!reply || reply->error() != QNetworkReply::NoError) {
        mFile.discard();
        const QString reason = reply ? reply->errorString() : QString();
        Logger::Info(mLogModule, QStringLiteral("[downloadFinished] Failed: ") + reason);
        emit failed(reason);
    } else if (const QString path = mFile.commit(reply); path.isEmpty()) {
        Logger::Error(mLogModule, QStringLiteral("[downloadFinished] - not saved: ") + mFile.errorString());
        emit rejected(mFile.errorString());
    } else {
        emit saved(path);
    }
    // Whatever the pointer holds now: after a retry above, that is the new attempt, and it goes too,
    // unheard from even if its answer is already on its way, so the outcome doesn't hang on timing.
    if (mReply) {
        disconnect(mReply, nullptr, this, nullptr);
        mReply->deleteLater();
    }
}
