#include <QtTest>

#include <QAction>
#include <QDesktopServices>
#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMenu>
#include <QNetworkAccessManager>
#include <QSettings>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/logger.h"
#include "core/servicehost.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "httpserver.h"
#include "resourceinit.h"
#include "web/containerallowedurls.h"
#include "web/indexwindow.h"

namespace {

const QUrl recorderPage(QStringLiteral("qrc:///bridge/recorder.html"));
const QString listPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

// Slots the page calls by name; a rename or a changed argument list breaks the web app silently.
const char* const pageSlots[] = { "addJSObject()", "mainLoadStarted()", "mainLoadFinished(bool)", "linkClicked(QUrl)",
    "showMainWindow()", "showWindow()", "refreshWindow()", "focusResponseField()", "isMainWindowFocused()",
    "updateClientLoginStateForMenuItems(bool)", "setDockIconUnreadcount(int)", "log(QString)",
    "logInfo(QString,QString)", "logError(QString,QString)", "setSetting(QString,QString)",
    "getSetting(QString,QString)", "removeSetting(QString)", "setDefaultDownloadLocationSetting(QString)",
    "getDefaultDownloadLocationSetting()", "getApplicationProperty(QString)", "setNativeNotificationSetting(QString)",
    "getNativeNotificationSetting()", "setNotificationSoundSetting(QString)", "getNotificationSoundSetting()",
    "setNotificationSoundEnabled(QString)", "isNotificationSoundEnabled()", "logKissMetricsEvent(QString)",
    "logGoogleAnalyticsEvent(QString,QString)", "logGoogleAnalyticsEvent(QString)",
    "logAnalyticsEvent(QString,QString)", "logAnalyticsEvent(QString)", "composeNewActionClicked()",
    "signoutActionClicked()", "settingsActionClicked()", "launchLivePhoneView()", "launchPhoneDialer()",
    "launchQuickReply(QString,QString,int,int,QString)", "showBatteryStatus(int,bool)", "showBatteryStatus(int)",
    "showNotification(QString,QString,QString,bool,bool,QString)",
    "showNotification(QString,QString,QString,bool,bool)", "showNotification(QString,QString,QString,bool)",
    "closeAllNotificationWindows()", "closeNotificationWindow(QString)", "setJsonForWindows(QString)",
    "processJson(QString,QString)", "processJson(QString)", "isNotificationSoundEnabledForThisOSVersion()",
    "playNotificationSound()", "playNotificationSound(QString)", "downloadFile(QString,QString,QString,long,bool)",
    "mediaDownloadComplete(QString,QString)", "showInFolder(QString&)", "opendDownloadedFile(QString&)",
    "changeLanguageCode(QString)" };

QString ga(const QString& name, const QString& label = QStringLiteral("pc"))
{
    return QStringLiteral("_gaq [\"_trackEvent\",\"WebApp\",\"%1\",\"%2\"]").arg(name, label);
}

QString km(const QString& name, const QString& object = QStringLiteral("{\"os\":\"pc\"}"))
{
    return QStringLiteral("_kmq [\"record\",\"%1\",%2]").arg(name, object);
}

// Stands in for the user's browser.
class BrowserStandIn : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void openUrl(const QUrl& url) { opened.append(url); }
};

bool loadAndWait(IndexWindow* window, const QUrl& url)
{
    QSignalSpy finished(window->webView()->page(), &QWebPage::loadFinished);
    window->loadUrl(url);
    return QTest::qWaitFor([&] { return !finished.isEmpty() && finished.last().first().toBool(); }, 10000);
}

QWebFrame* mainFrame(IndexWindow* window)
{
    return window->webView()->page()->mainFrame();
}

QStringList pageCalls(IndexWindow* window)
{
    return mainFrame(window)->evaluateJavaScript("window.calls").toStringList();
}

