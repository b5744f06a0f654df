#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QGraphicsWebView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/soundplayer.h"
#include "platform/fileopener.h"
#include "platform/osversion.h"
#include "preferences/settingsdialog.h"
#include "web/indexwindow.h"

using StringMap = QMap<QString, QString>;

namespace {

// Records what the native side sends to the trackers and the language hand-over.
const char recordingPage[] = R"(<html><head><script>
  window.events = [];
  var _gaq = { push: function (a) { window.events.push('ga:' + a[2] + ':' + a[3]); } };
  var _kmq = { push: function (a) { window.events.push('km:' + a[1] + ':' + JSON.stringify(a[2])); } };
  function genericNativeNotificationButtonClickedCallbackHelper(json) { window.events.push('page:' + json); }
</script></head><body></body></html>)";

class FakeOsVersion : public OsVersionSource
{
public:
    int code = WV_WINDOWS7;
    int windowsVersion() override { return code; }
    CommandOutput versionCommand(int) override { return {}; }
};

class RecordingOpener : public FileOpener
{
public:
    QStringList opened;
    void openFile(const QString& path) override { opened << path; }
    void showInFolder(const QString&) override {}
};

class RecordingPlayer : public SoundPlayer
{
public:
    QStringList played;
    void play(const QString& resourcePath) override { played << resourcePath; }
};

StringMap storedSettings()
{
    QSettings settings;
    StringMap values;
    for (const QString& key : settings.allKeys())
        values.insert(key, settings.value(key).toString());
    return values;
}

QString autostartPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/kestrelgap.desktop");
}

// The control's state as one text: "1"/"0" for buttons, the index for combo boxes, the text for lines.
QString stateOf(QWidget* widget)
{
    if (auto* button = qobject_cast<QAbstractButton*>(widget))
        return button->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
    if (auto* combo = qobject_cast<QComboBox*>(widget))
        return QString::number(combo->currentIndex());
    if (auto* line = qobject_cast<QLineEdit*>(widget))
        return line->text();
    return QString();
}

// Runs `answer` on the next modal widget of type T once it shows.
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
    void cleanup();
    void cleanupTestCase();

    void initialValues_data();
    void initialValues();
    void soundControls_data();
    void soundControls();
    void flagControls_data();
    void flagControls();
    void debugCodeStoresEveryPrefix_data();
    void debugCodeStoresEveryPrefix();
    void soundChoiceIsStoredQuietly();
    void folderChooser_data();
    void folderChooser();
    void openLog_data();
    void openLog();
    void languageButtonHandsOverToPage();

private:
    template <typename T>
    T* control(const char* name)
    {
        T* widget = mDialog->findChild<T*>(QLatin1String(name));
        if (!widget)
            qWarning("no control %s", name);
        return widget;
    }
    void openDialog();
    QStringList takeEvents();

    QTemporaryDir mPages;
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    FakeOsVersion mOs;
    RecordingOpener mOpener;
    std::unique_ptr<SettingsDialog> mDialog;
};

void TestSettingsDialog::initTestCase()
{
    OsVersionSource::setInstance(&mOs);
    FileOpener::setInstance(&mOpener);

    QFile page(mPages.filePath(QStringLiteral("recording.html")));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write(recordingPage);
    page.close();

    mMainWindow = new MainWindow();
    mIndexWindow = indexWindowHolder::get();
    QSignalSpy loaded(mIndexWindow->webView()->page(), &QWebPage::loadFinished);
    mIndexWindow->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QVERIFY(QTest::qWaitFor([&] { return !loaded.isEmpty() && loaded.last().first().toBool(); }, 10000));
}

void TestSettingsDialog::init()
{
    QSettings().clear();
    QFile::remove(autostartPath());
    mOs.code = OsVersionSource::WV_WINDOWS7;
    mOpener.opened.clear();
    takeEvents();
}

void TestSettingsDialog::cleanup()
{
    mDialog.reset();
}

void TestSettingsDialog::cleanupTestCase()
{
    OsVersionSource::setInstance(nullptr);
    FileOpener::setInstance(nullptr);
    delete mMainWindow;
}

