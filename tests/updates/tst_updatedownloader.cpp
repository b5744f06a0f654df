#include <QtTest>

#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>

#include "httpserver.h"
#include "modalanswer.h"
#include "standins.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/downloadwatchdog.h"
#include "updates/updatedownloaderdialog.h"

namespace {

QString downloadFolder()
{
    return QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
}

QByteArray installerBody(int size)
{
    QByteArray body;
    for (int i = 0; body.size() < size; ++i)
        body += "#!/bin/sh\n# installer line " + QByteArray::number(i) + "\n";
    return body.left(size);
}

HttpServer::Reply whole(const QByteArray& body)
{
    HttpServer::Reply reply;
    reply.body = body;
    return reply;
}

// A real network's round trip: a retry started from a failure is dropped with the failed reply
// (deleteLater) before its answer comes. A loopback answer could otherwise beat the deletion.
HttpServer::Reply afterRoundTrip(HttpServer::Reply reply)
{
    reply.delayBeforeHeadersMs = 150;
    return reply;
}

HttpServer::Reply status(int code)
{
    HttpServer::Reply reply;
    reply.status = code;
    reply.body = "failed";
    return reply;
}

HttpServer::Reply stall()
{
    HttpServer::Reply reply;
    reply.delayBeforeHeadersMs = -1;
    return reply;
}

HttpServer::Reply trickle(const QByteArray& body, int pieceSize, int intervalMs, bool withLength)
{
    HttpServer::Reply reply;
    reply.body = body;
    reply.pieceSize = pieceSize;
    reply.pieceIntervalMs = intervalMs;
    reply.contentLength = withLength;
    return reply;
}

QPushButton* buttonWithText(QWidget* dialog, const QString& text)
{
    const auto buttons = dialog->findChildren<QPushButton*>();
    for (QPushButton* button : buttons) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

// Runs the dialog as the prompt does; a dialog that never ends fails the test rather than hanging it.
bool runToEnd(UpdateDownloaderDialog& dialog)
{
    bool timedOut = false;
    QTimer::singleShot(20000, &dialog, [&] {
        timedOut = true;
        dialog.reject();
    });
    dialog.exec();
    return !timedOut;
}

} // namespace

class TestUpdateDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void outcome_data();
    void outcome();
    void yesInThePromptDownloadsAndHandsOver();
    void cancelRemovesThePartialFile();
    void unwritableFolderStaysIdle();
    void watchdogGivesUpAfterFourSeconds();

private:
    HttpServer mServer;
    QStringList mBoxTexts;
};

void TestUpdateDownloader::initTestCase()
{
    QVERIFY(mServer.listen());
}

void TestUpdateDownloader::init()
{
    DownloadWatchdog::setIntervalMsForTests(300);
    mServer.clearReplies();
    mServer.clearRequests();
    mBoxTexts.clear();
    QDir(downloadFolder()).removeRecursively();
}

void TestUpdateDownloader::cleanup()
{
    DownloadWatchdog::setIntervalMsForTests(0);
}

void TestUpdateDownloader::outcome_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<HttpServer::Reply>("first");
    QTest::addColumn<HttpServer::Reply>("later");
    QTest::addColumn<QString>("fileName"); // empty: the error box instead of a hand-over
    QTest::addColumn<QString>("volume");
    QTest::addColumn<int>("bar");

    const QByteArray body = installerBody(40000);
    QTest::newRow("whole body") << "/dl/kestrelgap-setup-2.90.run" << whole(body) << whole(body)
                                << "kestrelgap-setup-2.90.run" << "kestrelgap-setup-2.90" << 100;
    QTest::newRow("slow body with length") << "/dl/setup.run" << trickle(body, 5000, 120, true) << whole(body)
                                           << "setup.run" << "setup" << 100;
    // The total is known only at the end, so the bar jumps there; the watchdog meanwhile fires for nothing.
    QTest::newRow("no length") << "/dl/setup.run" << trickle(body, 5000, 120, false) << whole(body) << "setup.run"
                               << "setup" << 100;
    QTest::newRow("blanks leave the name") << "/dl/Kestrelgap%20Setup%202.90.run" << whole(body) << whole(body)
                                           << "KestrelgapSetup2.90.run" << "KestrelgapSetup2.90" << 100;
    QTest::newRow("underscores leave the volume") << "/dl/kestrel_gap_2.90.run" << whole(body) << whole(body)
                                                  << "kestrel_gap_2.90.run" << "kestrelgap2.90" << 100;
    QTest::newRow("name without a dot") << "/dl/kestrel_setup" << whole(body) << whole(body) << "kestrel_setup"
                                        << "kestrelsetup" << 100;
    QTest::newRow("path ending in a slash") << "/dl/" << whole(body) << whole(body) << "download" << "download"
                                            << 100;
    QTest::newRow("stalls") << "/dl/setup.run" << stall() << stall() << QString() << QString() << 0;
    QTest::newRow("stall, then success: the retry goes with the abort")
        << "/dl/setup.run" << stall() << whole(body) << QString() << QString() << 0;
    // The retry a failure starts is dropped with the failed reply; the watchdog then reports.
    QTest::newRow("error, then success") << "/dl/setup.run" << status(500) << afterRoundTrip(whole(body)) << QString()
                                         << QString() << 0;
    QTest::newRow("two failures") << "/dl/setup.run" << status(404) << afterRoundTrip(status(404)) << QString()
                                  << QString() << 0;
    HttpServer::Reply dropped = whole(body);
    dropped.dropAfterBodyBytes = 1000;
    QTest::newRow("connection dropped mid-body") << "/dl/setup.run" << dropped << afterRoundTrip(dropped) << QString()
                                                 << QString() << 0;
}

