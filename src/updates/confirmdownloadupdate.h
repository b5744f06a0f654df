#pragma once

#include <QDialog>
#include <QString>

#include <memory>

class QPushButton;
namespace Ui {
class ConfirmDownloadUpdate;
}

// Asks whether to update now; a Yes runs the installer's download at once.
class ConfirmDownloadUpdate : public QDialog
{
    Q_OBJECT

public:
    explicit ConfirmDownloadUpdate(QWidget* parent = nullptr);
    ~ConfirmDownloadUpdate() override;

    QString downloadUrl() const;

public slots:
    void installLaterClicked();
    void yesButtonClicked();
    void setDownloadUrl(QString downloadUrl);

private:
    std::unique_ptr<Ui::ConfirmDownloadUpdate> ui;
    QPushButton* yesButton;
    QPushButton* laterButton;
    QString mDownloadUrl;
};
