#include "updatedownloaderdialog.h"

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

#include <cstdio>

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
    , mCurrentDownload(nullptr)
    , mDownloadCompleted(false)
    , mRetryCount(1)
    , timer(new QTimer(this))
    , mReceivedBytes(false)
{
    setObjectName(QStringLiteral("UpdateDownloaderDialog"));
    resize(291, 109);
    setWindowTitle(tr("Update"));
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    update_download_label = new QLabel(tr("Download in progress..."), this);
    update_download_label->setObjectName(QStringLiteral("update_download_label"));
    update_download_label->setGeometry(QRect(QPoint(20, 10), QPoint(270, 25)));

    update_download_progress_bar = new QProgressBar(this);
    update_download_progress_bar->setObjectName(QStringLiteral("update_download_progress_bar"));
    update_download_progress_bar->setGeometry(QRect(QPoint(20, 40), QPoint(270, 62)));
    update_download_progress_bar->setValue(0);

    update_download_cancel_button = new QPushButton(tr("Cancel"), this);
    update_download_cancel_button->setObjectName(QStringLiteral("update_download_cancel_button"));
    update_download_cancel_button->setGeometry(QRect(QPoint(90, 70), QPoint(203, 101)));

    connect(update_download_cancel_button, &QPushButton::clicked, this, &UpdateDownloaderDialog::cancelButtonClicked);
    connect(timer, &QTimer::timeout, this, &UpdateDownloaderDialog::timeout);
}

QString UpdateDownloaderDialog::saveFileName(QUrl url)
{
    QString basename = QFileInfo(url.path()).fileName();
    if (basename.isEmpty())
        basename = QStringLiteral("download");

    // A bare name: this looks in the working directory, not in the download folder.
    if (QFile::exists(basename)) {
        const bool removed = QFile(basename).remove();
        Logger::Info(logModule, flagTag(QStringLiteral("[saveFileName] - removed="), removed));
    }

    // One word, so the name survives the hand-over's command line.
    basename.replace(QStringLiteral(" "), QString(), Qt::CaseSensitive);
    return basename;
}

QString UpdateDownloaderDialog::downloadedFilePath() const
{
    return firstDownloadLocation() + QStringLiteral("/") + mFileName;
}

void UpdateDownloaderDialog::startDownload(QUrl downloadUrl)
{
    mDownloadUrl = downloadUrl;
    mFileName = saveFileName(downloadUrl);

    const QString path = downloadedFilePath();
    Logger::Info(logModule, QStringLiteral("[startDownload] - url=") + downloadUrl.toString()
            + QStringLiteral(", path=") + path);
    // A fresh account may not have its download folder yet.
    QDir().mkpath(QFileInfo(path).absolutePath());
    mOutput.setFileName(path);
    if (!mOutput.open(QIODevice::WriteOnly)) {
        fprintf(stderr, "Problem opening save file '%s' for download '%s': %s\n", qPrintable(path),
            downloadUrl.toEncoded().constData(), qPrintable(mOutput.errorString()));
        Logger::Error(logModule, QStringLiteral("[startDownload] - cannot open ") + path + QStringLiteral(": ")
                + mOutput.errorString());
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
    if (mCurrentDownload)
        mOutput.write(mCurrentDownload->readAll());
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
    const QString path = downloadedFilePath();
    if (QFile::exists(path)) {
        const bool removed = QFile(path).remove();
        Logger::Info(logModule, flagTag(QStringLiteral("[processCancel] - removed="), removed));
    }
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
    mOutput.close();
    mDownloadCompleted = true;

    QNetworkReply* finished = mCurrentDownload;
    const bool failed = !finished || finished->error() != QNetworkReply::NoError;
    Logger::Info(logModule, flagTag(QStringLiteral("[downloadFinished] - error="), failed));
    if (failed) {
        Logger::Info(logModule, QStringLiteral("[downloadFinished] Failed: ")
                + (finished ? finished->errorString() : QString()));
        if (mRetryCount <= 2)
            doRetryOrDisplayError();
    } else {
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

    // The script ends this process; until then the dialog stays, busy.
    UpdateHandOver::instance()->start(this, currentInstallDirectory, pid, downloadedDmg, volume);
}

void UpdateDownloaderDialog::sslErrors(QList<QSslError> sslErrorList)
{
    Logger::Info(logModule, QStringLiteral("[sslErrors] - count=") + QString::number(sslErrorList.size()));
    for (const QSslError& error : qAsConst(sslErrorList))
        Logger::Info(logModule, QStringLiteral("[sslErrors] - %1").arg(error.errorString()));
    if (auto* reply = qobject_cast<QNetworkReply*>(sender()))
        reply->ignoreSslErrors(sslErrorList);
}
