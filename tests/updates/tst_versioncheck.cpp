#include <QtTest>

#include <QMessageBox>

#include "core/windowholders.h"
#include "preferences/aboutdialog.h"
#include "resourceinit.h"
#include "standins.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/documentlimits.h"
#include "updates/latestinstalleddialog.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {
const QString path = QStringLiteral("/prod-assets/desktop-client/versioncheck.json");
}

// What a sign-in's check and the About dialog's button make of the published document; this is 2.89.
class TestVersionCheck : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void check_data();
    void check();
    void signOutStartsNoCheck()
    {
        mWindow.updateClientLoginStateForMenuItems(false);
        QVERIFY(mWindow.findChildren<VersionCheck*>().isEmpty());
    }

private:
    HttpServer mServer;
    IndexWindow mWindow;
};

void TestVersionCheck::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mWindow);
    DocumentLimits::setTimeoutMsForTests(1500);
}

void TestVersionCheck::check_data()
{
    QTest::addColumn<bool>("about");      // asked in the About dialog, not at sign-in
    QTest::addColumn<QString>("server");  // version|address[|KB of blanks after], a body, or: dead, redirect, endless, silent
    QTest::addColumn<QString>("answer");  // the prompt's address, "latest", the box's text, or nothing
    QTest::addColumn<double>("published"); // -1: the check failed

    QTest::newRow("published above") << false << "2.90|http://127.0.0.1/setup.run" << "http://127.0.0.1/setup.run" << 2.90;
    QTest::newRow("published equal") << false << "2.89|x" << "" << 2.89;
    QTest::newRow("2.100 is below 2.89: no downgrade") << false << "2.100|u" << "" << 2.1;
    QTest::newRow("number as a text reads as 0") << false << R"({"current_version_pc": "9.99"})" << "" << 0.0;
    QTest::newRow("redirect is not followed") << false << "redirect" << "" << 0.0;
    QTest::newRow("dead server is silent") << false << "dead" << "" << -1.0;
    // Blanks after the object are valid JSON: only the size decides.
    QTest::newRow("just under the cap") << false << "2.90|u|200" << "u" << 2.90;
    QTest::newRow("announced too long") << false << "2.90|u|300" << "" << -1.0;
    QTest::newRow("no end in sight") << false << "endless" << "" << -1.0;
    QTest::newRow("headers, then silence") << false << "silent" << "" << -1.0; // the body "silent" is never sent
    QTest::newRow("about: up to date") << true << "2.89|x" << "latest" << 2.89;
    QTest::newRow("about: 2.9 is above 2.89") << true << "2.9|u" << "u" << 2.9;
    QTest::newRow("about: service down") << true << "dead"
                                         << "Unable to check version number at this time.  Please try again later." << -1.0;
}

void TestVersionCheck::check()
{
    QFETCH(bool, about);
    QFETCH(QString, server);
    QFETCH(QString, answer);
    QFETCH(double, published);

    mServer.clearReplies();
    mWindow.setProperty("current_version", QVariant());
    HttpServer gone; // nothing listens on the port of a server that has gone
    VersionCheck::setDocumentUrlForTests(server == "dead" ? gone.url(path) : mServer.url(path));
    HttpServer::Reply reply;
    const QStringList fields = server.split('|');
    reply.body = fields.size() < 2 ? server.toUtf8()
        : QStringLiteral(R"({"current_version_pc": %1, "download_path_pc": "%2"})").arg(fields[0], fields[1]).toUtf8()
            + QByteArray(fields.value(2).toInt() * 1024, ' ');
    if (server == "endless")
        reply.body = QByteArray(R"({"current_version_pc": 2.90})") + QByteArray(4 << 20, ' ');
    reply.contentLength = server != "endless";
    reply.pieceSize = server == "endless" ? 64 * 1024 : 0;
    reply.pieceIntervalMs = 5;
    reply.delayAfterHeadersMs = server == "silent" ? -1 : 0;
    mServer.setReply(path, reply);
    if (server == "redirect")
        mServer.serveRedirect(path, mServer.url(QStringLiteral("/newer.json")).toEncoded());
    mServer.serve(QStringLiteral("/newer.json"), R"({"current_version_pc": 9, "download_path_pc": "u"})");

    QStringList seen;
    ModalAnswer<QDialog> user([&](QDialog* dialog) {
        if (auto* prompt = qobject_cast<ConfirmDownloadUpdate*>(dialog))
            seen << prompt->downloadUrl();
        else
            seen << (qobject_cast<LatestInstalledDialog*>(dialog) ? "latest" : static_cast<QMessageBox*>(dialog)->text());
        dialog->reject();
    });
    AboutDialog dialog;
    QObject* owner = about ? static_cast<QObject*>(&dialog) : &mWindow;
    if (about)
        dialog.findChild<QPushButton*>(QStringLiteral("checkForUpdateButton"))->click();
    else
        mWindow.updateClientLoginStateForMenuItems(true);
    QPointer<VersionCheck> check = owner->findChildren<VersionCheck*>(QString(), Qt::FindDirectChildrenOnly).value(0);
    QVERIFY(check);
    QSignalSpy complete(check, &VersionCheck::versionCheckLoadComplete);
    QSignalSpy failed(check, &VersionCheck::versionCheckErrorOccurred);
    // Any dialog runs inside the signal, so the spies see it after the answer.
    QTRY_COMPARE_WITH_TIMEOUT(complete.size() + failed.size(), 1, 10000);
    delete check.data();
    QCOMPARE(seen, answer.isEmpty() ? QStringList() : QStringList { answer });
    QCOMPARE(mWindow.property("current_version").toDouble(), published < 0 ? 0.0 : published);
    QCOMPARE(mWindow.property("current_version").isValid(), published >= 0);
    QCOMPARE(mServer.requestsFor(QStringLiteral("/newer.json")).size(), 0);
}

QTEST_MAIN(TestVersionCheck)
#include "tst_versioncheck.moc"
