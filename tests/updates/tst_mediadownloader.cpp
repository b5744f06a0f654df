#include <QtTest>

#include <QLabel>
#include <QMessageBox>
#include <QNetworkCookie>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "core/windowholders.h"
#include "httpserver.h"
#include "modalanswer.h"
#include "standins.h"
#include "updates/downloadwatchdog.h"
#include "updates/mediadownloaderdialog.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"

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

HttpServer::Reply whole(const QByteArray& body, bool withLength = true)
{
    HttpServer::Reply reply;
    reply.body = body;
    reply.contentLength = withLength;
    return reply;
}

HttpServer::Reply slowly(const QByteArray& body, int pieceSize, int intervalMs, bool withLength = true)
{
    HttpServer::Reply reply = whole(body, withLength);
    reply.pieceSize = pieceSize;
    reply.pieceIntervalMs = intervalMs;
    return reply;
}

HttpServer::Reply stall()
{
    HttpServer::Reply reply;
    reply.delayBeforeHeadersMs = -1;
    return reply;
}

HttpServer::Reply failure()
{
    HttpServer::Reply reply;
    reply.status = 500;
    reply.body = "failed";
    return reply;
}

// A real network's round trip: a retry started from a failure is dropped with the failed reply
// (deleteLater) before its answer comes. A loopback answer could otherwise beat the deletion.
HttpServer::Reply afterRoundTrip(HttpServer::Reply reply)
{
    reply.delayBeforeHeadersMs = 150;
    return reply;
}

template <typename T>
T* child(QWidget* dialog, const char* name)
{
    return dialog->findChild<T*>(QLatin1String(name));
}

bool finishedLayoutShown(QWidget* dialog)
{
    return child<QPushButton>(dialog, "download_open")->isVisible();
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace

class TestMediaDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void savedName_data();
    void savedName();
    void progressFollowsThePage_data();
    void progressFollowsThePage();
    void retries_data();
    void retries();
    void finishedDialogOffersShowAndOpen();
    void openFileClosesAndOpens();
    void storedCookiesGoWithTheRequest();
    void cancelRemovesTheFileAndEndsTheDownload();
    void completionBox_data();
    void completionBox();

private:
    // Runs the page's download call to its end; `answer` deals with the dialog once it shows.
    bool download(const QString& path, const QString& type, const QString& name, long size, bool openFile,
        std::function<void(MediaDownloaderDialog*)> answer = {});
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
    QVERIFY(mChosen.isValid());
    mWindow = new IndexWindow();
    indexWindowHolder::set(mWindow);
    mWindow->setDefaultDownloadLocationSetting(mChosen.path());
}

