#include <QtTest>

#include <QAction>
#include <QDesktopServices>
#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMenu>
#include <QSettings>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/logger.h"
#include "core/servicehost.h"
#include "desktop/mainwindow.h"
#include "guifixture.h"
#include "httpserver.h"
#include "web/containerallowedurls.h"
#include "web/indexwindow.h"

namespace {

const QString listPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

// The page calls these by name; a renamed slot breaks the web app silently.
const char* const pageSlots = "addJSObject mainLoadStarted mainLoadFinished linkClicked showMainWindow showWindow "
    "refreshWindow focusResponseField isMainWindowFocused updateClientLoginStateForMenuItems setDockIconUnreadcount "
    "log logInfo logError setSetting getSetting removeSetting setDefaultDownloadLocationSetting "
    "getDefaultDownloadLocationSetting getApplicationProperty setNativeNotificationSetting "
    "getNativeNotificationSetting setNotificationSoundSetting getNotificationSoundSetting setNotificationSoundEnabled "
    "isNotificationSoundEnabled logKissMetricsEvent logGoogleAnalyticsEvent logAnalyticsEvent composeNewActionClicked "
    "signoutActionClicked settingsActionClicked launchLivePhoneView launchPhoneDialer launchQuickReply "
    "showBatteryStatus showNotification closeAllNotificationWindows closeNotificationWindow setJsonForWindows "
    "processJson isNotificationSoundEnabledForThisOSVersion playNotificationSound downloadFile mediaDownloadComplete "
    "showInFolder opendDownloadedFile changeLanguageCode";

QString ga(const QString& name, const QString& label = QStringLiteral("pc"))
{
    return QStringLiteral("_gaq [\"_trackEvent\",\"WebApp\",\"%1\",\"%2\"]").arg(name, label);
}

QString km(const QString& name)
{
    return QStringLiteral("_kmq [\"record\",\"%1\",{\"os\":\"pc\"}]").arg(name);
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

} // namespace

class TestIndexWindow : public QObject
{
    Q_OBJECT

    GuiFixture mGui;
    HttpServer mServer;
    BrowserStandIn mBrowser;

    // Runs the code in the page as the web app would; answers "ok:<type>:<value>" or "error".
    QString callFromPage(const QString& code)
    {
        const QString quoted = QString::fromUtf8(QJsonDocument(QJsonArray { code }).toJson(QJsonDocument::Compact));
        return mGui.eval(QString("callBridge(%1[0])").arg(quoted)).toString();
    }

    QAction* composeAction() const
    {
        const MainWindow* window = mGui.mainWindow();
        for (QAction* action : window->mainMenu()->actions() + window->shortcutsMenu()->actions())
            if (action->shortcut() == QKeySequence("Ctrl+N"))
                return action;
        return nullptr;
    }

private slots:
    void initTestCase()
    {
        QDesktopServices::setUrlHandler("http", &mBrowser, "openUrl");
        QVERIFY(mServer.listen());
        const QByteArray page("<html><body><p>landed</p></body></html>");
        mServer.serve("/land", page, "text/html");
        mServer.serve("/friendly/page", page, "text/html");
        mServer.serve(listPath, R"({"urls":[{"url":"127.0.0.1:)" + QByteArray::number(mServer.port()) + R"(/friendly"}]})",
            "application/json");
        ContainerAllowedUrls::setDocumentUrlForTests(mServer.url(listPath));
        GuiFixture::Options options;
        options.stagedFolder = false;
        QVERIFY(mGui.start(options));
    }

    void init()
    {
        QSettings().remove("pref-debug-enabled");
        QSettings().remove("pref-debug-enabled-code");
        QVERIFY(mGui.load(GuiFixture::recorderUrl()));
        mBrowser.opened.clear();
        mGui.mainWindow()->hide();
    }

    void cleanupTestCase()
    {
        QDesktopServices::unsetUrlHandler("http");
        ContainerAllowedUrls::setDocumentUrlForTests(QUrl());
    }

    void publishedSurface()
    {
        for (const QString& name : QString(pageSlots).split(' '))
            QCOMPARE(name + ' ' + callFromPage("typeof qtIndexWindow." + name), name + " ok:string:function");
    }

    void pageCalls_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QStringList>("received"); // what the native side then did to the page
        QTest::addColumn<QString>("stored"); // the settings "own" and "play-notification-sound" after, "-" absent

