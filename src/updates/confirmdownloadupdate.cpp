#include "confirmdownloadupdate.h"

#include <QDialogButtonBox>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "core/logger.h"
#include "core/windowholders.h"
#include "updates/updatedownloaderdialog.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("confirmdownloadupdate");
}

ConfirmDownloadUpdate::ConfirmDownloadUpdate(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("ConfirmDownloadUpdate"));
    resize(328, 137);
    setWindowTitle(tr("New Version"));
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    verticalLayoutWidget = new QWidget(this);
    verticalLayoutWidget->setObjectName(QStringLiteral("verticalLayoutWidget"));

    message_label = new QLabel(verticalLayoutWidget);
    message_label->setObjectName(QStringLiteral("message_label"));
    message_label->setTextFormat(Qt::RichText);
    message_label->setAlignment(Qt::AlignCenter);
    message_label->setWordWrap(true);
    message_label->setText(QStringLiteral("<html><head/><body><p>A newer version of Kestrelgap is available. <br>We "
                                          "highly recommend that you <br>update now. OK to update?</p></body></html>"));

    button_wrapper = new QDialogButtonBox(verticalLayoutWidget);
    button_wrapper->setObjectName(QStringLiteral("button_wrapper"));
    button_wrapper->setOrientation(Qt::Horizontal);
    button_wrapper->setCenterButtons(true);
    button_wrapper->setStandardButtons(QDialogButtonBox::NoButton);
    yesButton = button_wrapper->addButton(tr("Yes"), QDialogButtonBox::ActionRole);
    laterButton = button_wrapper->addButton(tr("I'll do this later"), QDialogButtonBox::ActionRole);

    confirmDownloadUpdateLayout = new QVBoxLayout(verticalLayoutWidget);
    confirmDownloadUpdateLayout->setObjectName(QStringLiteral("confirmDownloadUpdateLayout"));
    confirmDownloadUpdateLayout->setContentsMargins(10, 10, 10, 10);
    confirmDownloadUpdateLayout->addWidget(message_label);
    confirmDownloadUpdateLayout->addSpacing(10);
    confirmDownloadUpdateLayout->addWidget(button_wrapper);
    // Keeps the starting width, so the message breaks where its own line breaks are.
    verticalLayoutWidget->setMinimumWidth(width());
    verticalLayoutWidget->adjustSize();
    adjustSize();

    connect(button_wrapper, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(button_wrapper, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(yesButton, &QPushButton::clicked, this, &ConfirmDownloadUpdate::yesButtonClicked);
    connect(laterButton, &QPushButton::clicked, this, &ConfirmDownloadUpdate::installLaterClicked);
}

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
