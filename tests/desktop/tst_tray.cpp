// The tray icon, its menu, balloons and the main window's ways in and out, on the private desktop.
#include <QWindow>
#include <QtTest>

#include <QDBusConnectionInterface>
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
  function processJSONFromNativeNotificationClickHelper(json, reply) { record('json:' + json); }
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
    void balloonText_data();
    void balloonText();
    void mainWindowHidesAndComesBack_data();
    void mainWindowHidesAndComesBack();
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
    QVERIFY(QTest::qWaitForWindowExposed(qtWidget("QSystemTrayIconSys")));
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
    QTest::newRow("double") << true << false;
}

void TestTray::clicks()
{
    QFETCH(bool, twice);
    QFETCH(bool, throughX);

    mMainWindow->hide();
    const QPoint at = mTray->geometry().center();
    if (throughX)
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", QString::number(at.x()), QString::number(at.y()), "click", "1"}), 0);
    else if (twice)
        QTest::mouseDClick(qtWidget("QSystemTrayIconSys"), Qt::LeftButton);
    else
        QTest::mouseClick(qtWidget("QSystemTrayIconSys"), Qt::LeftButton);
    // A single click opens the menu; only a double click brings the main window back.
    if (!twice)
        QTRY_VERIFY(mTray->contextMenu()->isVisible());
    QTRY_COMPARE(mMainWindow->isVisible(), twice);
    mTray->contextMenu()->hide();
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
    mMainWindow->showNormal();
    QVERIFY(QTest::qWaitForWindowExposed(mMainWindow));
    mMainWindow->showMinimized();
    // Iconified by the window manager, not only flagged: a restore sent earlier would be undone.
    QTRY_VERIFY(mMainWindow->isMinimized() && !mMainWindow->windowHandle()->isExposed());
    mIndexWindow->showNotification("{\"thread\":1}", "Ann", "hi", true);
    mIndexWindow->showNotification("{\"thread\":2}", "Bob", "yo", true);
    if (service) {
        QCOMPARE(mService.received().size(), 2);
        QVERIFY(!qtWidget("QBalloonTip"));
        mService.click(mService.received().last().id);
    } else {
        QTRY_VERIFY(qtWidget("QBalloonTip"));
        QTest::mouseClick(qtWidget("QBalloonTip"), Qt::LeftButton);
    }
    QTRY_COMPARE(events(), QStringList {"json:{\"thread\":2}"});
    QTRY_VERIFY(mMainWindow->isVisible() && !mMainWindow->isMinimized());

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
    const QList<FakeNotificationService::Notification> shown = mService.received();
    // One notification on screen at a time: the one whose payload a click delivers.
    QCOMPARE(shown.at(1).replacesId, shown.at(0).id);
    QCOMPARE(shown.at(1).summary, QStringLiteral("Second"));

    // Another program's notification and a button that isn't the body don't count.
    mService.click(shown.at(1).id + 100);
    mService.click(shown.at(1).id, "reply");
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

    mService.reset(false, markup);
    QVERIFY(mService.start());
    mIndexWindow->showNotification("{}", "T", text, false);
    QCOMPARE(mService.received().value(0).body, shown);
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