        const QString none = QStringLiteral("ok:undefined:undefined");
        const QString page = QStringLiteral("qtIndexWindow.");
        QTest::newRow("build version") << page + "getApplicationProperty('version')" << "ok:string:2.89"
                                       << QStringList() << "-|-";
        QTest::newRow("percent markers stay") << page + "logGoogleAnalyticsEvent('100%-%2-%1', 'k-icon')" << none
                                              << QStringList(ga("100%-%2-%1", "k-icon")) << "-|-";
        QTest::newRow("both, label to Google only") << page + "logAnalyticsEvent('set-lang', 'clicked')" << none
                                                    << QStringList({ ga("set-lang", "clicked"), km("set-lang") })
                                                    << "-|-";
        // Nothing is escaped: the quote breaks the script and the event is lost, quietly.
        QTest::newRow("quote in the name is lost") << page + "logGoogleAnalyticsEvent(\"it's\")" << none
                                                   << QStringList() << "-|-";
        QTest::newRow("kiss event with a null object") << page + "logKissMetricsEvent('e', null)" << none
                                                       << QStringList(km("e")) << "-|-";
        // An empty value reads as absent, "0" is a value, and a read never writes.
        QTest::newRow("setting absent") << page + "getSetting('own', 'f')" << "ok:string:f" << QStringList() << "-|-";
        QTest::newRow("setting empty") << page + "setSetting('own', ''), " + page + "getSetting('own', 'f')"
                                       << "ok:string:f" << QStringList() << "|-";
        QTest::newRow("setting zero") << page + "setSetting('own', '0'), " + page + "getSetting('own', 'f')"
                                      << "ok:string:0" << QStringList() << "0|-";
        // Only "1" is on; a fresh store is given "0", anything else stays as it is.
        const QString sound = page + "isNotificationSoundEnabled()";
        QTest::newRow("sound, fresh") << sound << "ok:boolean:false" << QStringList() << "-|0";
        QTest::newRow("sound, true is not on") << page + "setNotificationSoundEnabled('true'), " + sound
                                               << "ok:boolean:false" << QStringList() << "-|true";
        QTest::newRow("sound, on") << page + "setNotificationSoundEnabled('1'), " + sound << "ok:boolean:true"
                                   << QStringList() << "-|1";
    }

    void pageCalls()
    {
        QSettings settings;
        settings.remove("own");
        settings.remove("play-notification-sound");
        mGui.takeCalls();
        QFETCH(QString, call);
        QTEST(callFromPage(call), "answer");
        QTEST(mGui.takeCalls(), "received");
        QTEST(settings.value("own", "-").toString() + '|' + settings.value("play-notification-sound", "-").toString(),
            "stored");
    }

    void menuActions_data()
    {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<QStringList>("received");
        QTest::addColumn<bool>("raisesMainWindow");

        const QString liveView = QStringLiteral("openPhoneLiveViewInNativeAppWindow {\"type\":\"%1\"}");
        QTest::newRow("compose") << "composeNewActionClicked"
                                 << QStringList("nativeAppWindowComposeSingleMessageHelper") << false;
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

    void menuActions()
    {
        QFETCH(QString, trigger);
        if (trigger == "Ctrl+N") {
            mGui.indexWindow()->updateClientLoginStateForMenuItems(true);
            QAction* compose = composeAction();
            QVERIFY(compose && compose->isEnabled());
            mGui.takeCalls();
            compose->trigger();
        } else {
            QVERIFY(QMetaObject::invokeMethod(mGui.indexWindow(), trigger.toLatin1().constData()));
        }
        QTEST(mGui.takeCalls(), "received");
        QTEST(mGui.mainWindow()->isVisible(), "raisesMainWindow");
    }

    void loginStateFromPage_data()
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
        QTest::newRow("sign-out while logging, with the code") << false << "1" << "KVTR-MOL" << QStringList();
    }

    void loginStateFromPage()
    {
        QFETCH(bool, loggedIn);
        QFETCH(QString, logging);
        QFETCH(QString, debugCode);
        QAction* compose = composeAction();
        QVERIFY(compose);
        // From the other state, so the call has something to change.
        mGui.indexWindow()->updateClientLoginStateForMenuItems(!loggedIn);
        mGui.takeCalls();
        QSettings().setValue("pref-debug-enabled", logging);
        QSettings().setValue("pref-debug-enabled-code", debugCode);
        callFromPage(QString("qtIndexWindow.updateClientLoginStateForMenuItems(%1)").arg(loggedIn ? "true" : "false"));
        QTEST(mGui.takeCalls(), "received");
        QCOMPARE(compose->isEnabled(), loggedIn);
    }

