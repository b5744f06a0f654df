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
class UpdateDownloaderDialog;
}

// Downloads the installer of a newer version into the user's download folder, then hands over to
// it. An attempt that brings no byte within the watchdog's time is abandoned; one retry follows.
class UpdateDownloaderDialog : public QDialog
{
    Q_OBJECT

public:
    explicit UpdateDownloaderDialog(QWidget* parent = nullptr);
    ~UpdateDownloaderDialog() override;

    void startDownload(QUrl downloadUrl);

public slots:
    // Closing the dialog, by any way, ends what it is still downloading.
    void done(int result) override;

private slots:
    void downloadReadyRead();
    void downloadFinished();
    void downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal);
    void cancelButtonClicked();
    void runApplicationUpdate();
    void sslErrors(QList<QSslError> sslErrorList);
    void displayDownloadError();
    void doRetryOrDisplayError();
    void processCancel();
    void timeout();
    // The hand-over's script could not install: the user is told, and the client stays.
    void handOverFailed(const QString& reason);

private:
    QString saveFileName(QUrl url);
    QString downloadedFilePath() const;
    // The disk refused the body: ends the attempt with the error box; a cut installer never runs.
    void abandonUnwritableFile();

    std::unique_ptr<Ui::UpdateDownloaderDialog> ui;
    QProgressBar* update_download_progress_bar;
    QPushButton* update_download_cancel_button;
    QLabel* update_download_label;
    QNetworkAccessManager mNetworkManager;
    // Guarded: a retry started from downloadFinished is scheduled for deletion there while this
    // still points at it, and the watchdog may come back to it.
    QPointer<QNetworkReply> mCurrentDownload;
    DownloadFile mOutput;
    bool mDownloadCompleted;
    QString mFileName;
    QUrl mDownloadUrl;
    int mRetryCount;
    QTimer* timer;
    bool mReceivedBytes;
};
