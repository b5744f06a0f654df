#include <QtTest>

#include <QComboBox>
#include <QFileDialog>
#include <QGraphicsWebView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QTranslator>
#include <QStandardPaths>
#include <QWebFrame>
#include <QWebPage>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/soundplayer.h"
#include "platform/desktopnotifier.h"
#include "platform/fileopener.h"
#include "platform/osversion.h"
#include "preferences/settingsdialog.h"
#include "resourceinit.h"
#include "web/indexwindow.h"

namespace {

const char recordingPage[] = R"(<html><script>
  window.events = [];
  var _gaq = { push: function (a) { window.events.push(a[2]); } }, _kmq = { push: function (a) {} };
  function genericNativeNotificationButtonClickedCallbackHelper(json) { window.events.push('page:' + json); }
</script></html>)";

struct FakeOsVersion : OsVersionSource {
    int code = WV_WINDOWS7;
    int windowsVersion() override { return code; }
    CommandOutput versionCommand(int) override { return {}; }
};

// A notification service that is there or not, and plays sounds or not.
struct FakeNotifier : DesktopNotifier {
    QString kind = "silent";
    bool isServiceAvailable() override { return kind != "none"; }
    void show(const Notification&) override {}
    bool playsSound() override { return kind == "sounding"; }
};

struct RecordingOpener : FileOpener {
    QStringList opened;
    void openFile(const QString& path) override { opened << path; }
    void showInFolder(const QString&) override {}
};

struct RecordingPlayer : SoundPlayer {
    QStringList played;
    void play(const QString& resourcePath) override { played << resourcePath; }
};

QString autostartPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/autostart/kestrelgap.desktop";
}

// "name=value" pairs, a value with blanks kept whole.
QMap<QString, QString> pairs(const QStringList& list)
{
    QMap<QString, QString> map;
    for (const QString& pair : list)
        map.insert(pair.section('=', 0, 0), pair.section('=', 1));
    return map;
}

// A control's state as text: "1"/"0" for buttons, the index for combo boxes, the text for lines.
QString stateOf(QWidget* widget)
{
    if (auto* button = qobject_cast<QAbstractButton*>(widget))
        return button->isChecked() ? "1" : "0";
    if (auto* combo = qobject_cast<QComboBox*>(widget))
        return QString::number(combo->currentIndex());
    return qobject_cast<QLineEdit*>(widget)->text();
}

template <typename T>
void answerNextModal(std::function<void(T*)> answer)
{
    QTimer::singleShot(0, [answer]() {
        QTRY_VERIFY(qobject_cast<T*>(QApplication::activeModalWidget()));
        answer(qobject_cast<T*>(QApplication::activeModalWidget()));
    });
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
    void noOtherSystemsWording_data();
    void noOtherSystemsWording();
    void flagControls_data();
    void flagControls();
    void soundChoiceAndPreview();
    void folderChooser_data();
    void folderChooser();
    void openLog();
    void languageButtonHandsOverToPage();

private:
    template <typename T>
    T* control(const char* name) { return mDialog->findChild<T*>(QLatin1String(name)); }
    QStringList takeEvents();

    QTemporaryDir mPages;
    MainWindow* mMainWindow = nullptr;
    FakeOsVersion mOs;
    FakeNotifier mNotifier;
    RecordingOpener mOpener;
    std::unique_ptr<SettingsDialog> mDialog;
};

void TestSettingsDialog::initTestCase()
{
    kestrelgapInitResources();
    OsVersionSource::setInstance(&mOs);
    DesktopNotifier::setInstance(&mNotifier);
    FileOpener::setInstance(&mOpener);
    QFile page(mPages.filePath("recording.html"));
    QVERIFY(page.open(QIODevice::WriteOnly) && page.write(recordingPage) > 0);
    page.close();
    mMainWindow = new MainWindow();
    QSignalSpy loaded(indexWindowHolder::get()->webView()->page(), &QWebPage::loadFinished);
    indexWindowHolder::get()->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QTRY_VERIFY(!loaded.isEmpty() && loaded.last().first().toBool());
}

void TestSettingsDialog::init()
{
    QSettings().clear();
    QFile::remove(autostartPath());
    mOs.code = OsVersionSource::WV_WINDOWS7;
    mNotifier.kind = "silent";
    mOpener.opened.clear();
    takeEvents();
}

QStringList TestSettingsDialog::takeEvents()
{
    QWebFrame* frame = indexWindowHolder::get()->webView()->page()->mainFrame();
    const QStringList events = frame->evaluateJavaScript("window.events").toStringList();
    frame->evaluateJavaScript("window.events = [];");
    return events;
}