void TestSettingsDialog::openDialog()
{
    mDialog.reset(new SettingsDialog());
}

QStringList TestSettingsDialog::takeEvents()
{
    QWebFrame* frame = mIndexWindow->webView()->page()->mainFrame();
    const QStringList events = frame->evaluateJavaScript(QStringLiteral("window.events")).toStringList();
    frame->evaluateJavaScript(QStringLiteral("window.events = [];"));
    return events;
}

void TestSettingsDialog::initialValues_data()
{
    QTest::addColumn<StringMap>("stored");
    QTest::addColumn<bool>("registered");
    QTest::addColumn<StringMap>("expected");

    const StringMap defaults = {{"launch_app_on_os_start", "0"}, {"launch_main_window_on_start", "0"},
        {"show_sender_name", "0"}, {"show_sender_name_and_content", "1"}, {"show_low_battery_alerts", "1"},
        {"show_full_charged_battery_alerts", "1"}, {"native_notification", "0"}, {"play_notification_sound", "0"},
        {"sound_selection_dropdown", "0"}, {"debug_enabled", "0"}, {"debug_enabled_code", ""},
        {"default_dwonload_text", QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0)}};

    QTest::newRow("fresh store") << StringMap() << false << defaults;
    QTest::newRow("every value away from its default")
        << StringMap {{"show-private-notifications", "1"}, {"do-not-launch-main-window-on-start", "1"},
               {"show-low-bat-alerts", "0"}, {"show-fully-charged-bat-alerts", "0"},
               {"native-notification-setting", "no-notification"}, {"play-notification-sound", "1"},
               {"notification-sound", "pillsbury"}, {"pref-debug-enabled", "1"}, {"pref-debug-enabled-code", " 12ab "},
               {"DefaultDownloadLocationKey", "/srv/in box"}}
        << true
        << StringMap {{"launch_app_on_os_start", "1"}, {"launch_main_window_on_start", "1"}, {"show_sender_name", "1"},
               {"show_sender_name_and_content", "0"}, {"show_low_battery_alerts", "0"},
               {"show_full_charged_battery_alerts", "0"}, {"native_notification", "2"},
               {"play_notification_sound", "1"}, {"sound_selection_dropdown", "5"}, {"debug_enabled", "1"},
               {"debug_enabled_code", " 12ab "}, {"default_dwonload_text", "/srv/in box"}};
    QTest::newRow("empty or unknown texts read as defaults")
        << StringMap {{"show-private-notifications", "yes"}, {"show-low-bat-alerts", ""},
               {"show-fully-charged-bat-alerts", ""}, {"native-notification-setting", "balloon"},
               {"notification-sound", "Ping"}, {"pref-debug-enabled", "true"}, {"play-notification-sound", "on"},
               {"DefaultDownloadLocationKey", ""}}
        << false << defaults;
}

void TestSettingsDialog::initialValues()
{
    QFETCH(StringMap, stored);
    QFETCH(bool, registered);
    QFETCH(StringMap, expected);

    {
        QSettings settings;
        for (auto it = stored.cbegin(); it != stored.cend(); ++it)
            settings.setValue(it.key(), it.value());
    }
    if (registered) {
        QDir().mkpath(QFileInfo(autostartPath()).absolutePath());
        QFile(autostartPath()).open(QIODevice::WriteOnly);
    }
    const StringMap before = storedSettings();

    openDialog();
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QVERIFY2(stateOf(mDialog->findChild<QWidget*>(it.key())) == it.value(), qPrintable(it.key()));
    QVERIFY(!control<QLineEdit>("default_dwonload_text")->isEnabled());

    // Opening fires nothing and changes nothing; the sound flag's first read writes its own default.
    QCOMPARE(takeEvents(), QStringList());
    StringMap expectedAfter = before;
    if (before.value("play-notification-sound").isEmpty())
        expectedAfter.insert("play-notification-sound", "0");
    QCOMPARE(storedSettings(), expectedAfter);
    QCOMPARE(QFile::exists(autostartPath()), registered);
}

