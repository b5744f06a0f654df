#include <QtTest>

#include <QMessageBox>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QStandardPaths>

#include "core/windowholders.h"
#include "standins.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/downloadfile.h"
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
    return QByteArray("0123456789abcdefghijklmnopqrstuv").repeated(1875); // 32 divides no piece size: a piece out of place shows
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

// A finished reply with the status and Content-Length a server sent.
class FinishedReply : public QNetworkReply
{
public:
    FinishedReply(int status, qint64 length)
    {
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
        setHeader(QNetworkRequest::ContentLengthHeader, length);
        open(QIODevice::ReadOnly);
        setFinished(true);
    }
    void abort() override {}
    qint64 readData(char*, qint64) override { return -1; }
};
} // namespace

class TestDownloaders : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void name_data();
    void name();
    void commit();
    void download_data();
    void download();

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

void TestDownloaders::name_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("name"); // as the page or the address gives it
    QTest::addColumn<QString>("saved");

    QTest::newRow("backslashes") << QStringList() << "..\\..\\evil.exe" << "evil.exe";
    QTest::newRow("control characters") << QStringList() << QStringLiteral("a\nb\tc\rd\x01.png") << "abcd.png";
    QTest::newRow("dot dot") << QStringList() << ".." << "download";
    // Cut to 200 bytes with the extension kept: 196 letters, or 49 four-byte characters, none cut in half.
    QTest::newRow("long ASCII") << QStringList() << QString(300, 'a') + ".jpg" << QString(196, 'a') + ".jpg";
    QTest::newRow("long emoji") << QStringList() << QString(QStringLiteral("\U0001F600")).repeated(60) + ".png"
                                << QString(QStringLiteral("\U0001F600")).repeated(49) + ".png";
    QTest::newRow("megabyte") << QStringList() << QString(1 << 20, 'a') << QString(200, 'a');
    // An "extension" of 250 characters is part of the name.
    QTest::newRow("long extension") << QStringList() << "a." + QString(250, 'b') << "a." + QString(198, 'b');
    QTest::newRow("taken twice") << QStringList { "a.png", "a (2).png" } << "a.png" << "a (3).png";
    QTest::newRow("taken, no extension") << QStringList { "notes" } << "notes" << "notes (2)";
    QTest::newRow("taken, two dots") << QStringList { "a.tar.gz" } << "a.tar.gz" << "a.tar (2).gz";
    QTest::newRow("a dangling link counts") << QStringList { "@link.png" } << "link.png" << "link (2).png";
}

void TestDownloaders::name()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, name);
    QFETCH(QString, saved);

    QTemporaryDir dir;
    for (const QString& entry : existing) {
        if (entry.startsWith('@'))
            QVERIFY(QFile::link(dir.filePath("nowhere"), dir.filePath(entry.mid(1))));
        else
            QVERIFY(QFile(dir.filePath(entry)).open(QIODevice::WriteOnly));
    }
    QCOMPARE(DownloadFile::freePath(dir.path(), DownloadFile::sanitizedName(name)), dir.filePath(saved));
}

// A reply that ended before the length it announced leaves nothing behind.
void TestDownloaders::commit()
{
    for (const qint64 length : { 5, 6 }) {
        QTemporaryDir dir;
        DownloadFile file;
        QVERIFY(file.open(dir.path(), "a.run") && file.write("12345"));
        FinishedReply reply(200, length);
        QCOMPARE(file.commit(&reply), length == 5 ? dir.filePath("a.run") : QString());
        QCOMPARE(entries(dir.path()), length == 5 ? QStringList { "a.run" } : QStringList());
    }
}

