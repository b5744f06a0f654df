#include <QtTest>

#include <QMessageBox>
#include <QNetworkCookie>
#include <QProgressBar>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "core/windowholders.h"
#include "modalanswer.h"
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

class TestMediaDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase() { delete mWindow; }
    void savedName_data();
    void savedName();
    void progressFollowsThePage_data();
    void progressFollowsThePage();
    void retries_data();
    void retries();
    void finishedDialogOffersShowAndOpen();
    void storedCookiesGoWithTheRequest();
    void cancelRemovesTheFileAndEndsTheDownload();
    void completionBox_data();
    void completionBox();

private:
    // The page's download call, run to its end. Returns the highest percentage the bar showed once
    // the dialog was on screen, or -2 if it didn't end.
    int download(const QString& path, const QString& name, long size, bool openFile, User user,
        const QString& type = QStringLiteral("image/png"));
    QString chosen(const QString& name) const { return mChosen.filePath(name); }

    HttpServer mServer;
    QTemporaryDir mChosen;
    IndexWindow* mWindow = nullptr;
    RecordingFileOpener* mOpener = nullptr;
    QStringList mBoxTexts;
};

void TestMediaDownloader::initTestCase()
{
    QVERIFY(mServer.listen());
    mWindow = new IndexWindow();
    indexWindowHolder::set(mWindow);
    mWindow->setDefaultDownloadLocationSetting(mChosen.path());
}

void TestMediaDownloader::init()
{
    DownloadWatchdog::setIntervalMsForTests(watchdogMs);
    mServer.clearReplies();
    mServer.clearRequests();
    mBoxTexts.clear();
    delete mOpener;
    mOpener = new RecordingFileOpener();
    QDir(systemFolder()).removeRecursively();
    for (const QString& name : QDir(mChosen.path()).entryList(QDir::Files))
        QFile::remove(chosen(name));
}

int TestMediaDownloader::download(const QString& path, const QString& name, long size, bool openFile, User user,
    const QString& type)
{
    int highest = 0;
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    ModalAnswer<MediaDownloaderDialog> answer([&](MediaDownloaderDialog* dialog) {
        connect(dialog->findChild<QProgressBar*>(QStringLiteral("download_progress")), &QProgressBar::valueChanged,
            dialog, [&](int value) { highest = qMax(highest, value); });
        auto* open = dialog->findChild<QPushButton*>(QStringLiteral("download_open"));
        if (user == User::Cancels) {
            if (QTest::qWaitFor([&] { return QFileInfo(dialog->downloadedPath()).size() > 0; }, 10000))
                dialog->findChild<QPushButton*>(QStringLiteral("download_cancel"))->click();
        } else if (user != User::Waits && QTest::qWaitFor([&] { return open->isVisible(); }, 10000)) {
            (user == User::Opens ? open : dialog->findChild<QPushButton*>(QStringLiteral("download_show")))->click();
        }
    });
    const bool ended = runModal(
        [&] { mWindow->downloadFile(mServer.url(path).toString(), type, name, size, openFile); });
    return ended ? highest : -2;
}

void TestMediaDownloader::savedName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("saved");

    QTest::newRow("a dot keeps the name") << "clip.gif" << "video/mp4" << "clip.gif";
    QTest::newRow("image without a dot") << "photo" << "image/png" << "photo.jpg";
    QTest::newRow("video without a dot") << "clip" << "video/3gpp" << "clip.mp4";
    QTest::newRow("other type gets nothing") << "note" << "text/plain" << "note";
    QTest::newRow("type is case-sensitive") << "photo" << "Image/png" << "photo";
    QTest::newRow("blanks stay") << "my photo" << "image/jpeg" << "my photo.jpg";
}

void TestMediaDownloader::savedName()
{
    QFETCH(QString, name);
    QFETCH(QString, type);
    QFETCH(QString, saved);

    const QByteArray body = mediaBody(3000);
    mServer.serve(QStringLiteral("/media/1"), body, "application/octet-stream");
    // A file of that name already there is overwritten.
    QFile previous(chosen(saved));
    QVERIFY(previous.open(QIODevice::WriteOnly));
    previous.write("older file, longer than nothing");
    previous.close();

    QVERIFY(download(QStringLiteral("/media/1"), name, body.size(), false, User::Opens, type) >= 0);
    QCOMPARE(mOpener->opened, QStringList { chosen(saved) });
    QCOMPARE(contentOf(chosen(saved)), body);
}

void TestMediaDownloader::progressFollowsThePage_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<int>("pageSize");
    QTest::addColumn<int>("bar"); // highest value shown; -1: not looked at

    const QByteArray body = mediaBody(60000);
    QTest::newRow("no length: the page's size serves") << slowly(body, 6000, 30, false) << body.size() << 100;
    QTest::newRow("no size from the page: no percentage") << slowly(body, 6000, 30) << 0 << 0;
    QTest::newRow("body longer than the page said") << slowly(body, 6000, 30) << body.size() / 2 << -1;
}

void TestMediaDownloader::progressFollowsThePage()
{
    QFETCH(HttpServer::Reply, reply);
    QFETCH(int, pageSize);
    QFETCH(int, bar);

    mServer.setReply(QStringLiteral("/media/2"), reply);
    const int highest = download(QStringLiteral("/media/2"), QStringLiteral("p.png"), pageSize, false, User::Opens);
    QVERIFY(highest != -2);
    if (bar >= 0)
        QCOMPARE(highest, bar);
    // Nothing is cut at the announced size, and a late watchdog never restarts a finished download.
    QCOMPARE(contentOf(chosen(QStringLiteral("p.png"))), reply.body);
    QCOMPARE(mServer.requestCount(), 1);
}