void TestSettingsDialog::soundControls_data()
{
    QTest::addColumn<int>("os");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("sound");
    QTest::addColumn<QList<int>>("choices"); // notification types the user picks after opening
    // Enabled: low battery, full battery, play box, sound label + dropdown + preview.
    QTest::addColumn<QString>("enabled");
    QTest::addColumn<QString>("hint"); // null: no hint label at all

    const int win7 = OsVersionSource::WV_WINDOWS7;
    const int win10 = OsVersionSource::WV_None; // reported as "WIN10-OR-OTHER-pc", as on this system
    const QString quick = QStringLiteral("quick-reply-notification");
    const QString native = QStringLiteral("native-notification");
    const QString none = QStringLiteral("no-notification");
    const QString controlPanel = QStringLiteral(
        "To manage Taskbar notification sounds, navigate to\nControl Panel > Sound > Sounds > Program Events > Notification.");
    const QList<int> opened;

    QTest::newRow("7, quick reply, sound on") << win7 << quick << "1" << opened << "1111" << QString();
    QTest::newRow("7, quick reply, sound off") << win7 << quick << "0" << opened << "1110" << QString();
    QTest::newRow("7, none") << win7 << none << "1" << opened << "0000" << QString();
    QTest::newRow("10, quick reply: blank hint") << win10 << quick << "1" << opened << "1111" << "\n";
    QTest::newRow("10, native: the system's sound") << win10 << native << "1" << opened << "1100" << controlPanel;
    QTest::newRow("10, none") << win10 << none << "1" << opened << "0000" << "\n";
    QTest::newRow("none, then quick reply again") << win7 << quick << "1" << QList<int> {2, 0} << "1111" << QString();
    QTest::newRow("10: native picked") << win10 << quick << "1" << QList<int> {1} << "1100" << controlPanel;
    QTest::newRow("10: native, then quick reply") << win10 << quick << "1" << QList<int> {1, 0} << "1111" << "\n";
}

void TestSettingsDialog::soundControls()
{
    QFETCH(int, os);
    QFETCH(QString, type);
    QFETCH(QString, sound);
    QFETCH(QList<int>, choices);
    QFETCH(QString, enabled);
    QFETCH(QString, hint);

    mOs.code = os;
    QSettings().setValue("native-notification-setting", type);
    QSettings().setValue("play-notification-sound", sound);
    openDialog();

    QStringList expectedEvents;
    const QStringList values = {"quick-reply-notification", "native-notification", "no-notification"};
    for (int index : choices) {
        control<QComboBox>("native_notification")->setCurrentIndex(index);
        expectedEvents << "ga:notification-type-pref-changed-qt:" + values[index]
                       << "km:notification-type-pref-changed-qt:{\"os\":\"pc\",\"value\":\"" + values[index] + "\"}";
        QCOMPARE(QSettings().value("native-notification-setting").toString(), values[index]);
    }
    QCOMPARE(takeEvents(), expectedEvents);

    QString seen;
    for (const char* name : {"show_low_battery_alerts", "show_full_charged_battery_alerts", "play_notification_sound",
             "sound_selection_dropdown"})
        seen += control<QWidget>(name)->isEnabled() ? QLatin1Char('1') : QLatin1Char('0');
    QCOMPARE(seen, enabled);
    QCOMPARE(control<QLabel>("sound_selection_label")->isEnabled(), enabled.endsWith(QLatin1Char('1')));
    QCOMPARE(control<QPushButton>("sound_selection_preview_button")->isEnabled(), enabled.endsWith(QLatin1Char('1')));
    auto* hintLabel = mDialog->findChild<QLabel*>(QStringLiteral("win10SoundHintLabel"));
    QCOMPARE(hintLabel ? hintLabel->text() : QString(), hint);
}

