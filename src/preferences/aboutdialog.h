#pragma once

#include <QDialog>

#include <memory>

class VersionCheck;
namespace Ui {
class AboutDialog;
}

// Name, icon and version of the program, and the one place where a user asks for a version check.
// Unlike the silent check at sign-in, this one always answers.
class AboutDialog : public QDialog
{
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);
    ~AboutDialog() override;

public slots:
    void checkForUpdateButtonClicked();
    void versionCheckLoadComplete(VersionCheck* versionCheck);
    void versionCheckErrorOccurred(VersionCheck* versionCheck);

protected:
    void changeEvent(QEvent* event) override;

private:
    std::unique_ptr<Ui::AboutDialog> ui;
};
