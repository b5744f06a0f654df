#include "mediadownloaderdialog.h"
#include "ui_mediadownloaderdialog.h"

#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/cookiejar.h"

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
    , mTransfer(2, logModule)
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
    // The page's size is trusted over the server's; without one the bar stays.
    mTransfer.useSizeOf(0);

    connect(download_cancel, &QPushButton::clicked, this, &MediaDownloaderDialog::cancelButtonClicked);
    connect(download_open, &QPushButton::clicked, this, &MediaDownloaderDialog::openButtonClicked);
    connect(download_show, &QPushButton::clicked, this, &MediaDownloaderDialog::showButtonClicked);
    connect(&mTransfer, &DownloadTransfer::progress, this, &MediaDownloaderDialog::downloadProgress);
    connect(&mTransfer, &DownloadTransfer::stalled, this, &MediaDownloaderDialog::timeout);
    connect(&mTransfer, &DownloadTransfer::failed, this, &MediaDownloaderDialog::downloadFailed);
    connect(&mTransfer, &DownloadTransfer::rejected, this, &MediaDownloaderDialog::doRetryOrDisplayError);
    connect(&mTransfer, &DownloadTransfer::saved, this, &MediaDownloaderDialog::downloadFinished);
    connect(&mTransfer, &DownloadTransfer::unusable, this, &MediaDownloaderDialog::displayDownloadError);
}

MediaDownloaderDialog::~MediaDownloaderDialog() = default;

void MediaDownloaderDialog::setFileSize(long fileSize)
{
    mTransfer.useSizeOf(fileSize);
}

void MediaDownloaderDialog::setDownloadDirectory(QString downloadDirectory)
{
    mDownloadDirectory = downloadDirectory;
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
    // A jar per attempt reads the cookies the hosted page stored last.
    mTransfer.networkManager()->setCookieJar(new CookieJar());
    mTransfer.start(url, mDownloadDirectory, mMediaDownloadedFilename);
}

void MediaDownloaderDialog::downloadProgress(qint64 bytesReceived, qint64 bytesTotal)
{
    // A body longer than the page said runs past 100.
    const qint64 percent = bytesReceived * 100 / bytesTotal;
    if (percent % 10 == 0)
        Logger::Info(logModule, QStringLiteral("[downloadProgress] currentPercent=") + QString::number(percent));
    download_progress->setValue(int(percent));
}

void MediaDownloaderDialog::timeout()
{
    processCancel();
    doRetryOrDisplayError();
}

void MediaDownloaderDialog::processCancel()
{
    Logger::Info(logModule, QStringLiteral("[processCancel] called"));
    mTransfer.cancel();
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
    if (mTransfer.takeRetry())
        startDownload(mDownloadUrl, mMediaDownloadedFilename, mType, mOpenFile);
    else
        displayDownloadError();
}

void MediaDownloaderDialog::displayDownloadError()
{
    Logger::Info(logModule, QStringLiteral("[displayDownloadError] called"));
    mTransfer.stop();
    QMessageBox box;
    box.setText(tr("Error downloading update."));
    box.exec();
    close();
}

void MediaDownloaderDialog::downloadFailed()
{
    // After the last retry a network failure leaves the dialog as it stands; only the watchdog and
    // a refused body end in the error box.
    if (mTransfer.takeRetry())
        startDownload(mDownloadUrl, mMediaDownloadedFilename, mType, mOpenFile);
}

void MediaDownloaderDialog::downloadFinished(const QString& savedPath)
{
    Logger::Info(logModule, QStringLiteral("[downloadFinished] called"));
    mMediaDownloadedPath = savedPath;
    if (mOpenFile) {
        openButtonClicked();
        return;
    }
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

void MediaDownloaderDialog::done(int result)
{
    // Without this a retry would finish in a hidden dialog and even open the file.
    mTransfer.stop();
    QDialog::done(result);
}