// Runs the code in the page as the web app would; answers "ok:<type>:<value>" or "error".
QString callFromPage(IndexWindow* window, const QString& code)
{
    const QString quoted = QString::fromUtf8(QJsonDocument(QJsonArray { code }).toJson(QJsonDocument::Compact));
    return mainFrame(window)->evaluateJavaScript(QString("callBridge(%1[0])").arg(quoted)).toString();
}

} // namespace

class TestIndexWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void publishedSurface();
    void pageCalls_data();
    void pageCalls();
    void menuActions_data();
    void menuActions();
    void loginStateFromPage_data();
    void loginStateFromPage();
    void pageLogging();
    void linkRouting_data();
    void linkRouting();
    void classifyLoadedUrl_data();
    void classifyLoadedUrl();
    void messengerPageResizesAndReportsOsOnce();
    void getSetting_data();
    void getSetting();
    void soundFlag_data();
    void soundFlag();

private:
    QAction* composeAction() const
    {
        for (QAction* action : mMainWindow->mainMenu()->actions() + mMainWindow->shortcutsMenu()->actions()) {
            if (action->shortcut() == QKeySequence("Ctrl+N"))
                return action;
        }
        return nullptr;
    }

    HttpServer mServer;
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    BrowserStandIn mBrowser;
};

void TestIndexWindow::initTestCase()
{
    kestrelgapInitResources();
    QDesktopServices::setUrlHandler("http", &mBrowser, "openUrl");
    QDesktopServices::setUrlHandler("https", &mBrowser, "openUrl");
    // The main window's list fetch stays on the loopback server, which knows no list.
    QVERIFY(mServer.listen());
    ContainerAllowedUrls::setDocumentUrlForTests(mServer.url(listPath));

    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mIndexWindow);
}

void TestIndexWindow::init()
{
    QSettings().remove("pref-debug-enabled");
    QSettings().remove("pref-debug-enabled-code");
    QVERIFY(loadAndWait(mIndexWindow, recorderPage));
    mBrowser.opened.clear();
    mMainWindow->hide();
}

void TestIndexWindow::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler("http");
    QDesktopServices::unsetUrlHandler("https");
    ContainerAllowedUrls::setDocumentUrlForTests(QUrl());
    delete mMainWindow;
}

void TestIndexWindow::publishedSurface()
{
    const QMetaObject* meta = &IndexWindow::staticMetaObject;
    for (const char* signature : pageSlots) {
        const int index = meta->indexOfMethod(signature);
        QVERIFY2(index >= meta->methodOffset(), signature);
        const QMetaMethod method = meta->method(index);
        QVERIFY2(method.methodType() == QMetaMethod::Slot && method.access() == QMetaMethod::Public, signature);
        QCOMPARE(callFromPage(mIndexWindow, "typeof qtIndexWindow." + method.name()), QString("ok:string:function"));
    }
}

void TestIndexWindow::pageCalls_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QStringList>("received"); // what the native side then did to the page

    const QString none = QStringLiteral("ok:undefined:undefined");
    QTest::newRow("build version") << "qtIndexWindow.getApplicationProperty('version')" << "ok:string:2.89"
                                   << QStringList();
    QTest::newRow("google, no label") << "qtIndexWindow.logGoogleAnalyticsEvent('quit-kg-qt')" << none
                                      << QStringList(ga("quit-kg-qt"));
    QTest::newRow("percent markers stay") << "qtIndexWindow.logGoogleAnalyticsEvent('100%-%2-%1', 'k-icon')" << none
                                          << QStringList(ga("100%-%2-%1", "k-icon"));
    QTest::newRow("both, label goes to Google only") << "qtIndexWindow.logAnalyticsEvent('set-lang', 'clicked')"
                                                     << none
                                                     << QStringList({ ga("set-lang", "clicked"), km("set-lang") });
    // Nothing is escaped: the quote breaks the script and the event is lost, quietly.
    QTest::newRow("quote in the name is lost") << "qtIndexWindow.logGoogleAnalyticsEvent(\"it's\")" << none
                                               << QStringList();
    // The bridge hands a null object pointer through; native callers never pass one.
    QTest::newRow("kiss event without an object") << "qtIndexWindow.logKissMetricsEvent('e', null)" << none
                                                  << QStringList(km("e"));
}

