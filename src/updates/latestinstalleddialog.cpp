#include "latestinstalleddialog.h"

#include <QDialogButtonBox>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("latestinstalleddialog");
}

LatestInstalledDialog::LatestInstalledDialog(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("LatestInstalledDialog"));
    resize(358, 78);
    setWindowTitle(QStringLiteral("Kestrelgap"));
    setWindowIcon(QIcon());
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    label = new QLabel(tr("You are running the latest version of Kestrelgap!"), this);
    label->setObjectName(QStringLiteral("label"));
    label->setAlignment(Qt::AlignCenter);

    buttonBox = new QDialogButtonBox(this);
    buttonBox->setObjectName(QStringLiteral("buttonBox"));
    buttonBox->setOrientation(Qt::Horizontal);
    buttonBox->setCenterButtons(true);
    buttonBox->setStandardButtons(QDialogButtonBox::Ok);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(buttonBox);

    connect(buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttonBox->button(QDialogButtonBox::Ok), &QPushButton::clicked, this,
        &LatestInstalledDialog::okButtonClicked);
}

void LatestInstalledDialog::okButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[okButtonClicked] called"));
    close();
}
