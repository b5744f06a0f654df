#include <QtTest>

#include <QMessageBox>
#include <QNetworkCookie>
#include <QProgressBar>
#include <QStandardPaths>

#include "core/windowholders.h"
#include "standins.h"
#include "updates/downloadwatchdog.h"
#include "updates/mediadownloaderdialog.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"

using namespace Replies;

namespace {

const int watchdogMs = 250;

QString systemFolder()
{
    return QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
}

QByteArray mediaBody(int size)
{
    QByteArray body(size, '\0');
    for (int i = 0; i < size; ++i)
        body[i] = char(i * 7);
    return body;
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// What the user does with the dialog: click a button once it offers it, or nothing.
enum class User { Waits, Opens, Shows, Cancels };

} // namespace

Q_DECLARE_METATYPE(User)

class TestMediaDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void savedName_data();
    void savedName();
    void refusedSource_data();
    void refusedSource();
    void failureSparesTheFileOfThatName_data();
    void failureSparesTheFileOfThatName();
    void retries_data();
    void retries();
    void storedCookiesGoWithTheRequest();
    void cancelRemovesTheFileAndEndsTheDownload();
    void completionBox_data();
    void completionBox();

private:
    // The page's download call, run to its end. False if it didn't end.
    bool download(const QString& path, const QString& name, long size, bool openFile, User user,
        const QString& type = QStringLiteral("image/png"));
    QString chosen(const QString& name = QString()) const
    {
        return mRoot.filePath(name.isEmpty() ? QStringLiteral("a/b") : QStringLiteral("a/b/") + name);
    }

    HttpServer mServer;
    // The chosen folder is a/b in here, so that a name climbing out of it lands in here too.
    QTemporaryDir mRoot;
    IndexWindow mWindow;
    std::unique_ptr<RecordingFileOpener> mOpener;
    QStringList mBoxTexts;
};

void TestMediaDownloader::initTestCase()
{
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mWindow);
    QVERIFY(QDir().mkpath(chosen()));
    mWindow.setDefaultDownloadLocationSetting(chosen());
}

void TestMediaDownloader::init()
{
    DownloadWatchdog::setIntervalMsForTests(watchdogMs);
    mServer.clearReplies();
    mServer.clearRequests();
    mBoxTexts.clear();
    mOpener.reset();
    mOpener.reset(new RecordingFileOpener());
    QDir(systemFolder()).removeRecursively();
    for (const QString& name : QDir(chosen()).entryList(QDir::Files | QDir::Hidden))
        QFile::remove(chosen(name));
}

bool TestMediaDownloader::download(const QString& path, const QString& name, long size, bool openFile, User user,
    const QString& type)
{
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    ModalAnswer<MediaDownloaderDialog> answer([&](MediaDownloaderDialog* dialog) {
        auto* open = dialog->findChild<QPushButton*>(QStringLiteral("download_open"));
        if (user == User::Cancels) {
            if (QTest::qWaitFor([&] { return QFileInfo(dialog->downloadedPath()).size() > 0; }, 10000))
                dialog->findChild<QPushButton*>(QStringLiteral("download_cancel"))->click();
        } else if (user != User::Waits && QTest::qWaitFor([&] { return open->isVisible(); }, 10000)) {
            (user == User::Opens ? open : dialog->findChild<QPushButton*>(QStringLiteral("download_show")))->click();
        }
    });
    return runModal([&] { mWindow.downloadFile(mServer.url(path).toString(), type, name, size, openFile); });
}

void TestMediaDownloader::savedName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("pageSize");
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<QString>("existing"); // already in the folder, and must stay as it was
    QTest::addColumn<QString>("saved");

    const QByteArray body = mediaBody(60000);
    QTest::newRow("a dot keeps the name") << "clip.gif" << "video/mp4" << body.size() << whole(body) << "" << "clip.gif";
    QTest::newRow("image without a dot") << "my photo" << "image/png" << body.size() << whole(body) << "" << "my photo.jpg";
    QTest::newRow("video without a dot") << "clip" << "video/3gpp" << body.size() << whole(body) << "" << "clip.mp4";
    QTest::newRow("other type gets nothing") << "note" << "Image/png" << body.size() << whole(body) << "" << "note";
    QTest::newRow("no length: the page's size serves") << "p.png" << "image/png" << body.size()
                                                       << slowly(body, 6000, 30, false) << "" << "p.png";
    // Nothing is cut at the announced size, and a late watchdog never restarts a finished download.
    QTest::newRow("body longer than the page said") << "p.png" << "image/png" << body.size() / 2
                                                    << slowly(body, 6000, 30) << "" << "p.png";
    QTest::newRow("name taken") << "p.png" << "image/png" << body.size() << whole(body) << "p.png" << "p (2).png";
    QTest::newRow("parent folder, hidden") << "../.bashrc" << "image/png" << body.size() << whole(body) << ""
                                           << "bashrc.jpg";
    QTest::newRow("two folders up") << "../../x" << "video/mp4" << body.size() << whole(body) << "" << "x.mp4";
    QTest::newRow("control characters") << "a\nb\x1b[31m.png" << "image/png" << body.size() << whole(body) << ""
                                        << "ab[31m.png";
    QTest::newRow("dot dot") << ".." << "image/png" << body.size() << whole(body) << "" << "download.jpg";
    QTest::newRow("empty, taken") << "" << "video/mp4" << body.size() << whole(body) << "download.mp4"
                                  << "download (2).mp4";
}

