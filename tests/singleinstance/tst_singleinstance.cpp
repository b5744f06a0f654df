#include <QtTest>

#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/sessionid.h"
#include "qtsingleapplication/qtlocalpeer.h"
#include "qtsingleapplication/qtlockedfile.h"
#include "testenvironment.h"

using QtLP_Private::QtLockedFile;

namespace {

// One start of the program stand-in, in a process of its own.
struct Instance {
    explicit Instance(const QString& id, const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
    {
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(SINGLEINSTANCE_HELPER), { id, "120000" });
    }
    ~Instance()
    {
        process.kill();
        process.waitForFinished(5000);
    }
    QStringList lines()
    {
        output += QString::fromUtf8(process.readAllStandardOutput());
        return output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    bool waitForLines(int count)
    {
        return QTest::qWaitFor([&] { return lines().size() >= count; }, 20000);
    }
    bool running() const { return process.state() != QProcess::NotRunning; }
    // A messenger hands over its wake-up and leaves without a word.
    bool endsAsMessenger()
    {
        return QTest::qWaitFor([&] { return !running(); }, 20000) && process.exitCode() == 0 && lines().isEmpty();
    }

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
    if (!leave && !QTest::qWaitFor(answered, 45000))
        return "<no answer in time>";
    return answer;
}

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void lockExclusion_data();
    void lockExclusion();
    void names_data();
    void names();
    void sessionFromCgroups_data();
    void sessionFromCgroups();
    void sessionsOfOneUser_data();
    void sessionsOfOneUser();
    void namesTakenBeforeUs_data();
    void namesTakenBeforeUs();
    void silentClient_data();
    void silentClient();
    void listenerPrivateToUser();
    void leftoverAtSocketPath_data();
    void leftoverAtSocketPath();
    void concurrentStarts();
    void messages_data();
    void messages();

private:
    QString tempFile(const QString& name) const { return mTemp->filePath(name); }
    QString runtimeFile(const QString& name) const { return mRuntime->filePath(name); }
    QString uniqueId() { return QString("Singletest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++mIds); }
    // The name the first instance listens on, read off the lock file it left beside it.
    QString socketPath() const
    {
        const QStringList locks = QDir(mRuntime->path()).entryList({ "qtsingleapp-*-lockfile" }, QDir::Files);
        return locks.size() == 1 ? runtimeFile(locks.first().chopped(int(qstrlen("-lockfile")))) : QString();
    }
    static void quit(const QString& id) { QVERIFY(QtLocalPeer(nullptr, id).sendMessage("quit", 5000)); }

    std::unique_ptr<QTemporaryDir> mTemp;
    std::unique_ptr<QTemporaryDir> mRuntime;
    int mIds = 0;
};

void TestSingleInstance::init()
{
    // Lock files and sockets go to the runtime folder; a private one per test keeps parallel runs
    // and a real running program out of each other's way.
    mTemp = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + "/tmp-XXXXXX");
    mRuntime = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + "/runtime-XXXXXX");
    qputenv("TMPDIR", QFile::encodeName(mTemp->path()));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(mRuntime->path()));
    qunsetenv("XDG_SESSION_ID");
    QCOMPARE(QtLocalPeer::privateFolder(), mRuntime->path());
}

void TestSingleInstance::cleanup()
{
    SessionId::setSource({});
    mTemp.reset();
    mRuntime.reset();
}

void TestSingleInstance::lockExclusion_data()
{
    QTest::addColumn<QString>("release");
    QTest::newRow("unlock") << "unlock";
    QTest::newRow("close") << "close";
    QTest::newRow("destroy") << "destroy";
}

void TestSingleInstance::lockExclusion()
{
    QFETCH(QString, release);
    auto holder = std::make_unique<QtLockedFile>(tempFile("exclusion"));
    QtLockedFile contender(tempFile("exclusion"));
    QVERIFY(holder->open(QIODevice::ReadWrite) && contender.open(QIODevice::ReadWrite));
    QVERIFY(holder->lock(QtLockedFile::WriteLock, false));
    // Whole-process record locks would vanish here: closing any handle on the file drops them.
    QFile(tempFile("exclusion")).open(QIODevice::ReadOnly);
    QVERIFY(!contender.lock(QtLockedFile::WriteLock, false));
    QCOMPARE(contender.lockMode(), QtLockedFile::NoLock);

    // However the holder lets go, the lock goes with it.
    if (release == "unlock")
        QVERIFY(holder->unlock());
    else if (release == "close")
        holder->close();
    else
        holder.reset();
    QVERIFY(contender.lock(QtLockedFile::WriteLock, false));
}