void TestUpdateDownloader::outcome()
{
    QFETCH(QString, path);
    QFETCH(HttpServer::Reply, first);
    QFETCH(HttpServer::Reply, later);
    QFETCH(QString, fileName);
    QFETCH(QString, volume);
    QFETCH(int, bar);

    mServer.setReply(path, first);
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope, [&] { mServer.setReply(path, later); });

    RecordingHandOver handOver;
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    UpdateDownloaderDialog dialog;
    auto* progressBar = dialog.findChild<QProgressBar*>(QStringLiteral("update_download_progress_bar"));
    int highest = 0;
    connect(progressBar, &QProgressBar::valueChanged, &scope, [&](int value) { highest = qMax(highest, value); });
    dialog.startDownload(mServer.url(path));
    QVERIFY(runToEnd(dialog));

    if (fileName.isEmpty()) {
        QCOMPARE(mBoxTexts, QStringList { QStringLiteral("Error downloading update.") });
        QCOMPARE(handOver.count, 0);
        QVERIFY(QDir(downloadFolder()).entryList(QDir::Files).isEmpty());
        return;
    }
    QVERIFY(mBoxTexts.isEmpty());
    QCOMPARE(handOver.count, 1);
    const QString installer = downloadFolder() + QLatin1Char('/') + fileName;
    QCOMPARE(handOver.arguments,
        QStringList({ QCoreApplication::applicationDirPath(), QString::number(QCoreApplication::applicationPid()),
            installer, volume }));
    QCOMPARE(handOver.installerContent, first.body);
    QCOMPARE(highest, bar);
    // Busy while the hand-over runs.
    QCOMPARE(progressBar->maximum(), 0);
    QCOMPARE(dialog.findChild<QLabel*>(QStringLiteral("update_download_label"))->text(), QStringLiteral("Installing..."));
}

void TestUpdateDownloader::yesInThePromptDownloadsAndHandsOver()
{
    mServer.serve(QStringLiteral("/dl/Kestrelgap%20Setup.run"), "installer");
    RecordingHandOver handOver;
    ModalAnswer<ConfirmDownloadUpdate> yes([](ConfirmDownloadUpdate* prompt) {
        buttonWithText(prompt, QStringLiteral("Yes"))->click();
    });
    ConfirmDownloadUpdate prompt;
    // Typed as published, blank and all: the address is read tolerantly.
    prompt.setDownloadUrl(mServer.url(QStringLiteral("/dl/")).toString() + QStringLiteral("Kestrelgap Setup.run"));
    QTimer::singleShot(20000, &prompt, [] {
        if (auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    prompt.exec();

    QCOMPARE(yes.count(), 1);
    QCOMPARE(handOver.count, 1);
    QCOMPARE(handOver.arguments.value(2), downloadFolder() + QStringLiteral("/KestrelgapSetup.run"));
    QCOMPARE(handOver.installerContent, QByteArray("installer"));
    QCOMPARE(mServer.lastRequest().path, QStringLiteral("/dl/Kestrelgap%20Setup.run"));
}

void TestUpdateDownloader::cancelRemovesThePartialFile()
{
    mServer.setReply(QStringLiteral("/dl/setup.run"), trickle(installerBody(100000), 1000, 50, true));
    const QString installer = downloadFolder() + QStringLiteral("/setup.run");
    RecordingHandOver handOver;
    ModalAnswer<UpdateDownloaderDialog> cancel([&](UpdateDownloaderDialog* shown) {
        QVERIFY(QTest::qWaitFor([&] { return QFileInfo(installer).size() > 0; }, 10000));
        shown->findChild<QPushButton*>(QStringLiteral("update_download_cancel_button"))->click();
    });
    UpdateDownloaderDialog dialog;
    dialog.startDownload(mServer.url(QStringLiteral("/dl/setup.run")));
    QVERIFY(runToEnd(dialog));

    QCOMPARE(cancel.count(), 1);
    QVERIFY(!QFile::exists(installer));
    QCOMPARE(handOver.count, 0);
}

void TestUpdateDownloader::unwritableFolderStaysIdle()
{
    // A plain file where the download folder should be.
    QFile blocker(downloadFolder());
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    mServer.serve(QStringLiteral("/dl/unwritable.run"), "installer");

    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    ModalAnswer<UpdateDownloaderDialog> cancel([](UpdateDownloaderDialog* shown) {
        QCOMPARE(shown->findChild<QProgressBar*>(QStringLiteral("update_download_progress_bar"))->value(), 0);
        shown->findChild<QPushButton*>(QStringLiteral("update_download_cancel_button"))->click();
    });
    UpdateDownloaderDialog dialog;
    dialog.startDownload(mServer.url(QStringLiteral("/dl/unwritable.run")));
    QVERIFY(runToEnd(dialog));

    QCOMPARE(cancel.count(), 1);
    QCOMPARE(mServer.requestsFor(QStringLiteral("/dl/unwritable.run")).size(), 0);
    QVERIFY(mBoxTexts.isEmpty());
    QVERIFY(blocker.remove());
}

void TestUpdateDownloader::watchdogGivesUpAfterFourSeconds()
{
    DownloadWatchdog::setIntervalMsForTests(0);
    mServer.serveStall(QStringLiteral("/dl/unwritable.run"));
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    QElapsedTimer clock;
    clock.start();
    UpdateDownloaderDialog dialog;
    dialog.startDownload(mServer.url(QStringLiteral("/dl/stalled.run")));
    QVERIFY(runToEnd(dialog));

    // Coarse timers may fire up to 5 % early.
    QVERIFY2(clock.elapsed() >= 3800, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(mBoxTexts.size(), 1);
}

QTEST_MAIN(TestUpdateDownloader)
#include "tst_updatedownloader.moc"