void TestMediaDownloader::cleanupTestCase()
{
    delete mWindow;
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

bool TestMediaDownloader::download(const QString& path, const QString& type, const QString& name, long size,
    bool openFile, std::function<void(MediaDownloaderDialog*)> answer)
{
    ModalAnswer<QMessageBox> box([this](QMessageBox* message) {
        mBoxTexts.append(message->text());
        message->accept();
    });
    ModalAnswer<MediaDownloaderDialog> dialogAnswer([answer](MediaDownloaderDialog* dialog) {
        if (answer)
            answer(dialog);
    });
    bool timedOut = false;
    QTimer guard;
    guard.setSingleShot(true);
    connect(&guard, &QTimer::timeout, [&] {
        timedOut = true;
        if (auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    guard.start(20000);
    mWindow->downloadFile(mServer.url(path).toString(), type, name, size, openFile);
    return !timedOut;
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
    QTest::newRow("empty type") << "photo" << "" << "photo";
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

    QVERIFY(download(QStringLiteral("/media/1"), type, name, body.size(), false, [&](MediaDownloaderDialog* dialog) {
        QCOMPARE(child<QLabel>(dialog, "download_label")->text(), saved);
        if (QTest::qWaitFor([&] { return finishedLayoutShown(dialog); }, 10000))
            child<QPushButton>(dialog, "download_open")->click();
    }));
    QCOMPARE(mOpener->opened, QStringList { chosen(saved) });
    QCOMPARE(contentOf(chosen(saved)), body);
}

void TestMediaDownloader::progressFollowsThePage_data()
{
    QTest::addColumn<HttpServer::Reply>("reply");
    QTest::addColumn<int>("pageSize");
    QTest::addColumn<int>("bar"); // highest value shown; -1: not looked at

    const QByteArray body = mediaBody(60000);
    QTest::newRow("server and page agree") << slowly(body, 6000, 30) << body.size() << 100;
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
    int highest = 0;
    bool finished = false;
    QVERIFY(download(QStringLiteral("/media/2"), QStringLiteral("image/png"), QStringLiteral("p.png"), pageSize, false,
        [&](MediaDownloaderDialog* dialog) {
            connect(child<QProgressBar>(dialog, "download_progress"), &QProgressBar::valueChanged, dialog,
                [&](int value) { highest = qMax(highest, value); });
            finished = QTest::qWaitFor([&] { return finishedLayoutShown(dialog); }, 10000);
            dialog->reject();
        }));
    QVERIFY(finished);
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
    QTest::newRow("error, then success") << failure() << afterRoundTrip(whole(body)) << true;
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

    QVERIFY(download(QStringLiteral("/media/3"), QStringLiteral("image/png"), QStringLiteral("r"), 5000, false,
        [&](MediaDownloaderDialog* dialog) {
            if (saved && QTest::qWaitFor([&] { return finishedLayoutShown(dialog); }, 10000))
                child<QPushButton>(dialog, "download_open")->click();
        }));

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
    QVERIFY(download(QStringLiteral("/media/4"), QStringLiteral("image/png"), QStringLiteral("s.png"), 2000, false,
        [&](MediaDownloaderDialog* dialog) {
            QVERIFY(QTest::qWaitFor([&] { return finishedLayoutShown(dialog); }, 10000));
            auto* show = child<QPushButton>(dialog, "download_show");
            auto* open = child<QPushButton>(dialog, "download_open");
            QVERIFY(child<QLabel>(dialog, "download_complete")->isVisible());
            QVERIFY(show->isVisible());
            QVERIFY(!child<QPushButton>(dialog, "download_cancel")->isVisible());
            QVERIFY(!child<QProgressBar>(dialog, "download_progress")->isVisible());
            QCOMPARE(show->text().trimmed(), QStringLiteral("Show in Folder"));
            // Side by side, Open after Show, both inside the dialog.
            QVERIFY(show->geometry().right() < open->geometry().left());
            QVERIFY(show->geometry().left() >= 0);
            QVERIFY(open->geometry().right() < dialog->width());
            QCOMPARE(show->y(), open->y());
            QVERIFY(open->hasFocus());
            show->click();
        }));
    QCOMPARE(mOpener->shown, QStringList { chosen(QStringLiteral("s.png")) });
    QVERIFY(mOpener->opened.isEmpty());
}

void TestMediaDownloader::openFileClosesAndOpens()
{
    mServer.serve(QStringLiteral("/media/5"), mediaBody(2000), "video/mp4");
    QVERIFY(download(QStringLiteral("/media/5"), QStringLiteral("video/mp4"), QStringLiteral("v"), 2000, true));
    QCOMPARE(mOpener->opened, QStringList { chosen(QStringLiteral("v.mp4")) });
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
    QVERIFY(download(QStringLiteral("/media/6"), QStringLiteral("image/png"), QStringLiteral("c.png"), 100, true));
    QVERIFY2(mServer.lastRequest().header("Cookie").contains("kgsession=abc123"),
        mServer.lastRequest().header("Cookie").constData());
}

void TestMediaDownloader::cancelRemovesTheFileAndEndsTheDownload()
{
    const QByteArray body = mediaBody(200000);
    mServer.setReply(QStringLiteral("/media/7"), slowly(body, 2000, 40));
    QVERIFY(download(QStringLiteral("/media/7"), QStringLiteral("image/png"), QStringLiteral("x.png"), body.size(), true,
        [&](MediaDownloaderDialog* dialog) {
            QVERIFY(QTest::qWaitFor([&] { return QFileInfo(chosen(QStringLiteral("x.png"))).size() > 0; }, 10000));
            child<QPushButton>(dialog, "download_cancel")->click();
        }));
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
    QVERIFY(download(QStringLiteral("/media/8"), QStringLiteral("image/png"), QStringLiteral("f.png"), 1, openFile,
        [](MediaDownloaderDialog* dialog) {
            if (QTest::qWaitFor([&] { return finishedLayoutShown(dialog); }, 10000))
                dialog->reject();
        }));
    mOpener->opened.clear();

    int boxes = 0;
    ModalAnswer<QMessageBox> answer([&](QMessageBox* box) {
        ++boxes;
        QCOMPARE(box->text(), QStringLiteral("a.jpg DOWNLOADED"));
        QCOMPARE(box->defaultButton(), box->button(QMessageBox::Open));
        for (QAbstractButton* candidate : box->buttons()) {
            if (candidate->text().remove(QLatin1Char('&')) == button)
                candidate->click();
        }
    });
    QTimer::singleShot(10000, [] {
        if (auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    mWindow->mediaDownloadComplete(QStringLiteral("a.jpg"), QStringLiteral("/somewhere/a.jpg"));
    QCOMPARE(boxes, button.isEmpty() ? 0 : 1);
    QCOMPARE(mOpener->opened, opened);
    QCOMPARE(mOpener->shown, shown);
}

QTEST_MAIN(TestMediaDownloader)
#include "tst_mediadownloader.moc"
