#include <QtTest>

#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QRadioButton>
#include <QSettings>
#include <QStandardPaths>

#include "../updates/standins.h"
#include "core/logger.h"
#include "guifixture.h"
#include "notifications/soundplayer.h"
#include "platform/desktopnotifier.h"
#include "preferences/settingsdialog.h"

namespace {
struct FakeNotifier : DesktopNotifier {
    QString kind = "silent";
    bool isServiceAvailable() override { return kind != "none"; }
    void show(const Notification&) override {}
    bool playsSound() override { return kind == "sounding"; }
};

struct RecordingPlayer : SoundPlayer {
    QStringList played;
    void play(const QString& resourcePath) override { played << resourcePath; }
};

QString autostartPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/autostart/kestrelgap.desktop";
}
} // namespace

class TestSettingsDialog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        DesktopNotifier::setInstance(&mNotifier);
        QVERIFY(mGui.start());
    }
    void init()
    {
        QSettings().clear();
        QFile::remove(autostartPath());
        mNotifier.kind = "silent";
        takeEvents();
    }
    void cleanup() { mDialog.reset(); }
    void scenario_data();
    void scenario();
    void buttons();

private:
    template <typename T>
    T* control(const QString& name) { return mDialog->findChild<T*>(name); }
    SettingsDialog* open() { return (mDialog = std::make_unique<SettingsDialog>()).get(); }
    // The analytics events the page got.
    QStringList takeEvents() { return mGui.takeCalls().filter(QRegularExpression("^_gaq")); }

    GuiFixture mGui;
    FakeNotifier mNotifier;
    std::unique_ptr<SettingsDialog> mDialog;
};

void TestSettingsDialog::scenario_data()
{
    QTest::addColumn<QStringList>("stored"); // key, value, key, value...; "autostart": a start-at-log-in entry
    QTest::addColumn<QString>("service");    // the desktop's notification service: none, silent or sounding
    QTest::addColumn<QString>("shown");      // the controls' states in the order below, "-" when disabled
    QTest::addColumn<QString>("clicked");    // events and the store once quick reply is picked and each flag clicked

    const QString folder = QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
    QTest::newRow("unknown texts and missing keys read as defaults")
        << QStringList { "show-private-notifications", "yes", "show-low-bat-alerts", "", "native-notification-setting",
               "balloon", "notification-sound", "Ping", "pref-debug-enabled", "true", "play-notification-sound", "on" }
        << "silent" << "0 0 0 1 1 1 0 0 0- 0- 0  " + folder << "7 balloon 1 1 1 0 0 1 1";
    QTest::newRow("every value away from its default")
        << QStringList { "autostart", "", "show-private-notifications", "1", "do-not-launch-main-window-on-start", "1",
               "show-low-bat-alerts", "0", "show-fully-charged-bat-alerts", "0", "native-notification-setting",
               "native-notification", "play-notification-sound", "1", "notification-sound", "pillsbury",
               "pref-debug-enabled", "1", "pref-debug-enabled-code", "12ab", "DefaultDownloadLocationKey", "/srv/in box" }
        << "silent" << "1 1 1 0 0 0 1 1 5 0 1 12ab /srv/in box" << "8 quick-reply-notification 0 0 0 1 1 0 0";
    QTest::newRow("no notification: battery and sound controls off")
        << QStringList { "native-notification-setting", "no-notification", "play-notification-sound", "1" }
        << "silent" << "0 0 0 1 1- 1- 2 1- 0- 0- 0  " + folder << "8 quick-reply-notification 1 1 1 0 0 0 1";
    QTest::newRow("desktop's, no service: Qt's balloon, our sound")
        << QStringList { "native-notification-setting", "native-notification", "play-notification-sound", "1" }
        << "none" << "0 0 0 1 1 1 1 1 0 0 0  " + folder << "8 quick-reply-notification 1 1 1 0 0 0 1";
    QTest::newRow("desktop's, service sounds: the hint instead of ours")
        << QStringList { "native-notification-setting", "native-notification", "play-notification-sound", "1" }
        << "sounding" << "0 0 0 1 1 1 1 1- 0- 0- 0  " + folder + " hint" << "8 quick-reply-notification 1 1 1 0 0 0 1";
}

