#pragma once

#include <QDialog>

class QDialogButtonBox;
class QLabel;

// Tells the user who asked for an update that there is none.
class LatestInstalledDialog : public QDialog
{
    Q_OBJECT

public:
    explicit LatestInstalledDialog(QWidget* parent = nullptr);

public slots:
    void okButtonClicked();

private:
    QDialogButtonBox* buttonBox;
    QLabel* label;
};
