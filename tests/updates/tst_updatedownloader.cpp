#include <QtTest>

#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QStandardPaths>

#include "standins.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/downloadwatchdog.h"
#include "updates/updatedownloaderdialog.h"

using namespace Replies;

namespace {
QString downloadFolder()
{
    return QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
}
} // namespace

class TestUpdateDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(mServer.listen()); }
    void init();
    void outcome_data();
    void outcome();
    void yesInThePromptDownloadsAndHandsOver();
    void cancelRemovesThePartialFile();
    void sparesWhatIsThere_data();
    void sparesWhatIsThere();
    void refusedInstallerKeepsTheClient();

private:
    // Runs a download to its end, answering any error box.
    void run(UpdateDownloaderDialog& dialog, const QString& path);

    HttpServer mServer;
    QStringList mBoxTexts;
};

void TestUpdateDownloader::init()
{
    DownloadWatchdog::setIntervalMsForTests(300);
    mServer.clearReplies();
    mBoxTexts.clear();
    QDir(downloadFolder()).removeRecursively();
}

void TestUpdateDownloader::run(UpdateDownloaderDialog& dialog, const QString& path)
{
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    dialog.startDownload(mServer.url(path));
    QVERIFY(runModal([&] { dialog.exec(); }));
}

void TestUpdateDownloader::outcome_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<HttpServer::Reply>("first");
    QTest::addColumn<HttpServer::Reply>("later");
    QTest::addColumn<QString>("fileName"); // empty: the error box instead of a hand-over
    QTest::addColumn<QString>("volume");

    const QByteArray body(40000, 'i');
    QTest::newRow("whole body") << "/dl/kestrelgap-setup-2.90.run" << whole(body) << whole(body)
                                << "kestrelgap-setup-2.90.run" << "kestrelgap-setup-2.90";
    // The watchdog goes on firing once bytes flow, and must do nothing then.
    QTest::newRow("no length, slowly") << "/dl/setup.run" << slowly(body, 5000, 120, false) << whole(body)
                                       << "setup.run" << "setup";
    QTest::newRow("blanks leave the name, underscores the volume") << "/dl/Kestrel%20gap_2.90.run" << whole(body)
                                                                   << whole(body) << "Kestrelgap_2.90.run" << "Kestrelgap2.90";
    QTest::newRow("path ending in a slash") << "/dl/" << whole(body) << whole(body) << "download" << "download";
    // A stall's abort spends the one retry inside the cancel; the box follows at once.
    QTest::newRow("stall, then success") << "/dl/setup.run" << stall() << whole(body) << QString() << QString();
    // The retry a failure starts is dropped with the failed reply; the watchdog then reports.
    QTest::newRow("error, then success") << "/dl/setup.run" << status(500) << afterRoundTrip(whole(body)) << QString() << QString();
    QTest::newRow("cut short") << "/dl/setup.run" << cutShort(body, 10000) << afterRoundTrip(cutShort(body, 10000))
                               << QString() << QString();
    QTest::newRow("error page") << "/dl/setup.run" << status(404) << afterRoundTrip(status(404)) << QString() << QString();
    // Not followed: its empty body is no installer.
    HttpServer::Reply redirect;
    redirect.status = 302;
    redirect.headers.append(qMakePair(QByteArray("Location"), QByteArray("/dl/elsewhere.run")));
    QTest::newRow("redirect") << "/dl/setup.run" << redirect << afterRoundTrip(redirect) << QString() << QString();
}

void TestUpdateDownloader::outcome()
{
    QFETCH(QString, path);
    QFETCH(HttpServer::Reply, first);
    QFETCH(HttpServer::Reply, later);
    QFETCH(QString, fileName);
    QFETCH(QString, volume);

    mServer.setReply(path, first);
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope, [&] { mServer.setReply(path, later); });
    RecordingHandOver handOver;
    UpdateDownloaderDialog dialog;
    auto* bar = dialog.findChild<QProgressBar*>(QStringLiteral("update_download_progress_bar"));
    int highest = 0;
    connect(bar, &QProgressBar::valueChanged, &scope, [&](int value) { highest = qMax(highest, value); });
    run(dialog, path);

    if (fileName.isEmpty()) {
        QCOMPARE(mBoxTexts, QStringList { QStringLiteral("Error downloading update.") });
        QVERIFY(handOver.arguments.isEmpty());
        QVERIFY(QDir(downloadFolder()).entryList(QDir::Files).isEmpty());
        return;
    }
    QVERIFY(mBoxTexts.isEmpty());
    QCOMPARE(handOver.arguments, QStringList({ QCoreApplication::applicationDirPath(),
        QString::number(QCoreApplication::applicationPid()), downloadFolder() + '/' + fileName, volume }));
    QCOMPARE(handOver.installerContent, first.body);
    QCOMPARE(highest, 100);
    QCOMPARE(bar->maximum(), 0); // busy while the script takes over
}

