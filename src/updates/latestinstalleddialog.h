#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class LatestInstalledDialog;
}

// Tells the user who asked for an update that there is none.
class LatestInstalledDialog : public QDialog
{
    Q_OBJECT

public:
    explicit LatestInstalledDialog(QWidget* parent = nullptr);
    ~LatestInstalledDialog() override;

public slots:
    void okButtonClicked();

private:
    std::unique_ptr<Ui::LatestInstalledDialog> ui;
};
