#include <QtTest>

#include <QGraphicsWebView>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>
#include <QWebView>

#include "core/servicehost.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"

namespace {

// A page that records what the native side sends to its trackers.
const char recordingPage[] = R"(<html><head><script>
  window.events = [];
  var _gaq = { push: function (a) { window.events.push('ga:' + a[2] + ':' + a[3]); } };
  var _kmq = { push: function (a) { window.events.push('km:' + a[1]); } };
</script></head><body><p>page</p></body></html>)";

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

bool loadAndWait(IndexWindow* window, const QUrl& url)
{
    QSignalSpy finished(window->webView()->page(), &QWebPage::loadFinished);
    window->loadUrl(url);
    // A load still running is cancelled first and reports its own failure.
    return QTest::qWaitFor([&] { return !finished.isEmpty() && finished.last().first().toBool(); }, 10000);
}

QStringList pageEvents(IndexWindow* window)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(QStringLiteral("window.events")).toStringList();
}

} // namespace

class TestIndexWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void classifyLoadedUrl_data();
    void classifyLoadedUrl();
    void messengerPageResizesAndReportsOsOnce();
    void queryOrCapitalsAreNotTheMessenger_data();
    void queryOrCapitalsAreNotTheMessenger();
    void bridgeIsPublishedToEveryPage();
    void windowOpenGivesTopLevelViewWithCacheFloor();
    void relativeLoadFollowsWorkingDirectory();
    void settingsEmptyMeansDefault();
    void cleanupTestCase();

private:
    QTemporaryDir mPages;
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
};

void TestIndexWindow::initTestCase()
{
    QVERIFY(mPages.isValid());
    for (const char* name : { "main.html", "MAIN.HTML", "other.html" })
        writeFile(mPages.filePath(QLatin1String(name)), recordingPage);

    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mIndexWindow);
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("login"));
}

void TestIndexWindow::cleanupTestCase()
{
    delete mMainWindow;
}

void TestIndexWindow::classifyLoadedUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("expected");

    const QString redirect = ServiceHost::redirectPageAddress();
    const QString signOutNext = QStringLiteral("https://") + ServiceHost::signInHost()
        + QStringLiteral("/logout?") + ServiceHost::signOutNextSuffix();
    using P = IndexWindow::LoadedPage;

    QTest::newRow("redirect page") << redirect << int(P::RedirectPage);
    QTest::newRow("redirect page with query (prefix test)") << redirect + QStringLiteral("?from=x") << int(P::RedirectPage);
    QTest::newRow("redirect wins over main.html") << redirect + QStringLiteral("?next=main.html") << int(P::RedirectPage);
    QTest::newRow("redirect over plain http") << QString(redirect).replace(0, 5, QStringLiteral("http")) << int(P::Other);
    QTest::newRow("redirect in capitals") << redirect.toUpper() << int(P::Other);
    QTest::newRow("sign-out next") << signOutNext << int(P::SignOutNext);
    QTest::newRow("sign-out next with a tail (suffix test)") << signOutNext + QStringLiteral("&x=1") << int(P::Other);
    QTest::newRow("messenger") << ServiceHost::httpsAddress(QStringLiteral("/web/main.html")) << int(P::Messenger);
    QTest::newRow("messenger as local file") << QStringLiteral("file:///tmp/main.html") << int(P::Messenger);
    QTest::newRow("messenger with query") << ServiceHost::httpsAddress(QStringLiteral("/main.html?x=1")) << int(P::Other);
    QTest::newRow("messenger in capitals") << ServiceHost::httpsAddress(QStringLiteral("/MAIN.HTML")) << int(P::Other);
    QTest::newRow("start page") << QStringLiteral("file:///opt/kestrelgap/html/start.html") << int(P::Other);
    QTest::newRow("empty") << QString() << int(P::Other);
}

void TestIndexWindow::classifyLoadedUrl()
{
    QFETCH(QString, url);
    QFETCH(int, expected);
    QCOMPARE(int(IndexWindow::classifyLoadedUrl(url)), expected);
}

void TestIndexWindow::messengerPageResizesAndReportsOsOnce()
{
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(mPages.filePath(QStringLiteral("main.html")))));
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("messenger"));
    QStringList events = pageEvents(mIndexWindow);
    QCOMPARE(events.filter(QStringLiteral("ga:qt-os-info:")).size(), 1);
    QVERIFY(events.first().endsWith(QLatin1String("-pc")));

    // A reload in the same process neither animates again nor reports the OS again.
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(mPages.filePath(QStringLiteral("main.html")))));
    QVERIFY(pageEvents(mIndexWindow).filter(QStringLiteral("qt-os-info")).isEmpty());
}

