#include <QtTest>

#include <QAction>
#include <QDesktopServices>
#include <QGraphicsWebView>
#include <QMenu>
#include <QNetworkAccessManager>
#include <QWebFrame>
#include <QWebPage>

#include "core/servicehost.h"
#include "desktop/mainwindow.h"
#include "guifixture.h"
#include "httpserver.h"
#include "web/containerallowedurls.h"
#include "web/indexwindow.h"

namespace {

const QString listPath = QStringLiteral("/prod-assets/desktop-client/friendlyurls.json");

// The page calls these by name; a renamed slot breaks the web app silently.
const char* const pageSlots
    = "addJSObject mainLoadStarted mainLoadFinished linkClicked showMainWindow showWindow refreshWindow "
      "focusResponseField isMainWindowFocused updateClientLoginStateForMenuItems setDockIconUnreadcount log logInfo "
      "logError setSetting getSetting removeSetting setDefaultDownloadLocationSetting "
      "getDefaultDownloadLocationSetting getApplicationProperty setNativeNotificationSetting "
      "getNativeNotificationSetting setNotificationSoundSetting getNotificationSoundSetting "
      "setNotificationSoundEnabled isNotificationSoundEnabled logKissMetricsEvent logGoogleAnalyticsEvent "
      "logAnalyticsEvent composeNewActionClicked signoutActionClicked settingsActionClicked launchLivePhoneView "
      "launchPhoneDialer launchQuickReply showBatteryStatus showNotification closeAllNotificationWindows "
      "closeNotificationWindow setJsonForWindows processJson isNotificationSoundEnabledForThisOSVersion "
      "playNotificationSound downloadFile mediaDownloadComplete showInFolder opendDownloadedFile changeLanguageCode";

HttpServer::Reply listDocument(const QByteArray& body, int status = 200)
{
    HttpServer::Reply reply;
    reply.status = status;
    reply.body = body;
    return reply;
}

QString ga(const QString& name, const QString& label = QStringLiteral("pc"))
{
    return QStringLiteral("_gaq [\"_trackEvent\",\"WebApp\",\"%1\",\"%2\"]").arg(name, label);
}

QString km(const QString& name)
{
    return QStringLiteral("_kmq [\"record\",\"%1\",{\"os\":\"pc\"}]").arg(name);
}

} // namespace

class TestIndexWindow : public QObject {
    Q_OBJECT

    GuiFixture mGui;
    HttpServer mServer;
    QList<QUrl> mOpenedInBrowser;

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