void TestMediaDownloader::retries_data()
{
    QTest::addColumn<HttpServer::Reply>("first");
    QTest::addColumn<HttpServer::Reply>("later");
    QTest::addColumn<bool>("saved"); // false: the error box

    const QByteArray body = mediaBody(5000);
    QTest::newRow("stall, then success") << stall() << afterRoundTrip(whole(body)) << true;
    QTest::newRow("error, then success") << status(500) << afterRoundTrip(whole(body)) << true;
    QTest::newRow("stalls throughout") << stall() << stall() << false;
}

void TestMediaDownloader::retries()
{
    QFETCH(HttpServer::Reply, first);
    QFETCH(HttpServer::Reply, later);
    QFETCH(bool, saved);

    mServer.setReply(QStringLiteral("/media/3"), first);
    QObject scope;
    connect(&mServer, &HttpServer::requestReceived, &scope,
        [&] { mServer.setReply(QStringLiteral("/media/3"), later); });
    QVERIFY(download(QStringLiteral("/media/3"), QStringLiteral("r"), 5000, false, saved ? User::Opens : User::Waits)
        != -2);

    // Once the watchdog has stepped in, the attempts after it go to the system's download folder.
    QVERIFY(QDir(mChosen.path()).entryList(QDir::Files).isEmpty());
    if (saved) {
        QVERIFY(mBoxTexts.isEmpty());
        QCOMPARE(mOpener->opened, QStringList { systemFolder() + QStringLiteral("/r.jpg") });
        QCOMPARE(contentOf(mOpener->opened.value(0)), later.body);
    } else {
        QCOMPARE(mBoxTexts, QStringList { QStringLiteral("Error downloading update.") });
        QVERIFY(QDir(systemFolder()).entryList(QDir::Files).isEmpty());
    }
}

void TestMediaDownloader::finishedDialogOffersShowAndOpen()
{
    mServer.serve(QStringLiteral("/media/4"), mediaBody(2000), "image/png");
    ModalAnswer<MediaDownloaderDialog> look([](MediaDownloaderDialog* dialog) {
        auto* show = dialog->findChild<QPushButton*>(QStringLiteral("download_show"));
        auto* open = dialog->findChild<QPushButton*>(QStringLiteral("download_open"));
        QVERIFY(QTest::qWaitFor([&] { return open->isVisible(); }, 10000));
        QVERIFY(!dialog->findChild<QPushButton*>(QStringLiteral("download_cancel"))->isVisible());
        // Side by side inside the dialog, Open after Show and ready for Enter.
        QVERIFY(show->isVisible() && show->geometry().left() >= 0);
        QVERIFY(show->geometry().right() < open->geometry().left());
        QVERIFY(open->geometry().right() < dialog->width());
        QVERIFY(open->hasFocus());
        show->click();
    });
    QVERIFY(download(QStringLiteral("/media/4"), QStringLiteral("s.png"), 2000, false, User::Waits) >= 0);
    QCOMPARE(look.count(), 1);
    QCOMPARE(mOpener->shown, QStringList { chosen(QStringLiteral("s.png")) });
    QVERIFY(mOpener->opened.isEmpty());
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
    QVERIFY(download(QStringLiteral("/media/6"), QStringLiteral("c.png"), 100, true, User::Waits) >= 0);
    QVERIFY2(mServer.lastRequest().header("Cookie").contains("kgsession=abc123"),
        mServer.lastRequest().header("Cookie").constData());
    // Asked to open: the dialog closes by itself and the file opens.
    QCOMPARE(mOpener->opened, QStringList { chosen(QStringLiteral("c.png")) });
}

void TestMediaDownloader::cancelRemovesTheFileAndEndsTheDownload()
{
    const QByteArray body = mediaBody(200000);
    mServer.setReply(QStringLiteral("/media/7"), slowly(body, 2000, 40));
    QVERIFY(download(QStringLiteral("/media/7"), QStringLiteral("x.png"), body.size(), true, User::Cancels) != -2);
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
    QTest::newRow("Close") << true << "Close" << QStringList() << QStringList();
}

void TestMediaDownloader::completionBox()
{
    QFETCH(bool, openFile);
    QFETCH(QString, button);
    QFETCH(QStringList, opened);
    QFETCH(QStringList, shown);

    // The box follows the open flag of the latest download the page asked for.
    mServer.serve(QStringLiteral("/media/8"), "x", "image/png");
    QVERIFY(download(QStringLiteral("/media/8"), QStringLiteral("f.png"), 1, openFile, User::Opens) >= 0);
    mOpener->opened.clear();

    ModalAnswer<QMessageBox> answer([&](QMessageBox* box) {
        QCOMPARE(box->text(), QStringLiteral("a.jpg DOWNLOADED"));
        QCOMPARE(box->defaultButton(), box->button(QMessageBox::Open));
        buttonWithText(box, button)->click();
    });
    QVERIFY(runModal([&] { mWindow->mediaDownloadComplete(QStringLiteral("a.jpg"), QStringLiteral("/somewhere/a.jpg")); }));
    QCOMPARE(answer.count(), button.isEmpty() ? 0 : 1);
    QCOMPARE(mOpener->opened, opened);
    QCOMPARE(mOpener->shown, shown);
}

QTEST_MAIN(TestMediaDownloader)
#include "tst_mediadownloader.moc"
