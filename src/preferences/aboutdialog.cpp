#include "aboutdialog.h"

#include "ui_aboutdialog.h"

#include <QEvent>
#include <QJsonObject>
#include <QMessageBox>
#include <QPushButton>

#include "core/formsizes.h"
#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/latestinstalleddialog.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("aboutdialog");
} // namespace

AboutDialog::AboutDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::AboutDialog)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    // The blank ends the translated word, so the number needs no separator of its own.
    ui->application_version->setText(tr("Version ") + Properties::getInstance()->getValue(QStringLiteral("version")));

    connect(ui->checkForUpdateButton, &QPushButton::clicked, this, &AboutDialog::checkForUpdateButtonClicked);
    growFormToContents(this);
}

AboutDialog::~AboutDialog() = default;

void AboutDialog::changeEvent(QEvent* event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        // The form's own word comes back without the number; no menu can reach an open About box anyway.
        ui->retranslateUi(this);
    }
}

void AboutDialog::checkForUpdateButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[checkForUpdateButtonClicked] called"));
    QJsonObject none;
    indexWindowHolder::get()->logAnalyticsEvent(QStringLiteral("check-for-updates-qt"), QString(), &none);

    // Each click is a check of its own; the answers come one after the other.
    auto* versionCheck = new VersionCheck(this);
    connect(versionCheck, &VersionCheck::versionCheckLoadComplete, this, &AboutDialog::versionCheckLoadComplete);
    connect(versionCheck, &VersionCheck::versionCheckErrorOccurred, this, &AboutDialog::versionCheckErrorOccurred);
    versionCheck->loadObject();
}

void AboutDialog::versionCheckLoadComplete(VersionCheck* versionCheck)
{
    IndexWindow* indexWindow = indexWindowHolder::get();
    if (versionCheck->compareWithInstalled(indexWindow, logModule)) {
        LatestInstalledDialog latest(nullptr);
        latest.exec();
        return;
    }

    QJsonObject trigger;
    trigger.insert(QStringLiteral("trigger"), QStringLiteral("about-dialog"));
    indexWindow->logAnalyticsEvent(QStringLiteral("user-prompted-to-install-update-qt"), QStringLiteral("about-dialog"), &trigger);
    ConfirmDownloadUpdate prompt(nullptr);
    prompt.setDownloadUrl(versionCheck->getDownloadPath());
    prompt.exec();
}

void AboutDialog::versionCheckErrorOccurred(VersionCheck* versionCheck)
{
    Logger::Info(logModule, QStringLiteral("[versionCheckErrorOccurred] - ") + versionCheck->getErrorMessage());
    QMessageBox::about(nullptr, QStringLiteral("Kestrelgap"), versionCheck->getErrorMessage());
}
