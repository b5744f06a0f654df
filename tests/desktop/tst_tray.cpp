// The tray icon, its menu, balloons and the main window's ways in and out, on the private desktop.
#include <QWindow>
#include <QtTest>

#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QScreen>
#include <QGraphicsWebView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "fakenotificationservice.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "resourceinit.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

const char recordingPage[] = R"(<html><script>
  window.events = [];
  function record(text) { window.events.push(text); }
  var _gaq = { push: function (a) {} }, _kmq = _gaq;
  function nativeAppWindowComposeSingleMessageHelper() { record('compose'); }
  function openPhoneLiveViewInNativeAppWindow(o) { record('open:' + o.type); }
  function processJSONFromNativeNotificationClickHelper(json, reply) {
    record('json:' + json + (reply === undefined ? '' : ' reply:' + reply));
  }
</script></html>)";

// The visible entries as a user reads them, "*" after one with an icon; disabled ones in brackets.
QStringList entries(QMenu* menu)
{
    QStringList result;
    for (QAction* action : menu->actions()) {
        const QString text = action->isSeparator() ? "-" : action->text() + (action->icon().isNull() ? "" : "*");
        if (action->isVisible())
            result << (action->isEnabled() ? text : "[" + text + "]");
    }
    return result;
}

QAction* entry(const QString& text)
{
    for (QAction* action : WinMenuBarIcon::getInstance(nullptr)->contextMenu()->actions()) {
        if (action->text() == text)
            return action;
    }
    return nullptr;
}

// A visible top-level widget of Qt's own: the XEmbed tray window, or the balloon it shows without a service.
QWidget* qtWidget(const char* className)
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qstrcmp(widget->metaObject()->className(), className) == 0 && widget->isVisible())
            return widget;
    }
    return nullptr;
}

// Round trips through the window manager are slow on a loaded machine; what they wait on is still a condition.
const int windowManagerTimeout = 20000;

void answerBox(QMessageBox::StandardButton answer, QString* text)
{
    QTimer::singleShot(0, [=] {
        QTRY_VERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        *text = box->text();
        box->button(answer)->click();
    });
}

} // namespace

class TestTray : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void batteryRowAndSignIn_data();
    void batteryRowAndSignIn();
    void clicks_data();
    void clicks();
    void menuChoicesReachPage_data();
    void menuChoicesReachPage();
    void balloonClickDeliversLatestPayloadOnce_data();
    void balloonClickDeliversLatestPayloadOnce();
    void serviceNotifications();
    void serviceSound_data();
    void serviceSound();
    void balloonText_data();
    void balloonText();
    void mainWindowHidesAndComesBack_data();
    void mainWindowHidesAndComesBack();
    void replies_data();
    void replies();
    void replyTextArrivesIntact_data();
    void replyTextArrivesIntact();
    void contactImage_data();
    void contactImage();
    void helperWindowNeverShows();
    void hungServiceLeavesWindowResponsive();
    void quitConfirmation();

private:
    QStringList events() const { return mFrame->evaluateJavaScript("window.events").toStringList(); }

    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    WinMenuBarIcon* mTray = nullptr;
    QWebFrame* mFrame = nullptr;
    QTemporaryDir mDir;
    FakeNotificationService mService;
};

void TestTray::initTestCase()
{
    QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "run inside scripts/desktop-session.sh");
    QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered("org.freedesktop.Notifications"));
    QVERIFY(StagedFolder::enter());
    kestrelgapInitResources();
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    mFrame = mIndexWindow->webView()->page()->mainFrame();
    QFile page(mDir.filePath("recorder.html"));
    QVERIFY(page.open(QIODevice::WriteOnly) && page.write(recordingPage) > 0);
    page.close();
    QSignalSpy loaded(mFrame->page(), &QWebPage::loadFinished);
    mIndexWindow->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QTRY_VERIFY(!loaded.isEmpty() && loaded.last().first().toBool());
    mTray = WinMenuBarIcon::getInstance(nullptr);
    mTray->show();
    QTRY_VERIFY(qtWidget("QSystemTrayIconSys"));
    QTRY_VERIFY_WITH_TIMEOUT(qtWidget("QSystemTrayIconSys")->windowHandle()->isExposed(), windowManagerTimeout);
}

