#include "confirmdownloadupdate.h"

#include "ui_confirmdownloadupdate.h"

#include <QDialogButtonBox>
#include <QIcon>
#include <QPushButton>
#include <QUrl>

#include "core/formsizes.h"
#include "core/logger.h"
#include "core/windowholders.h"
#include "updates/updatedownloaderdialog.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("confirmdownloadupdate");
}

ConfirmDownloadUpdate::ConfirmDownloadUpdate(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::ConfirmDownloadUpdate)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->verticalLayoutWidget->hide();

    yesButton = ui->button_wrapper->addButton(tr("Yes"), QDialogButtonBox::ActionRole);
    laterButton = ui->button_wrapper->addButton(tr("I'll do this later"), QDialogButtonBox::ActionRole);
    // At least the form's size, so the message breaks where its own line breaks are; more when the
    // font or the translation needs it.
    growFormToContents(this);
    adjustSize();

    connect(ui->button_wrapper, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(ui->button_wrapper, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(yesButton, &QPushButton::clicked, this, &ConfirmDownloadUpdate::yesButtonClicked);
    connect(laterButton, &QPushButton::clicked, this, &ConfirmDownloadUpdate::installLaterClicked);
}

ConfirmDownloadUpdate::~ConfirmDownloadUpdate() = default;

QString ConfirmDownloadUpdate::downloadUrl() const
{
    return mDownloadUrl;
}

void ConfirmDownloadUpdate::setDownloadUrl(QString downloadUrl)
{
    mDownloadUrl = downloadUrl;
}

void ConfirmDownloadUpdate::installLaterClicked()
{
    Logger::Info(logModule, QStringLiteral("[installLaterClicked] called"));
    if (IndexWindow* indexWindow = indexWindowHolder::get())
        indexWindow->logAnalyticsEvent(QStringLiteral("user-cancels-install-update-qt"));
    close();
}

void ConfirmDownloadUpdate::yesButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[yesButtonClicked] called, url=") + mDownloadUrl);
    if (IndexWindow* indexWindow = indexWindowHolder::get())
        indexWindow->logAnalyticsEvent(QStringLiteral("user-agrees-to-install-update-qt"));
    // The download is under way before its dialog shows.
    UpdateDownloaderDialog downloader;
    downloader.startDownload(QUrl(mDownloadUrl, QUrl::TolerantMode));
    close();
    downloader.exec();
}