void TestSettingsDialog::flagControls_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("key"); // empty: nothing may be stored
    QTest::addColumn<QString>("event");

    QTest::newRow("launch at log-in") << "launch_app_on_os_start" << "" << "launch-on-start-pref-changed-qt";
    QTest::newRow("hide main window") << "launch_main_window_on_start" << "do-not-launch-main-window-on-start"
                                      << "do-not-launch-main-window-on-start-pref-changed-qt";
    QTest::newRow("low battery") << "show_low_battery_alerts" << "show-low-bat-alerts" << "low-batt-notif-pref-changed-qt";
    QTest::newRow("full battery") << "show_full_charged_battery_alerts" << "show-fully-charged-bat-alerts"
                                  << "full-batt-notif-pref-changed-qt";
    QTest::newRow("sounds") << "play_notification_sound" << "play-notification-sound"
                            << "play-noitification-sound-pref-changed-qt";
    QTest::newRow("logging") << "debug_enabled" << "pref-debug-enabled" << "logging-enabled-pref-changed-qt";
    QTest::newRow("sender only") << "show_sender_name" << "show-private-notifications"
                                 << "show-private-notifications-pref-changed-qt";
}

void TestSettingsDialog::flagControls()
{
    QFETCH(QString, name);
    QFETCH(QString, key);
    QFETCH(QString, event);

    openDialog();
    mDialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(mDialog.get()));
    auto* button = mDialog->findChild<QAbstractButton*>(name);
    // The radio button is switched off by its partner, as a user does.
    auto* partner = control<QRadioButton>("show_sender_name_and_content");
    takeEvents();

    bool on = button->isChecked();
    for (int step = 0; step < 3; ++step) {
        on = !on;
        const QString value = on ? QStringLiteral("1") : QStringLiteral("0");
        // Only the box and its text take clicks, not the rest of the row.
        QAbstractButton* target = !on && qobject_cast<QRadioButton*>(button) ? partner : button;
        QTest::mouseClick(target, Qt::LeftButton, {}, QPoint(5, target->height() / 2));

        QCOMPARE(takeEvents(),
            QStringList({"ga:" + event + ":" + value, "km:" + event + ":{\"os\":\"pc\",\"value\":\"" + value + "\"}"}));
        if (key.isEmpty()) {
            QCOMPARE(QFile::exists(autostartPath()), on);
        } else {
            QCOMPARE(QSettings().value(key).toString(), value);
        }
        if (name == QLatin1String("play_notification_sound")) {
            QCOMPARE(control<QComboBox>("sound_selection_dropdown")->isEnabled(), on);
            QCOMPARE(control<QPushButton>("sound_selection_preview_button")->isEnabled(), on);
        }
    }
    // The entry is the state: only the sound flag's first-read default is in the store.
    if (key.isEmpty())
        QCOMPARE(storedSettings().keys(), QStringList {"play-notification-sound"});
}

void TestSettingsDialog::debugCodeStoresEveryPrefix_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("keys"); // "<" is a backspace
    QTest::addColumn<QStringList>("prefixes");

    QTest::newRow("typed into an empty field") << "" << "k3y" << QStringList {"k", "k3", "k3y"};
    QTest::newRow("appended to a stored code") << "12" << "34" << QStringList {"123", "1234"};
    QTest::newRow("erased to nothing") << "ab" << "<<" << QStringList {"a", ""};
}

void TestSettingsDialog::debugCodeStoresEveryPrefix()
{
    QFETCH(QString, stored);
    QFETCH(QString, keys);
    QFETCH(QStringList, prefixes);

    QSettings().setValue("pref-debug-enabled-code", stored);
    openDialog();
    auto* field = control<QLineEdit>("debug_enabled_code");
    field->setCursorPosition(field->text().size());
    takeEvents();

    for (int i = 0; i < keys.size(); ++i) {
        if (keys.at(i) == QLatin1Char('<'))
            QTest::keyClick(field, Qt::Key_Backspace);
        else
            QTest::keyClicks(field, keys.mid(i, 1));
        QCOMPARE(QSettings().value("pref-debug-enabled-code").toString(), prefixes.at(i));
    }
    QCOMPARE(takeEvents(), QStringList());
}

