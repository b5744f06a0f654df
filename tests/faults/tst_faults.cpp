// What the user keeps when the machine misbehaves: a data folder that can't be written or has
// no space left, damaged files, a missing page folder, a service that is down, a kill in the
// middle of a save. Faults of the file system are real mounts in a private mount namespace.
#include <QtTest>

#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkCookie>
#include <QProgressBar>
#include <QProcess>
#include <QSettings>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "core/logger.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "httpserver.h"
#include "stagedfolder.h"
#include "../updates/standins.h"
#include "updates/mediadownloaderdialog.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

namespace {

bool writeText(const char* path, const QByteArray& text)
{
    const int fd = ::open(path, O_WRONLY);
    if (fd < 0)
        return false;
    const bool ok = ::write(fd, text.constData(), size_t(text.size())) == text.size();
    ::close(fd);
    return ok;
}

// Runs before main(), while the process still has one thread, as unshare() requires. Without
// root, a user namespace grants the mount rights; mounts vanish when the process ends.
bool enterMountNamespace()
{
    const QByteArray uid = QByteArray::number(geteuid());
    const QByteArray gid = QByteArray::number(getegid());
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0)
            return false;
    } else {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        writeText("/proc/self/setgroups", "deny");
        if (!writeText("/proc/self/uid_map", "0 " + uid + " 1") || !writeText("/proc/self/gid_map", "0 " + gid + " 1"))
            return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

const bool mountsAvailable = enterMountNamespace();

const QUrl siteUrl(QStringLiteral("http://127.0.0.1/"));

// The program's own folder under the data location: cookie file, log, web storage and cache.
QString appDataFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Kestrelgap");
}

QString cookieFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/c.ini");
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

// A script string literal holding `text`.
QString scriptString(const QString& text)
{
    const QString array = QString::fromUtf8(QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact));
    return array.mid(1, array.size() - 2);
}

QNetworkCookie persistentCookie(const QByteArray& name, const QByteArray& value)
{
    QNetworkCookie cookie(name, value);
    cookie.setPath(QStringLiteral("/"));
    cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
    return cookie;
}

// A jar made, given a cookie and saved at once, as the program does when it quits.
void saveCookie(const QByteArray& name, const QByteArray& value)
{
    CookieJar jar;
    jar.setCookiesFromUrl({persistentCookie(name, value)}, siteUrl);
    QMetaObject::invokeMethod(&jar, "save", Qt::DirectConnection);
}

// The cookies a new process finds in the file, as "name=value" lines: no cached parse of ours.
QStringList cookiesOnNextStart()
{
    QProcess client;
    client.start(QStringLiteral(COOKIE_CLIENT_PATH), {QStringLiteral("http://127.0.0.1:1/")});
    if (!client.waitForFinished(60000))
        return {QStringLiteral("cookieclient hung")};
    QStringList pairs;
    for (const QString& line : QString::fromUtf8(client.readAllStandardOutput()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("cookie ")))
            pairs << line.section(QLatin1Char(' '), 1, 1);
    }
    return pairs;
}

// A small tmpfs over the program's data folder, unmounted again when the test ends.
class DataMount
{
public:
    bool mountFresh() { return mountAt(appDataFolder()) && QDir().mkpath(QFileInfo(cookieFile()).absolutePath()); }
    bool mountAt(const QString& path)
    {
        mPath = path;
        QDir().mkpath(mPath);
        if (mount("tmpfs", QFile::encodeName(mPath).constData(), "tmpfs", 0, "size=256k,mode=0700") != 0)
            return false;
        mMounted = true;
        return true;
    }
    bool setReadOnly(bool readOnly)
    {
        const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
        return mount("tmpfs", QFile::encodeName(mPath).constData(), "tmpfs", flags, "size=256k") == 0;
    }
    // Writes a filler file until the file system refuses; returns its path.
    QString fill()
    {
        const QString filler = mPath + QStringLiteral("/filler");
        QFile file(filler);
        if (file.open(QIODevice::WriteOnly)) {
            const QByteArray block(4096, 'f');
            while (file.write(block) == block.size() && file.flush()) {
            }
        }
        return filler;
    }
    ~DataMount()
    {
        if (mMounted)
            umount2(QFile::encodeName(mPath).constData(), MNT_DETACH);
    }

private:
    QString mPath;
    bool mMounted = false;
};

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void dataFolderFault_data();
    void dataFolderFault();
    void programStartsDespite_data();
    void programStartsDespite();
    void missingPageFolderIsShownInTheView();
    void killDuringCookieSavesLeavesReadableFile();
    void startPageRetriesUntilServiceAnswers();
    void startPageGivesUpOnASilentSignIn();
    void downloadFolderFault_data();
    void downloadFolderFault();

