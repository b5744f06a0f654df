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
    void downloadFinished(const QString& savedPath);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void cancelButtonClicked();
    void runApplicationUpdate();
    void displayDownloadError();
    void doRetryOrDisplayError();
    void processCancel();
    void timeout();
    // The hand-over's script could not install: the user is told, and the client stays.
    void handOverFailed(const QString& reason);

private:
    QString saveFileName(QUrl url);

    std::unique_ptr<Ui::UpdateDownloaderDialog> ui;
    QProgressBar* update_download_progress_bar;
    QPushButton* update_download_cancel_button;
    QLabel* update_download_label;
    DownloadTransfer mTransfer;
    QString mFileName;
    QString mDownloadedPath;
    QUrl mDownloadUrl;
};
