// IndexWindow: the version check at sign-in, and the downloads the page asks for.
#include "indexwindow.h"

#include <QJsonObject>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include "core/logger.h"
#include "platform/fileopener.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/mediadownloaderdialog.h"
#include "updates/versioncheck.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
}

void IndexWindow::startVersionCheck()
{
    // Each sign-in asks anew; a page that reports twice gets two checks.
    auto* versionCheck = new VersionCheck(this);
    connect(versionCheck, &VersionCheck::versionCheckLoadComplete, this, &IndexWindow::versionCheckLoadComplete);
    connect(versionCheck, &VersionCheck::versionCheckErrorOccurred, this, &IndexWindow::versionCheckErrorOccurred);
    versionCheck->loadObject();
}

void IndexWindow::versionCheckLoadComplete(VersionCheck* versionCheck)
{
    Logger::Info(logModule, QStringLiteral("[versionCheckLoadComplete] called"));
    if (versionCheck->compareWithInstalled(this, logModule))
        return;

    auto* json = new QJsonObject();
    json->insert(QStringLiteral("trigger"), QStringLiteral("app-start"));
    logAnalyticsEvent(QStringLiteral("user-prompted-to-install-update-qt"), QStringLiteral("app-start"), json);

    ConfirmDownloadUpdate prompt;
    prompt.setDownloadUrl(versionCheck->getDownloadPath());
    prompt.exec();
}

void IndexWindow::versionCheckErrorOccurred(VersionCheck* /*versionCheck*/)
{
    // At sign-in an unreachable version document is no news for the user.
}

void IndexWindow::downloadFile(QString downloadUrl, QString fileType, QString fileName, long fileSize, bool openFile)
{
    Logger::Info(logModule, QStringLiteral("[downloadFile] - url=") + downloadUrl + QStringLiteral(", type=") + fileType
            + QStringLiteral(", name=") + fileName + QStringLiteral(", size=") + QString::number(fileSize)
            + QStringLiteral(", playFile=") + QVariant(openFile).toString());
    mOpenFile = openFile;

    auto* dialog = new MediaDownloaderDialog(this);
    dialog->setFileSize(fileSize);
    dialog->setDownloadDirectory(getDefaultDownloadLocationSetting());
    dialog->startDownload(QUrl(downloadUrl, QUrl::TolerantMode), fileName, fileType, openFile);
    connect(dialog, &MediaDownloaderDialog::mediaDownloadComplete, this, &IndexWindow::mediaDownloadComplete);
    connect(dialog, &MediaDownloaderDialog::showFileInFolder, this, &IndexWindow::showInFolder);
    connect(dialog, &MediaDownloaderDialog::openDownloadedFile, this, &IndexWindow::opendDownloadedFile);
    dialog->exec();
}

void IndexWindow::mediaDownloadComplete(QString fileName, QString downloadLocation)
{
    Logger::Info(logModule, QStringLiteral("[mediaDownloadComplete] - called. playFile=") + QVariant(mOpenFile).toString()
            + QStringLiteral(", fileName=") + fileName + QStringLiteral(", downloadLocation=") + downloadLocation);
    if (!mOpenFile)
        return;

    QMessageBox box;
    box.setText(fileName + QStringLiteral(" ") + tr("DOWNLOADED"));
    QPushButton* showButton = box.addButton(QStringLiteral("Show in Folder"), QMessageBox::ActionRole);
    QPushButton* closeButton = box.addButton(tr("Close"), QMessageBox::RejectRole);
    QPushButton* openButton = box.addButton(QMessageBox::Open);
    box.setDefaultButton(openButton);
    box.exec();

    QAbstractButton* clicked = box.clickedButton();
    if (clicked == openButton)
        opendDownloadedFile(downloadLocation);
    else if (clicked == showButton)
        showInFolder(downloadLocation);
    else if (clicked == closeButton)
        box.close();
}

void IndexWindow::showInFolder(QString& pathIn)
{
    Logger::Info(logModule, QStringLiteral("[showinfolder] - called, path=") + pathIn);
    FileOpener::instance()->showInFolder(pathIn);
}

void IndexWindow::opendDownloadedFile(QString& pathIn)
{
    Logger::Info(logModule, QStringLiteral("[opendDownloadedFile] - called, path=") + pathIn);
    FileOpener::instance()->openFile(pathIn);
}
