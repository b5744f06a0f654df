#include <QtTest>

#include <QAction>
#include <QDesktopServices>
#include <QFile>
#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaMethod>
#include <QMenu>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSettings>
#include <QWebFrame>
#include <QWebPage>

#include <memory>

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
const QUrl barePage(QStringLiteral("qrc:///bridge/bare.html"));
const QString listPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");
const char debugCodeForTests[] = "KVTR-MOL";

// Slots the page calls by name; a rename or a changed argument list breaks the web app silently.
const char* const pageSlots[] = {
    "addJSObject()", "mainLoadStarted()", "mainLoadFinished(bool)", "linkClicked(QUrl)", "showMainWindow()",
    "showWindow()", "refreshWindow()", "focusResponseField()", "isMainWindowFocused()",
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
    "showNotification(QString,QString,QString,bool,bool,QString)", "showNotification(QString,QString,QString,bool,bool)",
    "showNotification(QString,QString,QString,bool)", "closeAllNotificationWindows()", "closeNotificationWindow(QString)",
    "setJsonForWindows(QString)", "processJson(QString,QString)", "processJson(QString)",
    "isNotificationSoundEnabledForThisOSVersion()", "playNotificationSound()", "playNotificationSound(QString)",
    "downloadFile(QString,QString,QString,long,bool)", "mediaDownloadComplete(QString,QString)",
    "showInFolder(QString&)", "opendDownloadedFile(QString&)", "changeLanguageCode(QString)",
};

// The scripts the window evaluates for its trackers, taken from its debug lines.
QStringList& trackerScripts()
{
    static QStringList scripts;
    return scripts;
}

QtMessageHandler previousHandler = nullptr;

void captureTrackerScripts(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    static const QString tag = QStringLiteral("] jsCall=");
    const int at = message.indexOf(tag);
    if (at >= 0) {
        // The debug stream quotes the whole line.
        QString script = message.mid(at + tag.size());
        if (script.endsWith(QLatin1Char('"')))
            script.chop(1);
        trackerScripts().append(script);
    }
    previousHandler(type, context, message);
}

QString readLog()
{
    QFile file(Logger::logFilePath());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    return QString::fromUtf8(file.readAll());
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
    return mainFrame(window)->evaluateJavaScript(QStringLiteral("window.calls")).toStringList();
}

QString callFromPage(IndexWindow* window, const QString& code)
{
    const QString quoted = QString::fromUtf8(QJsonDocument(QJsonArray{code}).toJson(QJsonDocument::Compact));
    return mainFrame(window)
        ->evaluateJavaScript(QStringLiteral("callBridge(%1[0])").arg(quoted))
        .toString();
}

QAction* actionWithShortcut(MainWindow* window, const QKeySequence& shortcut)
{
    for (QAction* action : window->mainMenu()->actions() + window->shortcutsMenu()->actions()) {
        if (action->shortcut() == shortcut)
            return action;
    }
    return nullptr;
}

} // namespace

class TestBridge : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void publishedSurfaceIsTheSlotTable();

    void analyticsFromPage_data();
    void analyticsFromPage();
    void kissMetricsObjectText_data();
    void kissMetricsObjectText();
    void trackerCallsOnPageWithoutTrackers();

    void menuActionScripts_data();
    void menuActionScripts();
    void loginStateFromPage_data();
    void loginStateFromPage();
    void pageCallsAndAnswers_data();
    void pageCallsAndAnswers();
    void pageLogging_data();
    void pageLogging();

    void linkRouting_data();
    void linkRouting();

private:
    void setLogging(bool on);

    std::unique_ptr<HttpServer> mServer;
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    BrowserStandIn mBrowser;
};

void TestBridge::initTestCase()
{
    kestrelgapInitResources();
    qRegisterMetaType<QNetworkReply*>();
    previousHandler = qInstallMessageHandler(captureTrackerScripts);
    QDesktopServices::setUrlHandler(QStringLiteral("http"), &mBrowser, "openUrl");
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &mBrowser, "openUrl");

    mServer.reset(new HttpServer);
    QVERIFY(mServer->listen());
    // The main window's list fetch stays on the loopback server, which knows no list.
    ContainerAllowedUrls::setDocumentUrlForTests(mServer->url(listPath));

    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mIndexWindow);
}