void TestIndexWindow::pageCalls()
{
    QFETCH(QString, call);
    QTEST(callFromPage(mIndexWindow, call), "answer");
    QTEST(::pageCalls(mIndexWindow), "received");
}

void TestIndexWindow::menuActions_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QStringList>("received");
    QTest::addColumn<bool>("raisesMainWindow");

    const QString liveView = QStringLiteral("openPhoneLiveViewInNativeAppWindow {\"type\":\"%1\"}");
    QTest::newRow("compose") << "composeNewActionClicked" << QStringList("nativeAppWindowComposeSingleMessageHelper")
                             << false;
    QTest::newRow("sign out") << "signoutActionClicked" << QStringList("userClickedSignOutHelper") << true;
    QTest::newRow("settings") << "settingsActionClicked" << QStringList("settingsOptionClickedHelper") << true;
    QTest::newRow("live phone view") << "launchLivePhoneView"
                                     << QStringList(liveView.arg("phone_notif_live_view_standalone")) << false;
    QTest::newRow("dialer") << "launchPhoneDialer" << QStringList(liveView.arg("dialer_view_standalone")) << false;
    // The main window's own menu reports the choice, then hands it to the page.
    QTest::newRow("main menu compose") << "Ctrl+N"
        << QStringList({ ga("compose-new-from-kg-menu-qt"), km("compose-new-from-kg-menu-qt"),
               "nativeAppWindowComposeSingleMessageHelper" })
        << false;
}

void TestIndexWindow::menuActions()
{
    QFETCH(QString, trigger);
    if (trigger.startsWith("Ctrl+")) {
        mIndexWindow->updateClientLoginStateForMenuItems(true);
        QAction* compose = composeAction();
        QVERIFY(compose && compose->isEnabled());
        compose->trigger();
    } else {
        QVERIFY(QMetaObject::invokeMethod(mIndexWindow, trigger.toLatin1().constData()));
    }
    QTEST(::pageCalls(mIndexWindow), "received");
    QTEST(mMainWindow->isVisible(), "raisesMainWindow");
}

void TestIndexWindow::loginStateFromPage_data()
{
    QTest::addColumn<bool>("loggedIn");
    QTest::addColumn<QString>("logging");
    QTest::addColumn<QString>("debugCode");
    QTest::addColumn<QStringList>("received");

    const QString inspect = QStringLiteral("native-app-session-with-inspect-element-on-qt");
    QTest::newRow("sign-in while logging") << true << "1" << QString()
                                           << QStringList("informUserThatLoggingIsOnHelper");
    QTest::newRow("sign-in with the debug code") << true << "0" << "KVTR-MOL"
                                                 << QStringList({ ga(inspect), km(inspect) });
    QTest::newRow("sign-out while logging, with the debug code") << false << "1" << "KVTR-MOL" << QStringList();
}

void TestIndexWindow::loginStateFromPage()
{
    QFETCH(bool, loggedIn);
    QFETCH(QString, logging);
    QFETCH(QString, debugCode);

    QAction* compose = composeAction();
    QVERIFY(compose);
    // Start from the other state, so the call has something to change.
    mIndexWindow->updateClientLoginStateForMenuItems(!loggedIn);
    QCOMPARE(compose->isEnabled(), !loggedIn);
    mainFrame(mIndexWindow)->evaluateJavaScript("window.calls = [];");

    QSettings().setValue("pref-debug-enabled", logging);
    QSettings().setValue("pref-debug-enabled-code", debugCode);
    const QString call
        = QString("qtIndexWindow.updateClientLoginStateForMenuItems(%1)").arg(loggedIn ? "true" : "false");
    QCOMPARE(callFromPage(mIndexWindow, call), QStringLiteral("ok:undefined:undefined"));
    QTEST(::pageCalls(mIndexWindow), "received");
    QCOMPARE(compose->isEnabled(), loggedIn);
}

