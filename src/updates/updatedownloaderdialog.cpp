#include "updatedownloaderdialog.h"
#include "ui_updatedownloaderdialog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>

#include "core/formsizes.h"
#include "core/logger.h"
#include "platform/updatehandover.h"
#include "updates/downloadwatchdog.h"

namespace {
const QString logModule = QStringLiteral("updatedownloaderdialog");

QString firstDownloadLocation()
{
    return QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
}

// These lines have always printed their tag one character short for a true flag, and no flag.
QString flagTag(const QString& tag, bool flag)
{
    return tag.mid(flag ? 1 : 0);
}
} // namespace

UpdateDownloaderDialog::UpdateDownloaderDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::UpdateDownloaderDialog)
    , mCurrentDownload(nullptr)
    , mDownloadCompleted(false)
    , mRetryCount(1)
    , timer(new QTimer(this))
    , mReceivedBytes(false)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    update_download_label = ui->update_download_label;
    update_download_progress_bar = ui->update_download_progress_bar;
    update_download_cancel_button = ui->update_download_cancel_button;
    growFormToContents(this);

    connect(update_download_cancel_button, &QPushButton::clicked, this, &UpdateDownloaderDialog::cancelButtonClicked);
    connect(timer, &QTimer::timeout, this, &UpdateDownloaderDialog::timeout);
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

QString UpdateDownloaderDialog::downloadedFilePath() const
{
    return mOutput.path();
}

void UpdateDownloaderDialog::startDownload(QUrl downloadUrl)
{
    mDownloadUrl = downloadUrl;
    mFileName = saveFileName(downloadUrl);

    const QString folder = firstDownloadLocation();
    Logger::Info(logModule, QStringLiteral("[startDownload] - url=") + downloadUrl.toString()
            + QStringLiteral(", path=") + folder + QLatin1Char('/') + mFileName);
    if (!DownloadFile::isDownloadable(downloadUrl)) {
        Logger::Error(logModule, QStringLiteral("[startDownload] - refused source ") + downloadUrl.scheme());
        QMetaObject::invokeMethod(this, &UpdateDownloaderDialog::displayDownloadError, Qt::QueuedConnection);
        return;
    }
    if (!mOutput.open(folder, mFileName)) {
        Logger::Error(logModule, QStringLiteral("[startDownload] - cannot open a file in ") + folder
                + QStringLiteral(": ") + mOutput.errorString());
        return;
    }

    mDownloadCompleted = false;
    mReceivedBytes = false;

    QNetworkReply* reply = mNetworkManager.get(QNetworkRequest(downloadUrl));
    mCurrentDownload = reply;
    connect(reply, &QNetworkReply::sslErrors, this, &UpdateDownloaderDialog::sslErrors);
    connect(reply, &QNetworkReply::downloadProgress, this, &UpdateDownloaderDialog::downloadProgress);
    connect(reply, &QNetworkReply::finished, this, &UpdateDownloaderDialog::downloadFinished);
    connect(reply, &QNetworkReply::readyRead, this, &UpdateDownloaderDialog::downloadReadyRead);

    // Keeps firing: once bytes have come it has nothing left to do.
    timer->start(DownloadWatchdog::intervalMs());
}

void UpdateDownloaderDialog::downloadReadyRead()
{
    if (!mCurrentDownload || !mOutput.isOpen())
        return;
    if (!mOutput.write(mCurrentDownload->readAll()))
        abandonUnwritableFile();
}

void UpdateDownloaderDialog::abandonUnwritableFile()
{
    Logger::Error(logModule, QStringLiteral("[abandonUnwritableFile] - ") + mOutput.errorString());
    mOutput.discard();
    QMetaObject::invokeMethod(this, &UpdateDownloaderDialog::displayDownloadError, Qt::QueuedConnection);
    if (mCurrentDownload) {
        disconnect(mCurrentDownload, nullptr, this, nullptr);
        mCurrentDownload->abort();
        mCurrentDownload->deleteLater();
    }
    timer->stop();
}

void UpdateDownloaderDialog::downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal)
{
    if (!mReceivedBytes)
        mReceivedBytes = bytesReceived > 0;
    if (bytesTotal <= 0)
        return;

    const qint64 percent = bytesReceived * 100 / bytesTotal;
    if (percent % 10 == 0)
        Logger::Info(logModule, QStringLiteral("[downloadProgress] currentPercent=") + QString::number(percent));
    if (percent == 100)
        mDownloadCompleted = true;
    timer->stop();
    update_download_progress_bar->setValue(int(percent));
}