void TestSingleInstance::names_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<bool>("sessionKnown");
    QTest::addColumn<QString>("session");
    QTest::addColumn<QString>("socketName");

    // Checksums are CRC-16/X-25 of the id's UTF-8 bytes, worked out independently.
    QTest::newRow("program id") << "Kestrelgap" << true << "3" << "qtsingleapp-Kestre-f2b0-3";
    QTest::newRow("digits left out of prefix") << "a1b2c3d4e5f6g7h8" << true << "c12"
                                               << "qtsingleapp-abcdef-8860-c12";
    QTest::newRow("non-ASCII left out, UTF-8 checksum") << "Z\u00fcrich-App 2" << true << "1f"
                                                        << "qtsingleapp-ZrichA-abdc-1f";
    QTest::newRow("session with path characters") << "Kestrelgap" << true << "../x y" << "qtsingleapp-Kestre-f2b0-xy";
    QTest::newRow("session unknown") << "Kestrelgap" << false << "" << "qtsingleapp-Kestre-f2b0";
}

void TestSingleInstance::names()
{
    QFETCH(QString, id);
    QFETCH(bool, sessionKnown);
    QFETCH(QString, session);
    QFETCH(QString, socketName);

    SessionId::setSource([&](QString& value) {
        value = session;
        return sessionKnown;
    });
    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());
    QCOMPARE(QDir(mRuntime->path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name),
        QStringList({ socketName, socketName + "-lockfile" }));
    QVERIFY(QtLocalPeer(nullptr, id).isClient());
    // The same program in another login session is not ours to wake.
    session += "0";
    QCOMPARE(QtLocalPeer(nullptr, id).isClient(), !sessionKnown);
}

void TestSingleInstance::sessionFromCgroups_data()
{
    QTest::addColumn<QByteArray>("cgroups");
    QTest::addColumn<QString>("session");

    QTest::newRow("unified, desktop session") << QByteArray("0::/user.slice/user-1000.slice/session-3.scope\n") << "3";
    QTest::newRow("legacy hierarchies") << QByteArray("12:pids:/user.slice/user-1000.slice/session-c2.scope\n"
                                                      "1:name=systemd:/user.slice/user-1000.slice/session-c2.scope\n")
                                        << "c2";
    QTest::newRow("user service, no session") << QByteArray("0::/user.slice/user-1000.slice/user@1000.service/"
                                                            "app.slice/session-x.scope.d/app.service\n")
                                              << "";
    QTest::newRow("system service") << QByteArray("0::/system.slice/cron.service\n") << "";
}

void TestSingleInstance::sessionFromCgroups()
{
    QFETCH(QByteArray, cgroups);
    QFETCH(QString, session);
    QCOMPARE(SessionId::fromCgroups(cgroups), session);
}

void TestSingleInstance::sessionsOfOneUser_data()
{
    QTest::addColumn<QString>("firstSession");
    QTest::addColumn<QString>("secondSession");
    QTest::addColumn<bool>("bothFirst");

    QTest::newRow("two login sessions") << "4" << "c7" << true;
    QTest::newRow("one login session") << "4" << "4" << false;
}

void TestSingleInstance::sessionsOfOneUser()
{
    QFETCH(QString, firstSession);
    QFETCH(QString, secondSession);
    QFETCH(bool, bothFirst);

    const QString id = uniqueId();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_SESSION_ID", firstSession);
    Instance first(id, environment);
    QVERIFY(first.waitForLines(1));
    environment.insert("XDG_SESSION_ID", secondSession);
    Instance second(id, environment);
    if (bothFirst) {
        QVERIFY(second.waitForLines(1));
        QCOMPARE(second.lines(), QStringList("first"));
        QCOMPARE(first.lines(), QStringList("first"));
    } else {
        QVERIFY2(second.endsAsMessenger(), qPrintable(second.output));
        QVERIFY(first.waitForLines(2));
    }
}

void TestSingleInstance::namesTakenBeforeUs_data()
{
    QTest::addColumn<QString>("taken"); // the lock, the socket, or the runtime folder itself
    QTest::addColumn<QString>("kind");

    QTest::newRow("lock: another user's unreadable file") << "lock" << "file";
    QTest::newRow("lock: a folder") << "lock" << "folder";
    QTest::newRow("socket: another user's unreadable file") << "socket" << "file";
    QTest::newRow("runtime folder: another user's") << "runtime" << "folder";
    QTest::newRow("runtime folder: missing") << "runtime" << "missing";
}