private:
    QTemporaryDir mTemp;
};

void TestFaults::initTestCase()
{
    QVERIFY(mTemp.isValid());
    SimpleCrypt::setUpShared();
}

void TestFaults::cleanup()
{
    QSettings().clear();
    QFile::remove(cookieFile());
}

void TestFaults::dataFolderFault_data()
{
    QTest::addColumn<bool>("full");
    QTest::newRow("read-only") << false;
    QTest::newRow("no space left") << true;
}

void TestFaults::dataFolderFault()
{
    QFETCH(bool, full);
    if (!mountsAvailable)
        QSKIP("no private mount namespace here (unshare refused)");
    DataMount mount;
    QVERIFY(mount.mountFresh());
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    const QString logFile = Logger::logFilePath();

    saveCookie("sid", "kept");
    Logger::Info(QStringLiteral("faults"), QStringLiteral("[dataFolderFault] before"));
    const QByteArray cookiesBefore = readFile(cookieFile());
    const QByteArray logBefore = readFile(logFile);
    QVERIFY(!cookiesBefore.isEmpty());
    QVERIFY(logBefore.contains("[dataFolderFault] before"));

    QString filler;
    if (full)
        filler = mount.fill();
    else
        QVERIFY(mount.setReadOnly(true));

    // The sign-in survives; what can't be written is dropped without harm to what is there.
    QCOMPARE(cookiesOnNextStart(), QStringList{QStringLiteral("sid=kept")});
    saveCookie("sid", "changed-while-unwritable");
    for (int i = 0; i < 200; ++i)
        Logger::Info(QStringLiteral("faults"), QStringLiteral("[dataFolderFault] during %1 ").arg(i) + QString(200, QLatin1Char('x')));
    QCOMPARE(readFile(cookieFile()), cookiesBefore);
    QVERIFY(readFile(logFile).startsWith(logBefore));
    QCOMPARE(cookiesOnNextStart(), QStringList{QStringLiteral("sid=kept")});

    // Once the disk takes writes again, so does the program, with no restart.
    if (full)
        QVERIFY(QFile::remove(filler));
    else
        QVERIFY(mount.setReadOnly(false));
    saveCookie("sid", "after");
    Logger::Info(QStringLiteral("faults"), QStringLiteral("[dataFolderFault] after"));
    QCOMPARE(cookiesOnNextStart(), QStringList{QStringLiteral("sid=after")});
    QVERIFY(readFile(logFile).contains("[dataFolderFault] after"));
}

void TestFaults::programStartsDespite_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("settings file corrupt") << QStringLiteral("settings");
    QTest::newRow("cookie file corrupt") << QStringLiteral("cookies");
    QTest::newRow("page folder missing") << QStringLiteral("pages");
    QTest::newRow("data folder read-only") << QStringLiteral("read-only");
    QTest::newRow("data folder full") << QStringLiteral("full");
}

