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
const QString errorText = QStringLiteral("Error downloading update.");
const QString refusal = QStringLiteral("The downloaded update is no program this system can run.");

QByteArray body()
{
    QByteArray bytes(60000, 0);
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i * 7);
    return bytes;
}

// ok, slow, trickle, nolength (slow), stall, cut (after 1000 bytes), 500, 302. "late": a real network's
// round trip, so that the retry a failure starts goes with the failed reply before its answer comes.
HttpServer::Reply reply(QString kind)
{
    HttpServer::Reply reply;
    reply.delayBeforeHeadersMs = kind == "stall" ? -1 : kind.startsWith("late ") ? 150 : 0;
    kind.remove("late ");
    reply.body = kind == "302" ? QByteArray() : body();
    reply.status = kind.toInt() ? kind.toInt() : 200;
    reply.pieceSize = kind == "trickle" ? 1000 : kind == "slow" || kind == "nolength" ? 6000 : 0;
    reply.pieceIntervalMs = 40;
    reply.contentLength = kind != "nolength";
    reply.dropAfterBodyBytes = kind == "cut" ? 1000 : -1;
    if (kind == "302")
        reply.headers.append(qMakePair(QByteArray("Location"), QByteArray("/dl/elsewhere.run")));
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

// Both download dialogs against the loopback server: where bytes land, and what stays untouched.
class TestDownloaders : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void download_data();
    void download();
    void completionBox();

private:
    // "chosen" is a/b in mRoot, so that a name climbing out of it lands in mRoot too.
    QString folder(const QString& tag) const
    {
        return tag == "chosen" ? mRoot.filePath("a/b") : tag == "program" ? mProgram.path()
            : QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
    }
    QString file(const QString& tagged) const { return folder(tagged.section('/', 0, 0)) + '/' + tagged.section('/', 1); }

    HttpServer mServer;
    QTemporaryDir mRoot, mProgram;
    IndexWindow mWindow;
};

void TestDownloaders::initTestCase()
{
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mWindow);
    mWindow.setDefaultDownloadLocationSetting(folder("chosen"));
    DownloadTransfer::setWatchdogMsForTests(250);
    QNetworkCookie cookie("kgsession", "abc123");
    cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
    QVERIFY(CookieJar().setCookiesFromUrl({ cookie }, mServer.url("/")));
}