void TestTray::init()
{
    mService.stop();
    mService.reset();
    mIndexWindow->setJsonForWindows(QString());
    mMainWindow->showAlreadyRunningWindow();
    mFrame->evaluateJavaScript("window.events = [];");
}

// Rows run in order on the same menu, so each report must replace the one before.
void TestTray::batteryRowAndSignIn_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("charging");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<QStringList>("rows"); // between Preferences and Quit

    QTest::newRow("signed in, half") << 45 << false << true << QStringList {"Preferences", "-", "Phone Battery: 45%", "-"};
    QTest::newRow("full, charging") << 100 << true << true << QStringList {"Preferences", "-", "Phone Battery: 100%*", "-"};
    QTest::newRow("none") << 0 << true << true << QStringList {"Preferences", "-"};
    QTest::newRow("low") << 5 << false << true << QStringList {"Preferences", "-", "Phone Battery: 5%", "-"};
    // Signing out clears the row and gates the entries that need an account.
    QTest::newRow("signed out") << -1 << false << false << QStringList {"[Preferences]", "-"};
}

void TestTray::batteryRowAndSignIn()
{
    QFETCH(int, status);
    QFETCH(bool, charging);
    QFETCH(bool, signedIn);
    QFETCH(QStringList, rows);

    if (signedIn) {
        mTray->enableMenuOptionsForLoggedInUser();
        mIndexWindow->showBatteryStatus(status, charging);
    } else {
        mIndexWindow->updateClientLoginStateForMenuItems(false);
    }
    QCOMPARE(mTray->trayIcon()->contextMenu(), mTray->contextMenu());
    const QString gate = signedIn ? "%1" : "[%1]";
    QCOMPARE(entries(mTray->contextMenu()), QStringList({gate.arg("New Message...*"), "Open Kestrelgap*", "-",
        gate.arg("Live Phone Notifications*"), gate.arg("Phone Dialer*")}) + rows + QStringList {"Quit Kestrelgap"});
}

void TestTray::clicks_data()
{
    QTest::addColumn<bool>("twice");
    QTest::addColumn<bool>("throughX");
    QTest::newRow("left") << false << false;
    QTest::newRow("left, through the X server") << false << true;
    QTest::newRow("double, through the X server") << true << true;
}

void TestTray::clicks()
{
    QFETCH(bool, twice);
    QFETCH(bool, throughX);

    mMainWindow->hide();
    const QPoint at = mTray->geometry().center();
    if (throughX) {
        // Well inside the double-click time, so that the X server's timestamps make it one.
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", QString::number(at.x()), QString::number(at.y()), "click",
                                                  "--repeat", twice ? "2" : "1", "--delay", "60", "1"}),
            0);
    } else {
        QTest::mouseClick(qtWidget("QSystemTrayIconSys"), Qt::LeftButton);
    }
    // A single click opens the menu; only a double click brings the main window back.
    if (!twice)
        QTRY_VERIFY(mTray->contextMenu()->isVisible());
    QTRY_COMPARE_WITH_TIMEOUT(mMainWindow->isVisible(), twice, windowManagerTimeout);
    // And the menu stays shut after it, also once the double-click time has passed.
    if (twice) {
        QTest::qWait(QApplication::doubleClickInterval() + 200);
        QVERIFY(!mTray->contextMenu()->isVisible());
    }
    mTray->contextMenu()->hide();
    // Off the tray: a later program's icon may take this place, and a pointer already on a target
    // never reports the move that "xdotool mousemove --sync" waits for.
    if (throughX)
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", "1", "1"}), 0);
}

