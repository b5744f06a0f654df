#include "aboutdialog.h"

#include <QEvent>
#include <QJsonObject>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/latestinstalleddialog.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("aboutdialog");
const QString iconPath = QStringLiteral(":/images/kestrelgap.iconset/icon_128x128.png");
} // namespace

AboutDialog::AboutDialog(QWidget* parent)
    : QDialog(parent)
{
    setupForm();
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    // The blank ends the translated word, so the number needs no separator of its own.
    ui.application_version->setText(tr("Version ") + Properties::getInstance()->getValue(QStringLiteral("version")));

    connect(ui.checkForUpdateButton, &QPushButton::clicked, this, &AboutDialog::checkForUpdateButtonClicked);

    ui.aboutDialogLayout->addWidget(ui.application_icon, 0, Qt::AlignHCenter);
    ui.aboutDialogLayout->addWidget(ui.application_name);
    ui.aboutDialogLayout->addWidget(ui.application_version);
    ui.aboutDialogLayout->addWidget(ui.checkForUpdateButton, 0, Qt::AlignHCenter);
    ui.aboutDialogLayout->setContentsMargins(10, 10, 10, 10);
    setLayout(ui.aboutDialogLayout);
}

void AboutDialog::setupForm()
{
    setObjectName(QStringLiteral("AboutDialog"));
    resize(300, 252);

    // The layout's holder from the form; the layout itself goes to the dialog, which leaves it empty.
    ui.verticalLayoutWidget = new QWidget(this);
    ui.verticalLayoutWidget->setObjectName(QStringLiteral("verticalLayoutWidget"));
    ui.verticalLayoutWidget->hide();
    ui.aboutDialogLayout = new QVBoxLayout();
    ui.aboutDialogLayout->setObjectName(QStringLiteral("aboutDialogLayout"));

    ui.application_name = new QLabel(this);
    ui.application_name->setObjectName(QStringLiteral("application_name"));
    ui.application_name->setGeometry(QRect(0, 130, 301, 30));
    ui.application_name->setAlignment(Qt::AlignCenter);
    ui.application_name->setText(QStringLiteral("<html><head/><body><p align=\"center\"><span style=\" font-size:18pt; "
                                                "font-weight:600;\">Kestrelgap</span></p></body></html>"));

    ui.application_version = new QLabel(this);
    ui.application_version->setObjectName(QStringLiteral("application_version"));
    ui.application_version->setGeometry(QRect(0, 170, 301, 19));
    ui.application_version->setAlignment(Qt::AlignCenter);

    ui.application_icon = new QLabel(this);
    ui.application_icon->setObjectName(QStringLiteral("application_icon"));
    ui.application_icon->setGeometry(QRect(102, 20, 94, 94));
    ui.application_icon->setAlignment(Qt::AlignLeading | Qt::AlignLeft | Qt::AlignVCenter);

    ui.checkForUpdateButton = new QPushButton(this);
    ui.checkForUpdateButton->setObjectName(QStringLiteral("checkForUpdateButton"));
    ui.checkForUpdateButton->setGeometry(QRect(80, 200, 140, 31));

    retranslateForm();
}

void AboutDialog::retranslateForm()
{
    setWindowTitle(tr("About"));
    ui.application_version->setText(tr("version"));
    ui.application_icon->setPixmap(QPixmap(iconPath));
    ui.checkForUpdateButton->setText(tr("Check for updates"));
}

void AboutDialog::changeEvent(QEvent* event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        // The form's own word comes back without the number; no menu can reach an open About box anyway.
        retranslateForm();
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
