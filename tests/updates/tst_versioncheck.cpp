#include <QtTest>

#include <QGraphicsWebView>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "modalanswer.h"
#include "standins.h"
#include "resourceinit.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {

const QString documentPath = QStringLiteral("/prod-assets/desktop-client/versioncheck.json");

// Records what the native side sends to the trackers.
const char recordingPage[] = R"(<html><head><script>
  window.events = [];
  var _gaq = { push: function (a) { window.events.push('ga:' + a[2] + ':' + a[3]); } };
  var _kmq = { push: function (a) { window.events.push('km:' + a[1] + ':' + (a[2].trigger || '')); } };
</script></head><body></body></html>)";

} // namespace

class TestVersionCheck : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void signedInReport_data();
    void signedInReport();
    void promptAndAnswersReachTheTrackers();
    void twoReportsGiveTwoChecks();
    void signOutStartsNoCheck();
    void cleanupTestCase();

private:
    // Reports a sign-in and waits for the check it starts to end either way.
    bool signInAndWait(bool* failed = nullptr);

    HttpServer mServer;
    IndexWindow* mWindow = nullptr;
    QStringList mPromptUrls;
};

void TestVersionCheck::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mServer.listen());
    VersionCheck::setDocumentUrlForTests(mServer.url(documentPath));
    mWindow = new IndexWindow();
    indexWindowHolder::set(mWindow);
    QCOMPARE(VersionCheck::installedVersion(), 2.89);
}

void TestVersionCheck::cleanupTestCase()
{
    VersionCheck::setDocumentUrlForTests(QUrl());
    delete mWindow;
}

void TestVersionCheck::init()
{
    mServer.clearReplies();
    mServer.clearRequests();
    mPromptUrls.clear();
    mWindow->setProperty("current_version", QVariant());
    mWindow->setProperty("download_path", QVariant());
}

bool TestVersionCheck::signInAndWait(bool* failed)
{
    const int before = mWindow->findChildren<VersionCheck*>(QString(), Qt::FindDirectChildrenOnly).size();
    mWindow->updateClientLoginStateForMenuItems(true);
    const auto checks = mWindow->findChildren<VersionCheck*>(QString(), Qt::FindDirectChildrenOnly);
    if (checks.size() != before + 1)
        return false;
    QSignalSpy complete(checks.last(), &VersionCheck::versionCheckLoadComplete);
    QSignalSpy error(checks.last(), &VersionCheck::versionCheckErrorOccurred);
    // The prompt, if any, runs inside the complete signal, so the spy sees it after the answer.
    if (!QTest::qWaitFor([&] { return complete.size() + error.size() > 0; }, 10000))
        return false;
    if (failed)
        *failed = !error.isEmpty();
    return true;
}

void TestVersionCheck::signedInReport_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("error");
    QTest::addColumn<double>("published");
    QTest::addColumn<QString>("promptUrl"); // null: no prompt

    const QString setup = QStringLiteral("http://127.0.0.1/dl/setup-2.90.run");
    QTest::newRow("published above") << 200 << QByteArray(R"({"current_version_pc": 2.90, "download_path_pc": ")"
        + setup.toUtf8() + "\"}") << false << 2.90 << setup;
    QTest::newRow("published equal") << 200 << QByteArray(R"({"current_version_pc": 2.89, "download_path_pc": "x"})")
                                     << false << 2.89 << QString();
    QTest::newRow("published below: no downgrade") << 200 << QByteArray(R"({"current_version_pc": 2.88})") << false
                                                   << 2.88 << QString();
    QTest::newRow("2.9 is above 2.89") << 200 << QByteArray(R"({"current_version_pc": 2.9, "download_path_pc": "u"})")
                                       << false << 2.9 << QStringLiteral("u");
    QTest::newRow("2.100 is below 2.89") << 200 << QByteArray(R"({"current_version_pc": 2.100})") << false << 2.1
                                         << QString();
    QTest::newRow("path not a text: prompt with empty URL")
        << 200 << QByteArray(R"({"current_version_pc": 3, "download_path_pc": 7})") << false << 3.0 << QString("");
    QTest::newRow("number as a text reads as 0") << 200 << QByteArray(R"({"current_version_pc": "9.99"})") << false
                                                 << 0.0 << QString();
    QTest::newRow("unparsable body") << 200 << QByteArray("<html>oops") << false << 0.0 << QString();
    QTest::newRow("redirect is not followed") << 302 << QByteArray() << false << 0.0 << QString();
    QTest::newRow("not found is silent") << 404 << QByteArray(R"({"current_version_pc": 9})") << true << 0.0
                                         << QString();
    QTest::newRow("dead server is silent") << 0 << QByteArray() << true << 0.0 << QString();
}