void TestIndexWindow::pageLogging()
{
    QSettings().setValue("pref-debug-enabled", "1");
    QFile::remove(Logger::logFilePath());
    callFromPage(mIndexWindow, "qtIndexWindow.log('page ready'), qtIndexWindow.logError('sendText', 'timed out')");
    QFile log(Logger::logFilePath());
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QString written = QString::fromUtf8(log.readAll());
    QVERIFY2(written.contains("] [Info] [mainhtml-2] [log] - page ready\n"), qPrintable(written));
    QVERIFY2(written.contains("] [Error] [mainhtml-4] [sendText] - timed out\n"), qPrintable(written));
}

void TestIndexWindow::linkRouting_data()
{
    QTest::addColumn<QByteArray>("list"); // empty: the fetch fails
    QTest::addColumn<QString>("link");
    QTest::addColumn<bool>("inView");

    const QByteArray listed(R"({"urls":[{"url":"%HOST%/friendly"}]})");
    // %SIGNIN% is the sign-in host of the build; carrying it in a query keeps the load on this machine.
    QTest::newRow("failed fetch, built-in in force") << QByteArray() << "/land?next=%SIGNIN%/ServiceLogin" << true;
    QTest::newRow("failed fetch, built-in in capitals") << QByteArray() << "/land?next=%SIGNIN%/SERVICELOGIN" << false;
    QTest::newRow("fetched entry") << listed << "/friendly/page" << true;
    QTest::newRow("fetched list, unlisted path") << listed << "/land" << false;
    QTest::newRow("entry without url opens everything") << QByteArray(R"({"urls":[{"note":"no url"}]})") << "/land"
                                                        << true;
}

void TestIndexWindow::linkRouting()
{
    QFETCH(QByteArray, list);
    QFETCH(QString, link);
    QFETCH(bool, inView);

    HttpServer server;
    QVERIFY(server.listen());
    if (list.isEmpty())
        server.serve(listPath, "gone", "text/plain", 503);
    else
        server.serve(listPath, list.replace("%HOST%", "127.0.0.1:" + QByteArray::number(server.port())),
            "application/json");
    const QByteArray page("<html><body><p>landed</p></body></html>");
    server.serve("/land", page, "text/html");
    server.serve("/friendly/page", page, "text/html");
    ContainerAllowedUrls::setDocumentUrlForTests(server.url(listPath));

    QWidget parent;
    auto* window = new IndexWindow(&parent);
    auto* listManager = parent.findChild<ContainerAllowedUrls*>()->findChild<QNetworkAccessManager*>();
    QVERIFY(listManager);
    QSignalSpy listDone(listManager, &QNetworkAccessManager::finished);
    QVERIFY(listDone.wait(5000));
    ContainerAllowedUrls::setDocumentUrlForTests(mServer.url(listPath));

    QVERIFY(loadAndWait(window, recorderPage));
    const QUrl target = server.url(link.replace("%SIGNIN%", ServiceHost::signInHost()));
    mainFrame(window)->evaluateJavaScript(QString("activateLink('%1')").arg(target.toString()));
    if (inView) {
        QTRY_COMPARE(mainFrame(window)->toPlainText(), QStringLiteral("landed"));
        QCOMPARE(window->webView()->url(), target);
        QCOMPARE(mBrowser.opened, QList<QUrl>());
    } else {
        QTRY_COMPARE(mBrowser.opened, QList<QUrl> { target });
        QCOMPARE(window->webView()->url(), recorderPage);
        QCOMPARE(server.requestsFor(target.path()).size(), 0);
    }
}

