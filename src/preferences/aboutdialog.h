#pragma once

#include <QDialog>

class QLabel;
class QPushButton;
class QVBoxLayout;
class VersionCheck;

// Name, icon and version of the program, and the one place where a user asks for a version check.
// Unlike the silent check at sign-in, this one always answers.
class AboutDialog : public QDialog
{
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);

public slots:
    void checkForUpdateButtonClicked();
    void versionCheckLoadComplete(VersionCheck* versionCheck);
    void versionCheckErrorOccurred(VersionCheck* versionCheck);

protected:
    void changeEvent(QEvent* event) override;

private:
    struct Form
    {
        QWidget* verticalLayoutWidget;
        QVBoxLayout* aboutDialogLayout;
        QLabel* application_name;
        QLabel* application_version;
        QLabel* application_icon;
        QPushButton* checkForUpdateButton;
    };

    void setupForm();
    void retranslateForm();

    Form ui;
};