void TestSettingsDialog::initialValues_data()
{
    QTest::addColumn<QStringList>("stored");
    QTest::addColumn<bool>("registered"); // a start-at-log-in entry exists
    QTest::addColumn<QStringList>("shown");

    const QStringList defaults { "launch_app_on_os_start=0", "launch_main_window_on_start=0", "show_sender_name=0",
        "show_sender_name_and_content=1", "show_low_battery_alerts=1", "show_full_charged_battery_alerts=1",
        "native_notification=0", "play_notification_sound=0", "sound_selection_dropdown=0", "debug_enabled=0",
        "debug_enabled_code=", "default_dwonload_text=" + QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0) };
    QTest::newRow("fresh store") << QStringList() << false << defaults;
    QTest::newRow("every value away from its default")
        << QStringList { "show-private-notifications=1", "do-not-launch-main-window-on-start=1", "show-low-bat-alerts=0",
               "show-fully-charged-bat-alerts=0", "native-notification-setting=no-notification", "play-notification-sound=1",
               "notification-sound=pillsbury", "pref-debug-enabled=1", "pref-debug-enabled-code= 12ab ",
               "DefaultDownloadLocationKey=/srv/in box" }
        << true
        << QStringList { "launch_app_on_os_start=1", "launch_main_window_on_start=1", "show_sender_name=1",
               "show_sender_name_and_content=0", "show_low_battery_alerts=0", "show_full_charged_battery_alerts=0",
               "native_notification=2", "play_notification_sound=1", "sound_selection_dropdown=5", "debug_enabled=1",
               "debug_enabled_code= 12ab ", "default_dwonload_text=/srv/in box" };
    QTest::newRow("unknown texts read as defaults")
        << QStringList { "show-private-notifications=yes", "show-low-bat-alerts=", "native-notification-setting=balloon",
               "notification-sound=Ping", "pref-debug-enabled=true", "play-notification-sound=on" }
        << false << defaults;
}

void TestSettingsDialog::initialValues()
{
    QFETCH(QStringList, stored);
    QFETCH(bool, registered);
    QFETCH(QStringList, shown);

    const QMap<QString, QString> values = pairs(stored);
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        QSettings().setValue(it.key(), it.value());
    if (registered) {
        QDir().mkpath(QFileInfo(autostartPath()).absolutePath());
        QFile(autostartPath()).open(QIODevice::WriteOnly);
    }
    mDialog.reset(new SettingsDialog());
    const QMap<QString, QString> expected = pairs(shown);
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QVERIFY2(stateOf(mDialog->findChild<QWidget*>(it.key())) == it.value(), qPrintable(it.key()));
    // Opening changes nothing and fires nothing.
    QCOMPARE(takeEvents(), QStringList());
    QCOMPARE(QFile::exists(autostartPath()), registered);
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        QCOMPARE(QSettings().value(it.key()).toString(), it.value());
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
    QTest::newRow("sound on") << "silent" << "1" << QList<int>() << "1111" << "\n";
    QTest::newRow("sound off") << "silent" << "0" << QList<int>() << "1110" << "\n";
    QTest::newRow("none, then quick reply again") << "silent" << "1" << QList<int> { 2, 0 } << "1111" << "\n";
    QTest::newRow("none") << "silent" << "1" << QList<int> { 2 } << "0000" << "\n";
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
    mDialog.reset(new SettingsDialog());
    const QStringList values = { "quick-reply-notification", "native-notification", "no-notification" };
    for (int index : choices) {
        control<QComboBox>("native_notification")->setCurrentIndex(index);
        QCOMPARE(QSettings().value("native-notification-setting").toString(), values[index]);
    }
    QString seen;
    for (const char* name : { "show_low_battery_alerts", "show_full_charged_battery_alerts", "play_notification_sound",
             "sound_selection_dropdown" })
        seen += control<QWidget>(name)->isEnabled() ? '1' : '0';
    QCOMPARE(seen, enabled);
    QCOMPARE(control<QPushButton>("sound_selection_preview_button")->isEnabled(), enabled.endsWith('1'));
    auto* hintLabel = control<QLabel>("win10SoundHintLabel");
    QCOMPARE(hintLabel ? hintLabel->text() : QString(), hint);
}

void TestSettingsDialog::noOtherSystemsWording_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("English") << "";
    QTest::newRow("French") << "fr";
    QTest::newRow("Spanish") << "es";
}