void TestDownloaders::download_data()
{
    QTest::addColumn<QString>("source");   // media: name|type|the page's size; update: the installer's address path
    QTest::addColumn<QString>("server");   // its answer to the first request [>to the later ones]
    QTest::addColumn<QString>("user");     // open (the page asked to), show (the button), cancel, wait
    QTest::addColumn<QString>("existing"); // folder/name of a file there before
    QTest::addColumn<QString>("outcome");  // folder/name saved [|volume], the box, or nothing
    QTest::addColumn<int>("percent");      // the media bar at the end; -1 unchecked

    QTest::newRow("media: a dot keeps the name") << "clip.gif|video/mp4|60000" << "ok" << "open" << "" << "chosen/clip.gif" << 100;
    QTest::newRow("media: image") << "my photo|image/png|60000" << "ok" << "show" << "" << "chosen/my photo.jpg" << 100;
    QTest::newRow("media: video") << "clip|video/3gpp|60000" << "ok" << "open" << "" << "chosen/clip.mp4" << 100;
    QTest::newRow("media: other type, no size") << "note|Image/png|0" << "ok" << "open" << "" << "chosen/note" << 0;
    QTest::newRow("media: longer than the page said") << "p.png|image/png|30000" << "slow" << "open" << "" << "chosen/p.png"
                                                      << -1;
    QTest::newRow("media: name taken") << "p.png|image/png|60000" << "ok" << "open" << "chosen/p.png"
                                       << "chosen/p (2).png" << 100;
    QTest::newRow("media: parent folder, hidden") << "../.bashrc|image/png|60000" << "ok" << "open" << ""
                                                  << "chosen/bashrc.jpg" << 100;
    QTest::newRow("media: empty, taken") << "|video/mp4|60000" << "ok" << "open" << "chosen/download.mp4"
                                         << "chosen/download (2).mp4" << 100;
    QTest::newRow("media: data source") << "data:text/plain;base64,aGk=" << "ok" << "open" << "" << errorText << -1;
    QTest::newRow("media: file source") << "file:///etc/hostname" << "ok" << "open" << "" << errorText << -1;
    // Once the watchdog stepped in, attempts go to the system's folder; two retries.
    QTest::newRow("media: stall, then success") << "r|image/png|60000" << "stall>late ok" << "show" << "" << "system/r.jpg" << 100;
    QTest::newRow("media: error, then success") << "r|image/png|60000" << "500>late ok" << "show" << "" << "system/r.jpg" << 100;
    QTest::newRow("media: stalls throughout") << "v.txt|text|60000" << "stall" << "wait" << "chosen/v.txt" << errorText << -1;
    // The third network failure leaves the dialog as it stands, with no box.
    QTest::newRow("media: cut short each time") << "v.txt|text|60000" << "late cut" << "wait" << "chosen/v.txt" << "" << -1;
    QTest::newRow("media: cancelled") << "v.txt|text|60000" << "trickle>ok" << "cancel" << "chosen/v.txt" << "" << -1;

    QTest::newRow("update: whole") << "/dl/kestrelgap-setup-2.90.run" << "ok" << "open" << ""
                                   << "system/kestrelgap-setup-2.90.run|kestrelgap-setup-2.90" << -1;
    QTest::newRow("update: no length, slowly") << "/dl/setup.run" << "nolength>ok" << "open" << "" << "system/setup.run|setup"
                                               << -1;
    QTest::newRow("update: blanks and underscores") << "/dl/Kestrel gap_2.90.run" << "ok" << "open" << ""
                                                    << "system/Kestrelgap_2.90.run|Kestrelgap2.90" << -1;
    QTest::newRow("update: named like the hand-over script") << "/dl/install_update.sh" << "ok" << "open"
        << "program/install_update.sh" << "system/install_update.sh|installupdate" << -1;
    QTest::newRow("update: name taken") << "/dl/setup.run" << "ok" << "open" << "system/setup.run"
                                        << "system/setup (2).run|setup (2)" << -1;
    // One retry: a stall's abort spends it at once; a retry after a failure goes with the failed reply.
    QTest::newRow("update: stall, then success") << "/dl/setup.run" << "stall>ok" << "open" << "" << errorText << -1;
    QTest::newRow("update: error, then success") << "/dl/setup.run" << "500>late ok" << "open" << "" << errorText << -1;
    QTest::newRow("update: cut short") << "/dl/setup.run" << "cut>late cut" << "open" << "" << errorText << -1;
    QTest::newRow("update: redirect") << "/dl/setup.run" << "302>late 302" << "open" << "" << errorText << -1;
    QTest::newRow("update: cancelled") << "/dl/setup.run" << "trickle>ok" << "cancel" << "system/setup.run" << "" << -1;
    // This system runs no .exe: refused before the client is stopped, in words.
    QTest::newRow("update: refused installer") << "/dl/setup.exe" << "ok" << "open" << "" << refusal << -1;
}

