#include <QtTest>

#include <QMessageBox>
#include <QNetworkCookie>
#include <QProgressBar>
#include <QStandardPaths>

#include "core/windowholders.h"
#include "standins.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/downloadtransfer.h"
#include "updates/mediadownloaderdialog.h"
#include "updates/updatedownloaderdialog.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"

namespace {
const int watchdogMs = 250;
const QString errorText = QStringLiteral("Error downloading update.");

HttpServer::Reply reply(const QByteArray& body, int status = 200, int piece = 0, bool length = true)
{
    HttpServer::Reply reply;
    reply.body = body;
    reply.status = status;
    reply.pieceSize = piece;
    reply.pieceIntervalMs = piece ? 40 : 0;
    reply.contentLength = length;
    return reply;
}
HttpServer::Reply stall()
{
    HttpServer::Reply stalled;
    stalled.delayBeforeHeadersMs = -1;
    return stalled;
}
HttpServer::Reply cutShort(const QByteArray& body)
{
    HttpServer::Reply cut = reply(body);
    cut.dropAfterBodyBytes = 1000;
    return cut;
}
// A real network's round trip: the retry a failure starts goes with the failed reply before its answer.
HttpServer::Reply late(HttpServer::Reply reply)
{
    reply.delayBeforeHeadersMs = 150;
    return reply;
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}
QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}
} // namespace

// Both download dialogs against the loopback server: where bytes land, what stays untouched.
class TestDownloaders : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void download_data();
    void download();
    void refusedInstallerKeepsTheClient();
    void completionBox_data();
    void completionBox();

private:
    // "chosen" is a/b in mRoot, so that a name climbing out of it lands in mRoot too.
    QString folder(const QString& tag) const
    {
        return tag == "chosen" ? mRoot.filePath("a/b")
            : tag == "program" ? mProgram.path()
                               : QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
    }

    HttpServer mServer;
    QTemporaryDir mRoot, mProgram;
    IndexWindow mWindow;
};

void TestDownloaders::initTestCase()
{
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mWindow);
    QVERIFY(QDir().mkpath(folder("chosen")));
    mWindow.setDefaultDownloadLocationSetting(folder("chosen"));
    DownloadTransfer::setWatchdogMsForTests(watchdogMs);
    CookieJar jar;
    QNetworkCookie cookie("kgsession", "abc123");
    cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
    QVERIFY(jar.setCookiesFromUrl({ cookie }, mServer.url("/")));
}

