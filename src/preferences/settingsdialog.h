#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

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
    struct Form
    {
        QLabel* launchSettingsLabel;
        QCheckBox* launch_app_on_os_start;
        QCheckBox* launch_main_window_on_start;
        QLabel* notificationsLabel;
        QComboBox* native_notification;
        QCheckBox* show_low_battery_alerts;
        QCheckBox* show_full_charged_battery_alerts;
        QCheckBox* play_notification_sound;
        QLabel* sound_selection_label;
        QComboBox* sound_selection_dropdown;
        QPushButton* sound_selection_preview_button;
        QLabel* privacyLabel;
        QRadioButton* show_sender_name_and_content;
        QRadioButton* show_sender_name;
        QLabel* language_label;
        QPushButton* set_language;
        QLabel* debugLabel;
        QCheckBox* debug_enabled;
        QLabel* debugCodeLabel;
        QLineEdit* debug_enabled_code;
        QPushButton* send_debug_log;
        QLabel* downloadLocationLabel;
        QLineEdit* default_dwonload_text;
        QPushButton* default_download_button;
    };

    void setupForm();
    void setupLayout();
    void updateNotificationSoundControls();
    // One event per preference change, labelled with the new value and carrying it as {"value": ...}.
    void logValueChange(const QString& eventName, const QString& value);

    Form ui;
    QLabel* mInfoLabel;
    QLabel* win10SoundHintLabel;
    QString mInfoGlyph;
};