void TestDownloaders::download_data()
{
    QTest::addColumn<QString>("source");   // media: name|type|the page's size; update: the installer's address path
    QTest::addColumn<QString>("server");   // its answer to the first request [>to the later ones]
    QTest::addColumn<QString>("user");     // open (the page asked to), show (the button), cancel, wait
    QTest::addColumn<QString>("existing"); // folder/name of a file there before
    QTest::addColumn<QString>("outcome");  // folder/name saved [|volume], the box, or nothing

    QTest::newRow("media: a dot keeps the name") << "clip.gif|video/mp4|60000" << "ok" << "open" << "" << "chosen/clip.gif";
    QTest::newRow("media: image") << "my photo|image/png|60000" << "ok" << "show" << "" << "chosen/my photo.jpg";
    QTest::newRow("media: other type, no size") << "note|Image/png|0" << "ok" << "open" << "" << "chosen/note";
    QTest::newRow("media: longer than the page said") << "p.png|image/png|30000" << "slow" << "open" << "" << "chosen/p.png";
    QTest::newRow("media: taken") << "p.png|image/png|60000" << "ok" << "open" << "chosen/p.png" << "chosen/p (2).png";
    QTest::newRow("media: ../.hidden") << "../.bashrc|image/png|60000" << "ok" << "open" << "" << "chosen/bashrc.jpg";
    QTest::newRow("media: empty, taken") << "|video/mp4|60000" << "ok" << "open" << "chosen/download.mp4"
                                         << "chosen/download (2).mp4";
    QTest::newRow("media: file source") << "file:///etc/hostname" << "ok" << "open" << "" << errorText;
    // Once the watchdog stepped in, attempts go to the system's folder; two retries.
    QTest::newRow("media: stall, then success") << "r|image/png|60000" << "stall>late ok" << "show" << "" << "system/r.jpg";
    QTest::newRow("media: error, then success") << "r|image/png|60000" << "500>late ok" << "show" << "" << "system/r.jpg";
    QTest::newRow("media: stalls throughout") << "v.txt|text|60000" << "stall" << "wait" << "chosen/v.txt" << errorText;
    // The third network failure leaves the dialog as it stands, with no box.
    QTest::newRow("media: cut short each time") << "v.txt|text|60000" << "late cut" << "wait" << "chosen/v.txt" << "";
    QTest::newRow("media: cancelled") << "v.txt|text|60000" << "trickle>ok" << "cancel" << "chosen/v.txt" << "";

    QTest::newRow("update: no length, slowly") << "/dl/setup.run" << "nolength" << "open" << "" << "system/setup.run|setup";
    QTest::newRow("update: blanks, _") << "/dl/Kestrel gap_2.90.run" << "ok" << "open" << ""
                                                    << "system/Kestrelgap_2.90.run|Kestrelgap2.90";
    QTest::newRow("update: named like the hand-over script") << "/dl/install_update.sh" << "ok" << "open"
        << "program/install_update.sh" << "system/install_update.sh|installupdate";
    QTest::newRow("update: taken") << "/dl/setup.run" << "ok" << "open" << "system/setup.run"
                                        << "system/setup (2).run|setup (2)";
    // One retry: a stall's abort spends it at once; a retry after a failure goes with the failed reply.
    QTest::newRow("update: stall, then success") << "/dl/setup.run" << "stall>ok" << "open" << "" << errorText;
    QTest::newRow("update: error, then success") << "/dl/setup.run" << "500>late ok" << "open" << "" << errorText;
    QTest::newRow("update: redirect") << "/dl/setup.run" << "302>late 302" << "open" << "" << errorText;
    QTest::newRow("update: cancelled") << "/dl/setup.run" << "trickle>ok" << "cancel" << "system/setup.run" << "";
    // This system runs no .exe: refused before the client is stopped, in words.
    QTest::newRow("update: refused installer") << "/dl/setup.exe" << "ok" << "open" << "" << refusal;
}

void TestDownloaders::download()
{
    QFETCH(QString, source);
    QFETCH(QString, server);
    QFETCH(QString, user);
    QFETCH(QString, existing);
    QFETCH(QString, outcome);

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

QTEST_MAIN(TestDownloaders)
#include "tst_downloaders.moc"