void TestUpdateDownloader::yesInThePromptDownloadsAndHandsOver()
{
    mServer.serve(QStringLiteral("/dl/Kestrelgap%20Setup.run"), "installer");
    RecordingHandOver handOver;
    ModalAnswer<ConfirmDownloadUpdate> yes([](ConfirmDownloadUpdate* prompt) { buttonWithText(prompt, "Yes")->click(); });
    ConfirmDownloadUpdate prompt;
    // As published, blank and all: the address is read tolerantly.
    prompt.setDownloadUrl(mServer.url(QStringLiteral("/dl/")).toString() + QStringLiteral("Kestrelgap Setup.run"));
    QVERIFY(runModal([&] { prompt.exec(); }));
    QCOMPARE(handOver.arguments.value(2), downloadFolder() + QStringLiteral("/KestrelgapSetup.run"));
    QCOMPARE(handOver.installerContent, QByteArray("installer"));
}

void TestUpdateDownloader::cancelRemovesThePartialFile()
{
    mServer.setReply(QStringLiteral("/dl/cancelled.run"), slowly(QByteArray(100000, 'c'), 1000, 50));
    RecordingHandOver handOver;
    ModalAnswer<UpdateDownloaderDialog> cancel([&](UpdateDownloaderDialog* shown) {
        QVERIFY(QTest::qWaitFor([&] {
            const QFileInfoList files = QDir(downloadFolder()).entryInfoList(QDir::Files | QDir::Hidden);
            return !files.isEmpty() && files.first().size() > 0;
        }, 10000));
        shown->findChild<QPushButton*>(QStringLiteral("update_download_cancel_button"))->click();
    });
    UpdateDownloaderDialog dialog;
    run(dialog, QStringLiteral("/dl/cancelled.run"));
    QCOMPARE(cancel.count(), 1);
    QCOMPARE(QDir(downloadFolder()).entryList(QDir::Files | QDir::Hidden), QStringList());
    QVERIFY(handOver.arguments.isEmpty());
}

void TestUpdateDownloader::sparesWhatIsThere_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("existing"); // relative to the working directory, the program folder on Linux
    QTest::addColumn<QString>("handedOver");

    QTest::newRow("named like the hand-over script") << "/dl/install_update.sh" << "install_update.sh"
                                                     << "install_update.sh";
    QTest::newRow("name taken in the download folder") << "/dl/setup.run" << "Downloads/setup.run" << "setup (2).run";
    QTest::newRow("folders in the address") << "/dl/..%2F..%2Fx.run" << "x.run" << "x.run";
    QTest::newRow("hidden name") << "/dl/.profile" << ".profile" << "profile";
}

void TestUpdateDownloader::sparesWhatIsThere()
{
    QFETCH(QString, path);
    QFETCH(QString, existing);
    QFETCH(QString, handedOver);

    QTemporaryDir programFolder;
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(programFolder.path()));
    const QString there = existing.startsWith("Downloads/") ? downloadFolder() + existing.mid(9) : programFolder.filePath(existing);
    QVERIFY(QDir().mkpath(QFileInfo(there).absolutePath()));
    QFile file(there);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("older") == 5);
    file.close();

    mServer.serve(path, "installer");
    RecordingHandOver handOver;
    UpdateDownloaderDialog dialog;
    run(dialog, path);
    QVERIFY(QDir::setCurrent(previous));
    QCOMPARE(handOver.arguments.value(2), downloadFolder() + '/' + handedOver);
    QCOMPARE(handOver.installerContent, QByteArray("installer"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("older"));
}

// An installer this system can't run is refused before the client is stopped, in words.
void TestUpdateDownloader::refusedInstallerKeepsTheClient()
{
    mServer.serve(QStringLiteral("/dl/setup.exe"), "MZ");
    RecordingHandOver handOver;
    handOver.refused = QStringLiteral("The downloaded update is no program this system can run.");
    UpdateDownloaderDialog dialog;
    run(dialog, QStringLiteral("/dl/setup.exe"));
    QCOMPARE(mBoxTexts, QStringList { handOver.refused });
    QVERIFY(handOver.arguments.isEmpty());
}

QTEST_MAIN(TestUpdateDownloader)
#include "tst_updatedownloader.moc"