void TestFaults::programStartsDespite()
{
    QFETCH(QString, fault);
    const QString stage = StagedFolder::path();
    QVERIFY2(QFile::exists(stage + QStringLiteral("/kestrelgap")), "the build did not stage the program");

    QByteArray binary;
    for (int i = 0; i < 2048; ++i)
        binary += char((i * 7919) % 251);
    QTemporaryDir noPages;
    QString workingDirectory = stage;
    DataMount mount;
    if (fault == QLatin1String("settings")) {
        QVERIFY(writeFile(QSettings().fileName(), "[General\npref-debug-enabled=\x01\x02\n" + binary));
    } else if (fault == QLatin1String("cookies")) {
        QVERIFY(writeFile(cookieFile(), binary));
    } else if (fault == QLatin1String("pages")) {
        workingDirectory = noPages.path();
    } else {
        if (!mountsAvailable)
            QSKIP("no private mount namespace here (unshare refused)");
        QVERIFY(mount.mountFresh());
        if (fault == QLatin1String("full"))
            mount.fill();
        else
            QVERIFY(mount.setReadOnly(true));
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), mTemp.path());
    QProcess program;
    program.setProcessEnvironment(environment);
    program.setWorkingDirectory(workingDirectory);
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.setStandardOutputFile(QProcess::nullDevice());
    program.start(stage + QStringLiteral("/kestrelgap"), QStringList());
    QVERIFY(program.waitForStarted());

    // The launch is recorded just before the event loop starts.
    const auto launched = [] {
        QSettings settings;
        settings.sync();
        return !settings.value(QStringLiteral("ts-last-launch")).toString().isEmpty();
    };
    const bool reachedLoop = QTest::qWaitFor([&] { return launched() || program.state() == QProcess::NotRunning; }, 120000);
    const bool running = program.state() == QProcess::Running;
    program.kill();
    program.waitForFinished(10000);
    QVERIFY2(reachedLoop && running, qPrintable(QStringLiteral("the program ended: exit %1").arg(program.exitCode())));
}

void TestFaults::missingPageFolderIsShownInTheView()
{
    // Pages resolve against the working directory; here it has no page folder.
    QTemporaryDir empty;
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(empty.path()));
    MainWindow mainWindow;
    QDir::setCurrent(previous);
    QWebFrame* frame = indexWindowHolder::get()->webView()->page()->mainFrame();
    const QString missing = empty.path() + QStringLiteral("/html/start.html");
    QTRY_VERIFY_WITH_TIMEOUT(frame->toPlainText().contains(missing), 20000);
    QVERIFY(frame->toPlainText().contains(QLatin1String("No such file or directory")));
}

void TestFaults::killDuringCookieSavesLeavesReadableFile()
{
    // Kills land at spread-out moments of the save cycle: right after a save returned, and later.
    for (int round = 0; round < 10; ++round) {
        QProcess saver;
        saver.start(QStringLiteral(COOKIE_SAVER_PATH), QStringList());
        QVERIFY(saver.waitForStarted());
        int lastSaved = 0;
        const int wanted = 1 + round % 4;
        QVERIFY(QTest::qWaitFor(
            [&] {
                while (saver.canReadLine())
                    lastSaved = saver.readLine().trimmed().mid(6).toInt();
                return lastSaved >= wanted;
            },
            60000));
        QThread::usleep(unsigned(round) * 700);
        saver.kill();
        QVERIFY(saver.waitForFinished(10000));
        while (saver.canReadLine())
            lastSaved = saver.readLine().trimmed().mid(6).toInt();

        // All twenty cookies, all from one save: the one last reported or the one under way.
        const QStringList cookies = cookiesOnNextStart();
        QCOMPARE(cookies.size(), 20);
        const QString generation = cookies.first().section(QLatin1Char('='), 1).section(QLatin1Char('-'), 0, 0);
        QVERIFY2(generation == QStringLiteral("g%1").arg(lastSaved) || generation == QStringLiteral("g%1").arg(lastSaved + 1),
            qPrintable(generation + QStringLiteral(" after save %1").arg(lastSaved)));
        for (const QString& cookie : cookies)
            QCOMPARE(cookie.section(QLatin1Char('='), 1).section(QLatin1Char('-'), 0, 0), generation);
    }
}