void TestVersionCheck::signedInReport()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(bool, error);
    QFETCH(double, published);
    QFETCH(QString, promptUrl);

    if (status == 302) {
        mServer.serve(QStringLiteral("/newer.json"), R"({"current_version_pc": 9, "download_path_pc": "u"})");
        mServer.serveRedirect(documentPath, mServer.url(QStringLiteral("/newer.json")).toEncoded());
    } else if (status != 0) {
        mServer.serve(documentPath, body, "application/json", status);
    } else {
        // Nothing listens on the port of a server that has gone.
        HttpServer gone;
        QVERIFY(gone.listen());
        VersionCheck::setDocumentUrlForTests(gone.url(documentPath));
    }

    ModalAnswer<ConfirmDownloadUpdate> later([this](ConfirmDownloadUpdate* prompt) {
        mPromptUrls.append(prompt->downloadUrl());
        buttonWithText(prompt, QStringLiteral("I'll do this later"))->click();
    });
    bool failed = false;
    const bool finished = signInAndWait(&failed);
    VersionCheck::setDocumentUrlForTests(mServer.url(documentPath));
    QVERIFY(finished);

    QCOMPARE(failed, error);
    QCOMPARE(mPromptUrls, promptUrl.isNull() ? QStringList() : QStringList { promptUrl });
    if (status == 302)
        QCOMPARE(mServer.requestCount(), 1);
    if (error) {
        QVERIFY(!mWindow->property("current_version").isValid());
    } else {
        QCOMPARE(mWindow->property("current_version").toDouble(), published);
        QCOMPARE(mWindow->property("download_path").type(), QVariant::String);
    }
}

void TestVersionCheck::promptAndAnswersReachTheTrackers()
{
    QTemporaryDir dir;
    QFile page(dir.filePath(QStringLiteral("page.html")));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write(recordingPage);
    page.close();
    QSignalSpy loaded(mWindow->webView()->page(), &QWebPage::loadFinished);
    mWindow->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QVERIFY(loaded.wait(10000));

    mServer.serve(documentPath, R"({"current_version_pc": 2.95, "download_path_pc": "u"})", "application/json");
    ModalAnswer<ConfirmDownloadUpdate> later([](ConfirmDownloadUpdate* prompt) {
        buttonWithText(prompt, QStringLiteral("I'll do this later"))->click();
    });
    QVERIFY(signInAndWait());
    QCOMPARE(later.count(), 1);

    const QStringList events = mWindow->webView()->page()->mainFrame()
                                   ->evaluateJavaScript(QStringLiteral("window.events"))
                                   .toStringList()
                                   .filter(QStringLiteral("install-update"));
    QCOMPARE(events,
        QStringList({ QStringLiteral("ga:user-prompted-to-install-update-qt:app-start"),
            QStringLiteral("km:user-prompted-to-install-update-qt:app-start"),
            QStringLiteral("ga:user-cancels-install-update-qt:pc"),
            QStringLiteral("km:user-cancels-install-update-qt:") }));
}

void TestVersionCheck::twoReportsGiveTwoChecks()
{
    mServer.serve(documentPath, R"({"current_version_pc": 2.95, "download_path_pc": "u"})", "application/json");
    ModalAnswer<ConfirmDownloadUpdate> later([](ConfirmDownloadUpdate* prompt) {
        buttonWithText(prompt, QStringLiteral("I'll do this later"))->click();
    });
    QVERIFY(signInAndWait());
    QVERIFY(signInAndWait());
    QCOMPARE(mServer.requestsFor(documentPath).size(), 2);
    QCOMPARE(later.count(), 2);
}

void TestVersionCheck::signOutStartsNoCheck()
{
    const int before = mWindow->findChildren<VersionCheck*>().size();
    mWindow->updateClientLoginStateForMenuItems(false);
    QCOMPARE(mWindow->findChildren<VersionCheck*>().size(), before);
}

QTEST_MAIN(TestVersionCheck)
#include "tst_versioncheck.moc"
