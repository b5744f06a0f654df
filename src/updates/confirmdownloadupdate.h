#pragma once

#include <QDialog>
#include <QString>

class QDialogButtonBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

// Asks whether to update now; a Yes runs the installer's download at once.
class ConfirmDownloadUpdate : public QDialog
{
    Q_OBJECT

public:
    explicit ConfirmDownloadUpdate(QWidget* parent = nullptr);

    QString downloadUrl() const;

public slots:
    void installLaterClicked();
    void yesButtonClicked();
    void setDownloadUrl(QString downloadUrl);

private:
    QDialogButtonBox* button_wrapper;
    QLabel* message_label;
    QWidget* verticalLayoutWidget;
    QVBoxLayout* confirmDownloadUpdateLayout;
    QPushButton* yesButton;
    QPushButton* laterButton;
    QString mDownloadUrl;
};
