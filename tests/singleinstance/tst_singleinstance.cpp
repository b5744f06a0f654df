#include <QtTest>

#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/sessionid.h"
#include "qtsingleapplication/qtlocalpeer.h"
#include "qtsingleapplication/qtlockedfile.h"
#include "testenvironment.h"

using QtLP_Private::QtLockedFile;

namespace {

// One start of the program stand-in, in a process of its own.
struct Instance {
    explicit Instance(const QString& id) { process.start(QStringLiteral(SINGLEINSTANCE_HELPER), { id, "120000" }); }
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
    void listenerPrivateToUser();
    void leftoverAtSocketPath_data();
    void leftoverAtSocketPath();
    void concurrentStarts();
    void messages_data();
    void messages();

private:
    QString tempFile(const QString& name) const { return mTemp->filePath(name); }
    QString uniqueId() { return QString("Singletest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++mIds); }
    // The name the first instance listens on, read off the lock file it left beside it.
    QString socketPath() const
    {
        const QStringList locks = QDir(mTemp->path()).entryList({ "qtsingleapp-*-lockfile" }, QDir::Files);
        return locks.size() == 1 ? tempFile(locks.first().chopped(int(qstrlen("-lockfile")))) : QString();
    }
    static void quit(const QString& id) { QVERIFY(QtLocalPeer(nullptr, id).sendMessage("quit", 5000)); }

    std::unique_ptr<QTemporaryDir> mTemp;
    int mIds = 0;
};

void TestSingleInstance::init()
{
    // Lock files and sockets go to the temporary folder; a private one per test keeps parallel runs
    // and a real running program out of each other's way.
    mTemp = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + "/tmp-XXXXXX");
    qputenv("TMPDIR", QFile::encodeName(mTemp->path()));
    QCOMPARE(QDir::tempPath(), mTemp->path());
}

void TestSingleInstance::cleanup()
{
    SessionId::setSource({});
    mTemp.reset();
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
    QTest::addColumn<quint32>("session");
    QTest::addColumn<QString>("socketName");

    // Checksums are CRC-16/X-25 of the id's UTF-8 bytes, worked out independently.
    QTest::newRow("program id") << "Kestrelgap" << true << 0x3e8u << "qtsingleapp-Kestre-f2b0-3e8";
    QTest::newRow("digits left out of prefix") << "a1b2c3d4e5f6g7h8" << true << 0xffffffffu
                                               << "qtsingleapp-abcdef-8860-ffffffff";
    QTest::newRow("non-ASCII left out, UTF-8 checksum") << "Z\u00fcrich-App 2" << true << 0x1fu
                                                        << "qtsingleapp-ZrichA-abdc-1f";
    QTest::newRow("session unknown") << "Kestrelgap" << false << 0u << "qtsingleapp-Kestre-f2b0";
}

void TestSingleInstance::names()
{
    QFETCH(QString, id);
    QFETCH(bool, sessionKnown);
    QFETCH(quint32, session);
    QFETCH(QString, socketName);

    SessionId::setSource([&](quint32& value) {
        value = session;
        return sessionKnown;
    });
    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());
    QCOMPARE(QDir(mTemp->path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name),
        QStringList({ socketName, socketName + "-lockfile" }));
    QVERIFY(QtLocalPeer(nullptr, id).isClient());
    // The same program in another user's session is not ours to wake.
    ++session;
    QCOMPARE(QtLocalPeer(nullptr, id).isClient(), !sessionKnown);
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
