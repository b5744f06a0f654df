#include <QtTest>

#include "core/windowholders.h"
#include "standins.h"
#include "resourceinit.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/documentlimits.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {
const QString path = QStringLiteral("/prod-assets/desktop-client/versioncheck.json");
}

// What a sign-in's version check makes of the published document.
class TestVersionCheck : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { VersionCheck::setDocumentUrlForTests(QUrl()); }
    void signedInReport_data();
    void signedInReport();
    void signOutStartsNoCheck();
    void hostileDocument_data();
    void hostileDocument();

private:
    HttpServer mServer;
    IndexWindow mWindow;
};

void TestVersionCheck::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mWindow);
    QCOMPARE(VersionCheck::installedVersion(), 2.89);
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
    QTest::newRow("not found is silent") << 404 << QByteArray(R"({"current_version_pc": 9})") << true << 0.0 << QString();
    QTest::newRow("dead server is silent") << 0 << QByteArray() << true << 0.0 << QString();
}

void TestVersionCheck::signedInReport()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(bool, error);
    QFETCH(double, published);
    QFETCH(QString, promptUrl);

    mServer.clearReplies();
    mServer.clearRequests();
    mWindow.setProperty("current_version", QVariant());
    mWindow.setProperty("download_path", QVariant());
    HttpServer gone; // nothing listens on the port of a server that has gone
    VersionCheck::setDocumentUrlForTests(status ? mServer.url(path) : gone.url(path));
    if (status == 302) {
        mServer.serve(QStringLiteral("/newer.json"), R"({"current_version_pc": 9, "download_path_pc": "u"})");
        mServer.serveRedirect(path, mServer.url(QStringLiteral("/newer.json")).toEncoded());
    } else {
        mServer.serve(path, body, "application/json", status);
    }
    QStringList promptUrls;
    ModalAnswer<ConfirmDownloadUpdate> later([&](ConfirmDownloadUpdate* prompt) {
        promptUrls.append(prompt->downloadUrl());
        buttonWithText(prompt, QStringLiteral("I'll do this later"))->click();
    });
    mWindow.updateClientLoginStateForMenuItems(true);
    QPointer<VersionCheck> check = mWindow.findChildren<VersionCheck*>(QString(), Qt::FindDirectChildrenOnly).value(0);
    QVERIFY(check);
    QSignalSpy complete(check, &VersionCheck::versionCheckLoadComplete);
    QSignalSpy failed(check, &VersionCheck::versionCheckErrorOccurred);
    // The prompt, if any, runs inside the complete signal, so the spy sees it after the answer.
    QTRY_COMPARE_WITH_TIMEOUT(complete.size() + failed.size(), 1, 10000);
    delete check.data();
    QCOMPARE(failed.size() == 1, error);
    QCOMPARE(promptUrls, promptUrl.isNull() ? QStringList() : QStringList { promptUrl });
    if (status == 302)
        QCOMPARE(mServer.requestCount(), 1);
    QCOMPARE(mWindow.property("current_version").isValid(), !error);
    QCOMPARE(mWindow.property("current_version").toDouble(), published);
}

void TestVersionCheck::signOutStartsNoCheck()
{
    mWindow.updateClientLoginStateForMenuItems(false);
    QVERIFY(mWindow.findChildren<VersionCheck*>().isEmpty());
}

void TestVersionCheck::hostileDocument_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<bool>("error");

    // Blanks after the object are valid JSON: only the size decides.
    const QByteArray newer = R"({"current_version_pc": 2.90, "download_path_pc": "u"})";
    QTest::newRow("just under the cap") << Replies::whole(newer + QByteArray(200 * 1024, ' ')) << false;
    QTest::newRow("no end in sight") << Replies::slowly(newer + QByteArray(4 * 1024 * 1024, ' '), 64 * 1024, 5, false)
                                     << true;
    QTest::newRow("announced too long") << Replies::whole(newer + QByteArray(300 * 1024, ' ')) << true;
    QTest::newRow("no answer") << Replies::stall() << true;
    HttpServer::Reply silent = Replies::whole(newer);
    silent.delayAfterHeadersMs = -1;
    QTest::newRow("headers, then silence") << silent << true;
}

void TestVersionCheck::hostileDocument()
{
    QFETCH(HttpServer::Reply, reply);
    QFETCH(bool, error);

    DocumentLimits::setTimeoutMsForTests(1500);
    mServer.clearReplies();
    mServer.setReply(path, reply);
    VersionCheck::setDocumentUrlForTests(mServer.url(path));
    VersionCheck check(nullptr);
    QSignalSpy complete(&check, &VersionCheck::versionCheckLoadComplete);
    QSignalSpy failed(&check, &VersionCheck::versionCheckErrorOccurred);
    QElapsedTimer clock;
    clock.start();
    check.loadObject();
    QTRY_COMPARE_WITH_TIMEOUT(complete.size() + failed.size(), 1, 10000);
    QCOMPARE(failed.size(), int(error));
    QVERIFY2(clock.elapsed() < 8000, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(check.getCurrentVersion(), error ? 0.0 : 2.90);
    DocumentLimits::setTimeoutMsForTests(0);
}

QTEST_MAIN(TestVersionCheck)
#include "tst_versioncheck.moc"