void TestMediaDownloader::savedName()
{
    QFETCH(QString, name);
    QFETCH(QString, type);
    QFETCH(int, pageSize);
    QFETCH(HttpServer::Reply, reply);
    QFETCH(QString, existing);
    QFETCH(QString, saved);

    mServer.setReply(QStringLiteral("/media/1"), reply);
    const QByteArray older("older file, longer than nothing");
    if (!existing.isEmpty()) {
        QFile previous(chosen(existing));
        QVERIFY(previous.open(QIODevice::WriteOnly) && previous.write(older) > 0);
    }

    QVERIFY(download(QStringLiteral("/media/1"), name, pageSize, false, User::Opens, type));
    QCOMPARE(mOpener->opened, QStringList { chosen(saved) });
    QCOMPARE(contentOf(chosen(saved)), reply.body);
    QCOMPARE(mServer.requestCount(), 1);
    // The folder holds the new file beside the old one, no temporary left; nothing appeared above it.
    QStringList expected { saved };
    if (!existing.isEmpty()) {
        expected.append(existing);
        QCOMPARE(contentOf(chosen(existing)), older);
    }
    expected.sort();
    QCOMPARE(QDir(chosen()).entryList(QDir::Files | QDir::Hidden, QDir::Name), expected);
    QCOMPARE(QDir(mRoot.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList { "a" });
    QCOMPARE(QDir(chosen("..")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList { "b" });
    QVERIFY(!QFile::exists(QDir::home().filePath(QStringLiteral(".bashrc"))));
}

void TestMediaDownloader::refusedSource_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("data") << "data:text/plain;base64,W0Rlc2t0b3AgRW50cnldCg==";
    QTest::newRow("file") << "file:///etc/hostname";
    QTest::newRow("ftp") << "ftp://127.0.0.1/a.png";
    QTest::newRow("not an address") << "\"; alert(1); //";
}

// Only the web's schemes are fetched: no box offers a file, nothing lands in the folder.
void TestMediaDownloader::refusedSource()
{
    QFETCH(QString, url);
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    QVERIFY(runModal([&] { mWindow.downloadFile(url, QStringLiteral("image/png"), QStringLiteral("innocent.desktop"), 10, true); }));
    QCOMPARE(mBoxTexts, QStringList { QStringLiteral("Error downloading update.") });
    QVERIFY(QDir(chosen()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    QVERIFY(mOpener->opened.isEmpty());
}

void TestMediaDownloader::failureSparesTheFileOfThatName_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<User>("user");

    const QByteArray body = mediaBody(200000);
    QTest::newRow("cut short each time") << afterRoundTrip(cutShort(body, 1000)) << User::Waits;
    QTest::newRow("server error each time") << afterRoundTrip(status(500)) << User::Waits;
    QTest::newRow("stalls throughout") << stall() << User::Waits;
    QTest::newRow("cancelled") << slowly(body, 2000, 40) << User::Cancels;
}

// An attempt that ends in nothing leaves the earlier file of that name as it was.
void TestMediaDownloader::failureSparesTheFileOfThatName()
{
    QFETCH(HttpServer::Reply, reply);
    QFETCH(User, user);

    const QByteArray victim(40, 'v');
    QFile file(chosen(QStringLiteral("victim.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(victim) == 40);
    file.close();
    mServer.setReply(QStringLiteral("/media/9"), reply);
    // The dialog closes by itself only through the error box; a cut download waits for the user.
    QTimer closer;
    connect(&closer, &QTimer::timeout, [] {
        if (auto* open = qobject_cast<MediaDownloaderDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    if (user == User::Waits)
        closer.start(8 * watchdogMs);
    QVERIFY(download(QStringLiteral("/media/9"), QStringLiteral("victim.txt"), 200000, true, user));
    QCOMPARE(contentOf(chosen(QStringLiteral("victim.txt"))), victim);
    QCOMPARE(QDir(chosen()).entryList(QDir::Files | QDir::Hidden), QStringList { QStringLiteral("victim.txt") });
    QVERIFY(mOpener->opened.isEmpty());
}

void TestMediaDownloader::retries_data()
{
    QTest::addColumn<HttpServer::Reply>("first");
    QTest::addColumn<HttpServer::Reply>("later");
    QTest::addColumn<bool>("saved"); // false: the error box

    const QByteArray body = mediaBody(5000);
    QTest::newRow("stall, then success") << stall() << afterRoundTrip(whole(body)) << true;
    QTest::newRow("error, then success") << status(500) << afterRoundTrip(whole(body)) << true;
    QTest::newRow("cut short, then success") << cutShort(body, 1000) << afterRoundTrip(whole(body)) << true;
    QTest::newRow("stalls throughout") << stall() << stall() << false;
}

void TestMediaDownloader::retries()
{
    QFETCH(HttpServer::Reply, first);
    QFETCH(HttpServer::Reply, later);
    QFETCH(bool, saved);

    mServer.setReply(QStringLiteral("/media/3"), first);
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope, [&] { mServer.setReply(QStringLiteral("/media/3"), later); });
    QVERIFY(download(QStringLiteral("/media/3"), QStringLiteral("r"), 5000, false, saved ? User::Shows : User::Waits));

    // Once the watchdog has stepped in, the attempts after it go to the system's download folder.
    QVERIFY(QDir(chosen()).entryList(QDir::Files).isEmpty());
    if (saved) {
        QVERIFY(mBoxTexts.isEmpty());
        QCOMPARE(mOpener->shown, QStringList { systemFolder() + QStringLiteral("/r.jpg") });
        QCOMPARE(contentOf(mOpener->shown.value(0)), later.body);
    } else {
        QCOMPARE(mBoxTexts, QStringList { QStringLiteral("Error downloading update.") });
        QVERIFY(QDir(systemFolder()).entryList(QDir::Files).isEmpty());
    }
}

void TestMediaDownloader::storedCookiesGoWithTheRequest()
{
    {
        // What the page's own jar left on disk.
        CookieJar jar;
        QNetworkCookie cookie("kgsession", "abc123");
        cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
        QVERIFY(jar.setCookiesFromUrl({ cookie }, mServer.url(QStringLiteral("/"))));
    }
    mServer.serve(QStringLiteral("/media/6"), mediaBody(100), "image/png");
    QVERIFY(download(QStringLiteral("/media/6"), QStringLiteral("c.png"), 100, true, User::Waits));
    QVERIFY2(mServer.lastRequest().header("Cookie").contains("kgsession=abc123"), mServer.lastRequest().header("Cookie").constData());
    // Asked to open: the dialog closes by itself and the file opens.
    QCOMPARE(mOpener->opened, QStringList { chosen(QStringLiteral("c.png")) });
}

void TestMediaDownloader::cancelRemovesTheFileAndEndsTheDownload()
{
    const QByteArray body = mediaBody(200000);
    mServer.setReply(QStringLiteral("/media/7"), slowly(body, 2000, 40));
    QVERIFY(download(QStringLiteral("/media/7"), QStringLiteral("x.png"), body.size(), true, User::Cancels));
    QVERIFY(!QFile::exists(chosen(QStringLiteral("x.png"))));

    // A closed dialog neither fetches the file again nor opens it later.
    QTest::qWait(4 * watchdogMs);
    QVERIFY(!QFile::exists(systemFolder() + QStringLiteral("/x.png")));
    QVERIFY(mOpener->opened.isEmpty());
    QVERIFY(mBoxTexts.isEmpty());
}

void TestMediaDownloader::completionBox_data()
{
    QTest::addColumn<bool>("openFile");
    QTest::addColumn<QString>("button"); // empty: no box at all
    QTest::addColumn<QStringList>("opened");
    QTest::addColumn<QStringList>("shown");

    const QStringList location { QStringLiteral("/somewhere/a.jpg") };
    QTest::newRow("not asked to open: no box") << false << QString() << QStringList() << QStringList();
    QTest::newRow("Open") << true << "Open" << location << QStringList();
    QTest::newRow("Show in Folder") << true << "Show in Folder" << QStringList() << location;
}

void TestMediaDownloader::completionBox()
{
    QFETCH(bool, openFile);
    QFETCH(QString, button);
    QFETCH(QStringList, opened);
    QFETCH(QStringList, shown);

    // The box follows the open flag of the latest download the page asked for.
    mServer.serve(QStringLiteral("/media/8"), "x", "image/png");
    QVERIFY(download(QStringLiteral("/media/8"), QStringLiteral("f.png"), 1, openFile, User::Opens));
    mOpener->opened.clear();

    ModalAnswer<QMessageBox> answer([&](QMessageBox* box) {
        QCOMPARE(box->text(), QStringLiteral("a.jpg DOWNLOADED"));
        buttonWithText(box, button)->click();
    });
    QVERIFY(runModal([&] { mWindow.mediaDownloadComplete(QStringLiteral("a.jpg"), QStringLiteral("/somewhere/a.jpg")); }));
    QCOMPARE(answer.count(), button.isEmpty() ? 0 : 1);
    QCOMPARE(mOpener->opened, opened);
    QCOMPARE(mOpener->shown, shown);
}

QTEST_MAIN(TestMediaDownloader)
#include "tst_mediadownloader.moc"