void TestTray::menuChoicesReachPage_data()
{
    QTest::addColumn<QString>("choice");
    QTest::addColumn<QStringList>("events");
    QTest::newRow("compose") << "New Message..." << QStringList {"compose"};
    QTest::newRow("dialer") << "Phone Dialer" << QStringList {"open:dialer_view_standalone"};
    QTest::newRow("close popups") << "Close All Popup Windows" << QStringList {};
}

void TestTray::menuChoicesReachPage()
{
    QFETCH(QString, choice);
    QFETCH(QStringList, events);

    mTray->enableMenuOptionsForLoggedInUser();
    mTray->addCloseQuickReplyWindowsOption();
    entry(choice)->trigger();
    QCOMPARE(this->events(), events);
    QCOMPARE(entry("Close All Popup Windows")->isVisible(), choice != "Close All Popup Windows");
    mTray->removeCloseQuickReplyWindowsOption();
}

void TestTray::balloonClickDeliversLatestPayloadOnce_data()
{
    QTest::addColumn<bool>("service");
    QTest::newRow("desktop's notification service") << true;
    QTest::newRow("Qt's own balloon") << false;
}

void TestTray::balloonClickDeliversLatestPayloadOnce()
{
    QFETCH(bool, service);

    if (service)
        QVERIFY(mService.start());
    // The show from the row before may still be on its way through the window manager; ask until it holds.
    QTRY_VERIFY_WITH_TIMEOUT(
        [this] {
            if (!mMainWindow->windowHandle() || !mMainWindow->windowHandle()->isExposed())
                mMainWindow->showNormal();
            return mMainWindow->windowHandle() && mMainWindow->windowHandle()->isExposed();
        }(),
        windowManagerTimeout);
    // Iconified by the window manager, not only flagged: a restore sent earlier would be undone.
    // An activation still on its way from the row before can undo it; then it is asked for again.
    QTRY_VERIFY_WITH_TIMEOUT(
        [this] {
            if (!mMainWindow->isMinimized())
                mMainWindow->showMinimized();
            return mMainWindow->isMinimized() && !mMainWindow->windowHandle()->isExposed();
        }(),
        windowManagerTimeout);
    mIndexWindow->showNotification("{\"thread\":1}", "Ann", "hi", true);
    mIndexWindow->showNotification("{\"thread\":2}", "Bob", "yo", true);
    if (service) {
        QTRY_COMPARE(mService.received().size(), 2);
        QVERIFY(!qtWidget("QBalloonTip"));
        mService.click(mService.received().last().id);
    } else {
        QTRY_VERIFY(qtWidget("QBalloonTip"));
        QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    }
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":2}"});
    QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isVisible() && !mMainWindow->isMinimized(), windowManagerTimeout);

    // Delivered; a later activation only shows the window.
    mFrame->evaluateJavaScript("window.events = [];");
    mMainWindow->hide();
    mIndexWindow->activated(QSystemTrayIcon::Trigger);
    QTRY_VERIFY(mMainWindow->isVisible());
    QCOMPARE(events(), QStringList());
}

void TestTray::serviceNotifications()
{
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{\"thread\":3}", "First", "one", false);
    mIndexWindow->showNotification("{\"thread\":4}", "Second", "two", false);
    QTRY_COMPARE(mService.received().size(), 2);
    const QList<FakeNotificationService::Notification> shown = mService.received();
    // One notification on screen at a time: the one whose payload a click delivers.
    QCOMPARE(shown.at(1).replacesId, shown.at(0).id);
    QCOMPARE(shown.at(1).summary, QStringLiteral("Second"));
    // What ties it to the launcher, and so to the desktop's settings for this program.
    QCOMPARE(shown.at(1).hints.value("desktop-entry").toString(), QStringLiteral("kestrelgap"));
    QCOMPARE(shown.at(1).hints.value("category").toString(), QStringLiteral("im.received"));
    QVERIFY2(QImage(shown.at(1).appIcon).width() >= 48, qPrintable(shown.at(1).appIcon));

    // Another program's notification and a button that isn't the body don't count.
    mService.click(shown.at(1).id + 100);
    mService.click(shown.at(1).id, "snooze");
    mService.click(shown.at(1).id);
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":4}"});

    // A service that refuses leaves the balloon to Qt.
    mFrame->evaluateJavaScript("window.events = [];");
    mService.reset(true);
    mIndexWindow->showNotification("{\"thread\":5}", "Third", "three", false);
    QTRY_VERIFY(qtWidget("QBalloonTip"));
    QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":5}"});
}

