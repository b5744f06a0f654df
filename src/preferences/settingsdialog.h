#pragma once

#include <QDialog>
#include <memory>

class QLabel;
namespace Ui {
class SettingsDialog;
}

// The preferences window. Every control takes effect at once and fires one analytics event, so
// there is nothing to confirm or cancel; each opening reads the store afresh.
class SettingsDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SettingsDialog(QWidget* parent = nullptr);
    ~SettingsDialog() override;

    // Asks the login-item worker for the registration state; its answer lands in
    // displayLaunchOnOSStartState. The autostart entry is read synchronously instead, so nothing calls it.
    void getIfAppIsLoginItem();

public slots:
    void setLaunchAppOnOSStart(int state);
    void displayLaunchOnOSStartState(bool state, int duration);
    void setMainWindowLaunchState(int state);
    void setNativeNotificationType(int index);
    void setShowLowBatteryAlerts(int state);
    void setShowFullyChargedBatteryAlerts(int state);
    void setPlayNotificationSounds(int state);
    void setDebugEnabled(int state);
    void debugCodeTextChanged(QString text);
    void openLogClicked();
    void setNotificationPrivacyState(bool checked);
    void setDefaultDownloadLocation(QString location);
    void launchDefaultDownloadLocationChooser();
    void setLanguageButtonClicked();
    void setNotificationSound(QString value);
    void previewNotificationSound();

private:
    void updateNotificationSoundControls();
    // One event per preference change, labelled with the new value and carrying it as {"value": ...}.
    void logValueChange(const QString& eventName, const QString& value);

    // The form generated from settingsdialog.ui, owned here.
    std::unique_ptr<Ui::SettingsDialog> mForm;
    Ui::SettingsDialog& ui;
    QLabel* mInfoLabel;
    QLabel* win10SoundHintLabel;
    QString mInfoGlyph;
};
