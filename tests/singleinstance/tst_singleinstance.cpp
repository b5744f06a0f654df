// The single-instance guard with real, separate processes (the helper plays the program's start):
// one program life per user session whatever lies in the way, and a wake-up channel no client can hold.
#include <QtTest>

#include <QLocalSocket>

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/sessionid.h"
#include "qtsingleapplication/qtlocalpeer.h"
#include "testenvironment.h"

namespace {

// Worked out by hand: CRC-16/X-25 of "Kestrelgap" is f2b0. The helper runs in login session 7.
const QString id = QStringLiteral("Kestrelgap");
const QString name = QStringLiteral("qtsingleapp-Kestre-f2b0");
const QString helperName = name + "-7";

// One start of the program stand-in, in a process of its own.
struct Instance {
    Instance()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_SESSION_ID", "7");
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(SINGLEINSTANCE_HELPER), {id, "120000"});
    }
    ~Instance() { process.kill(), process.waitForFinished(5000); }
    QStringList lines()
    {
        output += QString::fromUtf8(process.readAllStandardOutput());
        return output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    bool waitForLines(int count) { return QTest::qWaitFor([&] { return lines().size() >= count; }, 20000); }
    bool running() const { return process.state() != QProcess::NotRunning; }
    // A later start hands over its wake-up and leaves without a word.
    bool endsAsMessenger() { return QTest::qWaitFor([&] { return !running(); }, 20000) && process.exitCode() == 0 && lines().isEmpty(); }
    QProcess process;
    QString output;
};

QByteArray frame(quint32 length, const QByteArray& bytes)
{
    QByteArray framed;
    QDataStream(&framed, QIODevice::WriteOnly) << length; // big-endian
    return framed + bytes;
}

// Writes bytes as a client; unless it leaves at once, returns what the first instance answers.
QByteArray exchange(const QString& path, const QByteArray& bytes, bool leave = false)
{
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(5000))
        return "<no connection>";
    socket.write(bytes);
    socket.waitForBytesWritten(5000);
    QByteArray answer;
    const auto answered = [&] {
        answer += socket.readAll();
        return answer.size() >= 3 || socket.state() == QLocalSocket::UnconnectedState;
    };
    return leave || QTest::qWaitFor(answered, 45000) ? answer : QByteArray("<no answer in time>");
}

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void names_data();
    void names();
    void sessionFromCgroups_data();
    void sessionFromCgroups();
    void concurrentStarts();
    void inTheWay_data();
    void inTheWay();
    void messages_data();
    void messages();

private:
    QString runtimeFile(const QString& file) const { return mRuntime->filePath(file); }
    std::unique_ptr<QTemporaryDir> mRuntime;
    std::unique_ptr<QTemporaryDir> mTmp;
};

void TestSingleInstance::init()
{
    // Lock files and sockets go to the runtime folder, or the temporary one without it: fresh ones
    // per row keep rows, and other runs, apart. In-process peers know no session.
    mRuntime = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + "/runtime-XXXXXX");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(mRuntime->path()));
    mTmp = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + "/tmp-XXXXXX");
    qputenv("TMPDIR", QFile::encodeName(mTmp->path()));
    SessionId::setSource([](QString&) { return false; });
}

void TestSingleInstance::names_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("session"); // null: unknown
    QTest::addColumn<QString>("socketName");
    // Checksums are CRC-16/X-25 of the id's UTF-8 bytes, worked out independently.
    QTest::newRow("program id") << id << "3" << name + "-3";
    QTest::newRow("digits left out of prefix") << "a1b2c3d4e5f6g7h8" << "c12" << "qtsingleapp-abcdef-8860-c12";
    QTest::newRow("non-ASCII left out, UTF-8 checksum") << "Z\u00fcrich-App 2" << "1f" << "qtsingleapp-ZrichA-abdc-1f";
    QTest::newRow("session with path characters") << id << "../x y" << name + "-xy";
    QTest::newRow("session unknown") << id << QString() << name;
}

// Two starts in one session: one listener, the other a client, even within one process (a second
// peer opens the lock file again and must not free the first's lock). Another session's is apart.
void TestSingleInstance::names()
{
    QFETCH(QString, id);
    QFETCH(QString, session);
    QFETCH(QString, socketName);
    SessionId::setSource([&](QString& value) { return !(value = session).isNull(); });
    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());
    QCOMPARE(QDir(mRuntime->path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name),
             QStringList({socketName, socketName + "-lockfile"}));
    QVERIFY(QtLocalPeer(nullptr, id).isClient());
    if (session.isNull())
        return;
    session += "0";
    QVERIFY(!QtLocalPeer(nullptr, id).isClient());
}

void TestSingleInstance::sessionFromCgroups_data()
{
    QTest::addColumn<QByteArray>("cgroups");
    QTest::addColumn<QString>("session");
    QTest::newRow("unified, desktop session") << QByteArray("0::/user.slice/user-1000.slice/session-3.scope\n") << "3";
    QTest::newRow("legacy hierarchies") << QByteArray("12:pids:/user.slice/user-1000.slice/session-c2.scope\n"
                                                      "1:name=systemd:/user.slice/user-1000.slice/session-c2.scope\n") << "c2";
    QTest::newRow("user service, no session")
        << QByteArray("0::/user.slice/user-1000.slice/user@1000.service/app.slice/session-x.scope.d/app.service\n") << "";
    QTest::newRow("system service") << QByteArray("0::/system.slice/cron.service\n") << "";
}