void TestTray::balloonText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("markup");
    QTest::addColumn<QString>("shown");
    QTest::newRow("three signs decode") << "caf%C3%A9+%26+cr%C3%A8me%20" << false << "caf\u00e9 & cr\u00e8me ";
    QTest::newRow("two signs stay") << "a+b%20c%20" << false << "a+b%20c%20";
    QTest::newRow("percentages") << "Battery 15% (was 20%)" << false << "Battery 15% (was 20%)";
    QTest::newRow("plain, colon in the first words") << "Big sale: 10%, 20%, 30% off" << false
                                                     << "Big sale: 10%, 20%, 30% off";
    QTest::newRow("plain, plus beside stray signs") << "1+1 is 2, 100% 200% 300%" << false << "1+1 is 2, 100% 200% 300%";
    QTest::newRow("encoded, colon in the first words") << "See you at 5:30%21%21%21" << false << "See you at 5:30!!!";
    QTest::newRow("encoded, word before a colon keeps its case") << "Sale: 10%25 20%25 30%25" << false
                                                                 << "Sale: 10% 20% 30%";
    QTest::newRow("markup service") << "<b>5 > 3 & 1</b>" << true << "&lt;b&gt;5 &gt; 3 &amp; 1&lt;/b&gt;";
}

void TestTray::balloonText()
{
    QFETCH(QString, text);
    QFETCH(bool, markup);
    QFETCH(QString, shown);

    mService.reset(false, markup ? QStringList {"body-markup"} : QStringList());
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{}", "T", text, false);
    QTRY_COMPARE(mService.received().size(), 1);
    QCOMPARE(mService.received().value(0).body, shown);
}

void TestTray::serviceSound_data()
{
    QTest::addColumn<QStringList>("capabilities");
    QTest::addColumn<QString>("enabled");
    QTest::addColumn<QStringList>("hints"); // sound hints the service was given, as name=value
    QTest::newRow("service sounds") << QStringList {"sound"} << "1" << QStringList {"sound-name=message-new-instant"};
    QTest::newRow("service sounds, user wants silence") << QStringList {"sound"} << "0" << QStringList {"suppress-sound=true"};
    QTest::newRow("service can't sound") << QStringList() << "1" << QStringList();
}

void TestTray::serviceSound()
{
    QFETCH(QStringList, capabilities);
    QFETCH(QString, enabled);
    QFETCH(QStringList, hints);

    mIndexWindow->setNativeNotificationSetting("native-notification");
    mIndexWindow->setNotificationSoundEnabled(enabled);
    mService.reset(false, capabilities);
    QVERIFY(mService.start());
    // Once the service has told what it can, our own sound gives way to its.
    QTRY_COMPARE(mIndexWindow->isNotificationSoundEnabledForThisOSVersion(), !capabilities.contains("sound"));
    mIndexWindow->showNotification("{}", "T", "text", false);
    QTRY_COMPARE(mService.received().size(), 1);
    const QVariantMap sent = mService.received().at(0).hints;
    QStringList seen;
    for (const char* name : {"sound-name", "sound-file", "suppress-sound"})
        if (sent.contains(name))
            seen << QString(name) + "=" + sent.value(name).toString();
    QCOMPARE(seen, hints);
    mIndexWindow->setNativeNotificationSetting("quick-reply-notification");
}