void TestBridge::init()
{
    QSettings settings;
    settings.remove(QStringLiteral("pref-debug-enabled"));
    settings.remove(QStringLiteral("pref-debug-enabled-code"));
    QVERIFY(loadAndWait(mIndexWindow, recorderPage));
    trackerScripts().clear();
    mBrowser.opened.clear();
}

void TestBridge::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    ContainerAllowedUrls::setDocumentUrlForTests(QUrl());
    delete mMainWindow;
    qInstallMessageHandler(previousHandler);
}

void TestBridge::setLogging(bool on)
{
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), on ? QStringLiteral("1") : QStringLiteral("0"));
}

void TestBridge::publishedSurfaceIsTheSlotTable()
{
    const QMetaObject* meta = &IndexWindow::staticMetaObject;
    for (const char* signature : pageSlots) {
        const int index = meta->indexOfMethod(signature);
        QVERIFY2(index >= meta->methodOffset(), signature);
        const QMetaMethod method = meta->method(index);
        QVERIFY2(method.methodType() == QMetaMethod::Slot && method.access() == QMetaMethod::Public, signature);
        QCOMPARE(callFromPage(mIndexWindow, QStringLiteral("typeof qtIndexWindow.") + QLatin1String(method.name())),
            QStringLiteral("ok:string:function"));
    }
}

void TestBridge::analyticsFromPage_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QStringList>("scripts");
    QTest::addColumn<bool>("reachesPage");

    const auto ga = [](const QString& name, const QString& label) {
        return QStringLiteral("_gaq.push( ['_trackEvent','WebApp', '%1', '%2'] );").arg(name, label);
    };
    const QString kmOs = QStringLiteral("_kmq.push( ['record', '%1', {'os':'pc'}] );");

    QTest::newRow("google, no label") << "qtIndexWindow.logGoogleAnalyticsEvent('quit-kg-qt')"
                                      << QStringList{ga("quit-kg-qt", "pc")} << true;
    QTest::newRow("google, os label keeps its -pc")
        << "qtIndexWindow.logGoogleAnalyticsEvent('qt-os-info', 'WIN10-OR-OTHER-pc')"
        << QStringList{ga("qt-os-info", "WIN10-OR-OTHER-pc")} << true;
    QTest::newRow("percent markers in the name stay") << "qtIndexWindow.logGoogleAnalyticsEvent('100%-%2-%1', 'k-icon')"
        << QStringList{QStringLiteral("_gaq.push( ['_trackEvent','WebApp', '100%-%2-%1', 'k-icon'] );")} << true;
    QTest::newRow("kiss, percent marker in the name") << "qtIndexWindow.logKissMetricsEvent('50%2done')"
        << QStringList{QStringLiteral("_kmq.push( ['record', '50%2done', {'os':'pc'}] );")} << true;
    QTest::newRow("both, label goes to Google only")
        << "qtIndexWindow.logAnalyticsEvent('set-language-pref-qt', 'clicked')"
        << QStringList{ga("set-language-pref-qt", "clicked"), kmOs.arg("set-language-pref-qt")} << true;
    // Nothing is escaped: the quote breaks the script and the event is lost, quietly.
    QTest::newRow("quote in the name is lost") << "qtIndexWindow.logGoogleAnalyticsEvent(\"it's\")"
                                               << QStringList{ga("it's", "pc")} << false;
}

void TestBridge::analyticsFromPage()
{
    QFETCH(QString, call);
    QFETCH(QStringList, scripts);
    QFETCH(bool, reachesPage);

    QCOMPARE(callFromPage(mIndexWindow, call), QStringLiteral("ok:undefined:undefined"));
    QCOMPARE(trackerScripts(), scripts);
    QCOMPARE(pageCalls(mIndexWindow).size(), reachesPage ? scripts.size() : 0);
}

