#include "latestinstalleddialog.h"

#include "ui_latestinstalleddialog.h"

#include <QDialogButtonBox>
#include <QIcon>
#include <QPushButton>

#include "core/formsizes.h"
#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("latestinstalleddialog");
}

LatestInstalledDialog::LatestInstalledDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::LatestInstalledDialog)
{
    ui->setupUi(this);
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    growFormToContents(this);

    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(ui->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(ui->buttonBox->button(QDialogButtonBox::Ok), &QPushButton::clicked, this,
        &LatestInstalledDialog::okButtonClicked);
}

LatestInstalledDialog::~LatestInstalledDialog() = default;

void LatestInstalledDialog::okButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[okButtonClicked] called"));
    close();
}