void UpdateDownloaderDialog::timeout()
{
    Logger::Info(logModule, flagTag(QStringLiteral("[timeout] - mReceivedBytes="), mReceivedBytes));
    if (mReceivedBytes)
        return;
    processCancel();
    doRetryOrDisplayError();
}

void UpdateDownloaderDialog::processCancel()
{
    Logger::Info(logModule, QStringLiteral("[processCancel] called"));
    // close() reports the reply finished at once, so downloadFinished runs inside this call.
    // The retry that this may start takes over mCurrentDownload; the abort is for the reply closed here.
    QPointer<QNetworkReply> reply = mCurrentDownload;
    if (!mDownloadCompleted && reply && reply->isOpen()) {
        reply->close();
        if (reply)
            reply->abort();
    }
    // Only the attempt's own temporary file; an installer already in place stays for the script.
    mOutput.discard();
}

void UpdateDownloaderDialog::cancelButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[cancelButtonClicked] called"));
    processCancel();
    close();
}

void UpdateDownloaderDialog::doRetryOrDisplayError()
{
    Logger::Info(logModule, QStringLiteral("[doRetryOrDisplayError] - mRetryCount=") + QString::number(mRetryCount));
    if (mRetryCount <= 1) {
        startDownload(mDownloadUrl);
        ++mRetryCount;
    } else {
        displayDownloadError();
    }
}

void UpdateDownloaderDialog::displayDownloadError()
{
    Logger::Info(logModule, QStringLiteral("[displayDownloadError] called"));
    // The box ends the download. The watchdog would otherwise stack a further box every interval
    // behind this one, and an attempt still in flight could hand over to an installer that
    // processCancel has already removed.
    timer->stop();
    if (mCurrentDownload) {
        disconnect(mCurrentDownload, nullptr, this, nullptr);
        mCurrentDownload->abort();
    }
    QMessageBox box;
    box.setText(tr("Error downloading update."));
    box.exec();
    close();
}

void UpdateDownloaderDialog::downloadFinished()
{
    Logger::Info(logModule, QStringLiteral("[downloadFinished] called"));
    mDownloadCompleted = true;

    QNetworkReply* finished = mCurrentDownload;
    const bool failed = !finished || finished->error() != QNetworkReply::NoError;
    Logger::Info(logModule, flagTag(QStringLiteral("[downloadFinished] - error="), failed));
    if (failed) {
        mOutput.discard();
        Logger::Info(logModule, QStringLiteral("[downloadFinished] Failed: ")
                + (finished ? finished->errorString() : QString()));
        if (mRetryCount <= 2)
            doRetryOrDisplayError();
    } else if (!mOutput.isOpen()) {
        // Already abandoned, with its box on the way.
    } else if (mOutput.commit(finished).isEmpty()) {
        // A short body, an error page or a redirect's empty body is no installer.
        Logger::Error(logModule, QStringLiteral("[downloadFinished] - not saved: ") + mOutput.errorString());
        doRetryOrDisplayError();
    } else {
        mFileName = QFileInfo(mOutput.path()).fileName();
        runApplicationUpdate();
    }
    // Whatever the pointer holds now: after a retry above, that is the new attempt.
    if (mCurrentDownload)
        mCurrentDownload->deleteLater();
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
    const QString downloadedDmg = downloadedFilePath();
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

void UpdateDownloaderDialog::sslErrors(QList<QSslError> sslErrorList)
{
    Logger::Info(logModule, QStringLiteral("[sslErrors] - count=") + QString::number(sslErrorList.size()));
    for (const QSslError& error : qAsConst(sslErrorList))
        Logger::Info(logModule, QStringLiteral("[sslErrors] - %1").arg(error.errorString()));
    if (auto* reply = qobject_cast<QNetworkReply*>(sender()))
        reply->ignoreSslErrors(sslErrorList);
}

void UpdateDownloaderDialog::done(int result)
{
    timer->stop();
    // A reply closed by the cancel still reports its end later, and would start a retry in a
    // closed dialog that could even hand over.
    if (mCurrentDownload) {
        disconnect(mCurrentDownload, nullptr, this, nullptr);
        mCurrentDownload->abort();
    }
    mOutput.discard();
    QDialog::done(result);
}