void TestBridge::kissMetricsObjectText_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("objectText");

    QTest::newRow("location label") << QByteArray(R"({"location":"k-icon"})")
                                    << "{'location':'k-icon', 'os':'pc'}";
    QTest::newRow("caller's os is replaced") << QByteArray(R"({"os":"mac"})") << "{'os':'pc'}";
    QTest::newRow("keys in sorted order")
        << QByteArray(R"({"value":"1","trigger":"app-start","a":"x"})")
        << "{'a':'x', 'os':'pc', 'trigger':'app-start', 'value':'1'}";
    QTest::newRow("capitals sort first") << QByteArray(R"({"zeta":"1","Zed":"2"})")
                                         << "{'Zed':'2', 'os':'pc', 'zeta':'1'}";
    QTest::newRow("values that aren't text are empty")
        << QByteArray(R"({"n":5,"b":true,"o":{"x":"y"},"l":["a"],"z":null})")
        << "{'b':'', 'l':'', 'n':'', 'o':'', 'os':'pc', 'z':''}";
}

void TestBridge::kissMetricsObjectText()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, objectText);

    QJsonObject object = QJsonDocument::fromJson(json).object();
    mIndexWindow->logKissMetricsEvent(QStringLiteral("user-prompted-to-install-update-qt"), &object);

    QCOMPARE(trackerScripts(),
        QStringList{QStringLiteral("_kmq.push( ['record', 'user-prompted-to-install-update-qt', %1] );").arg(objectText)});
    QCOMPARE(pageCalls(mIndexWindow).size(), 1);
}

void TestBridge::trackerCallsOnPageWithoutTrackers()
{
    QVERIFY(loadAndWait(mIndexWindow, barePage));
    QJsonObject object{{QStringLiteral("location"), QStringLiteral("k-icon")}};
    mIndexWindow->logAnalyticsEvent(QStringLiteral("close-quickreply-windows-kg-qt"), QStringLiteral("k-icon"), &object);
    mIndexWindow->composeNewActionClicked();
    QCOMPARE(trackerScripts().size(), 2);
    QCOMPARE(pageCalls(mIndexWindow), QStringList());
    // The page is still alive and can still reach the bridge.
    QCOMPARE(mainFrame(mIndexWindow)->evaluateJavaScript(QStringLiteral("qtIndexWindow.getApplicationProperty('version')"))
                 .toString(),
        QStringLiteral("2.89"));
}

void TestBridge::menuActionScripts_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QStringList>("received");
    QTest::addColumn<bool>("raisesMainWindow");

    QTest::newRow("compose") << "composeNewActionClicked"
                             << QStringList{"nativeAppWindowComposeSingleMessageHelper"} << false;
    QTest::newRow("sign out") << "signoutActionClicked" << QStringList{"userClickedSignOutHelper"} << true;
    QTest::newRow("settings") << "settingsActionClicked" << QStringList{"settingsOptionClickedHelper"} << true;
    QTest::newRow("live phone view")
        << "launchLivePhoneView"
        << QStringList{"openPhoneLiveViewInNativeAppWindow {\"type\":\"phone_notif_live_view_standalone\"}"} << false;
    QTest::newRow("dialer") << "launchPhoneDialer"
                            << QStringList{"openPhoneLiveViewInNativeAppWindow {\"type\":\"dialer_view_standalone\"}"}
                            << false;
    // The main window's own menu reports the choice, then hands it to the page.
    QTest::newRow("main menu compose")
        << "Ctrl+N"
        << QStringList{"_gaq [\"_trackEvent\",\"WebApp\",\"compose-new-from-kg-menu-qt\",\"pc\"]",
               "_kmq [\"record\",\"compose-new-from-kg-menu-qt\",{\"os\":\"pc\"}]",
               "nativeAppWindowComposeSingleMessageHelper"}
        << false;
}

void TestBridge::menuActionScripts()
{
    QFETCH(QString, trigger);
    QFETCH(QStringList, received);
    QFETCH(bool, raisesMainWindow);

    mMainWindow->hide();
    if (trigger.startsWith(QLatin1String("Ctrl+"))) {
        mIndexWindow->updateClientLoginStateForMenuItems(true);
        QAction* action = actionWithShortcut(mMainWindow, QKeySequence(trigger));
        QVERIFY(action);
        QVERIFY(action->isEnabled());
        action->trigger();
    } else {
        QVERIFY(QMetaObject::invokeMethod(mIndexWindow, trigger.toLatin1().constData()));
    }
    QCOMPARE(pageCalls(mIndexWindow), received);
    QCOMPARE(mMainWindow->isVisible(), raisesMainWindow);
}

