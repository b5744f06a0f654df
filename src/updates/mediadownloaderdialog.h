#pragma once

#include <QDialog>
#include <QString>
#include <QUrl>

#include "updates/downloadtransfer.h"

#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;

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

public slots:
    // Closing the dialog, by any way, ends what it is still downloading.
    void done(int result) override;

signals:
    void mediaDownloadComplete(QString fileName, QString downloadLocation);
    void showFileInFolder(QString& pathIn);
    void openDownloadedFile(QString& pathIn);

private slots:
    void downloadFinished(const QString& savedPath);
    void downloadFailed();
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void cancelButtonClicked();
    void openButtonClicked();
    void showButtonClicked();
    void displayDownloadError();
    void doRetryOrDisplayError();
    void processCancel();
    void timeout();

private:

    std::unique_ptr<Ui::MediaDownloaderDialog> ui;
    QProgressBar* download_progress;
    QLabel* download_label;
    QPushButton* download_cancel;
    QPushButton* download_show;
    QPushButton* download_open;
    QLabel* download_complete;
    DownloadTransfer mTransfer;
    QString mMediaDownloadedFilename;
    QString mMediaDownloadedPath;
    QString mDownloadDirectory;
    QUrl mDownloadUrl;
    QString mType;
    bool mOpenFile;
};