void TestSettingsDialog::scenario()
{
    QFETCH(QStringList, stored);
    QFETCH(QString, service);
    QFETCH(QString, shown);
    QFETCH(QString, clicked);

    mNotifier.kind = service;
    const bool registered = stored.value(0) == "autostart";
    for (int i = registered ? 2 : 0; i < stored.size(); i += 2)
        QSettings().setValue(stored[i], stored[i + 1]);
    if (registered) {
        QDir().mkpath(QFileInfo(autostartPath()).absolutePath());
        QFile(autostartPath()).open(QIODevice::WriteOnly);
    }
    open();
    const auto hint = [this] { return control<QLabel>("win10SoundHintLabel")->text().trimmed().isEmpty() ? "" : " hint"; };
    QStringList states;
    for (const char* name : { "launch_app_on_os_start", "launch_main_window_on_start", "show_sender_name",
             "show_sender_name_and_content", "show_low_battery_alerts", "show_full_charged_battery_alerts",
             "native_notification", "play_notification_sound", "sound_selection_dropdown",
             "sound_selection_preview_button", "debug_enabled", "debug_enabled_code", "default_dwonload_text" }) {
        auto* widget = control<QWidget>(name);
        const QVariant state = widget->property(qobject_cast<QAbstractButton*>(widget) ? "checked" : "currentIndex");
        states << (state.isValid() ? QString::number(state.toInt()) + (widget->isEnabled() ? "" : "-")
                                   : widget->property("text").toString());
    }
    QCOMPARE(states.join(' ') + hint(), shown);
    // Opening changes nothing and fires nothing.
    QCOMPARE(takeEvents(), QStringList());
    QCOMPARE(QFile::exists(autostartPath()), registered);
    for (int i = registered ? 2 : 0; i < stored.size(); i += 2)
        QCOMPARE(QSettings().value(stored[i]).toString(), stored[i + 1]);

    // Quick reply brings back what another choice turned off; a radio button is switched off by its partner.
    control<QComboBox>("native_notification")->setCurrentIndex(0);
    for (const char* name : { "launch_app_on_os_start", "launch_main_window_on_start", "show_sender_name",
             "show_low_battery_alerts", "show_full_charged_battery_alerts", "play_notification_sound", "debug_enabled" }) {
        auto* button = control<QAbstractButton>(name);
        if (button->isChecked() && qobject_cast<QRadioButton*>(button))
            button = control<QAbstractButton>("show_sender_name_and_content");
        button->click();
    }
    QStringList flags { QString::number(takeEvents().size()), QSettings().value("native-notification-setting").toString(),
        QString::number(QFile::exists(autostartPath())) };
    for (const char* key : { "do-not-launch-main-window-on-start", "show-private-notifications", "show-low-bat-alerts",
             "show-fully-charged-bat-alerts", "play-notification-sound", "pref-debug-enabled" })
        flags << QSettings().value(key).toString();
    QCOMPARE(flags.join(' ') + hint(), clicked);
}

void TestSettingsDialog::buttons()
{
    RecordingPlayer player;
    SoundPlayer::setInstance(&player);
    QSettings().setValue("play-notification-sound", "1");
    QSettings().setValue("DefaultDownloadLocationKey", QDir::tempPath());
    auto* dropdown = open()->findChild<QComboBox*>("sound_selection_dropdown");
    // Each choice is stored as it is picked, and the preview sounds it.
    for (int i = 1; i <= 6; ++i) {
        dropdown->setCurrentIndex(i % 6);
        QTest::mouseClick(control<QPushButton>("sound_selection_preview_button"), Qt::LeftButton);
        player.played.last() += '=' + QSettings().value("notification-sound").toString();
    }
    SoundPlayer::setInstance(nullptr);
    QCOMPARE(player.played.join(' ').remove(":/sounds/sounds/"), "ping.wav=ping spring.wav=spring tink.wav=tink yeah.wav=yeah "
                                                                 "pillsbury.wav=pillsbury proxima.wav=default");

    // A folder chosen, then the chooser cancelled: an empty folder is stored.
    QTemporaryDir other;
    for (const QString& chosen : { other.path(), QString() }) {
        ModalAnswer<QFileDialog> answer([chosen](QFileDialog* dialog) {
            dialog->setDirectory(chosen);
            QMetaObject::invokeMethod(dialog, chosen.isEmpty() ? "reject" : "accept");
        });
        QTest::mouseClick(control<QPushButton>("default_download_button"), Qt::LeftButton);
        QCOMPARE(control<QLineEdit>("default_dwonload_text")->text(), chosen);
        QCOMPARE(QSettings().value("DefaultDownloadLocationKey").toString(), chosen);
    }

    const QString log = Logger::logFilePath();
    QFile::remove(log);
    RecordingFileOpener opener;
    QString boxText;
    ModalAnswer<QMessageBox> box([&boxText](QMessageBox* shown) {
        boxText = shown->text();
        shown->accept();
    });
    QTest::mouseClick(control<QPushButton>("send_debug_log"), Qt::LeftButton);
    QCOMPARE(boxText, QStringLiteral("No log file found."));
    QDir().mkpath(QFileInfo(log).absolutePath());
    QVERIFY(QFile(log).open(QIODevice::WriteOnly));
    QTest::mouseClick(control<QPushButton>("send_debug_log"), Qt::LeftButton);
    QCOMPARE(opener.opened, QStringList { log });

    // The language is the page's to choose.
    mDialog->show();
    QTest::mouseClick(control<QPushButton>("set_language"), Qt::LeftButton);
    QCOMPARE(mGui.takeCalls().filter("Helper"),
        QStringList { "genericNativeNotificationButtonClickedCallbackHelper {\"button_action\":\"change_lang_setting\"}" });
    QVERIFY(!mDialog->isVisible());
}

QTEST_MAIN(TestSettingsDialog)
#include "tst_settingsdialog.moc"
