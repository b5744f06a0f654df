#pragma once

#include <QDialog>
#include <QList>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSslError>
#include <QString>
#include <QUrl>

#include "updates/downloadfile.h"

#include <memory>

class QLabel;
class QNetworkReply;
class QProgressBar;
class QPushButton;
class QTimer;

namespace Ui {
class MediaDownloaderDialog;
}

// Saves a picture or video of a message with the user's cookies, then opens it or offers to.
// The percentage follows the size the page announced, not the server's. Two retries.
class MediaDownloaderDialog : public QDialog
{
    Q_OBJECT

public:
    explicit MediaDownloaderDialog(QWidget* parent = nullptr);
    ~MediaDownloaderDialog() override;

    void setFileSize(long fileSize);
    void setDownloadDirectory(QString downloadDirectory);
    void startDownload(QUrl url, QString fileName, QString type, bool openFile);

    // Where the running or finished download is written.
    QString downloadedPath() const;

public slots:
    // Closing the dialog, by any way, ends what it is still downloading.
    void done(int result) override;

signals:
    void mediaDownloadComplete(QString fileName, QString downloadLocation);
    void showFileInFolder(QString& pathIn);
    void openDownloadedFile(QString& pathIn);

private slots:
    void downloadReadyRead();
    void downloadFinished();
    void downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal);
    void cancelButtonClicked();
    void openButtonClicked();
    void showButtonClicked();
    void sslErrors(QList<QSslError> sslErrorList);
    void displayDownloadError();
    void doRetryOrDisplayError();
    void processCancel();
    void timeout();

private:
    // The disk refused the body: ends the attempt, removes the cut file and shows the error box.
    void abandonUnwritableFile();
    // A finished reply that brought no usable file: the retry rule, then the error box.
    void rejectFinishedBody();

    std::unique_ptr<Ui::MediaDownloaderDialog> ui;
    QProgressBar* download_progress;
    QLabel* download_label;
    QPushButton* download_cancel;
    QPushButton* download_show;
    QPushButton* download_open;
    QLabel* download_complete;
    QNetworkAccessManager mNetworkManager;
    // Guarded: a retry started from downloadFinished is scheduled for deletion there while this
    // still points at it, and the watchdog may come back to it.
    QPointer<QNetworkReply> mCurrentDownload;
    DownloadFile mOutput;
    bool mDownloadCompleted;
    QString mMediaDownloadedFilename;
    QString mMediaDownloadedPath;
    QString mDownloadDirectory;
    long mFileSize;
    QUrl mDownloadUrl;
    QString mType;
    int mRetryCount;
    QTimer* timer;
    bool mReceivedBytes;
    bool mOpenFile;
};
