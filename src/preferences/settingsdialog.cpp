#include "settingsdialog.h"
#include "ui_settingsdialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QGraphicsWebView>
#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QThread>
#include <QVBoxLayout>
#include <QWebFrame>
#include <QWebPage>

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "desktop/automaticstartup.h"
#include "desktop/startupitemlookupworker.h"
#include "platform/fileopener.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("settingsdialog");

const QString quickReplyValue = QStringLiteral("quick-reply-notification");
const QString nativeValue = QStringLiteral("native-notification");
const QString noNotificationValue = QStringLiteral("no-notification");

// Filled by each dialog's constructor; the dialog only runs while the main window exists.
IndexWindow* indexWindow = nullptr;

QString flagValue(int state)
{
    return state != 0 ? QStringLiteral("1") : QStringLiteral("0");
}

// Events that carry nothing but their name.
void logEvent(const QString& eventName, const QString& eventLabel = QString())
{
    QJsonObject none;
    indexWindow->logAnalyticsEvent(eventName, eventLabel, &none);
}

int soundIndex(const QString& value)
{
    static const QStringList labels = {QStringLiteral("default"), QStringLiteral("ping"), QStringLiteral("spring"),
        QStringLiteral("tink"), QStringLiteral("yeah"), QStringLiteral("pillsbury")};
    return qMax(0, labels.indexOf(value));
}

} // namespace

