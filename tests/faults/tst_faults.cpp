// What the user keeps when the machine misbehaves: a data or download folder that can't be written
// or fills up, damaged files, a missing page folder, a service that is down or silent. Faults of the
// file system are real mounts in a private mount namespace.
#include <QtNetwork>
#include <QtTest>
#include <QtWebKitWidgets>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "stagedfolder.h"
#include "stagedprogram.h"
#include "../updates/standins.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

namespace {

bool writeText(const char* path, const QByteArray& text)
{
    const int fd = ::open(path, O_WRONLY);
    const bool ok = fd >= 0 && ::write(fd, text.constData(), size_t(text.size())) == text.size();
    return ::close(fd) == 0 && ok;
}

// Runs before main(), while the process still has one thread, as unshare() requires. Without
// root, a user namespace grants the mount rights; mounts vanish when the process ends.
bool enterMountNamespace()
{
    const QByteArray uid = QByteArray::number(geteuid()), gid = QByteArray::number(getegid());
    if (geteuid() != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        writeText("/proc/self/setgroups", "deny"); // older kernels have no such file
        if (!writeText("/proc/self/uid_map", "0 " + uid + " 1") || !writeText("/proc/self/gid_map", "0 " + gid + " 1"))
            return false;
    } else if (unshare(CLONE_NEWNS) != 0) {
        return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

const bool mountsAvailable = enterMountNamespace();

// The program's own folder under a home's data folder (cookie file, log, web storage, cache).
QString appDataFolder(const QString& dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
{
    return dataHome + QStringLiteral("/Kestrelgap");
}
QString cookieFile(const QString& dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
{
    return appDataFolder(dataHome) + QStringLiteral("/Kestrelgap/c.ini");
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

QString scriptString(const QString& text)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

// A jar made, given a cookie and saved at once, as the program does when it quits.
void saveCookie(const QByteArray& value)
{
    QNetworkCookie cookie("sid", value);
    cookie.setPath(QStringLiteral("/"));
    cookie.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(30));
    CookieJar jar;
    jar.setCookiesFromUrl({cookie}, QUrl(QStringLiteral("http://127.0.0.1/")));
    QMetaObject::invokeMethod(&jar, "save", Qt::DirectConnection);
}

// The cookies a new process finds in the file, as "name=value": no cached parse of ours.
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

// A small tmpfs at a folder, made read-only or full on demand; gone again when the test ends.
struct DataMount {
    explicit DataMount(const QString& at) : path(QFile::encodeName(at)) { QDir().mkpath(at); }
    ~DataMount() { umount2(path.constData(), MNT_DETACH); }
    bool mounted() { return mount("tmpfs", path.constData(), "tmpfs", 0, "size=256k,mode=0700") == 0; }
    bool set(const QString& fault, bool on)
    {
        if (fault == QLatin1String("read-only"))
            return mount("tmpfs", path.constData(), "tmpfs", MS_REMOUNT | (on ? MS_RDONLY : 0), "size=256k") == 0;
        // Full: a filler file written until the file system refuses a block.
        QFile filler(QFile::decodeName(path) + QStringLiteral("/filler"));
        const QByteArray block(4096, 'f');
        while (on && (filler.isOpen() || filler.open(QIODevice::WriteOnly)) && filler.write(block) == block.size() && filler.flush()) {
        }
        return on || filler.remove();
    }
    const QByteArray path;
};

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { SimpleCrypt::setUpShared(); }
    void cleanup();
    void dataFolderFault_data();
    void dataFolderFault();
    void launch_data();
    void launch();
    void startPage_data();
    void startPage();
    void downloadFillsTheFolder();

private:
    QTemporaryDir mTemp;
};


void TestFaults::cleanup()
{
    QSettings().clear();
    QFile::remove(cookieFile());
}

void TestFaults::dataFolderFault_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("read-only") << "read-only";
    QTest::newRow("no space left") << "full";
}

// A save that can't be written leaves the sign-in as it was; once the disk takes writes again, so
// does the program, with no restart.
void TestFaults::dataFolderFault()
{
    QFETCH(QString, fault);
    if (!mountsAvailable)
        QSKIP("no private mount namespace here (unshare refused)");
    DataMount mount(appDataFolder());
    QVERIFY(mount.mounted() && QDir().mkpath(QFileInfo(cookieFile()).path()));
    saveCookie("first");
    // A save replaces the file whole, so a kill part-way leaves the old one: a file opened before
    // the save still reads the old text.
    QFile opened(cookieFile());
    QVERIFY(opened.open(QIODevice::ReadOnly));
    const QByteArray firstSaved = readFile(cookieFile());
    saveCookie("kept");
    const QByteArray cookiesBefore = readFile(cookieFile());
    QVERIFY(!firstSaved.isEmpty() && cookiesBefore != firstSaved);
    QCOMPARE(opened.readAll(), firstSaved);
    opened.close(); // a read-only remount waits for no removed file held open
    QVERIFY(mount.set(fault, true));
    saveCookie("changed-while-unwritable");
    QCOMPARE(readFile(cookieFile()), cookiesBefore);
    QCOMPARE(cookiesOnNextStart(), QStringList{QStringLiteral("sid=kept")});
    QVERIFY(mount.set(fault, false));
    saveCookie("after");
    QCOMPARE(cookiesOnNextStart(), QStringList{QStringLiteral("sid=after")});
}

void TestFaults::launch_data()
{
    QTest::addColumn<QByteArray>("settings"); // the settings file as an earlier launch left it
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("registered"); // start at log-in registered by this launch

    const QByteArray garbage = QByteArray::fromHex("00ff7f80c3280a5b").repeated(256);
    QTest::newRow("first launch registers") << QByteArray() << "" << true;
    QTest::newRow("later launch doesn't") << QByteArray("[General]\nts-last-launch=Mon Nov 23 06:00:00 2026\n") << "" << false;
    QTest::newRow("leftover key proves an earlier launch") << QByteArray("[General]\nstart-on-launch=1\n") << "" << false;
    QTest::newRow("settings file corrupt") << "[General\npref-debug-enabled=\x01\x02\n" + garbage << "" << true;
    QTest::newRow("cookie file corrupt") << QByteArray() << "cookies" << true;
    QTest::newRow("page folder missing") << QByteArray() << "pages" << true;
    QTest::newRow("data folder read-only") << QByteArray() << "read-only" << true;
    QTest::newRow("data folder full") << QByteArray() << "full" << true;
}

// The real program, each time in a home of its own, reaches its event loop and registers start at
// log-in on the first launch only, whatever it finds damaged.
void TestFaults::launch()
{
    QFETCH(QByteArray, settings);
    QFETCH(QString, fault);
    QFETCH(bool, registered);
    StagedProgram program(StagedProgram::OwnHome);
    const QString dataHome = program.homePath() + QStringLiteral("/data");
    QVERIFY(settings.isEmpty() || writeFile(program.settingsPath(), settings));
    DataMount mount(appDataFolder(dataHome));
    if (fault == QLatin1String("cookies")) {
        QVERIFY(writeFile(cookieFile(dataHome), QByteArray::fromHex("00ff7f80c3280a5b").repeated(256)));
    } else if (fault == QLatin1String("pages")) {
        program.workingDirectory = mTemp.path();
    } else if (!fault.isEmpty()) {
        if (!mountsAvailable)
            QSKIP("no private mount namespace here (unshare refused)");
        QVERIFY(mount.mounted() && mount.set(fault, true));
    }
    QVERIFY(program.start());
    QVERIFY2(program.waitForLaunch(120000), qPrintable(QStringLiteral("the program ended: exit %1").arg(program.process().exitCode())));
    QCOMPARE(QFile::exists(program.homePath() + QStringLiteral("/config/autostart/kestrelgap.desktop")), registered);
    QCOMPARE(program.setting(QStringLiteral("start-on-launch")), QString());
}

void TestFaults::startPage_data()
{
    QTest::addColumn<bool>("silentSignIn");
    // The page's own retry finds the service once it comes up, and moves on to sign-in.
    QTest::newRow("service down, then up") << false;
    // The sign-in request is taken and never answered: the page stops waiting and offers its retry.
    QTest::newRow("sign-in never answered") << true;
}

void TestFaults::startPage()
{
    QFETCH(bool, silentSignIn);
    QTcpServer probe; // a port of ours that nothing listens on yet
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const quint16 port = probe.serverPort();
    probe.close();
    HttpServer service;
    service.serve(QStringLiteral("/prod-assets/desktop-client/versioncheck.json"), "{}", "application/json");
    if (silentSignIn) {
        service.serveStall(QStringLiteral("/signin"));
        QVERIFY(service.listen(port));
    } else {
        service.serve(QStringLiteral("/signin"), "<html><body>sign in</body></html>", "text/html");
    }

    // The shipped start page, pointed at that port, with a short wait for the sign-in.
    QString page = QString::fromUtf8(readFile(StagedFolder::path() + QStringLiteral("/html/start.html")));
    const QRegularExpression hostLine(QStringLiteral("var serviceHost = \"[^\"]*\""));
    const QRegularExpression waitLine(QStringLiteral("var signInSeconds = \\d+"));
    QVERIFY(page.contains(hostLine) && page.contains(waitLine));
    page.replace(hostLine, QStringLiteral("var serviceHost = \"127.0.0.1:%1\"").arg(port));
    page.replace(waitLine, QStringLiteral("var signInSeconds = 2"));
    const QString startPage = mTemp.filePath(QStringLiteral("start.html"));
    QVERIFY(writeFile(startPage, page.toUtf8()));

    MainWindow mainWindow;
    IndexWindow* view = indexWindowHolder::get();
    view->loadFile(startPage);
    QWebFrame* frame = view->webView()->page()->mainFrame();
    const auto offlineShown = [frame] {
        return frame->evaluateJavaScript(QStringLiteral("document.getElementById('offline').className")).toString().isEmpty();
    };
    if (silentSignIn)
        QTRY_VERIFY_WITH_TIMEOUT(!service.requestsFor(QStringLiteral("/signin")).isEmpty(), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(offlineShown(), 20000);
    if (silentSignIn) {
        QCOMPARE(frame->url().fileName(), QStringLiteral("start.html"));
    } else {
        QVERIFY(service.listen(port));
        QTRY_COMPARE_WITH_TIMEOUT(frame->url().path(), QStringLiteral("/signin"), 40000);
    }
}

// The page's own download path into a folder that fills up part-way: the error box, and neither a
// cut copy nor harm to what was there.
void TestFaults::downloadFillsTheFolder()
{
    if (!mountsAvailable)
        QSKIP("no private mount namespace here (unshare refused)");
    const QString folder = mTemp.filePath(QStringLiteral("downloads"));
    DataMount mount(folder);
    QVERIFY(mount.mounted());
    QVERIFY(writeFile(folder + QStringLiteral("/older.png"), "the picture saved last week"));
    QByteArray body(1024 * 1024, '\0'); // four times the whole file system
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(i * 131);
    HttpServer server;
    server.serve(QStringLiteral("/media/photo.png"), body, "image/png");

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
    QVERIFY2(runModal([&] {
        frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.downloadFile(%1, 'image/png', 'photo.png', %2, true)")
                                      .arg(scriptString(server.url(QStringLiteral("/media/photo.png")).toString())).arg(body.size()));
    }), "the download dialog did not end");
    QCOMPARE(boxes, QStringList{QStringLiteral("Error downloading update.")});
    QVERIFY(opener.opened.isEmpty() && opener.shown.isEmpty());
    QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("older.png")});
    QCOMPARE(readFile(folder + QStringLiteral("/older.png")), QByteArray("the picture saved last week"));
    indexWindowHolder::set(nullptr);
}

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