void TestSingleInstance::sessionFromCgroups()
{
    QFETCH(QByteArray, cgroups);
    QFETCH(QString, session);
    QCOMPARE(SessionId::fromCgroups(cgroups), session);
}

// Five starts at once: one program life; every other start hands over its wake-up and leaves.
void TestSingleInstance::concurrentStarts()
{
    std::vector<std::unique_ptr<Instance>> starts(5);
    for (auto& start : starts)
        start = std::make_unique<Instance>();
    QStringList seen;
    for (auto& start : starts) {
        QVERIFY(QTest::qWaitFor([&] { return !start->running() || !start->lines().isEmpty(); }, 20000));
        seen << (start->running() ? start->lines().first() : QString("left with %1").arg(start->process.exitCode()));
    }
    seen.sort();
    QCOMPARE(seen, QStringList({"first", "left with 0", "left with 0", "left with 0", "left with 0"}));
}

void TestSingleInstance::inTheWay_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("path"); // in the runtime folder
    QTest::newRow("lock: another user's unreadable file") << "file" << helperName + "-lockfile";
    QTest::newRow("lock: a folder") << "folder" << helperName + "-lockfile";
    QTest::newRow("socket: another user's unreadable file") << "file" << helperName;
    QTest::newRow("socket: a crashed holder's") << "dead socket" << helperName;
    QTest::newRow("runtime folder: another user's") << "folder" << "runtime";
    QTest::newRow("runtime folder: missing") << "nothing" << "runtime";
    QTest::newRow("a client that connects and stays silent") << "silent" << helperName;
    QTest::newRow("a client that sends a length and stays silent") << "silent length" << helperName;
}

// Whatever lies in the way, the first start is still a first copy and the only one, and a later
// start is answered: the guard neither freezes nor lets a second program run.
void TestSingleInstance::inTheWay()
{
    QFETCH(QString, what);
    QFETCH(QString, path);
    path = runtimeFile(path);
    if (path.endsWith("/runtime"))
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(path));
    if (what == "file") {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.setPermissions(QFile::Permissions()));
    } else if (what == "folder") {
        QVERIFY(QDir().mkpath(path + "/inside"));
    } else if (what == "dead socket") {
        // Bound and abandoned, as a killed process leaves it: the file stays, nobody listens.
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    if ((what == "file" || what == "folder") && ::geteuid() == 0)
        QCOMPARE(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
    else if (what == "folder" && path.endsWith("/runtime"))
        QSKIP("only root can give a folder to another user");

    Instance first;
    QVERIFY2(first.waitForLines(1), qPrintable(first.output));
    QLocalSocket silent;
    if (what.startsWith("silent")) {
        silent.connectToServer(path);
        QVERIFY(silent.waitForConnected(5000));
        silent.write(what.endsWith("length") ? frame(10, {}) : QByteArray());
        silent.flush();
    }
    Instance second;
    QVERIFY2(second.endsAsMessenger(), qPrintable(second.output));
    QVERIFY(first.waitForLines(2));
    QCOMPARE(first.lines(), QStringList({"first", "message:Wake up"}));
    if (what.startsWith("silent")) {
        QCOMPARE(silent.state(), QLocalSocket::ConnectedState);
        // Others may neither wake nor block the user's copy.
        for (const QString& file : {path, path + "-lockfile"})
            QCOMPARE(QFileInfo(file).permissions() & 0077, QFile::Permissions());
    }
}

void TestSingleInstance::messages_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("leave"); // the client leaves without waiting for the answer
    QTest::addColumn<QStringList>("received");

    const QString large(300000, QLatin1Char('k'));
    const QString text = QStringLiteral("Gr\u00fc\u00dfe \u2713 \U0001F44B");
    QTest::newRow("non-ASCII") << frame(text.toUtf8().size(), text.toUtf8()) << false << QStringList(text);
    QTest::newRow("empty") << frame(0, {}) << false << QStringList("");
    QTest::newRow("larger than a socket buffer") << frame(300000, large.toUtf8()) << false << QStringList(large);
    QTest::newRow("nothing, then leaves") << QByteArray() << true << QStringList();
    QTest::newRow("half a text, then leaves") << frame(10, "Wake") << true << QStringList("Wake");
    QTest::newRow("half a text, then waits") << frame(10, "Wake") << false << QStringList("Wake");
    QTest::newRow("length beyond any memory") << frame(0x7fffffffu, "abc") << true << QStringList("abc");
}

// Four bytes of big-endian length, the UTF-8 text, and a bare "ack" back; whatever the client did,
// the first instance lives on and serves the next one.
void TestSingleInstance::messages()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, leave);
    QFETCH(QStringList, received);
    Instance first;
    QVERIFY(first.waitForLines(1));
    QCOMPARE(exchange(runtimeFile(helperName), bytes, leave), leave ? QByteArray() : QByteArray("ack"));
    QCOMPARE(exchange(runtimeFile(helperName), frame(5, "after")), QByteArray("ack"));
    QStringList expected("first");
    for (const QString& message : received + QStringList("after"))
        expected << "message:" + message;
    QVERIFY(first.waitForLines(expected.size()));
    QCOMPARE(first.lines(), expected);
}

QTEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