SettingsDialog::SettingsDialog(QWidget* parent)
    : QDialog(parent)
    , mForm(new Ui::SettingsDialog)
    , ui(*mForm)
    , mInfoLabel(nullptr)
    , win10SoundHintLabel(nullptr)
{
    // Every control is set before its signal is connected, so opening the dialog changes nothing.
    // Laid out, never placed: longer translations and larger fonts grow the dialog instead of clipping.
    ui.setupUi(this);
    win10SoundHintLabel = ui.win10SoundHintLabel;
    setWindowIcon(QIcon());
    indexWindow = indexWindowHolder::get();
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    ui.launch_app_on_os_start->setChecked(AutomaticStartup::isSettingsAvailable());

    const QString privateNotifications = indexWindow->getSetting(QStringLiteral("show-private-notifications"), QStringLiteral("0"));
    if (privateNotifications == QLatin1String("1"))
        ui.show_sender_name->setChecked(true);
    else
        ui.show_sender_name_and_content->setChecked(true);
    connect(ui.show_sender_name, &QRadioButton::toggled, this, &SettingsDialog::setNotificationPrivacyState);

    const QString hideMainWindow = indexWindow->getSetting(QStringLiteral("do-not-launch-main-window-on-start"), QStringLiteral("0"));
    ui.launch_main_window_on_start->setChecked(hideMainWindow == QLatin1String("1"));
    connect(ui.launch_main_window_on_start, &QCheckBox::stateChanged, this, &SettingsDialog::setMainWindowLaunchState);
    connect(ui.launch_app_on_os_start, &QCheckBox::stateChanged, this, &SettingsDialog::setLaunchAppOnOSStart);

    const QString lowBattery = indexWindow->getSetting(QStringLiteral("show-low-bat-alerts"), QStringLiteral("1"));
    ui.show_low_battery_alerts->setChecked(lowBattery == QLatin1String("1"));
    connect(ui.show_low_battery_alerts, &QCheckBox::stateChanged, this, &SettingsDialog::setShowLowBatteryAlerts);

    mInfoGlyph = QString(QChar(0x2139));
    // Belongs to a layout this system doesn't use; it is never placed or shown.
    mInfoLabel = new QLabel();
    mInfoLabel->setFixedHeight(15);
    mInfoLabel->setToolTip(tr("Make sure to turn Kestrelgap notifications on in System Preferences > Notifications > "
                              "Play sound for notifications"));

    ui.native_notification->setItemText(1, tr("Use desktop notifications"));
    const QString notificationType = indexWindow->getNativeNotificationSetting();
    if (notificationType == nativeValue) {
        ui.native_notification->setCurrentIndex(1);
    } else if (notificationType == noNotificationValue) {
        ui.native_notification->setCurrentIndex(2);
        ui.show_low_battery_alerts->setEnabled(false);
        ui.show_full_charged_battery_alerts->setEnabled(false);
    } else {
        ui.native_notification->setCurrentIndex(0);
    }
    connect(ui.native_notification, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
        &SettingsDialog::setNativeNotificationType);

    const bool soundEnabled = indexWindow->isNotificationSoundEnabled();
    ui.play_notification_sound->setChecked(soundEnabled);
    connect(ui.play_notification_sound, &QCheckBox::stateChanged, this, &SettingsDialog::setPlayNotificationSounds);

    ui.sound_selection_dropdown->setCurrentIndex(
        soundIndex(indexWindow->getSetting(QStringLiteral("notification-sound"), QStringLiteral("default"))));
    connect(ui.sound_selection_dropdown, &QComboBox::currentTextChanged, this, &SettingsDialog::setNotificationSound);
    connect(ui.sound_selection_preview_button, &QPushButton::clicked, this, &SettingsDialog::previewNotificationSound);

    ui.sound_selection_label->setEnabled(soundEnabled);
    ui.sound_selection_dropdown->setEnabled(soundEnabled);
    ui.sound_selection_preview_button->setEnabled(soundEnabled);
    ui.sound_selection_preview_button->setIcon(QIcon(QStringLiteral(":/images/kestrelgap.iconset/icon_black_play_arrow.png")));
    ui.sound_selection_preview_button->setIconSize(QSize(15, 15));

    const QString fullyCharged = indexWindow->getSetting(QStringLiteral("show-fully-charged-bat-alerts"), QStringLiteral("1"));
    ui.show_full_charged_battery_alerts->setChecked(fullyCharged == QLatin1String("1"));
    connect(ui.show_full_charged_battery_alerts, &QCheckBox::stateChanged, this,
        &SettingsDialog::setShowFullyChargedBatteryAlerts);

    const QString debugEnabled = indexWindow->getSetting(QStringLiteral("pref-debug-enabled"), QStringLiteral("0"));
    ui.debug_enabled->setChecked(debugEnabled == QLatin1String("1"));
    connect(ui.debug_enabled, &QCheckBox::stateChanged, this, &SettingsDialog::setDebugEnabled);

    // Stored as typed; whether the code is valid is the log's business.
    ui.debug_enabled_code->setText(indexWindow->getSetting(QStringLiteral("pref-debug-enabled-code"), QString()));
    connect(ui.debug_enabled_code, &QLineEdit::textChanged, this, &SettingsDialog::debugCodeTextChanged);

    connect(ui.send_debug_log, &QPushButton::clicked, this, &SettingsDialog::openLogClicked);
    connect(ui.set_language, &QPushButton::clicked, this, &SettingsDialog::setLanguageButtonClicked);

    ui.default_dwonload_text->setText(indexWindow->getDefaultDownloadLocationSetting());
    ui.default_dwonload_text->setEnabled(false);
    connect(ui.default_download_button, &QPushButton::clicked, this,
        &SettingsDialog::launchDefaultDownloadLocationChooser);

    updateNotificationSoundControls();
    adjustSize();
    setWindowFlags((windowFlags() & ~Qt::WindowMaximizeButtonHint) | Qt::CustomizeWindowHint);
}

SettingsDialog::~SettingsDialog()
{
    delete mInfoLabel;
}

void SettingsDialog::updateNotificationSoundControls()
{
    const bool soundAvailable = indexWindow->isNotificationSoundEnabledForThisOSVersion();
    // A blank line keeps the dialog from changing height when the hint comes and goes.
    win10SoundHintLabel->setText(soundAvailable
            ? QStringLiteral("\n")
            : tr("Your desktop plays the sound of its notifications.\nChange it in the desktop's notification "
                 "settings."));

    bool soundControlsEnabled = false;
    const QString notificationType = indexWindow->getNativeNotificationSetting();
    if (notificationType == nativeValue) {
        ui.play_notification_sound->setEnabled(soundAvailable);
        soundControlsEnabled = soundAvailable;
    } else if (notificationType == noNotificationValue) {
        ui.play_notification_sound->setEnabled(false);
        soundControlsEnabled = false;
    } else {
        soundControlsEnabled = indexWindow->isNotificationSoundEnabled();
    }
    ui.sound_selection_label->setEnabled(soundControlsEnabled);
    ui.sound_selection_dropdown->setEnabled(soundControlsEnabled);
    ui.sound_selection_preview_button->setEnabled(soundControlsEnabled);
}