// Every text the dialog can show, the sound hint in both its states included.
void TestSettingsDialog::noOtherSystemsWording()
{
    QFETCH(QString, language);

    QTranslator translator;
    QVERIFY(language.isEmpty() || translator.load("kestrelgap_" + language, ":/translations"));
    QCoreApplication::installTranslator(&translator);
    QStringList texts;
    for (const char* service : { "silent", "sounding" }) {
        mNotifier.kind = service;
        QSettings().setValue("native-notification-setting", "native-notification");
        mDialog.reset(new SettingsDialog());
        for (QWidget* widget : mDialog->findChildren<QWidget*>()) {
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
    const QRegularExpression otherSystems("Windows|Taskbar|Control Panel|\\bMac\\b|barre des t|Panneau de config|barra de tareas"
                                          "|Panel de control", QRegularExpression::CaseInsensitiveOption);
    QCOMPARE(texts.filter(otherSystems), QStringList());
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

    mDialog.reset(new SettingsDialog());
    mDialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(mDialog.get()));
    auto* button = mDialog->findChild<QAbstractButton*>(name);
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

void TestSettingsDialog::soundChoiceAndPreview()
{
    RecordingPlayer player;
    SoundPlayer::setInstance(&player);
    QSettings().setValue("play-notification-sound", "1");
    mDialog.reset(new SettingsDialog());
    auto* dropdown = control<QComboBox>("sound_selection_dropdown");
    const QStringList labels = { "ping", "spring", "tink", "yeah", "pillsbury", "default" };
    const QStringList files = { "ping", "spring", "tink", "yeah", "pillsbury", "proxima" };
    for (int i = 0; i < labels.size(); ++i) {
        dropdown->setCurrentIndex((i + 1) % dropdown->count());
        QCOMPARE(QSettings().value("notification-sound").toString(), labels.at(i));
        // The preview sounds the shown choice, whatever the store says.
        QSettings().setValue("notification-sound", "ping");
        QTest::mouseClick(control<QPushButton>("sound_selection_preview_button"), Qt::LeftButton);
        QCOMPARE(player.played.value(i), ":/sounds/sounds/" + files.at(i) + ".wav");
    }
    SoundPlayer::setInstance(nullptr);
}

void TestSettingsDialog::folderChooser_data()
{
    QTest::addColumn<bool>("chosen");
    QTest::newRow("another folder") << true;
    QTest::newRow("cancelled: empty folder stored") << false;
}

void TestSettingsDialog::folderChooser()
{
    QFETCH(bool, chosen);

    QTemporaryDir current, other;
    QSettings().setValue("DefaultDownloadLocationKey", current.path());
    mDialog.reset(new SettingsDialog());
    const QString expected = chosen ? other.path() : QString();
    answerNextModal<QFileDialog>([expected](QFileDialog* dialog) {
        dialog->setDirectory(expected);
        QMetaObject::invokeMethod(dialog, expected.isEmpty() ? "reject" : "accept");
    });
    QTest::mouseClick(control<QPushButton>("default_download_button"), Qt::LeftButton);
    QCOMPARE(control<QLineEdit>("default_dwonload_text")->text(), expected);
    QCOMPARE(QSettings().value("DefaultDownloadLocationKey").toString(), expected);
}

void TestSettingsDialog::openLog()
{
    const QString path = Logger::logFilePath();
    QFile::remove(path);
    mDialog.reset(new SettingsDialog());
    QString boxText;
    answerNextModal<QMessageBox>([&boxText](QMessageBox* box) {
        boxText = box->text();
        box->accept();
    });
    QTest::mouseClick(control<QPushButton>("send_debug_log"), Qt::LeftButton);
    QCOMPARE(boxText, QStringLiteral("No log file found."));

    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile log(path);
    QVERIFY(log.open(QIODevice::WriteOnly));
    QTest::mouseClick(control<QPushButton>("send_debug_log"), Qt::LeftButton);
    QCOMPARE(mOpener.opened, QStringList { path });
}

void TestSettingsDialog::languageButtonHandsOverToPage()
{
    mDialog.reset(new SettingsDialog());
    mDialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(mDialog.get()));
    QTest::mouseClick(control<QPushButton>("set_language"), Qt::LeftButton);
    QCOMPARE(takeEvents().value(0), QStringLiteral("page:{\"button_action\":\"change_lang_setting\"}"));
    QVERIFY(!mDialog->isVisible());
}

QTEST_MAIN(TestSettingsDialog)
#include "tst_settingsdialog.moc"
