#include <QtTest>

#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QRadioButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTranslator>

#include "../updates/standins.h"
#include "core/logger.h"
#include "guifixture.h"
#include "notifications/soundplayer.h"
#include "platform/desktopnotifier.h"
#include "preferences/settingsdialog.h"

namespace {
// A notification service that is there or not, and plays sounds or not.
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
    void initTestCase();
    void init();
    void cleanup() { mDialog.reset(); }
    void initialValues_data();
    void initialValues();
    void soundControls_data();
    void soundControls();
    void noOtherSystemsWording();
    void flagControls_data();
    void flagControls();
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

void TestSettingsDialog::initTestCase()
{
    DesktopNotifier::setInstance(&mNotifier);
    QVERIFY(mGui.start());
}

void TestSettingsDialog::init()
{
    QSettings().clear();
    QFile::remove(autostartPath());
    mNotifier.kind = "silent";
    takeEvents();
}

void TestSettingsDialog::initialValues_data()
{
    QTest::addColumn<QStringList>("stored"); // key, value, key, value...
    QTest::addColumn<bool>("registered");    // a start-at-log-in entry exists
    QTest::addColumn<QString>("shown");      // the controls' states, in the order below

    const QString folder = QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
    QTest::newRow("fresh store") << QStringList() << false << "0 0 0 1 1 1 0 0 0 0  " + folder;
    QTest::newRow("every value away from its default")
        << QStringList { "show-private-notifications", "1", "do-not-launch-main-window-on-start", "1",
               "show-low-bat-alerts", "0", "show-fully-charged-bat-alerts", "0", "native-notification-setting",
               "no-notification", "play-notification-sound", "1", "notification-sound", "pillsbury",
               "pref-debug-enabled", "1", "pref-debug-enabled-code", "12ab", "DefaultDownloadLocationKey", "/srv/in box" }
        << true << "1 1 1 0 0 0 2 1 5 1 12ab /srv/in box";
    QTest::newRow("unknown texts read as defaults")
        << QStringList { "show-private-notifications", "yes", "show-low-bat-alerts", "", "native-notification-setting",
               "balloon", "notification-sound", "Ping", "pref-debug-enabled", "true", "play-notification-sound", "on" }
        << false << "0 0 0 1 1 1 0 0 0 0  " + folder;
}

void TestSettingsDialog::initialValues()
{
    QFETCH(QStringList, stored);
    QFETCH(bool, registered);
    QFETCH(QString, shown);

    for (int i = 0; i < stored.size(); i += 2)
        QSettings().setValue(stored[i], stored[i + 1]);
    if (registered) {
        QDir().mkpath(QFileInfo(autostartPath()).absolutePath());
        QFile(autostartPath()).open(QIODevice::WriteOnly);
    }
    open();
    QStringList states;
    for (const char* name : { "launch_app_on_os_start", "launch_main_window_on_start", "show_sender_name",
             "show_sender_name_and_content", "show_low_battery_alerts", "show_full_charged_battery_alerts",
             "native_notification", "play_notification_sound", "sound_selection_dropdown", "debug_enabled",
             "debug_enabled_code", "default_dwonload_text" }) {
        QWidget* widget = control<QWidget>(name);
        if (auto* button = qobject_cast<QAbstractButton*>(widget))
            states << QString::number(button->isChecked());
        else if (auto* combo = qobject_cast<QComboBox*>(widget))
            states << QString::number(combo->currentIndex());
        else
            states << qobject_cast<QLineEdit*>(widget)->text();
    }
    QCOMPARE(states.join(' '), shown);
    // Opening changes nothing and fires nothing.
    QCOMPARE(takeEvents(), QStringList());
    QCOMPARE(QFile::exists(autostartPath()), registered);
    for (int i = 0; i < stored.size(); i += 2)
        QCOMPARE(QSettings().value(stored[i]).toString(), stored[i + 1]);
}

void TestSettingsDialog::soundControls_data()
{
    QTest::addColumn<QString>("service"); // the desktop's notification service: none, silent or sounding
    QTest::addColumn<QString>("sound");
    QTest::addColumn<QList<int>>("choices"); // notification types picked: quick reply, the desktop's, none
    QTest::addColumn<QString>("enabled");    // low battery, full battery, play box, sound choice
    QTest::addColumn<QString>("hint");

    const QString desktopSounds = QStringLiteral(
        "Your desktop plays the sound of its notifications.\nChange it in the desktop's notification settings.");
    QTest::newRow("sound off") << "silent" << "0" << QList<int>() << "1110" << "\n";
    QTest::newRow("none") << "silent" << "1" << QList<int> { 2 } << "0000" << "\n";
    QTest::newRow("none, then quick reply again") << "silent" << "1" << QList<int> { 2, 0 } << "1111" << "\n";
    QTest::newRow("desktop's, silent service: ours sound") << "silent" << "1" << QList<int> { 1 } << "1111" << "\n";
    QTest::newRow("desktop's, no service: Qt's balloon") << "none" << "1" << QList<int> { 1 } << "1111" << "\n";
    QTest::newRow("desktop's, service sounds") << "sounding" << "1" << QList<int> { 1 } << "1100" << desktopSounds;
    QTest::newRow("desktop's, then quick reply") << "sounding" << "1" << QList<int> { 1, 0 } << "1111" << "\n";
}

void TestSettingsDialog::soundControls()
{
    QFETCH(QString, service);
    QFETCH(QString, sound);
    QFETCH(QList<int>, choices);
    QFETCH(QString, enabled);
    QFETCH(QString, hint);

    mNotifier.kind = service;
    QSettings().setValue("play-notification-sound", sound);
    open();
    const QStringList values = { "quick-reply-notification", "native-notification", "no-notification" };
    for (int index : choices) {
        control<QComboBox>("native_notification")->setCurrentIndex(index);
        QCOMPARE(QSettings().value("native-notification-setting").toString(), values[index]);
    }
    QString seen;
    for (const char* name : { "show_low_battery_alerts", "show_full_charged_battery_alerts", "play_notification_sound",
             "sound_selection_dropdown", "sound_selection_preview_button" })
        seen += control<QWidget>(name)->isEnabled() ? '1' : '0';
    QCOMPARE(seen, enabled + enabled.right(1));
    QCOMPARE(control<QLabel>("win10SoundHintLabel")->text(), hint);
}

// Every text the dialog can show, in each language, the sound hint in both its states included.
void TestSettingsDialog::noOtherSystemsWording()
{
    const QRegularExpression otherSystems("Windows|Taskbar|Control Panel|\\bMac\\b|barre des t|Panneau de config"
                                          "|barra de tareas|Panel de control", QRegularExpression::CaseInsensitiveOption);
    QSettings().setValue("native-notification-setting", "native-notification");
    for (const QString language : { "", "fr", "es" }) {
        QTranslator translator;
        QVERIFY(language.isEmpty() || translator.load("kestrelgap_" + language, ":/translations"));
        QCoreApplication::installTranslator(&translator);
        QStringList texts;
        for (const char* service : { "silent", "sounding" }) {
            mNotifier.kind = service;
            for (QWidget* widget : open()->findChildren<QWidget*>()) {
                if (auto* label = qobject_cast<QLabel*>(widget))
                    texts << label->text() << label->toolTip();
                else if (auto* button = qobject_cast<QAbstractButton*>(widget))
                    texts << button->text();
                else if (auto* combo = qobject_cast<QComboBox*>(widget))
                    for (int i = 0; i < combo->count(); ++i)
                        texts << combo->itemText(i);
            }
        }
        QCoreApplication::removeTranslator(&translator);
        QCOMPARE(texts.filter(otherSystems), QStringList());
    }
}

void TestSettingsDialog::flagControls_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("key"); // empty: the start-at-log-in entry is the state, nothing is stored