void TestTray::replies_data()
{
    QTest::addColumn<QStringList>("capabilities");
    QTest::addColumn<bool>("asked");         // the page asked for a reply button
    QTest::addColumn<QStringList>("actions"); // what the service is given beyond the default one
    QTest::addColumn<QString>("answer");      // "type <text>", "button" or nothing
    QTest::addColumn<QStringList>("events");
    QTest::newRow("inline reply goes with the first of two")
        << QStringList {"inline-reply"} << true << QStringList {"inline-reply", "Reply"} << "type on my way"
        << QStringList {"json:{\"thread\":1} reply:on my way"};
    QTest::newRow("actions only: a button that opens the thread")
        << QStringList() << true << QStringList {"reply", "Reply"} << "button" << QStringList {"json:{\"thread\":1}"};
    QTest::newRow("no button asked") << QStringList {"inline-reply"} << false << QStringList() << "" << QStringList();
}

// Two notifications on screen, as a service that keeps each one shows them; the user answers the first.
void TestTray::replies()
{
    QFETCH(QStringList, capabilities);
    QFETCH(bool, asked);
    QFETCH(QStringList, actions);
    QFETCH(QString, answer);
    QFETCH(QStringList, events);

    mService.reset(false, capabilities);
    mService.keepApart(true);
    QVERIFY(mService.start());
    mMainWindow->hide();
    mIndexWindow->showNotification("{\"thread\":1}", "Ann", "hi", false, asked);
    mIndexWindow->showNotification("{\"thread\":2}", "Bob", "yo", false, asked);
    QTRY_COMPARE(mService.received().size(), 2);
    const uint first = mService.received().at(0).id;
    QCOMPARE(mService.received().at(1).actions.mid(2), actions);
    mService.reply(first + 1000, "not ours");
    if (answer.startsWith("type ")) {
        mService.reply(first, answer.mid(5));
        QTRY_COMPARE(mService.closed(), QList<uint> {first});
    } else if (answer == "button") {
        mService.click(first, "reply");
        QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isVisible(), windowManagerTimeout);
    }
    QTRY_COMPARE(this->events(), events);
}

void TestTray::replyTextArrivesIntact_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("quotes") << "it's \"fine\"";
    QTest::newRow("backslashes") << "C:\\new\\ \\'";
    QTest::newRow("newlines") << "one\ntwo\r\nthree";
    QTest::newRow("closing script") << "</script><script>record('owned')</script>";
    QTest::newRow("line separators") << QString::fromUtf8("a\u2028b\u2029c");
}

void TestTray::replyTextArrivesIntact()
{
    QFETCH(QString, text);

    mService.reset(false, {"inline-reply"});
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{\"thread\":3}", "Ann", "hi", false, true);
    QTRY_COMPARE(mService.received().size(), 1);
    mService.reply(mService.received().at(0).id, text);
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":3} reply:" + text});
}

void TestTray::contactImage_data()
{
    QTest::addColumn<QString>("image"); // "file" for a picture on disk
    QTest::addColumn<bool>("hinted");
    QTest::newRow("local file") << "file" << true;
    QTest::newRow("missing file") << "/nonexistent/face.png" << false;
    QTest::newRow("unreachable address") << "http://127.0.0.1:9/face.png" << false;
}

void TestTray::contactImage()
{
    QFETCH(QString, image);
    QFETCH(bool, hinted);

    const QString face = mDir.filePath("face.png");
    QVERIFY(QImage(8, 8, QImage::Format_RGB32).save(face));
    mService.reset(false, {});
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{}", "Ann", "hi", false, false, image == "file" ? face : image);
    QTRY_COMPARE_WITH_TIMEOUT(mService.received().size(), 1, windowManagerTimeout);
    QCOMPARE(mService.received().at(0).hints.value("image-path").toString(), hinted ? face : QString());
}