    // Fetches the list and waits until its reply has been handled; answers how often it said it loaded.
    int load(ContainerAllowedUrls& list, const HttpServer::Reply& reply)
    {
        mServer.setReply(listPath, reply);
        // The list's manager is its child and reaches the list first: once this spy fires, it is handled.
        QSignalSpy finished(list.findChild<QNetworkAccessManager*>(), &QNetworkAccessManager::finished);
        QSignalSpy complete(&list, &ContainerAllowedUrls::containerAllowedUrlsLoadComplete);
        list.loadObject();
        return finished.wait(10000) ? complete.count() : -1;
    }

public slots:
    void openInBrowser(const QUrl& url) { mOpenedInBrowser << url; } // stands in for the user's browser

private slots:
    void initTestCase()
    {
        QDesktopServices::setUrlHandler("http", this, "openInBrowser");
        QVERIFY(mServer.listen());
        mServer.serve("/friendly/page", "<html><body><p>landed</p></body></html>", "text/html");
        mServer.serve("/elsewhere.json", R"({"urls":[{"url":"unlisted"}]})", "application/json");
        mServer.serve(listPath,
            R"({"urls":[{"url":"127.0.0.1:)" + QByteArray::number(mServer.port()) + R"(/friendly"}]})",
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
        mOpenedInBrowser.clear();
        mGui.mainWindow()->hide();
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

        const QString none = QStringLiteral("ok:undefined:undefined");
        const QString page = QStringLiteral("qtIndexWindow.");
        const auto set = [&page](const QString& key, const QString& value) {
            return page + "setSetting('" + key + "', '" + value + "'), ";
        };
        QTest::newRow("percent markers stay") << page + "logGoogleAnalyticsEvent('100%-%2-%1', 'k-icon')" << none
                                              << QStringList(ga("100%-%2-%1", "k-icon"));
        QTest::newRow("both, label to Google only") << page + "logAnalyticsEvent('set-lang', 'clicked')" << none
                                                    << QStringList({ ga("set-lang", "clicked"), km("set-lang") });
        // Nothing is escaped: the quote breaks the script and the event is lost, quietly.
        QTest::newRow("quote in the name is lost")
            << page + "logGoogleAnalyticsEvent(\"it's\")" << none << QStringList();
        QTest::newRow("kiss event with a null object")
            << page + "logKissMetricsEvent('e', null)" << none << QStringList(km("e"));
        // An empty value reads as absent; "0" is a value.
        QTest::newRow("setting empty, then zero") << "[" + set("own", "") + page + "getSetting('own', 'f'), "
                + set("own", "0") + page + "getSetting('own', 'f')]" << "ok:object:,f,,0" << QStringList();
        // Only "1" is on; a fresh store is given "0", anything else stays as it is.
        const QString sound
            = page + "isNotificationSoundEnabled(), " + page + "getSetting('play-notification-sound', '-')]";
        QTest::newRow("sound, fresh") << "[" + sound << "ok:object:false,0" << QStringList();
        QTest::newRow("sound, true is not on")
            << "[" + page + "setNotificationSoundEnabled('true'), " + sound << "ok:object:,false,true" << QStringList();
        QTest::newRow("sound, on") << "[" + page + "setNotificationSoundEnabled('1'), " + sound << "ok:object:,true,1"
                                   << QStringList();
        // Signing in tells the page what the user has switched on.
        const QString signIn = page + "updateClientLoginStateForMenuItems(true)";
        const QString inspect = QStringLiteral("native-app-session-with-inspect-element-on-qt");
        QTest::newRow("sign-out, logging and code") << set("pref-debug-enabled", "1")
                + set("pref-debug-enabled-code", "KVTR-MOL") + page + "updateClientLoginStateForMenuItems(false)"
                                                    << none << QStringList();
        QTest::newRow("sign-in while logging")
            << set("pref-debug-enabled", "1") + signIn << none << QStringList("informUserThatLoggingIsOnHelper");
        QTest::newRow("sign-in with the debug code")
            << set("pref-debug-enabled-code", "KVTR-MOL") + signIn << none << QStringList({ ga(inspect), km(inspect) });
        // Menu choices go to the page; the main window's own menu reports the choice first.
        const QString compose = QStringLiteral("nativeAppWindowComposeSingleMessageHelper");
        QTest::newRow("compose") << page + "composeNewActionClicked()" << none << QStringList(compose);
        QTest::newRow("sign out") << page + "signoutActionClicked()" << none
                                  << QStringList({ "userClickedSignOutHelper", "(main window shown)" });
        QTest::newRow("dialer") << page + "launchPhoneDialer()" << none
                                << QStringList(
                                       "openPhoneLiveViewInNativeAppWindow {\"type\":\"dialer_view_standalone\"}");
        QTest::newRow("main menu compose")
            << QString() << QString()
            << QStringList({ ga("compose-new-from-kg-menu-qt"), km("compose-new-from-kg-menu-qt"), compose });
    }

    void pageCalls()
    {
        QFETCH(QString, call);
        QSettings().remove("own");
        QSettings().remove("play-notification-sound");
        if (call.isEmpty()) // the main window's own menu
            mGui.indexWindow()->updateClientLoginStateForMenuItems(true);
        mGui.takeCalls();
        if (call.isEmpty())
            composeAction()->trigger();
        else
            QTEST(callFromPage(call), "answer");
        QStringList received = mGui.takeCalls();
        if (mGui.mainWindow()->isVisible())
            received << "(main window shown)";
        QTEST(received, "received");
        if (call.contains("MenuItems"))
            QCOMPARE(composeAction()->isEnabled(), call.contains("(true)"));
    }

    void linkRouting()
    {
        QWidget parent; // holds the window's list, so the test can wait for it
        auto* window = new IndexWindow(&parent);
        QTRY_VERIFY(parent.findChild<ContainerAllowedUrls*>()->isUrlAllowed(mServer.url("/friendly/page")));
        QSignalSpy loaded(window->webView()->page(), &QWebPage::loadFinished);
        window->loadUrl(GuiFixture::recorderUrl());
        QVERIFY(loaded.wait(10000));
        QWebFrame* frame = window->webView()->page()->mainFrame();
        // Not listed: to the user's browser, never fetched here.
        frame->evaluateJavaScript(QString("activateLink('%1')").arg(mServer.url("/land").toString()));
        QTRY_COMPARE(mOpenedInBrowser, QList<QUrl> { mServer.url("/land") });
        QCOMPARE(mServer.requestsFor("/land").size(), 0);
        frame->evaluateJavaScript(QString("activateLink('%1')").arg(mServer.url("/friendly/page").toString()));
        QTRY_COMPARE(frame->toPlainText(), QStringLiteral("landed"));
        QCOMPARE(mOpenedInBrowser.size(), 1);
    }

    void decision_data()
    {
        QTest::addColumn<QString>("url"); // %SIGNIN%: the build's sign-in host
        QTest::addColumn<bool>("builtIn"); // allowed by the built-in entries alone
        QTest::addColumn<bool>("fetched"); // allowed once the served list is in

        QTest::newRow("sign-in page") << "https://%SIGNIN%/ServiceLogin?service=mail&continue=x" << true << true;
        QTest::newRow("sign-in path in capitals") << "https://%SIGNIN%/SERVICELOGIN" << false << false;
        QTest::newRow("other page of the sign-in host") << "https://%SIGNIN%/signin/v2/identifier" << false << false;
        // The served list: "kestrelgap.test/messages", "http://secure.test".
        QTest::newRow("listed host and path") << "http://kestrelgap.test/messages/42" << false << true;
        QTest::newRow("listed host, other path") << "http://kestrelgap.test/settings" << false << false;
        QTest::newRow("listed text inside a query")
            << "https://other.test/?r=kestrelgap.test/messages" << false << true;
        QTest::newRow("listed scheme, other scheme") << "https://secure.test/a" << false << false;
    }

    void decision()
    {
        QFETCH(QString, url);
        const QUrl target(url.replace("%SIGNIN%", ServiceHost::signInHost()));
        ContainerAllowedUrls list(nullptr);
        QTEST(list.isUrlAllowed(target), "builtIn");
        const QByteArray served = R"({"version":1,"urls":[{"url":"kestrelgap.test/messages"},)"
                                  R"({"url":"http://secure.test","note":"x"}]})";
        QCOMPARE(load(list, listDocument(served)), 1);
        QTEST(list.isUrlAllowed(target), "fetched");
    }

    void fetchOutcome_data()
    {
        QTest::addColumn<HttpServer::Reply>("reply");
        QTest::addColumn<int>("signalled");
        QTest::addColumn<bool>("unlistedAllowed"); // afterwards

        const QByteArray list = R"({"urls":[{"url":"unlisted"}]})";
        QTest::newRow("malformed json") << listDocument(R"({"urls":[{"url":"unlisted"})") << 1 << false;
        QTest::newRow("error status with a valid list") << listDocument(list, 404) << 0 << false;
        // An empty text is found in every URL.
        QTest::newRow("entry without url") << listDocument(R"({"urls":[{"link":"x"}]})") << 1 << true;
        HttpServer::Reply redirect = listDocument({}, 302);
        redirect.headers << qMakePair(QByteArray("Location"), QByteArray("/elsewhere.json"));
        QTest::newRow("redirect is not followed") << redirect << 1 << false;
        // The cap and the stall guard are the version check's rows; this one shows the list is guarded.
        QTest::newRow("announced too long") << listDocument(list + QByteArray(300 * 1024, ' ')) << 0 << false;
    }

    void fetchOutcome()
    {
        QFETCH(HttpServer::Reply, reply);
        ContainerAllowedUrls list(nullptr);
        QTEST(load(list, reply), "signalled");
        QVERIFY(mServer.requestsFor("/elsewhere.json").isEmpty());
        QVERIFY(mServer.lastRequest().header("Cookie").isEmpty());
        QTEST(list.isUrlAllowed(QUrl("https://unlisted.example/page")), "unlistedAllowed");
        // Whatever came back, the built-in entries stay in force.
        QVERIFY(list.isUrlAllowed(QUrl("https://" + ServiceHost::signInHost() + "/ServiceLogin")));
    }

    void classifyLoadedUrl_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("expected");

        const QString redirect = ServiceHost::redirectPageAddress();
        const QString signOut = "https://" + ServiceHost::signInHost() + "/logout?" + ServiceHost::signOutNextSuffix();
        using P = IndexWindow::LoadedPage;
        QTest::newRow("redirect page with a query") << redirect + "?from=x" << int(P::RedirectPage);
        QTest::newRow("redirect over plain http") << QString(redirect).replace(0, 5, "http") << int(P::Other);
        QTest::newRow("sign-out next") << signOut << int(P::SignOutNext);
        QTest::newRow("sign-out next with a tail") << signOut + "&x=1" << int(P::Other);
        QTest::newRow("messenger") << ServiceHost::httpsAddress("/web/main.html") << int(P::Messenger);
        QTest::newRow("messenger with a query") << ServiceHost::httpsAddress("/main.html?x=1") << int(P::Other);
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