void SettingsDialog::logValueChange(const QString& eventName, const QString& value)
{
    QJsonObject json;
    json.insert(QStringLiteral("value"), value);
    indexWindow->logAnalyticsEvent(eventName, value, &json);
}

void SettingsDialog::getIfAppIsLoginItem()
{
    Logger::Info(logModule, QStringLiteral("[getIfAppIsLoginItem] called"));
    auto* worker = new StartupItemLookupWorker();
    QThread* thread = StartupItemLookupWorker::workThread();
    worker->moveToThread(thread);
    connect(thread, &QThread::started, worker, &StartupItemLookupWorker::doWork);
    connect(thread, &QThread::finished, worker, &QObject::deleteLater);
    // The lookup's answer carries no duration, so it has no way into displayLaunchOnOSStartState.
    thread->start(QThread::InheritPriority);
}

void SettingsDialog::setLaunchAppOnOSStart(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setLaunchAppOnOSStart] value=") + value);
    // The autostart entry is the state; nothing goes into the settings store.
    if (value == QLatin1String("0"))
        AutomaticStartup::removeAutomaticStartup();
    else
        AutomaticStartup::setAutomaticStartup();
    logValueChange(QStringLiteral("launch-on-start-pref-changed-qt"), value);
}

void SettingsDialog::displayLaunchOnOSStartState(bool state, int duration)
{
    Logger::Info(logModule, QStringLiteral("[displayLaunchOnOSStartState] state=") + QString::number(state)
            + QStringLiteral(", duration=") + QString::number(duration));
    ui.launch_app_on_os_start->setChecked(state);
    indexWindow->logGoogleAnalyticsEvent(
        QStringLiteral("qt-get-app-startup-value-loading-settings-dialog-") + Properties::getOsVersion(),
        AutomaticStartup::durationBucket(duration));
}

void SettingsDialog::setMainWindowLaunchState(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setMainWindowLaunchState] value=") + value);
    indexWindow->setSetting(QStringLiteral("do-not-launch-main-window-on-start"), value);
    logValueChange(QStringLiteral("do-not-launch-main-window-on-start-pref-changed-qt"), value);
}

void SettingsDialog::setNativeNotificationType(int index)
{
    QString value = quickReplyValue;
    if (index == 2)
        value = noNotificationValue;
    else if (index == 1)
        value = nativeValue;
    Logger::Info(logModule, QStringLiteral("[setNativeNotificationType] value=") + value);

    const bool notificationsShown = index != 2;
    ui.show_low_battery_alerts->setEnabled(notificationsShown);
    ui.show_full_charged_battery_alerts->setEnabled(notificationsShown);
    ui.play_notification_sound->setEnabled(notificationsShown);

    logValueChange(QStringLiteral("notification-type-pref-changed-qt"), value);
    indexWindow->setNativeNotificationSetting(value);
    updateNotificationSoundControls();
}

void SettingsDialog::setShowLowBatteryAlerts(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setShowLowBatteryAlerts] value=") + value);
    indexWindow->setSetting(QStringLiteral("show-low-bat-alerts"), value);
    logValueChange(QStringLiteral("low-batt-notif-pref-changed-qt"), value);
}

void SettingsDialog::setShowFullyChargedBatteryAlerts(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setShowFullyChargedBatteryAlerts] value=") + value);
    indexWindow->setSetting(QStringLiteral("show-fully-charged-bat-alerts"), value);
    logValueChange(QStringLiteral("full-batt-notif-pref-changed-qt"), value);
}

