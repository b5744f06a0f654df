#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include "updates/downloadfile.h"

class QNetworkReply;
class QTimer;

// What both download dialogs run: one attempt after another at the same address, the body written
// through DownloadFile (so only a whole, checked body is ever moved into place), a watchdog against
// an attempt that brings no byte, and the count of retries. The dialog keeps its texts, how many
// retries it grants and what a failure means to it.
class DownloadTransfer : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultWatchdogMs = 4000;
    // Tests run the clock faster; 0 or less restores the default.
    static void setWatchdogMsForTests(int ms);

    DownloadTransfer(int retries, const QString& logModule, QObject* parent = nullptr);
    ~DownloadTransfer() override;

    QNetworkAccessManager* networkManager() { return &mNetworkManager; }
    // The percentage's basis: the owner's figure instead of the server's Content-Length.
    void useSizeOf(qint64 size);

    // A fresh attempt into a temporary file in `folder`. A source other than http(s), or a file
    // that can't be made, ends in unusable().
    void start(const QUrl& url, const QString& folder, const QString& name);
    // Counts a retry and says whether one was left.
    bool takeRetry();
    int retryCount() const { return mRetryCount; }
    // Aborts the running attempt (its failed() comes at once) and drops its temporary file.
    void cancel();
    // Ends everything: the attempt says nothing more, and its file goes.
    void stop();

signals:
    void progress(qint64 received, qint64 total);
    // No byte within the watchdog's time.
    void stalled();
    void failed(const QString& reason);
    // The body came but is no whole file: short, an error page, a redirect's empty body.
    void rejected(const QString& reason);
    void saved(const QString& path);
    // Queued: refused source, or a disk that can't take the body.
    void unusable(const QString& reason);

private:
    void readyRead();
    void downloadProgress(qint64 received, qint64 total);
    void finished();
    void timeout();
    void abandon(const QString& reason);

    const QString mLogModule;
    const int mRetries;
    int mRetryCount = 1;
    qint64 mOwnSize = -1;
    QNetworkAccessManager mNetworkManager;
    // Guarded: a retry started from failed() is scheduled for deletion with the finished reply's
    // turn, and the watchdog may come back to it.
    QPointer<QNetworkReply> mReply;
    DownloadFile mFile;
    QTimer* mWatchdog;
    bool mReceivedBytes = false;
};