void TestSingleInstance::namesTakenBeforeUs()
{
    QFETCH(QString, taken);
    QFETCH(QString, kind);

    const QString id = uniqueId();
    SessionId::setSource([](QString&) { return false; });
    // The names as names() checks them, for this id and no session.
    const QByteArray idBytes = id.toUtf8();
    const QString name = QString("qtsingleapp-Single-%1").arg(qChecksum(idBytes.constData(), uint(idBytes.size())), 0, 16);
    QString path = taken == "lock" ? runtimeFile(name + "-lockfile") : runtimeFile(name);
    if (taken == "runtime") {
        path = tempFile("runtime-of-another");
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(path));
    }
    if (kind == "file") {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.setPermissions(QFile::Permissions());
    } else if (kind == "folder") {
        QVERIFY(QDir().mkpath(path + "/inside"));
    }
    if (kind != "missing" && ::geteuid() == 0) {
        QCOMPARE(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
    } else if (taken == "runtime" && kind == "folder") {
        QSKIP("only root can give a folder to another user");
    }

    // Still a first copy, and still the only one.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("XDG_SESSION_ID");
    Instance first(id, environment);
    QVERIFY2(first.waitForLines(1), qPrintable(first.output));
    QCOMPARE(first.lines(), QStringList("first"));
    Instance second(id, environment);
    QVERIFY2(second.endsAsMessenger(), qPrintable(second.output));
    QVERIFY(first.waitForLines(2));
}

void TestSingleInstance::silentClient_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("connects, says nothing") << QByteArray();
    QTest::newRow("sends a length, then nothing") << frame(10, QByteArray());
}

void TestSingleInstance::silentClient()
{
    QFETCH(QByteArray, bytes);

    const QString id = uniqueId();
    Instance first(id);
    QVERIFY(first.waitForLines(1));
    QLocalSocket silent;
    silent.connectToServer(socketPath());
    QVERIFY(silent.waitForConnected(5000));
    silent.write(bytes);
    QVERIFY(silent.waitForBytesWritten(5000) || bytes.isEmpty());

    // The first copy is not held up by it: a later start is answered and leaves.
    Instance second(id);
    QVERIFY2(second.endsAsMessenger(), qPrintable(second.output));
    QVERIFY(first.waitForLines(2));
    QCOMPARE(first.lines().at(1), QString("message:Wake up"));
    QCOMPARE(silent.state(), QLocalSocket::ConnectedState);
}

void TestSingleInstance::listenerPrivateToUser()
{
    QtLocalPeer peer(nullptr, uniqueId());
    QVERIFY(!peer.isClient());
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
        | QFile::WriteOther | QFile::ExeOther;
    for (const QString& path : { socketPath(), socketPath() + "-lockfile" }) {
        QVERIFY(QFileInfo::exists(path));
        QCOMPARE(QFileInfo(path).permissions() & others, QFile::Permissions());
    }
}

void TestSingleInstance::leftoverAtSocketPath_data()
{
    QTest::addColumn<bool>("deadSocket"); // else a plain file
    QTest::newRow("socket of a crashed holder") << true;
    QTest::newRow("plain file") << false;
}

void TestSingleInstance::leftoverAtSocketPath()
{
    QFETCH(bool, deadSocket);
    const QString id = uniqueId();
    delete new QtLocalPeer(nullptr, id); // learns the name without listening
    const QString path = socketPath();
    QVERIFY(!path.isEmpty());

    if (deadSocket) {
        // Bound and abandoned, as a killed process leaves it: the file stays, nobody listens.
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    } else {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());
    QLocalSocket client;
    client.connectToServer(path);
    QVERIFY(client.waitForConnected(2000));
}

void TestSingleInstance::concurrentStarts()
{
    const QString id = uniqueId();
    std::vector<std::unique_ptr<Instance>> starts;
    for (int i = 0; i < 5; ++i)
        starts.push_back(std::make_unique<Instance>(id));

    // Exactly one program life; every other start hands over its wake-up and leaves.
    const auto running = [&] {
        return std::count_if(starts.begin(), starts.end(), [](auto& start) { return start->running(); });
    };
    QTRY_COMPARE_WITH_TIMEOUT(running(), 1L, 20000);
    Instance* first = nullptr;
    for (auto& start : starts) {
        if (start->running())
            first = start.get();
        else
            QVERIFY2(start->endsAsMessenger(), qPrintable(start->output));
    }
    QVERIFY(first->waitForLines(5));
    QCOMPARE(first->lines(), QStringList({ "first", "message:Wake up", "message:Wake up", "message:Wake up",
                                 "message:Wake up" }));
    quit(id);
    QTRY_VERIFY_WITH_TIMEOUT(!first->running(), 20000);
    QCOMPARE(first->process.exitCode(), 0);
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

void TestSingleInstance::messages()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, leave);
    QFETCH(QStringList, received);

    Instance first(uniqueId());
    QVERIFY(first.waitForLines(1));
    // Four bytes of big-endian length, the UTF-8 text, and a bare "ack" back.
    QCOMPARE(exchange(socketPath(), bytes, leave), leave ? QByteArray() : QByteArray("ack"));
    // Whatever the client did, the first instance lives on and serves the next one.
    QCOMPARE(exchange(socketPath(), frame(5, "after")), QByteArray("ack"));
    QStringList expected("first");
    for (const QString& text : received + QStringList("after"))
        expected << "message:" + text;
    QVERIFY(first.waitForLines(expected.size()));
    QCOMPARE(first.lines(), expected);
}

QTEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