void TestIndexWindow::queryOrCapitalsAreNotTheMessenger_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("query");
    QTest::newRow("query behind main.html") << QStringLiteral("main.html") << QStringLiteral("a=1");
    QTest::newRow("capitals") << QStringLiteral("MAIN.HTML") << QString();
}

void TestIndexWindow::queryOrCapitalsAreNotTheMessenger()
{
    QFETCH(QString, file);
    QFETCH(QString, query);
    mMainWindow->resizeWindowToLoginSize(false);
    QUrl url = QUrl::fromLocalFile(mPages.filePath(file));
    url.setQuery(query);
    QVERIFY(loadAndWait(mIndexWindow, url));
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("login"));
}

void TestIndexWindow::bridgeIsPublishedToEveryPage()
{
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(mPages.filePath(QStringLiteral("other.html")))));
    QWebFrame* frame = mIndexWindow->webView()->page()->mainFrame();
    QCOMPARE(frame->evaluateJavaScript(QStringLiteral("typeof qtIndexWindow")).toString(), QStringLiteral("object"));
    // The viewer's own "Qt" object belongs to the page IndexWindow replaced.
    QCOMPARE(frame->evaluateJavaScript(QStringLiteral("typeof Qt")).toString(), QStringLiteral("undefined"));
}

void TestIndexWindow::windowOpenGivesTopLevelViewWithCacheFloor()
{
    QVERIFY(loadAndWait(mIndexWindow, QUrl::fromLocalFile(mPages.filePath(QStringLiteral("other.html")))));
    const QWidgetList before = QApplication::topLevelWidgets();
    mIndexWindow->webView()->page()->mainFrame()->evaluateJavaScript(QStringLiteral("window.open('about:blank');"));

    QWebView* opened = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (!before.contains(widget))
            opened = qobject_cast<QWebView*>(widget);
    }
    QVERIFY(opened);
    QVERIFY(opened->isWindow());
    QVERIFY(opened->isVisible());
    QVERIFY(opened->testAttribute(Qt::WA_DeleteOnClose));
    QNetworkAccessManager* manager = opened->page()->networkAccessManager();
    auto* cache = qobject_cast<QNetworkDiskCache*>(manager->cache());
    QVERIFY(cache);
    QCOMPARE(cache->maximumCacheSize(), qint64(1073741824));
    QVERIFY(qobject_cast<CookieJar*>(manager->cookieJar()));
    // A bare browser window: no bridge on its page.
    QCOMPARE(opened->page()->mainFrame()->evaluateJavaScript(QStringLiteral("typeof qtIndexWindow")).toString(),
        QStringLiteral("undefined"));
    QPointer<QWebView> guard(opened);
    opened->close();
    QTRY_VERIFY(guard.isNull());
}

void TestIndexWindow::relativeLoadFollowsWorkingDirectory()
{
    QTemporaryDir first;
    QTemporaryDir second;
    writeFile(first.filePath(QStringLiteral("page.html")), "<p>first</p>");
    writeFile(second.filePath(QStringLiteral("page.html")), "<p>second</p>");
    const QString previous = QDir::currentPath();

    for (QTemporaryDir* dir : { &first, &second }) {
        QVERIFY(QDir::setCurrent(dir->path()));
        QSignalSpy finished(mIndexWindow->webView()->page(), &QWebPage::loadFinished);
        mIndexWindow->loadFile(QStringLiteral("page.html"));
        QVERIFY(finished.wait(10000));
        QCOMPARE(mIndexWindow->webView()->url(), QUrl::fromLocalFile(dir->filePath(QStringLiteral("page.html"))));
    }
    QDir::setCurrent(previous);
}

void TestIndexWindow::settingsEmptyMeansDefault()
{
    mIndexWindow->setSetting(QStringLiteral("k"), QString());
    QCOMPARE(mIndexWindow->getSetting(QStringLiteral("k"), QStringLiteral("fallback")), QStringLiteral("fallback"));
    mIndexWindow->removeSetting(QStringLiteral("absent-key"));
    QCOMPARE(mIndexWindow->getSetting(QStringLiteral("absent-key"), QString()), QString());
    mIndexWindow->setSetting(QStringLiteral("k"), QStringLiteral("v"));
    QCOMPARE(mIndexWindow->getSetting(QStringLiteral("k"), QStringLiteral("fallback")), QStringLiteral("v"));
}

QTEST_MAIN(TestIndexWindow)
#include "tst_indexwindow.moc"