void TestDownloaders::download_data()
{
    QTest::addColumn<QString>("source");  // a media name and type, or an installer's address path
    QTest::addColumn<long>("size");       // the page's size of a media file
    QTest::addColumn<HttpServer::Reply>("first");
    QTest::addColumn<HttpServer::Reply>("later");
    QTest::addColumn<QString>("user");     // open (asked to), show (the button), cancel, wait
    QTest::addColumn<QString>("existing"); // folder/name of a file there before
    QTest::addColumn<QString>("outcome");  // folder/name saved [volume], the box, or nothing
    QTest::addColumn<int>("percent");      // the media bar at the end; -1 unchecked

    QByteArray body(60000, 'm');
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(i * 7);
    const HttpServer::Reply ok = reply(body);
    QTest::newRow("media: a dot keeps the name") << "clip.gif|video/mp4" << 60000L << ok << ok << "open" << ""
                                                 << "chosen/clip.gif" << 100;
    QTest::newRow("media: image without a dot") << "my photo|image/png" << 60000L << ok << ok << "show" << ""
                                                << "chosen/my photo.jpg" << 100;
    QTest::newRow("media: video") << "clip|video/3gpp" << 60000L << ok << ok << "open" << "" << "chosen/clip.mp4" << 100;
    QTest::newRow("media: other type, no page size") << "note|Image/png" << 0L << ok << ok << "open" << ""
                                                     << "chosen/note" << 0;
    QTest::newRow("media: longer than the page said") << "p.png|image/png" << 30000L << reply(body, 200, 6000) << ok
                                                      << "open" << "" << "chosen/p.png" << -1;
    QTest::newRow("media: name taken") << "p.png|image/png" << 60000L << ok << ok << "open" << "chosen/p.png"
                                       << "chosen/p (2).png" << 100;
    QTest::newRow("media: parent folder, hidden") << "../.bashrc|image/png" << 60000L << ok << ok << "open" << ""
                                                  << "chosen/bashrc.jpg" << 100;
    QTest::newRow("media: empty, taken") << "|video/mp4" << 60000L << ok << ok << "open" << "chosen/download.mp4"
                                         << "chosen/download (2).mp4" << 100;
    QTest::newRow("media: data source") << "data:text/plain;base64,aGk=" << 2L << ok << ok << "open" << "" << errorText << -1;
    QTest::newRow("media: file source") << "file:///etc/hostname" << 2L << ok << ok << "open" << "" << errorText << -1;
    // After the watchdog stepped in, attempts go to the system's folder; two retries.
    QTest::newRow("media: stall, then success") << "r|image/png" << 60000L << stall() << late(ok) << "show" << ""
                                                << "system/r.jpg" << 100;
    QTest::newRow("media: error, then success") << "r|image/png" << 60000L << reply("x", 500) << late(ok) << "show"
                                                << "" << "system/r.jpg" << 100;
    QTest::newRow("media: stalls throughout") << "victim.txt|text/plain" << 60000L << stall() << stall() << "wait"
                                              << "chosen/victim.txt" << errorText << -1;
    // A third network failure leaves the dialog as it stands, with no box.
    QTest::newRow("media: cut short each time") << "victim.txt|text/plain" << 60000L << late(cutShort(body))
                                                << late(cutShort(body)) << "wait" << "chosen/victim.txt" << "" << -1;
    QTest::newRow("media: cancelled") << "victim.txt|text/plain" << 60000L << reply(body, 200, 2000) << ok << "cancel"
                                      << "chosen/victim.txt" << "" << -1;

    QTest::newRow("update: whole") << "/dl/kestrelgap-setup-2.90.run" << 0L << ok << ok << "open" << ""
                                   << "system/kestrelgap-setup-2.90.run|kestrelgap-setup-2.90" << -1;
    QTest::newRow("update: no length, slowly") << "/dl/setup.run" << 0L << reply(body, 200, 5000, false) << ok
                                               << "open" << "" << "system/setup.run|setup" << -1;
    QTest::newRow("update: blanks and underscores") << "/dl/Kestrel gap_2.90.run" << 0L << ok << ok << "open" << ""
                                                    << "system/Kestrelgap_2.90.run|Kestrelgap2.90" << -1;
    QTest::newRow("update: named like the hand-over script") << "/dl/install_update.sh" << 0L << ok << ok << "open"
        << "program/install_update.sh" << "system/install_update.sh|installupdate" << -1;
    QTest::newRow("update: name taken") << "/dl/setup.run" << 0L << ok << ok << "open" << "system/setup.run"
                                        << "system/setup (2).run|setup (2)" << -1;
    // One retry: a stall's abort spends it at once; a retry after a failure goes with the failed reply.
    QTest::newRow("update: stall, then success") << "/dl/setup.run" << 0L << stall() << ok << "open" << "" << errorText << -1;
    QTest::newRow("update: error, then success") << "/dl/setup.run" << 0L << reply("x", 500) << late(ok) << "open" << ""
                                                 << errorText << -1;
    QTest::newRow("update: cut short") << "/dl/setup.run" << 0L << cutShort(body) << late(cutShort(body)) << "open"
                                       << "" << errorText << -1;
    HttpServer::Reply redirect = reply(QByteArray(), 302);
    redirect.headers.append(qMakePair(QByteArray("Location"), QByteArray("/dl/elsewhere.run")));
    QTest::newRow("update: redirect") << "/dl/setup.run" << 0L << redirect << late(redirect) << "open" << ""
                                      << errorText << -1;
    QTest::newRow("update: cancelled") << "/dl/setup.run" << 0L << reply(body, 200, 2000) << ok << "cancel"
                                       << "system/setup.run" << "" << -1;
}