// Without a compositor a transparent window is drawn black: the helper must leave the tray corner as it was.
void TestTray::helperWindowNeverShows()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect corner(screen->geometry().bottomRight() - QPoint(4, 4), QSize(5, 5));
    const QImage before = screen->grabWindow(0, corner.x(), corner.y(), 5, 5).toImage();
    QWidget* helper = NotificationWindowManager::getInstance()->getHackWindow();
    helper->showNormal();
    helper->activateWindow();
    // Requests reach the X server in order: once this window is on screen, the helper's would be too.
    QWidget marker;
    marker.setGeometry(10, 10, 20, 20);
    marker.show();
    QTRY_VERIFY_WITH_TIMEOUT(marker.windowHandle() && marker.windowHandle()->isExposed(), windowManagerTimeout);
    QCOMPARE(screen->grabWindow(0, corner.x(), corner.y(), 5, 5).toImage(), before);
}

// Two balloons to a service that takes the calls and never answers; the window must not notice.
void TestTray::hungServiceLeavesWindowResponsive()
{
    mService.reset(false, {}, true);
    QVERIFY(mService.start());
    QApplication::setActiveWindow(mMainWindow);
    QTRY_VERIFY_WITH_TIMEOUT(mMainWindow->isActiveWindow(), windowManagerTimeout);
    const double zoom = mMainWindow->getScaleFactor();
    QElapsedTimer clock;
    clock.start();
    mIndexWindow->showNotification("{\"thread\":6}", "Hung", "one", false);
    mIndexWindow->showNotification("{\"thread\":7}", "Hung", "two", false);
    QTest::keyClick(mMainWindow, Qt::Key_Equal, Qt::ControlModifier);
    QTRY_VERIFY(mMainWindow->getScaleFactor() > zoom);
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    // Once the calls fail, the balloon falls back to Qt's own.
    mService.stop();
    QTRY_VERIFY_WITH_TIMEOUT(qtWidget("QBalloonTip"), windowManagerTimeout);
    QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":7}"});
}

void TestTray::mainWindowHidesAndComesBack_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("visible");
    QTest::newRow("window manager's close only hides") << "close" << false;
    QTest::newRow("Ctrl+W on the active window") << "ctrl-w" << false;
    QTest::newRow("Close while another window is active") << "other active" << true;
    QTest::newRow("Ctrl+= zooms in") << "zoom" << true;
}

void TestTray::mainWindowHidesAndComesBack()
{
    QFETCH(QString, how);
    QFETCH(bool, visible);

    QWidget other;
    if (how == "other active") {
        other.show();
        QApplication::setActiveWindow(&other);
        QTRY_VERIFY(other.isActiveWindow());
    } else {
        QApplication::setActiveWindow(mMainWindow);
        QTRY_VERIFY(mMainWindow->isActiveWindow());
    }
    const double zoom = mMainWindow->getScaleFactor();
    if (how == "close")
        mMainWindow->close();
    else if (how == "ctrl-w" || how == "zoom")
        QTest::keyClick(mMainWindow, how == "zoom" ? Qt::Key_Equal : Qt::Key_W, Qt::ControlModifier);
    else
        mMainWindow->closeActionClicked();
    QTRY_COMPARE(mMainWindow->isVisible(), visible);
    QTRY_COMPARE(mMainWindow->isActiveWindow(), how == "zoom");
    QTRY_COMPARE(mMainWindow->getScaleFactor() > zoom, how == "zoom");
}

void TestTray::quitConfirmation()
{
    QString text;
    answerBox(QMessageBox::No, &text);
    entry("Quit Kestrelgap")->trigger();
    QCOMPARE(text, QStringLiteral("Are you sure you want to quit Kestrelgap?"));
    QVERIFY(mTray->trayIcon()->isVisible());
    answerBox(QMessageBox::Yes, &text);
    entry("Quit Kestrelgap")->trigger();
    QVERIFY(!mTray->trayIcon()->isVisible());
}

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