void TestSettingsDialog::soundChoiceIsStoredQuietly()
{
    RecordingPlayer player;
    SoundPlayer::setInstance(&player);
    QSettings().setValue("play-notification-sound", "1");
    openDialog();
    auto* dropdown = control<QComboBox>("sound_selection_dropdown");
    const QStringList labels = {"ping", "spring", "tink", "yeah", "pillsbury", "default"};
    const QStringList files = {"ping", "spring", "tink", "yeah", "pillsbury", "proxima"};
    for (int i = 0; i < labels.size(); ++i) {
        dropdown->setCurrentIndex((i + 1) % dropdown->count());
        QCOMPARE(QSettings().value("notification-sound").toString(), labels.at(i));
        // The preview sounds the shown choice, whatever the store says.
        QSettings().setValue("notification-sound", "ping");
        QTest::mouseClick(control<QPushButton>("sound_selection_preview_button"), Qt::LeftButton);
        QCOMPARE(player.played.value(i), ":/sounds/sounds/" + files.at(i) + ".wav");
    }
    SoundPlayer::setInstance(nullptr);
    QCOMPARE(takeEvents(), QStringList());
}

void TestSettingsDialog::folderChooser_data()
{
    QTest::addColumn<QString>("answer"); // "same", "new" or "cancel"
    QTest::addColumn<bool>("event");

    QTest::newRow("another folder") << "new" << true;
    QTest::newRow("the same folder again: stored, no event") << "same" << false;
    QTest::newRow("cancelled: empty folder stored") << "cancel" << true;
}

void TestSettingsDialog::folderChooser()
{
    QFETCH(QString, answer);
    QFETCH(bool, event);

    QTemporaryDir current;
    QTemporaryDir other;
    QSettings().setValue("DefaultDownloadLocationKey", current.path());
    openDialog();
    takeEvents();

    QString expected;
    if (answer == QLatin1String("cancel")) {
        answerNextModal<QFileDialog>([](QFileDialog* dialog) { dialog->reject(); });
    } else {
        expected = answer == QLatin1String("new") ? other.path() : current.path();
        answerNextModal<QFileDialog>([expected](QFileDialog* dialog) {
            QCOMPARE(dialog->windowTitle(), QStringLiteral("Choose Default Location"));
            dialog->setDirectory(expected);
            QMetaObject::invokeMethod(dialog, "accept");
        });
    }
    QTest::mouseClick(control<QPushButton>("default_download_button"), Qt::LeftButton);

    QCOMPARE(control<QLineEdit>("default_dwonload_text")->text(), expected);
    QCOMPARE(QSettings().value("DefaultDownloadLocationKey").toString(), expected);
    QCOMPARE(takeEvents(),
        event ? QStringList({"ga:download-location-pref-changed-qt:pc", "km:download-location-pref-changed-qt:{\"os\":\"pc\"}"})
              : QStringList());
}

void TestSettingsDialog::openLog_data()
{
    QTest::addColumn<bool>("logExists");
    QTest::newRow("log present: opened") << true;
    QTest::newRow("no log: told so") << false;
}

void TestSettingsDialog::openLog()
{
    QFETCH(bool, logExists);

    const QString path = Logger::logFilePath();
    QFile::remove(path);
    if (logExists) {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile log(path);
        QVERIFY(log.open(QIODevice::WriteOnly));
    }
    openDialog();
    QString boxText;
    if (!logExists)
        answerNextModal<QMessageBox>([&boxText](QMessageBox* box) {
            boxText = box->text();
            box->accept();
        });
    QTest::mouseClick(control<QPushButton>("send_debug_log"), Qt::LeftButton);

    QCOMPARE(mOpener.opened, logExists ? QStringList {path} : QStringList());
    QCOMPARE(boxText, logExists ? QString() : QStringLiteral("No log file found."));
    QCOMPARE(takeEvents(), QStringList({"ga:open-logs-click-qt:pc", "km:open-logs-click-qt:{\"os\":\"pc\"}"}));
}

void TestSettingsDialog::languageButtonHandsOverToPage()
{
    openDialog();
    mDialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(mDialog.get()));
    QTest::mouseClick(control<QPushButton>("set_language"), Qt::LeftButton);

    QCOMPARE(takeEvents(),
        QStringList({"page:{\"button_action\":\"change_lang_setting\"}", "ga:set-language-pref-qt:clicked",
            "km:set-language-pref-qt:{\"os\":\"pc\"}"}));
    QVERIFY(!mDialog->isVisible());
}

QTEST_MAIN(TestSettingsDialog)
#include "tst_settingsdialog.moc"