void TestBridge::loginStateFromPage_data()
{
    QTest::addColumn<bool>("loggedIn");
    QTest::addColumn<bool>("logging");
    QTest::addColumn<bool>("debugCode");
    QTest::addColumn<QStringList>("received");

    const QStringList inspectSession{
        "_gaq [\"_trackEvent\",\"WebApp\",\"native-app-session-with-inspect-element-on-qt\",\"pc\"]",
        "_kmq [\"record\",\"native-app-session-with-inspect-element-on-qt\",{\"os\":\"pc\"}]"};

    QTest::newRow("sign-in") << true << false << false << QStringList();
    QTest::newRow("sign-in while logging") << true << true << false
                                           << QStringList{"informUserThatLoggingIsOnHelper"};
    QTest::newRow("sign-in with the debug code") << true << false << true << inspectSession;
    QTest::newRow("sign-out") << false << false << false << QStringList();
    QTest::newRow("sign-out while logging, with the debug code") << false << true << true << QStringList();
}

void TestBridge::loginStateFromPage()
{
    QFETCH(bool, loggedIn);
    QFETCH(bool, logging);
    QFETCH(bool, debugCode);
    QFETCH(QStringList, received);

    QAction* compose = actionWithShortcut(mMainWindow, QKeySequence(QStringLiteral("Ctrl+N")));
    QVERIFY(compose);
    // Start from the other state, so the call has something to change.
    mIndexWindow->updateClientLoginStateForMenuItems(!loggedIn);
    QCOMPARE(compose->isEnabled(), !loggedIn);
    mainFrame(mIndexWindow)->evaluateJavaScript(QStringLiteral("window.calls = [];"));

    setLogging(logging);
    if (debugCode)
        QSettings().setValue(QStringLiteral("pref-debug-enabled-code"), QLatin1String(debugCodeForTests));
    const QString call = QStringLiteral("qtIndexWindow.updateClientLoginStateForMenuItems(%1)")
                             .arg(loggedIn ? QStringLiteral("true") : QStringLiteral("false"));
    QCOMPARE(callFromPage(mIndexWindow, call), QStringLiteral("ok:undefined:undefined"));

    QCOMPARE(pageCalls(mIndexWindow), received);
    QCOMPARE(compose->isEnabled(), loggedIn);
}

void TestBridge::pageCallsAndAnswers_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("answer");

    QTest::newRow("build version") << "qtIndexWindow.getApplicationProperty('version')" << "ok:string:2.89";
    QTest::newRow("property keys are case-sensitive")
        << "qtIndexWindow.getApplicationProperty('Version')" << "ok:string:";
    QTest::newRow("hidden main window is not focused") << "qtIndexWindow.isMainWindowFocused()" << "ok:boolean:false";
    QTest::newRow("setting default") << "qtIndexWindow.getSetting('bridge-absent', 'fallback')"
                                     << "ok:string:fallback";
    QTest::newRow("dock badge is accepted") << "qtIndexWindow.setDockIconUnreadcount(7)" << "ok:undefined:undefined";
    // Calls the bridge can't convert aren't entered; the page sees an error.
    QTest::newRow("missing sign-in flag") << "qtIndexWindow.updateClientLoginStateForMenuItems()" << "error";
    QTest::newRow("unknown slot") << "qtIndexWindow.noSuchSlot()" << "error";
    // The bridge hands a null object pointer through; native callers never pass one.
    QTest::newRow("kiss event without an object")
        << "qtIndexWindow.logKissMetricsEvent('e', null), window.calls.join()"
        << "ok:string:_kmq [\"record\",\"e\",{\"os\":\"pc\"}]";
}

void TestBridge::pageCallsAndAnswers()
{
    QFETCH(QString, call);
    QFETCH(QString, answer);

    mMainWindow->hide();
    QCOMPARE(callFromPage(mIndexWindow, call), answer);
}

void TestBridge::pageLogging_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("level");
    QTest::addColumn<QString>("line");

    QTest::newRow("log") << "qtIndexWindow.log('page ready')" << "Info" << "[log] - page ready";
    QTest::newRow("error") << "qtIndexWindow.logError('sendText', 'timed out')" << "Error"
                           << "[sendText] - timed out";
}