void TestIndexWindow::classifyLoadedUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("expected");

    const QString redirect = ServiceHost::redirectPageAddress();
    const QString signOutNext = "https://" + ServiceHost::signInHost() + "/logout?" + ServiceHost::signOutNextSuffix();
    using P = IndexWindow::LoadedPage;

    QTest::newRow("redirect page with query (prefix test)") << redirect + "?from=x" << int(P::RedirectPage);
    QTest::newRow("redirect wins over main.html") << redirect + "?next=main.html" << int(P::RedirectPage);
    QTest::newRow("redirect over plain http") << QString(redirect).replace(0, 5, "http") << int(P::Other);
    QTest::newRow("redirect in capitals") << redirect.toUpper() << int(P::Other);
    QTest::newRow("sign-out next") << signOutNext << int(P::SignOutNext);
    QTest::newRow("sign-out next with a tail (suffix test)") << signOutNext + "&x=1" << int(P::Other);
    QTest::newRow("messenger") << ServiceHost::httpsAddress("/web/main.html") << int(P::Messenger);
    QTest::newRow("messenger as local file") << "file:///tmp/main.html" << int(P::Messenger);
    QTest::newRow("messenger with query") << ServiceHost::httpsAddress("/main.html?x=1") << int(P::Other);
    QTest::newRow("messenger in capitals") << ServiceHost::httpsAddress("/MAIN.HTML") << int(P::Other);
    QTest::newRow("empty") << QString() << int(P::Other);
}

void TestIndexWindow::classifyLoadedUrl()
{
    QFETCH(QString, url);
    QTEST(int(IndexWindow::classifyLoadedUrl(url)), "expected");
}

void TestIndexWindow::messengerPageResizesAndReportsOsOnce()
{
    // The recorder page under the messenger's file name.
    QTemporaryDir pages;
    const QString messenger = pages.filePath("main.html");
    QVERIFY(QFile::copy(":/bridge/recorder.html", messenger));
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("login"));
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(messenger)));
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("messenger"));
    const QStringList reported = ::pageCalls(mIndexWindow).filter("qt-os-info");
    QCOMPARE(reported, QStringList(ga("qt-os-info", "WIN10-OR-OTHER-pc")));
    // A reload in the same process doesn't report the OS again.
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(messenger)));
    QCOMPARE(::pageCalls(mIndexWindow).filter("qt-os-info"), QStringList());
}

void TestIndexWindow::getSetting_data()
{
    QTest::addColumn<QVariant>("value"); // invalid: key absent
    QTest::addColumn<QString>("expected"); // the default is "fallback"

    QTest::newRow("absent gives the default") << QVariant() << "fallback";
    QTest::newRow("stored empty reads as absent") << QVariant(QString("")) << "fallback";
    QTest::newRow("stored zero is a value") << QVariant(QString("0")) << "0";
}

void TestIndexWindow::getSetting()
{
    QFETCH(QVariant, value);
    const QString key = QStringLiteral("page-own-key");
    value.isValid() ? QSettings().setValue(key, value) : QSettings().remove(key);
    QTEST(mIndexWindow->getSetting(key, "fallback"), "expected");
    // Reading never writes.
    QCOMPARE(QSettings().contains(key), value.isValid());
}

void TestIndexWindow::soundFlag_data()
{
    QTest::addColumn<QVariant>("before"); // invalid: key absent
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("after");

    QTest::newRow("fresh store stores 0") << QVariant() << false << "0";
    QTest::newRow("stored empty becomes 0") << QVariant(QString("")) << false << "0";
    QTest::newRow("on") << QVariant(QString("1")) << true << "1";
    QTest::newRow("true is not on and stays") << QVariant(QString("true")) << false << "true";
}

void TestIndexWindow::soundFlag()
{
    QFETCH(QVariant, before);
    const QString key = QStringLiteral("play-notification-sound");
    before.isValid() ? QSettings().setValue(key, before) : QSettings().remove(key);
    QTEST(mIndexWindow->isNotificationSoundEnabled(), "enabled");
    QTEST(QSettings().value(key).toString(), "after");
}

QTEST_MAIN(TestIndexWindow)
#include "tst_indexwindow.moc"