void TestFaults::startPageRetriesUntilServiceAnswers()
{
    // The shipped start page, pointed at a port of ours that nothing listens on yet.
    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const quint16 port = probe.serverPort();
    probe.close();
    QString page = QString::fromUtf8(readFile(StagedFolder::path() + QStringLiteral("/html/start.html")));
    const QRegularExpression hostLine(QStringLiteral("var serviceHost = \"[^\"]*\""));
    QVERIFY(page.contains(hostLine));
    page.replace(hostLine, QStringLiteral("var serviceHost = \"127.0.0.1:%1\"").arg(port));
    const QString startPage = mTemp.filePath(QStringLiteral("start.html"));
    QVERIFY(writeFile(startPage, page.toUtf8()));

    MainWindow mainWindow;
    IndexWindow* view = indexWindowHolder::get();
    view->loadFile(startPage);
    QWebFrame* frame = view->webView()->page()->mainFrame();
    const auto offlineShown = [frame] {
        return frame->evaluateJavaScript(QStringLiteral("document.getElementById('offline').className")).toString().isEmpty();
    };
    QTRY_VERIFY_WITH_TIMEOUT(offlineShown(), 20000);

    // The service comes up: the page's own retry finds it and moves on to sign-in.
    HttpServer service;
    QVERIFY(service.listen(port));
    service.serve(QStringLiteral("/prod-assets/desktop-client/versioncheck.json"), "{}", "application/json");
    service.serve(QStringLiteral("/signin"), "<html><body>sign in</body></html>", "text/html");
    QTRY_VERIFY_WITH_TIMEOUT(frame->url().path() == QLatin1String("/signin"), 40000);
}

// The service takes the sign-in request and never answers: the start page stops waiting and
// offers its retry instead of "Connecting" for ever.
void TestFaults::startPageGivesUpOnASilentSignIn()
{
    HttpServer service;
    QVERIFY(service.listen());
    service.serve(QStringLiteral("/prod-assets/desktop-client/versioncheck.json"), "{}", "application/json");
    service.serveStall(QStringLiteral("/signin"));
    QString page = QString::fromUtf8(readFile(StagedFolder::path() + QStringLiteral("/html/start.html")));
    const QRegularExpression hostLine(QStringLiteral("var serviceHost = \"[^\"]*\""));
    const QRegularExpression waitLine(QStringLiteral("var signInSeconds = \\d+"));
    QVERIFY(page.contains(hostLine) && page.contains(waitLine));
    page.replace(hostLine, QStringLiteral("var serviceHost = \"127.0.0.1:%1\"").arg(service.port()));
    page.replace(waitLine, QStringLiteral("var signInSeconds = 2"));
    const QString startPage = mTemp.filePath(QStringLiteral("start-silent.html"));
    QVERIFY(writeFile(startPage, page.toUtf8()));

    MainWindow mainWindow;
    IndexWindow* view = indexWindowHolder::get();
    view->loadFile(startPage);
    QWebFrame* frame = view->webView()->page()->mainFrame();
    QTRY_VERIFY_WITH_TIMEOUT(!service.requestsFor(QStringLiteral("/signin")).isEmpty(), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(
        frame->evaluateJavaScript(QStringLiteral("document.getElementById('offline').className")).toString().isEmpty(), 20000);
    QCOMPARE(frame->url().fileName(), QStringLiteral("start-silent.html"));
}

void TestFaults::downloadFolderFault_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("openFile");
    QTest::addColumn<QString>("earlierFile"); // already in the folder, and must stay as it was
    QTest::addColumn<bool>("errorBox");       // false: the dialog waits at 0 until the user cancels

    QTest::newRow("read-only, same name there") << "read-only" << false << "photo.png" << false;
    QTest::newRow("missing, parent read-only") << "missing" << true << "photo.png" << false;
    QTest::newRow("fills up, offered when done") << "full" << false << "older.png" << true;
    QTest::newRow("fills up, opened when done") << "full" << true << "older.png" << true;
}