    QTest::newRow("launch at log-in") << "launch_app_on_os_start" << "";
    QTest::newRow("hide main window") << "launch_main_window_on_start" << "do-not-launch-main-window-on-start";
    QTest::newRow("low battery") << "show_low_battery_alerts" << "show-low-bat-alerts";
    QTest::newRow("full battery") << "show_full_charged_battery_alerts" << "show-fully-charged-bat-alerts";
    QTest::newRow("sounds") << "play_notification_sound" << "play-notification-sound";
    QTest::newRow("logging") << "debug_enabled" << "pref-debug-enabled";
    QTest::newRow("sender only") << "show_sender_name" << "show-private-notifications";
}

void TestSettingsDialog::flagControls()
{
    QFETCH(QString, name);
    QFETCH(QString, key);

    open()->show();
    QVERIFY(QTest::qWaitForWindowExposed(mDialog.get()));
    auto* button = control<QAbstractButton>(name);
    bool on = button->isChecked();
    for (int step = 0; step < 3; ++step) {
        on = !on;
        // A radio button is switched off by its partner, as a user does; clicks land on the box.
        QAbstractButton* target = !on && qobject_cast<QRadioButton*>(button) ? control<QRadioButton>("show_sender_name_and_content") : button;
        QTest::mouseClick(target, Qt::LeftButton, {}, QPoint(5, target->height() / 2));
        QCOMPARE(button->isChecked(), on);
        if (key.isEmpty())
            QCOMPARE(QFile::exists(autostartPath()), on);
        else
            QCOMPARE(QSettings().value(key).toString(), on ? "1" : "0");
        if (name == "play_notification_sound")
            QCOMPARE(control<QComboBox>("sound_selection_dropdown")->isEnabled(), on);
    }
    QCOMPARE(takeEvents().size(), 3);
}

void TestSettingsDialog::buttons()
{
    RecordingPlayer player;
    SoundPlayer::setInstance(&player);
    QSettings().setValue("play-notification-sound", "1");
    QSettings().setValue("DefaultDownloadLocationKey", QDir::tempPath());
    auto* dropdown = open()->findChild<QComboBox*>("sound_selection_dropdown");
    // The preview sounds the shown choice, whatever the store says.
    for (int i = 1; i <= 6; ++i) {
        dropdown->setCurrentIndex(i % 6);
        QTest::mouseClick(control<QPushButton>("sound_selection_preview_button"), Qt::LeftButton);
        player.played.last() += '=' + QSettings().value("notification-sound").toString();
        QSettings().setValue("notification-sound", "ping");
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
