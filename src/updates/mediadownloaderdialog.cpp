#include "mediadownloaderdialog.h"
#include "ui_mediadownloaderdialog.h"

#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "updates/downloadwatchdog.h"
#include "web/cookiejar.h"
#include "web/sslerrorpolicy.h"

namespace {
const QString logModule = QStringLiteral("mediadownloaderdialog");

QString firstDownloadLocation()
{
    return QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
}
} // namespace

MediaDownloaderDialog::MediaDownloaderDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::MediaDownloaderDialog)
    , mCurrentDownload(nullptr)
    , mDownloadCompleted(false)
    , mFileSize(0)
    , mRetryCount(1)
    , timer(new QTimer(this))
    , mReceivedBytes(false)
    , mOpenFile(false)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    download_progress = ui->download_progress;
    download_label = ui->download_label;
    download_cancel = ui->download_cancel;
    download_show = ui->download_show;
    download_open = ui->download_open;
    download_complete = ui->download_complete;
    // The blanks widen the button.
    download_show->setText(QStringLiteral("    ") + tr("Show in Folder") + QStringLiteral("   "));

    connect(download_cancel, &QPushButton::clicked, this, &MediaDownloaderDialog::cancelButtonClicked);
    connect(download_open, &QPushButton::clicked, this, &MediaDownloaderDialog::openButtonClicked);
    connect(download_show, &QPushButton::clicked, this, &MediaDownloaderDialog::showButtonClicked);
    connect(timer, &QTimer::timeout, this, &MediaDownloaderDialog::timeout);
}

MediaDownloaderDialog::~MediaDownloaderDialog()
{
    // The manager goes after this body; its replies must not call back into a half-gone dialog.
    const auto replies = mNetworkManager.findChildren<QNetworkReply*>();
    for (QNetworkReply* reply : replies)
        disconnect(reply, nullptr, this, nullptr);
}

void MediaDownloaderDialog::setFileSize(long fileSize)
{
    mFileSize = fileSize;
}

void MediaDownloaderDialog::setDownloadDirectory(QString downloadDirectory)
{
    mDownloadDirectory = downloadDirectory;
}

QString MediaDownloaderDialog::downloadedPath() const
{
    return mOutput.isOpen() ? mOutput.path() : mMediaDownloadedPath;
}

void MediaDownloaderDialog::startDownload(QUrl url, QString fileName, QString type, bool openFile)
{
    mDownloadUrl = url;
    mType = type;
    mOpenFile = openFile;

    // The page names the file: only a plain name in the chosen folder is ever written.
    const QString name = DownloadFile::sanitizedName(fileName);
    QString extension;
    if (!name.contains(QLatin1Char('.'))) {
        if (type.startsWith(QLatin1String("image")))
            extension = QStringLiteral(".jpg");
        else if (type.startsWith(QLatin1String("video")))
            extension = QStringLiteral(".mp4");
    }
    mMediaDownloadedFilename = name + extension;

    // A long name is shortened in the middle rather than stretching the dialog across the screen.
    download_label->setText(download_label->fontMetrics().elidedText(
        mMediaDownloadedFilename, Qt::ElideMiddle, download_label->fontMetrics().averageCharWidth() * 60));
    download_label->setToolTip(mMediaDownloadedFilename);
    download_complete->hide();
    download_cancel->show();
    download_open->hide();
    download_show->hide();
    adjustSize();

    if (mDownloadDirectory.isEmpty())
        mDownloadDirectory = firstDownloadLocation();
    mMediaDownloadedPath = DownloadFile::freePath(mDownloadDirectory, mMediaDownloadedFilename);
    Logger::Info(logModule, QStringLiteral("[startDownload] - url=") + url.toString() + QStringLiteral(", path=")
            + mMediaDownloadedPath + QStringLiteral(", retry=") + QString::number(mRetryCount));

    if (!DownloadFile::isDownloadable(url)) {
        Logger::Error(logModule, QStringLiteral("[startDownload] - refused source ") + url.scheme());
        QMetaObject::invokeMethod(this, &MediaDownloaderDialog::displayDownloadError, Qt::QueuedConnection);
        return;
    }
    if (!mOutput.open(mDownloadDirectory, mMediaDownloadedFilename)) {
        Logger::Error(logModule, QStringLiteral("[startDownload] - cannot open a file in ") + mDownloadDirectory
                + QStringLiteral(": ") + mOutput.errorString());
        return;
    }

    mDownloadCompleted = false;
    mReceivedBytes = false;

    // A jar per attempt reads the cookies the hosted page stored last.
    mNetworkManager.setCookieJar(new CookieJar());

    QNetworkReply* reply = mNetworkManager.get(QNetworkRequest(url));
    mCurrentDownload = reply;
    connect(reply, &QNetworkReply::sslErrors, this, &MediaDownloaderDialog::sslErrors);
    connect(reply, &QNetworkReply::downloadProgress, this, &MediaDownloaderDialog::downloadProgress);
    connect(reply, &QNetworkReply::finished, this, &MediaDownloaderDialog::downloadFinished);
    connect(reply, &QNetworkReply::readyRead, this, &MediaDownloaderDialog::downloadReadyRead);

    timer->start(DownloadWatchdog::intervalMs());
}