void TestDownloaders::download()
{
    QFETCH(QString, source);
    QFETCH(QString, server);
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
    QFile older(file(existing));
    QVERIFY(existing.isEmpty() || (older.open(QIODevice::WriteOnly) && older.write("older") == 5));
    older.close();
    const bool media = !source.startsWith('/');
    const QString path = media ? QStringLiteral("/media/1") : QUrl(source).toString(QUrl::FullyEncoded);
    mServer.clearReplies();
    mServer.clearRequests();
    mServer.setReply(path, reply(server.section('>', 0, 0)));
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope, [&] { mServer.setReply(path, reply(server.section('>', -1))); });

    QStringList seen;
    ModalAnswer<QMessageBox> box([&](QMessageBox* message) {
        seen << message->text();
        message->accept();
    });
    ModalAnswer<QDialog> answer([&](QDialog* dialog) {
        if (user == "cancel" && !qobject_cast<QMessageBox*>(dialog) && !qobject_cast<ConfirmDownloadUpdate*>(dialog)) {
            // Once bytes are on disk, in the attempt's own hidden file.
            QVERIFY(QTest::qWaitFor([&] {
                const QFileInfoList files = QDir(folder(media ? "chosen" : "system")).entryInfoList(QDir::Hidden | QDir::Files);
                return std::any_of(files.begin(), files.end(), [](const QFileInfo& f) { return f.isHidden() && f.size(); });
            }, 10000));
            buttonWithText(dialog, "Cancel")->click();
        } else if (user == "show" && qobject_cast<MediaDownloaderDialog*>(dialog)) {
            QPushButton* show = buttonWithText(dialog, "Show in Folder");
            QVERIFY(QTest::qWaitFor([&] { return show->isVisible(); }, 10000));
            show->click();
        }
    });
    // Only the error box closes a dialog by itself; a stuck download waits for the user.
    QTimer closer;
    connect(&closer, &QTimer::timeout, [] {
        if (auto* open = qobject_cast<MediaDownloaderDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    closer.start(user == "wait" && outcome.isEmpty() ? 2500 : 60000);

    RecordingFileOpener opener;
    RecordingHandOver handOver;
    handOver.refused = source.endsWith(".exe") ? refusal : QString();
    if (media) {
        const QString url = source.contains(':') ? source : mServer.url(path).toString();
        const QStringList page = source.split('|');
        QVERIFY(runModal([&] { mWindow.downloadFile(url, page.value(1), page.value(0), page.value(2).toLong(), user == "open"); }));
        seen << opener.opened << opener.shown;
        if (mServer.requestCount())
            QCOMPARE(mServer.lastRequest().header("Cookie"), QByteArray("kgsession=abc123"));
    } else {
        // As published, blanks and all: the address is read tolerantly.
        ConfirmDownloadUpdate prompt;
        prompt.setDownloadUrl(mServer.url("/").toString() + source.mid(1));
        ModalAnswer<ConfirmDownloadUpdate> yes([](ConfirmDownloadUpdate* shown) { buttonWithText(shown, "Yes")->click(); });
        QVERIFY(runModal([&] { prompt.exec(); }));
        if (!handOver.arguments.isEmpty()) {
            QCOMPARE(handOver.arguments.mid(0, 2), QStringList({ QCoreApplication::applicationDirPath(),
                QString::number(QCoreApplication::applicationPid()) }));
            seen << handOver.arguments.at(2) + '|' + handOver.arguments.at(3);
            QCOMPARE(handOver.installerContent, body());
        }
    }
    const bool saved = outcome.startsWith("chosen/") || outcome.startsWith("system/");
    QCOMPARE(seen.join(','), saved ? file(outcome) : outcome);
    if (media && saved)
        QCOMPARE(contentOf(seen.first()), body());
    // A refused installer stays where the user can find it.
    QVERIFY(handOver.refused.isEmpty() || QFile::remove(file("system/setup.exe")));
    if (media && percent >= 0)
        QCOMPARE(mWindow.findChildren<MediaDownloaderDialog*>().last()->findChild<QProgressBar*>()->value(), percent);

    // Each folder holds what was there and what was saved, no temporary; nothing above the chosen one.
    for (const QString& tag : { "chosen", "system", "program" }) {
        QStringList want;
        for (const QString& name : { existing, saved ? outcome.section('|', 0, 0) : QString() })
            if (name.startsWith(tag + '/'))
                want << name.section('/', 1);
        want.sort();
        QCOMPARE(entries(folder(tag)), want);
    }
    QCOMPARE(entries(mRoot.path()), QStringList { "a" });
    QCOMPARE(entries(mRoot.filePath("a")), QStringList { "b" });
    QVERIFY(existing.isEmpty() || contentOf(file(existing)) == "older");
    if (user == "cancel") {
        // A closed dialog neither fetches again nor opens anything later.
        QTest::qWait(750);
        QVERIFY(opener.opened.isEmpty() && handOver.arguments.isEmpty());
        QCOMPARE(entries(folder("system")), existing.startsWith("system") ? QStringList { "setup.run" } : QStringList());
    }
}

// The box follows the open flag of the latest download the page asked for.
void TestDownloaders::completionBox()
{
    for (const QString& button : { "", "Open", "Show in Folder" }) {
        RecordingFileOpener opener;
        ModalAnswer<MediaDownloaderDialog> shown([](MediaDownloaderDialog* dialog) { dialog->reject(); });
        QVERIFY(runModal([&] { mWindow.downloadFile(mServer.url("/none").toString(), "", "f", 1, !button.isEmpty()); }));
        QStringList seen;
        ModalAnswer<QMessageBox> answer([&](QMessageBox* box) {
            seen << box->text();
            buttonWithText(box, button)->click();
        });
        QVERIFY(runModal([&] { mWindow.mediaDownloadComplete("a.jpg", "/x/a.jpg"); }));
        seen << opener.opened.join(',') + '|' + opener.shown.join(',');
        QCOMPARE(seen.join(' '), button.isEmpty() ? "|" : button == "Open" ? "a.jpg DOWNLOADED /x/a.jpg|" : "a.jpg DOWNLOADED |/x/a.jpg");
    }
}

QTEST_MAIN(TestDownloaders)
#include "tst_downloaders.moc"
