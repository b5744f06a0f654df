#include "updatedownloaderdialog.h"
#include "ui_updatedownloaderdialog.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>

#include "core/formsizes.h"
#include "core/logger.h"
#include "platform/updatehandover.h"

namespace {
const QString logModule = QStringLiteral("updatedownloaderdialog");

} // namespace

UpdateDownloaderDialog::UpdateDownloaderDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::UpdateDownloaderDialog)
    , mTransfer(1, logModule)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    update_download_label = ui->update_download_label;
    update_download_progress_bar = ui->update_download_progress_bar;
    update_download_cancel_button = ui->update_download_cancel_button;
    growFormToContents(this);

    connect(update_download_cancel_button, &QPushButton::clicked, this, &UpdateDownloaderDialog::cancelButtonClicked);
    connect(&mTransfer, &DownloadTransfer::progress, this, &UpdateDownloaderDialog::downloadProgress);
    connect(&mTransfer, &DownloadTransfer::stalled, this, &UpdateDownloaderDialog::timeout);
    // A failed attempt, and a short body, an error page or a redirect's empty body, are no installer.
    connect(&mTransfer, &DownloadTransfer::failed, this, &UpdateDownloaderDialog::doRetryOrDisplayError);
    connect(&mTransfer, &DownloadTransfer::rejected, this, &UpdateDownloaderDialog::doRetryOrDisplayError);
    connect(&mTransfer, &DownloadTransfer::saved, this, &UpdateDownloaderDialog::downloadFinished);
    connect(&mTransfer, &DownloadTransfer::unusable, this, &UpdateDownloaderDialog::displayDownloadError);
}

UpdateDownloaderDialog::~UpdateDownloaderDialog() = default;

QString UpdateDownloaderDialog::saveFileName(QUrl url)
{
    // Only a plain name, and nothing is removed for it: the working directory is the program folder.
    QString basename = DownloadFile::sanitizedName(QFileInfo(url.path()).fileName());
    // One word, so the name survives the hand-over's command line.
    basename.replace(QStringLiteral(" "), QString(), Qt::CaseSensitive);
    return basename.isEmpty() ? QStringLiteral("download") : basename;
}

void UpdateDownloaderDialog::startDownload(QUrl downloadUrl)
{
    mDownloadUrl = downloadUrl;
    mFileName = saveFileName(downloadUrl);
    mTransfer.start(downloadUrl, QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0), mFileName);
}

void UpdateDownloaderDialog::downloadProgress(qint64 bytesReceived, qint64 bytesTotal)
{
    const qint64 percent = bytesReceived * 100 / bytesTotal;
    if (percent % 10 == 0)
        Logger::Info(logModule, QStringLiteral("[downloadProgress] currentPercent=") + QString::number(percent));
    update_download_progress_bar->setValue(int(percent));
}

void UpdateDownloaderDialog::timeout()
{
    processCancel();
    doRetryOrDisplayError();
}

void UpdateDownloaderDialog::processCancel()
{
    Logger::Info(logModule, QStringLiteral("[processCancel] called"));
    // An installer already in place stays for the script.
    mTransfer.cancel();
}

void UpdateDownloaderDialog::cancelButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[cancelButtonClicked] called"));
    processCancel();
    close();
}

void UpdateDownloaderDialog::doRetryOrDisplayError()
{
    if (mTransfer.takeRetry())
        startDownload(mDownloadUrl);
    else
        displayDownloadError();
}

void UpdateDownloaderDialog::displayDownloadError()
{
    Logger::Info(logModule, QStringLiteral("[displayDownloadError] called"));
    // The box ends the download: an attempt still in flight must not hand over behind it.
    mTransfer.stop();
    QMessageBox box;
    box.setText(tr("Error downloading update."));
    box.exec();
    close();
}

void UpdateDownloaderDialog::downloadFinished(const QString& savedPath)
{
    Logger::Info(logModule, QStringLiteral("[downloadFinished] called"));
    mDownloadedPath = savedPath;
    mFileName = QFileInfo(savedPath).fileName();
    runApplicationUpdate();
}

void UpdateDownloaderDialog::runApplicationUpdate()
{
    update_download_label->setText(tr("Installing..."));
    update_download_cancel_button->setText(tr("Cancel"));
    // A busy bar while the hand-over runs.
    update_download_progress_bar->reset();
    update_download_progress_bar->setMaximum(0);
    update_download_progress_bar->setMinimum(0);

    const QString pid = QString::number(QCoreApplication::applicationPid());
    const QString currentInstallDirectory = QCoreApplication::applicationDirPath();
    const QString updateScript = UpdateHandOver::scriptName();
    const QString downloadedDmg = mDownloadedPath;
    QString volume = mFileName.mid(0, mFileName.lastIndexOf(QLatin1Char('.')));
    volume.remove(QLatin1Char('_'));

    Logger::Info(logModule, QStringLiteral("[runApplicationUpdate] - updateScript=") + updateScript);
    Logger::Info(logModule, QStringLiteral("[runApplicationUpdate] - applicationPid=") + pid);
    Logger::Info(logModule, QStringLiteral("[runApplicationUpdate] - currentInstallDirectory=") + currentInstallDirectory);
    Logger::Info(logModule, QStringLiteral("[runApplicationUpdate] - downloadedDmg=") + downloadedDmg);
    Logger::Info(logModule, QStringLiteral("[runApplicationUpdate] - volume=") + volume);

    // Refused before anything is stopped: the user keeps a running client and is told why.
    const QString refusal = UpdateHandOver::instance()->refusal(downloadedDmg);
    if (!refusal.isEmpty()) {
        handOverFailed(refusal);
        return;
    }
    // The script ends this process; until then the dialog stays, busy.
    UpdateHandOver::instance()->start(this, currentInstallDirectory, pid, downloadedDmg, volume);
}

void UpdateDownloaderDialog::handOverFailed(const QString& reason)
{
    Logger::Error(logModule, QStringLiteral("[handOverFailed] - ") + reason);
    QMessageBox box;
    box.setIcon(QMessageBox::Warning);
    box.setText(reason);
    box.exec();
    close();
}

void UpdateDownloaderDialog::done(int result)
{
    // A reply closed by the cancel still reports its end later, and would start a retry in a
    // closed dialog that could even hand over.
    mTransfer.stop();
    QDialog::done(result);
}