void MediaDownloaderDialog::downloadReadyRead()
{
    if (!mCurrentDownload || !mOutput.isOpen())
        return;
    if (!mOutput.write(mCurrentDownload->readAll()))
        abandonUnwritableFile();
}

void MediaDownloaderDialog::abandonUnwritableFile()
{
    Logger::Error(logModule, QStringLiteral("[abandonUnwritableFile] - cannot write ") + mOutput.path()
            + QStringLiteral(": ") + mOutput.errorString());
    // A full or failing disk does not recover within a retry's few seconds, and a cut file must not
    // be offered as the picture: the attempt ends here, with the error box.
    timer->stop();
    if (mCurrentDownload) {
        disconnect(mCurrentDownload, nullptr, this, nullptr);
        mCurrentDownload->abort();
        mCurrentDownload->deleteLater();
    }
    mOutput.discard();
    QMetaObject::invokeMethod(this, &MediaDownloaderDialog::displayDownloadError, Qt::QueuedConnection);
}

void MediaDownloaderDialog::rejectFinishedBody()
{
    Logger::Error(logModule, QStringLiteral("[downloadFinished] - not saved: ") + mOutput.errorString());
    if (mRetryCount <= 2)
        doRetryOrDisplayError();
    else
        displayDownloadError();
}

void MediaDownloaderDialog::downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal)
{
    if (!mReceivedBytes)
        mReceivedBytes = bytesReceived > 0;
    if (mFileSize <= 0)
        return;

    // The page's size is trusted over the server's; a longer body runs past 100.
    const qint64 percent = bytesReceived * 100 / qint64(mFileSize);
    if (percent % 10 == 0) {
        Logger::Info(logModule, QStringLiteral("[downloadProgress] currentPercent=") + QString::number(percent)
                + QStringLiteral(", bytesTotal=") + QString::number(bytesTotal));
    }
    mDownloadCompleted = percent == 100;
    timer->stop();
    download_progress->setValue(int(percent));
}

void MediaDownloaderDialog::timeout()
{
    Logger::Info(logModule, QStringLiteral("[timeout] - mReceivedBytes=") + QVariant(mReceivedBytes).toString());
    if (mReceivedBytes)
        return;
    processCancel();
    doRetryOrDisplayError();
}