void TestBridge::pageLogging()
{
    QFETCH(QString, call);
    QFETCH(QString, level);
    QFETCH(QString, line);

    setLogging(true);
    QFile::remove(Logger::logFilePath());
    QCOMPARE(callFromPage(mIndexWindow, call), QStringLiteral("ok:undefined:undefined"));
    const QString log = readLog();
    const int at = log.indexOf(QStringLiteral("] [mainhtml"));
    QVERIFY2(at >= 0, qPrintable(log));
    const QString written = log.mid(at, log.indexOf(QLatin1Char('\n'), at) - at);
    QVERIFY2(written.endsWith(QStringLiteral("] ") + line), qPrintable(written));
    const int levelAt = log.lastIndexOf(QStringLiteral("] ["), at - 1);
    QCOMPARE(log.mid(levelAt + 3, at - levelAt - 3), level);
}

void TestBridge::linkRouting_data()
{
    QTest::addColumn<HttpServer::Reply>("list");
    QTest::addColumn<bool>("listSignalled");
    QTest::addColumn<QString>("link");
    QTest::addColumn<bool>("inView");

    HttpServer::Reply failed;
    failed.status = 503;
    failed.body = R"({"urls":[{"url":"/land"}]})";
    HttpServer::Reply listed;
    listed.body = R"({"urls":[{"url":"%HOST%/friendly"}]})";
    HttpServer::Reply emptyEntry;
    emptyEntry.body = R"({"urls":[{"note":"no url"}]})";

    // %SIGNIN% is the sign-in host of the build; carrying it in a query keeps the load on this machine.
    QTest::newRow("failed fetch, built-in in force") << failed << false << "/land?next=%SIGNIN%/ServiceLogin" << true;
    QTest::newRow("failed fetch, built-in in capitals") << failed << false << "/land?next=%SIGNIN%/SERVICELOGIN"
                                                        << false;
    QTest::newRow("fetched entry") << listed << true << "/friendly/page" << true;
    QTest::newRow("fetched list, unlisted path") << listed << true << "/land" << false;
    QTest::newRow("entry without url opens everything") << emptyEntry << true << "/land" << true;
}

void TestBridge::linkRouting()
{
    QFETCH(HttpServer::Reply, list);
    QFETCH(bool, listSignalled);
    QFETCH(QString, link);
    QFETCH(bool, inView);

    HttpServer server;
    QVERIFY(server.listen());
    const QString host = QStringLiteral("127.0.0.1:") + QString::number(server.port());
    list.body.replace("%HOST%", host.toUtf8());
    server.setReply(listPath, list);
    const QByteArray page("<html><body><p>landed</p></body></html>");
    server.serve(QStringLiteral("/land"), page, "text/html");
    server.serve(QStringLiteral("/friendly/page"), page, "text/html");
    ContainerAllowedUrls::setDocumentUrlForTests(server.url(listPath));

    QWidget parent;
    auto* window = new IndexWindow(&parent);
    auto* allowedUrls = parent.findChild<ContainerAllowedUrls*>();
    QVERIFY(allowedUrls);
    auto* listManager = allowedUrls->findChild<QNetworkAccessManager*>();
    QVERIFY(listManager);
    QSignalSpy listDone(listManager, &QNetworkAccessManager::finished);
    QSignalSpy listComplete(allowedUrls, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
    QVERIFY(listDone.wait(5000));
    QCOMPARE(listComplete.count(), listSignalled ? 1 : 0);
    QCOMPARE(server.requestsFor(listPath).size(), 1);

    QVERIFY(loadAndWait(window, recorderPage));
    link.replace(QLatin1String("%SIGNIN%"), ServiceHost::signInHost());
    const QUrl target = server.url(link);
    mainFrame(window)->evaluateJavaScript(QStringLiteral("activateLink('%1')").arg(target.toString()));

    if (inView) {
        QTRY_COMPARE(window->webView()->url(), target);
        QTRY_COMPARE(mainFrame(window)->toPlainText(), QStringLiteral("landed"));
        QCOMPARE(mBrowser.opened, QList<QUrl>());
    } else {
        QTRY_COMPARE(mBrowser.opened, QList<QUrl>{target});
        QCOMPARE(window->webView()->url(), recorderPage);
        QCOMPARE(server.requestsFor(QUrl(target).path()).size(), 0);
    }
    ContainerAllowedUrls::setDocumentUrlForTests(mServer->url(listPath));
}

QTEST_MAIN(TestBridge)
#include "tst_bridge.moc"