void TestDownloaders::download()
{
    QFETCH(QString, source);
    QFETCH(long, size);
    QFETCH(HttpServer::Reply, first);
    QFETCH(HttpServer::Reply, later);
    QFETCH(QString, user);
    QFETCH(QString, existing);
    QFETCH(QString, outcome);
    QFETCH(int, percent);

    for (const QString& tag : { "chosen", "system", "program" }) {
        QDir(folder(tag)).removeRecursively();
        QDir().mkpath(folder(tag));
    }
    // The program folder is the working directory on Linux.
    QVERIFY(QDir::setCurrent(folder("program")));
    if (!existing.isEmpty()) {
        QFile older(folder(existing.section('/', 0, 0)) + '/' + existing.section('/', 1));
        QVERIFY(older.open(QIODevice::WriteOnly) && older.write("older") == 5);
    }
    const bool media = !source.startsWith('/');
    const QString path = media ? QStringLiteral("/media/1") : QUrl(source).toString(QUrl::FullyEncoded);
    mServer.clearReplies();
    mServer.clearRequests();
    mServer.setReply(path, first);
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope, [&] { mServer.setReply(path, later); });

    QStringList seen;
    ModalAnswer<QMessageBox> box([&](QMessageBox* message) {
        seen << message->text();
        message->accept();
    });
    ModalAnswer<QDialog> answer([&](QDialog* dialog) {
        if (!qobject_cast<MediaDownloaderDialog*>(dialog) && !qobject_cast<UpdateDownloaderDialog*>(dialog))
            return;
        if (user == "cancel") {
            // Once bytes are on disk, in the attempt's own hidden file.
            QVERIFY(QTest::qWaitFor([&] {
                const QFileInfoList files = QDir(folder(media ? "chosen" : "system")).entryInfoList(QDir::Hidden | QDir::Files);
                return std::any_of(files.begin(), files.end(), [](const QFileInfo& f) { return f.isHidden() && f.size() > 0; });
            }, 10000));
            buttonWithText(dialog, "Cancel")->click();
        } else if (user == "show" && QTest::qWaitFor([&] { return buttonWithText(dialog, "Show in Folder")->isVisible(); }, 10000)) {
            buttonWithText(dialog, "Show in Folder")->click();
        }
    });
    // The dialog closes by itself only through the error box; a stuck download waits for the user.
    QTimer closer;
    connect(&closer, &QTimer::timeout, [] {
        if (auto* open = qobject_cast<MediaDownloaderDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    if (user == "wait" && outcome.isEmpty())
        closer.start(10 * watchdogMs);

    RecordingFileOpener opener;
    RecordingHandOver handOver;
    if (media) {
        const QString url = source.contains(':') ? source : mServer.url(path).toString();
        QVERIFY(runModal([&] { mWindow.downloadFile(url, source.section('|', 1), source.section('|', 0, 0), size, user == "open"); }));
        seen << opener.opened << opener.shown;
        if (mServer.requestCount())
            QCOMPARE(mServer.lastRequest().header("Cookie"), QByteArray("kgsession=abc123"));
    } else {
        ConfirmDownloadUpdate prompt;
        // As published, blanks and all: the address is read tolerantly.
        prompt.setDownloadUrl(mServer.url("/").toString() + source.mid(1));
        ModalAnswer<ConfirmDownloadUpdate> yes([](ConfirmDownloadUpdate* shown) { buttonWithText(shown, "Yes")->click(); });
        QVERIFY(runModal([&] { prompt.exec(); }));
        if (!handOver.arguments.isEmpty()) {
            QCOMPARE(handOver.arguments.mid(0, 2), QStringList({ QCoreApplication::applicationDirPath(),
                QString::number(QCoreApplication::applicationPid()) }));
            seen << handOver.arguments.at(2) + '|' + handOver.arguments.at(3);
            QCOMPARE(handOver.installerContent, later.body);
        }
    }
    const bool savedFile = outcome.startsWith("chosen/") || outcome.startsWith("system/");
    const QString saved = savedFile ? outcome.section('|', 0, 0) : QString();
    QCOMPARE(seen.join(','), savedFile ? folder(outcome.section('/', 0, 0)) + '/' + outcome.section('/', 1) : outcome);
    if (media && savedFile)
        QCOMPARE(contentOf(seen.first()), later.body);
    if (media && percent >= 0) {
        auto* dialog = mWindow.findChildren<MediaDownloaderDialog*>().last();
        QCOMPARE(dialog->findChild<QProgressBar*>()->value(), percent);
    }

    // Each folder holds what was there and what was saved, no temporary; nothing above the chosen one.
    for (const QString& tag : { "chosen", "system", "program" }) {
        QStringList want;
        for (const QString& file : { existing, saved })
            if (file.startsWith(tag + '/'))
                want << file.section('/', 1);
        want.sort();
        QCOMPARE(entries(folder(tag)), want);
    }
    QCOMPARE(entries(mRoot.path()), QStringList { "a" });
    QCOMPARE(entries(mRoot.filePath("a")), QStringList { "b" });
    if (!existing.isEmpty())
        QCOMPARE(contentOf(folder(existing.section('/', 0, 0)) + '/' + existing.section('/', 1)), QByteArray("older"));
    // A closed dialog neither fetches again nor opens anything later.
    if (user == "cancel") {
        QTest::qWait(3 * watchdogMs);
        QVERIFY(opener.opened.isEmpty() && handOver.arguments.isEmpty());
        QCOMPARE(entries(folder("system")), existing.startsWith("system") ? QStringList { "setup.run" } : QStringList());
    }
}

// An installer this system can't run is refused before the client is stopped, in words.
void TestDownloaders::refusedInstallerKeepsTheClient()
{
    mServer.serve("/dl/setup.exe", "MZ");
    RecordingHandOver handOver;
    handOver.refused = "The downloaded update is no program this system can run.";
    QStringList seen;
    ModalAnswer<QMessageBox> box([&](QMessageBox* message) {
        seen << message->text();
        message->accept();
    });
    UpdateDownloaderDialog dialog;
    dialog.startDownload(mServer.url("/dl/setup.exe"));
    QVERIFY(runModal([&] { dialog.exec(); }));
    QCOMPARE(seen, QStringList { handOver.refused });
    QVERIFY(handOver.arguments.isEmpty());
}

void TestDownloaders::completionBox_data()
{
    QTest::addColumn<bool>("openFile"); // of the latest download the page asked for
    QTest::addColumn<QString>("button"); // empty: no box at all
    QTest::addColumn<QString>("done");   // opened|shown

    QTest::newRow("not asked to open: no box") << false << "" << "|";
    QTest::newRow("Open") << true << "Open" << "/somewhere/a.jpg|";
    QTest::newRow("Show in Folder") << true << "Show in Folder" << "|/somewhere/a.jpg";
}

void TestDownloaders::completionBox()
{
    QFETCH(bool, openFile);
    QFETCH(QString, button);
    QFETCH(QString, done);

    mServer.serve("/media/8", "x", "image/png");
    RecordingFileOpener opener;
    ModalAnswer<MediaDownloaderDialog> shown([](MediaDownloaderDialog* dialog) { dialog->reject(); });
    QVERIFY(runModal([&] { mWindow.downloadFile(mServer.url("/media/8").toString(), "image/png", "f", 1, openFile); }));
    opener.opened.clear();
    QString text;
    ModalAnswer<QMessageBox> answer([&](QMessageBox* box) {
        text = box->text();
        buttonWithText(box, button)->click();
    });
    QVERIFY(runModal([&] { mWindow.mediaDownloadComplete("a.jpg", "/somewhere/a.jpg"); }));
    QCOMPARE(text, button.isEmpty() ? QString() : QStringLiteral("a.jpg DOWNLOADED"));
    QCOMPARE(opener.opened.join(',') + '|' + opener.shown.join(','), done);
}

QTEST_MAIN(TestDownloaders)
#include "tst_downloaders.moc"