    void pageLogging()
    {
        QSettings().setValue("pref-debug-enabled", "1");
        QFile::remove(Logger::logFilePath());
        callFromPage("qtIndexWindow.log('page ready'), qtIndexWindow.logError('sendText', 'timed out')");
        QFile log(Logger::logFilePath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QString written = QString::fromUtf8(log.readAll());
        QVERIFY2(written.contains("] [Info] [mainhtml-2] [log] - page ready\n"), qPrintable(written));
        QVERIFY2(written.contains("] [Error] [mainhtml-4] [sendText] - timed out\n"), qPrintable(written));
    }

    void linkRouting_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("inView");

        QTest::newRow("listed") << "/friendly/page" << true;
        QTest::newRow("not listed") << "/land" << false;
    }

    void linkRouting()
    {
        QFETCH(QString, path);
        QFETCH(bool, inView);
        QWidget parent; // holds the window's list, so the test can wait for it
        auto* window = new IndexWindow(&parent);
        QTRY_VERIFY(parent.findChild<ContainerAllowedUrls*>()->isUrlAllowed(mServer.url("/friendly/page")));
        QSignalSpy loaded(window->webView()->page(), &QWebPage::loadFinished);
        window->loadUrl(GuiFixture::recorderUrl());
        QVERIFY(loaded.wait(10000));
        QWebFrame* frame = window->webView()->page()->mainFrame();
        const QUrl target = mServer.url(path);
        const int requests = mServer.requestsFor(target.path()).size();
        frame->evaluateJavaScript(QString("activateLink('%1')").arg(target.toString()));
        if (inView) {
            QTRY_COMPARE(frame->toPlainText(), QStringLiteral("landed"));
            QCOMPARE(mBrowser.opened, QList<QUrl>());
        } else {
            QTRY_COMPARE(mBrowser.opened, QList<QUrl> { target });
            QCOMPARE(frame->url(), GuiFixture::recorderUrl());
            QCOMPARE(mServer.requestsFor(target.path()).size(), requests);
        }
    }

    void classifyLoadedUrl_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("expected");

        const QString redirect = ServiceHost::redirectPageAddress();
        const QString signOut = "https://" + ServiceHost::signInHost() + "/logout?" + ServiceHost::signOutNextSuffix();
        using P = IndexWindow::LoadedPage;
        QTest::newRow("redirect page with a query") << redirect + "?from=x" << int(P::RedirectPage);
        QTest::newRow("redirect wins over main.html") << redirect + "?next=main.html" << int(P::RedirectPage);
        QTest::newRow("redirect over plain http") << QString(redirect).replace(0, 5, "http") << int(P::Other);
        QTest::newRow("sign-out next") << signOut << int(P::SignOutNext);
        QTest::newRow("sign-out next with a tail") << signOut + "&x=1" << int(P::Other);
        QTest::newRow("messenger") << ServiceHost::httpsAddress("/web/main.html") << int(P::Messenger);
        QTest::newRow("messenger with a query") << ServiceHost::httpsAddress("/main.html?x=1") << int(P::Other);
        QTest::newRow("messenger in capitals") << ServiceHost::httpsAddress("/MAIN.HTML") << int(P::Other);
    }

    void classifyLoadedUrl()
    {
        QFETCH(QString, url);
        QTEST(int(IndexWindow::classifyLoadedUrl(url)), "expected");
    }

    void messengerPageReportsOsOnce()
    {
        // The recorder under the messenger's file name.
        QTemporaryDir pages;
        const QUrl messenger = QUrl::fromLocalFile(pages.filePath("main.html"));
        QVERIFY(QFile::copy(":/bridge/recorder.html", messenger.toLocalFile()));
        QCOMPARE(mGui.mainWindow()->property("view").toString(), QStringLiteral("login"));
        QVERIFY(mGui.load(messenger));
        QCOMPARE(mGui.mainWindow()->property("view").toString(), QStringLiteral("messenger"));
        QCOMPARE(mGui.takeCalls().filter("qt-os-info"), QStringList(ga("qt-os-info", "WIN10-OR-OTHER-pc")));
        QVERIFY(mGui.load(messenger));
        QCOMPARE(mGui.takeCalls().filter("qt-os-info"), QStringList());
    }
};

QTEST_MAIN(TestIndexWindow)
#include "tst_indexwindow.moc"