void SettingsDialog::setPlayNotificationSounds(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setPlayNotificationSounds] value=") + value);
    indexWindow->setNotificationSoundEnabled(value);
    logValueChange(QStringLiteral("play-noitification-sound-pref-changed-qt"), value);

    const bool enabled = value == QLatin1String("1");
    ui.sound_selection_label->setEnabled(enabled);
    ui.sound_selection_dropdown->setEnabled(enabled);
    ui.sound_selection_preview_button->setEnabled(enabled);
}

void SettingsDialog::setDebugEnabled(int state)
{
    const QString value = flagValue(state);
    Logger::Info(logModule, QStringLiteral("[setDebugEnabled] value=") + value);
    // The log reads this flag at every line, so logging follows at once.
    indexWindow->setSetting(QStringLiteral("pref-debug-enabled"), value);
    logValueChange(QStringLiteral("logging-enabled-pref-changed-qt"), value);
}

void SettingsDialog::debugCodeTextChanged(QString text)
{
    Logger::Info(logModule, QStringLiteral("[debugCodeTextChanged] text=") + text);
    indexWindow->setSetting(QStringLiteral("pref-debug-enabled-code"), text);
}

void SettingsDialog::openLogClicked()
{
    const QString path = Logger::logFilePath();
    QFile log(path);
    logEvent(QStringLiteral("open-logs-click-qt"));
    if (log.exists()) {
        FileOpener::instance()->openFile(path);
        return;
    }
    Logger::Info(logModule, QStringLiteral("[openLogClicked] no log at ") + path);
    QMessageBox box(nullptr);
    box.setText(tr("No log file found."));
    box.exec();
}

void SettingsDialog::setNotificationPrivacyState(bool checked)
{
    const QString value = flagValue(checked);
    Logger::Info(logModule, QStringLiteral("[setNotificationPrivacyState] value=") + value);
    indexWindow->setSetting(QStringLiteral("show-private-notifications"), value);
    logValueChange(QStringLiteral("show-private-notifications-pref-changed-qt"), value);
}

void SettingsDialog::setDefaultDownloadLocation(QString location)
{
    indexWindow->setDefaultDownloadLocationSetting(location);
}

void SettingsDialog::launchDefaultDownloadLocationChooser()
{
    const QString current = indexWindow->getDefaultDownloadLocationSetting();
    const QString directory = QFileDialog::getExistingDirectory(
        nullptr, QStringLiteral("Choose Default Location"), current, QFileDialog::ShowDirsOnly);
    if (directory != current) {
        Logger::Info(logModule, QStringLiteral("[launchDefaultDownloadLocationChooser] current and previous values are different"));
        logEvent(QStringLiteral("download-location-pref-changed-qt"));
    }
    // A cancelled chooser gives an empty text, and that is shown and stored as well.
    ui.default_dwonload_text->setText(directory);
    indexWindow->setDefaultDownloadLocationSetting(directory);
}

void SettingsDialog::setLanguageButtonClicked()
{
    Logger::Info(logModule, QStringLiteral("[setLanguageButtonClicked] called"));
    // The page owns the language choice; it opens its own picker on this action.
    QJsonObject action;
    action.insert(QStringLiteral("button_action"), QStringLiteral("change_lang_setting"));
    const QString json = QString::fromUtf8(QJsonDocument(action).toJson(QJsonDocument::Compact));
    indexWindow->webView()->page()->mainFrame()->evaluateJavaScript(
        QStringLiteral("genericNativeNotificationButtonClickedCallbackHelper('%1')").arg(json));
    logEvent(QStringLiteral("set-language-pref-qt"), QStringLiteral("clicked"));
    close();
}

void SettingsDialog::setNotificationSound(QString value)
{
    const QString label = value.toLower();
    Logger::Info(logModule, QStringLiteral("[setNotificationSound] value=") + label);
    indexWindow->setNotificationSoundSetting(label);
}

void SettingsDialog::previewNotificationSound()
{
    indexWindow->playNotificationSound(ui.sound_selection_dropdown->currentText().toLower());
}