void MediaDownloaderDialog::processCancel()
{
    Logger::Info(logModule, QStringLiteral("[processCancel] called"));
    timer->stop();
    // The abort runs downloadFinished at once, which may start a retry.
    if (!mDownloadCompleted && mCurrentDownload && mCurrentDownload->isOpen())
        mCurrentDownload->abort();

    // Only the attempt's own temporary file: a file of the same name was never ours.
    mOutput.discard();
    // Further attempts go to the system's download folder.
    if (!mDownloadDirectory.isNull())
        mDownloadDirectory = QString();
}

void MediaDownloaderDialog::cancelButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[cancelButtonClicked] called"));
    processCancel();
    close();
}

void MediaDownloaderDialog::doRetryOrDisplayError()
{
    Logger::Info(logModule, QStringLiteral("[doRetryOrDisplayError] - mRetryCount=") + QString::number(mRetryCount));
    if (mRetryCount <= 2) {
        ++mRetryCount;
        startDownload(mDownloadUrl, mMediaDownloadedFilename, mType, mOpenFile);
    } else {
        displayDownloadError();
    }
}

void MediaDownloaderDialog::displayDownloadError()
{
    Logger::Info(logModule, QStringLiteral("[displayDownloadError] called"));
    QMessageBox box;
    box.setText(tr("Error downloading update."));
    box.exec();
    close();
}

void MediaDownloaderDialog::downloadFinished()
{
    Logger::Info(logModule, QStringLiteral("[downloadFinished] called"));
    mDownloadCompleted = true;

    QNetworkReply* finished = mCurrentDownload;
    const bool failed = !finished || finished->error() != QNetworkReply::NoError;
    if (failed) {
        mOutput.discard();
        Logger::Info(logModule, QStringLiteral("[downloadFinished] Failed: ")
                + (finished ? finished->errorString() : QString()));
        // A third failure leaves the dialog as it stands; only the watchdog ends in the error box.
        if (mRetryCount <= 2)
            doRetryOrDisplayError();
    } else if (!mOutput.isOpen()) {
        // Already abandoned, with its box on the way.
    } else if (const QString saved = mOutput.commit(finished); saved.isEmpty()) {
        rejectFinishedBody();
    } else if (mOpenFile) {
        mMediaDownloadedPath = saved;
        openButtonClicked();
    } else {
        mMediaDownloadedPath = saved;
        download_cancel->hide();
        download_progress->hide();
        download_complete->show();
        download_show->show();
        download_open->show();

        MainWindow* mainWindow = mainWindowHolder::get();
        const double osScaleFactor = mainWindow ? mainWindow->getOsScaleFactor() : 1.0;
        const int spacing = int(osScaleFactor * 8.0);
        ui->download_buttons->setSpacing(spacing);
        const int totalButtonWidth = spacing + download_show->sizeHint().width() + download_open->sizeHint().width();
        Logger::Info(logModule, QStringLiteral("[downloadfinished] - totalButtonWidth=") + QString::number(totalButtonWidth));
        download_open->setFocus(Qt::OtherFocusReason);
        adjustSize();
    }
    // Whatever the pointer holds now: after a retry above, that is the new attempt.
    if (mCurrentDownload)
        mCurrentDownload->deleteLater();
}

void MediaDownloaderDialog::openButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[openButtonClicked] called"));
    emit openDownloadedFile(mMediaDownloadedPath);
    close();
}

void MediaDownloaderDialog::showButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[showButtonClicked] called"));
    emit showFileInFolder(mMediaDownloadedPath);
    close();
}

void MediaDownloaderDialog::sslErrors(QList<QSslError> sslErrorList)
{
    SslErrorPolicy::ignoreAll(qobject_cast<QNetworkReply*>(sender()), sslErrorList, logModule);
}

void MediaDownloaderDialog::done(int result)
{
    timer->stop();
    // Without this a retry would finish in a hidden dialog and even open the file; a reply the
    // cancel aborted still reports its end later.
    if (mCurrentDownload) {
        disconnect(mCurrentDownload, nullptr, this, nullptr);
        mCurrentDownload->abort();
    }
    mOutput.discard();
    QDialog::done(result);
}