void TestFaults::downloadFolderFault()
{
    QFETCH(QString, fault);
    QFETCH(bool, openFile);
    QFETCH(QString, earlierFile);
    QFETCH(bool, errorBox);
    if (!mountsAvailable)
        QSKIP("no private mount namespace here (unshare refused)");

    const QString mountPoint = mTemp.filePath(QStringLiteral("downloads"));
    DataMount mount;
    QVERIFY(mount.mountAt(mountPoint));
    const QByteArray earlier("the picture saved last week");
    QVERIFY(writeFile(mountPoint + QLatin1Char('/') + earlierFile, earlier));
    const QString folder = fault == QLatin1String("missing") ? mountPoint + QStringLiteral("/new/folder") : mountPoint;
    if (fault != QLatin1String("full"))
        QVERIFY(mount.setReadOnly(true));

    // Four times the whole file system.
    QByteArray body(1024 * 1024, '\0');
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(i * 131);
    HttpServer server;
    QVERIFY(server.listen());
    server.serve(QStringLiteral("/media/photo.png"), body, "image/png");

    // The page's own download path: the bridge call, with the folder the user chose there.
    IndexWindow window;
    indexWindowHolder::set(&window);
    QWebFrame* frame = window.webView()->page()->mainFrame();
    QSignalSpy loaded(window.webView()->page(), &QWebPage::loadFinished);
    frame->setHtml(QStringLiteral("<html><body>messages</body></html>"), server.url(QStringLiteral("/")));
    QTRY_VERIFY_WITH_TIMEOUT(!loaded.isEmpty(), 10000);
    frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.setDefaultDownloadLocationSetting(%1)").arg(scriptString(folder)));
    RecordingFileOpener opener;

    QStringList boxes;
    ModalAnswer<QMessageBox> box([&boxes](QMessageBox* message) {
        boxes << message->text();
        message->accept();
    });
    bool offeredAsDone = false;
    ModalAnswer<MediaDownloaderDialog> user([&](MediaDownloaderDialog* dialog) {
        auto* done = dialog->findChild<QLabel*>(QStringLiteral("download_complete"));
        QTimer* watch = new QTimer(dialog);
        connect(watch, &QTimer::timeout, dialog, [&offeredAsDone, done] { offeredAsDone |= done->isVisible(); });
        watch->start(5);
        if (errorBox)
            return;
        // Nothing can be written, so nothing is fetched: the bar stands at 0 until the user gives up.
        QCOMPARE(dialog->findChild<QProgressBar*>(QStringLiteral("download_progress"))->value(), 0);
        dialog->findChild<QPushButton*>(QStringLiteral("download_cancel"))->click();
    });
    const bool ended = runModal([&] {
        frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.downloadFile(%1, 'image/png', 'photo.png', %2, %3)")
                                      .arg(scriptString(server.url(QStringLiteral("/media/photo.png")).toString()))
                                      .arg(body.size())
                                      .arg(openFile ? QStringLiteral("true") : QStringLiteral("false")));
    });

    QVERIFY2(ended, "the download dialog did not end");
    QCOMPARE(user.count(), 1);
    QCOMPARE(boxes, errorBox ? QStringList{QStringLiteral("Error downloading update.")} : QStringList());
    QVERIFY(!offeredAsDone);
    QVERIFY(opener.opened.isEmpty() && opener.shown.isEmpty());
    // What was in the folder stays whole; no cut copy of the download is left behind.
    QCOMPARE(QDir(mountPoint).entryList(QDir::Files), QStringList{earlierFile});
    QCOMPARE(readFile(mountPoint + QLatin1Char('/') + earlierFile), earlier);
    if (!errorBox)
        QVERIFY(server.requestsFor(QStringLiteral("/media/photo.png")).isEmpty());

    // The page goes on working.
    QCOMPARE(frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.getDefaultDownloadLocationSetting()")).toString(), folder);
    indexWindowHolder::set(nullptr);
}

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
