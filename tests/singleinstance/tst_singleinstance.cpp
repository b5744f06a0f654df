#include <QtTest>

#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform/sessionid.h"
#include "qtsingleapplication/qtlocalpeer.h"
#include "qtsingleapplication/qtlockedfile.h"
#include "testenvironment.h"

using QtLP_Private::QtLockedFile;
Q_DECLARE_METATYPE(QtLockedFile::LockMode)

namespace {

const int startTimeout = 20000;

// One start of the program stand-in, in a process of its own.
class Instance
{
public:
    explicit Instance(const QString& id, int lifetimeMs = 120000)
    {
        process.start(QStringLiteral(SINGLEINSTANCE_HELPER), { id, QString::number(lifetimeMs) });
    }
    ~Instance()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    QStringList lines()
    {
        collect();
        return output;
    }
    bool waitForLines(int count) { return QTest::qWaitFor([&]() { return lines().size() >= count; }, startTimeout); }
    bool running() const { return process.state() != QProcess::NotRunning; }
    bool waitForExit() { return QTest::qWaitFor([&]() { return !running(); }, startTimeout); }
    // A messenger: it handed over its wake-up and left without a word.
    bool endedAsMessenger()
    {
        return !running() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0
            && lines().isEmpty();
    }

    QProcess process;

private:
    void collect()
    {
        pending += process.readAllStandardOutput();
        for (int nl = pending.indexOf('\n'); nl >= 0; nl = pending.indexOf('\n')) {
            output << QString::fromUtf8(pending.left(nl));
            pending.remove(0, nl + 1);
        }
    }

    QByteArray pending;
    QStringList output;
};

QByteArray lengthPrefix(quint32 length)
{
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << length; // big-endian
    return bytes;
}

QByteArray frame(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    return lengthPrefix(quint32(utf8.size())) + utf8;
}

// Sends raw bytes as a client and returns what the first instance answers before it closes.
QByteArray exchange(const QString& socketPath, const QByteArray& bytes, int timeout = 45000)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(5000))
        return QByteArrayLiteral("<no connection>");
    socket.write(bytes);
    QByteArray answer;
    const bool ended = QTest::qWaitFor(
        [&]() {
            answer += socket.readAll();
            return answer.size() >= 3 || socket.state() == QLocalSocket::UnconnectedState;
        },
        timeout);
    if (!ended)
        return QByteArrayLiteral("<no answer in time>");
    answer += socket.readAll();
    socket.disconnectFromServer();
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
    void lockOutlivesOtherHandles();

    void names_data();
    void names();
    void sessionsKeptApart_data();
    void sessionsKeptApart();
    void listenerPrivateToUser();
    void leftoverAtSocketPath_data();
    void leftoverAtSocketPath();

    void starts_data();
    void starts();
    void firstAfterEnd_data();
    void firstAfterEnd();
    void wireFormat_data();
    void wireFormat();
    void brokenClients_data();
    void brokenClients();

private:
    QString tempFile(const QString& name) const { return mTemp->path() + QLatin1Char('/') + name; }
    QString uniqueId();
    // The name the running first instance listens on, read off the lock file it left beside it.
    QString socketPath() const;
    void quit(const QString& id);

    std::unique_ptr<QTemporaryDir> mTemp;
    int mIdCounter = 0;
};

void TestSingleInstance::init()
{
    // Lock files and sockets go to the temporary folder; a private one per test keeps parallel test
    // runs and a real running program out of each other's way.
    mTemp = std::make_unique<QTemporaryDir>(TestEnvironment::homePath() + QStringLiteral("/tmp-XXXXXX"));
    QVERIFY(mTemp->isValid());
    qputenv("TMPDIR", QFile::encodeName(mTemp->path()));
    QCOMPARE(QDir::tempPath(), mTemp->path());
}

void TestSingleInstance::cleanup()
{
    SessionId::setSource({});
    mTemp.reset();
}

QString TestSingleInstance::uniqueId()
{
    return QStringLiteral("Singletest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++mIdCounter);
}

QString TestSingleInstance::socketPath() const
{
    const QStringList locks = QDir(mTemp->path()).entryList({ QStringLiteral("qtsingleapp-*-lockfile") }, QDir::Files);
    if (locks.size() != 1)
        return QString();
    QString name = locks.first();
    name.chop(int(qstrlen("-lockfile")));
    return tempFile(name);
}

void TestSingleInstance::quit(const QString& id)
{
    QtLocalPeer peer(nullptr, id);
    QVERIFY(peer.sendMessage(QStringLiteral("quit"), 5000));
}

void TestSingleInstance::lockExclusion_data()
{
    QTest::addColumn<QtLockedFile::LockMode>("held");
    QTest::addColumn<QtLockedFile::LockMode>("wanted");
    QTest::addColumn<bool>("granted");
    QTest::addColumn<QString>("release");

    QTest::newRow("two readers") << QtLockedFile::ReadLock << QtLockedFile::ReadLock << true << "unlock";
    QTest::newRow("reader keeps writer out") << QtLockedFile::ReadLock << QtLockedFile::WriteLock << false << "close";
    QTest::newRow("writer keeps reader out") << QtLockedFile::WriteLock << QtLockedFile::ReadLock << false
                                             << "destroy";
    QTest::newRow("writer keeps writer out") << QtLockedFile::WriteLock << QtLockedFile::WriteLock << false
                                             << "unlock";
}

void TestSingleInstance::lockExclusion()
{
    QFETCH(QtLockedFile::LockMode, held);
    QFETCH(QtLockedFile::LockMode, wanted);
    QFETCH(bool, granted);
    QFETCH(QString, release);

    auto holder = std::make_unique<QtLockedFile>(tempFile(QStringLiteral("exclusion")));
    QtLockedFile contender(tempFile(QStringLiteral("exclusion")));
    QVERIFY(holder->open(QIODevice::ReadWrite));
    QVERIFY(contender.open(QIODevice::ReadWrite));
    QVERIFY(holder->lock(held, false));
    QCOMPARE(contender.lock(wanted, false), granted);
    QCOMPARE(contender.lockMode(), granted ? wanted : QtLockedFile::NoLock);

    // However the holder lets go, the lock goes with it.
    if (release == QLatin1String("unlock"))
        QVERIFY(holder->unlock());
    else if (release == QLatin1String("close"))
        holder->close();
    else
        holder.reset();
    QVERIFY(contender.lock(wanted, false));
}

void TestSingleInstance::lockOutlivesOtherHandles()
{
    // Whole-process record locks would vanish here: closing any handle on the file drops them.
    const QString path = tempFile(QStringLiteral("handles"));
    QtLockedFile holder(path);
    QVERIFY(holder.open(QIODevice::ReadWrite));
    QVERIFY(holder.lock(QtLockedFile::WriteLock, false));
    {
        QFile plain(path);
        QVERIFY(plain.open(QIODevice::ReadOnly));
    }
    QtLockedFile contender(path);
    QVERIFY(contender.open(QIODevice::ReadWrite));
    QVERIFY(!contender.lock(QtLockedFile::WriteLock, false));
}

void TestSingleInstance::names_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<bool>("sessionKnown");
    QTest::addColumn<quint32>("session");
    QTest::addColumn<QString>("socketName");

    // Checksums are CRC-16/X-25 of the id's UTF-8 bytes, worked out independently.
    QTest::newRow("program id") << QStringLiteral("Kestrelgap") << true << 0x3e8u
                                << QStringLiteral("qtsingleapp-Kestre-f2b0-3e8");
    QTest::newRow("short id, session zero") << QStringLiteral("Kg") << true << 0u
                                            << QStringLiteral("qtsingleapp-Kg-ba30-0");
    QTest::newRow("digits left out of prefix") << QStringLiteral("a1b2c3d4e5f6g7h8") << true << 0xffffffffu
                                               << QStringLiteral("qtsingleapp-abcdef-8860-ffffffff");
    QTest::newRow("non-ASCII letters left out, UTF-8 checksum")
        << QStringLiteral("Z\u00fcrich-App 2") << true << 0x1fu << QStringLiteral("qtsingleapp-ZrichA-abdc-1f");
    QTest::newRow("session unknown") << QStringLiteral("Kestrelgap") << false << 0u
                                     << QStringLiteral("qtsingleapp-Kestre-f2b0");
}

void TestSingleInstance::names()
{
    QFETCH(QString, id);
    QFETCH(bool, sessionKnown);
    QFETCH(quint32, session);
    QFETCH(QString, socketName);

    SessionId::setSource([=](quint32& value) {
        value = session;
        return sessionKnown;
    });
    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());

    QStringList entries = QDir(mTemp->path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    entries.sort();
    QCOMPARE(entries, QStringList({ socketName, socketName + QStringLiteral("-lockfile") }));
}

void TestSingleInstance::sessionsKeptApart_data()
{
    QTest::addColumn<quint32>("firstSession");
    QTest::addColumn<quint32>("secondSession");
    QTest::addColumn<bool>("secondIsClient");

    QTest::newRow("same session") << 501u << 501u << true;
    QTest::newRow("another user's session") << 501u << 502u << false;
}

void TestSingleInstance::sessionsKeptApart()
{
    QFETCH(quint32, firstSession);
    QFETCH(quint32, secondSession);
    QFETCH(bool, secondIsClient);

    quint32 session = firstSession;
    SessionId::setSource([&session](quint32& value) {
        value = session;
        return true;
    });
    QtLocalPeer first(nullptr, QStringLiteral("Kestrelgap"));
    QVERIFY(!first.isClient());

    session = secondSession;
    QtLocalPeer second(nullptr, QStringLiteral("Kestrelgap"));
    QCOMPARE(second.isClient(), secondIsClient);
}

void TestSingleInstance::listenerPrivateToUser()
{
    QtLocalPeer peer(nullptr, uniqueId());
    QVERIFY(!peer.isClient());
    const QString path = socketPath();
    QVERIFY(QFileInfo::exists(path));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
        | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFileInfo(path).permissions() & others, QFile::Permissions());
    QCOMPARE(QFileInfo(path + QStringLiteral("-lockfile")).permissions() & others, QFile::Permissions());
}

void TestSingleInstance::leftoverAtSocketPath_data()
{
    QTest::addColumn<QString>("leftover");

    QTest::newRow("nothing") << QString();
    QTest::newRow("socket of a crashed holder") << QStringLiteral("socket");
    QTest::newRow("plain file") << QStringLiteral("file");
}

void TestSingleInstance::leftoverAtSocketPath()
{
    QFETCH(QString, leftover);

    const QString id = uniqueId();
    QString path;
    {
        // Learn the name from a peer that never listens.
        QtLocalPeer probe(nullptr, id);
        path = socketPath();
    }
    QVERIFY(!path.isEmpty());

    if (leftover == QLatin1String("socket")) {
        // Bound and abandoned, as a killed process leaves it: the file stays, nobody listens.
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        QVERIFY(fd >= 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        const QByteArray encoded = QFile::encodeName(path);
        qstrncpy(address.sun_path, encoded.constData(), sizeof address.sun_path);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
        QLocalSocket refused;
        refused.connectToServer(path);
        QVERIFY(!refused.waitForConnected(1000));
    } else if (leftover == QLatin1String("file")) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

    QtLocalPeer peer(nullptr, id);
    QVERIFY(!peer.isClient());
    QLocalSocket client;
    client.connectToServer(path);
    QVERIFY(client.waitForConnected(2000));
}

void TestSingleInstance::starts_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("inTurn");

    QTest::newRow("five at the same instant") << 5 << false;
    QTest::newRow("three, one after the other") << 3 << true;
}

void TestSingleInstance::starts()
{
    QFETCH(int, count);
    QFETCH(bool, inTurn);

    const QString id = uniqueId();
    std::vector<std::unique_ptr<Instance>> starts;
    for (int i = 0; i < count; ++i) {
        starts.push_back(std::make_unique<Instance>(id));
        if (inTurn && i == 0)
            QVERIFY(starts.back()->waitForLines(1));
        if (inTurn && i > 0) {
            QVERIFY(starts.back()->waitForExit());
            QVERIFY(starts.back()->endedAsMessenger());
        }
    }

    // Exactly one program life; every other start handed over its wake-up and left.
    const auto ended = [&]() {
        return std::count_if(starts.begin(), starts.end(), [](const auto& s) { return !s->running(); });
    };
    QVERIFY2(QTest::qWaitFor([&]() { return ended() >= count - 1; }, startTimeout), "a start never ended");
    Instance* first = nullptr;
    for (auto& start : starts) {
        if (start->running()) {
            QVERIFY2(!first, "two program lives");
            first = start.get();
        } else {
            QVERIFY2(start->endedAsMessenger(), qPrintable(start->lines().join(QLatin1Char('|'))));
        }
    }
    QVERIFY(first);

    QVERIFY(first->waitForLines(count));
    QStringList expected { QStringLiteral("first") };
    for (int i = 1; i < count; ++i)
        expected << QStringLiteral("message:Wake up");
    QCOMPARE(first->lines(), expected);

    quit(id);
    QVERIFY(first->waitForExit());
    QCOMPARE(first->process.exitCode(), 0);
}

void TestSingleInstance::firstAfterEnd_data()
{
    QTest::addColumn<bool>("killed");
    QTest::addColumn<bool>("socketLeftBehind");

    QTest::newRow("first killed") << true << true;
    QTest::newRow("first quit") << false << false;
}

void TestSingleInstance::firstAfterEnd()
{
    QFETCH(bool, killed);
    QFETCH(bool, socketLeftBehind);

    const QString id = uniqueId();
    Instance gone(id);
    QVERIFY(gone.waitForLines(1));
    QCOMPARE(gone.lines(), QStringList(QStringLiteral("first")));
    const QString path = socketPath();
    if (killed)
        gone.process.kill();
    else
        quit(id);
    QVERIFY(gone.waitForExit());
    QCOMPARE(QFileInfo::exists(path), socketLeftBehind);
    QVERIFY(QFileInfo::exists(path + QStringLiteral("-lockfile")));

    Instance next(id);
    QVERIFY(next.waitForLines(1));
    Instance later(id);
    QVERIFY(later.waitForExit());
    QVERIFY(later.endedAsMessenger());
    QVERIFY(next.waitForLines(2));
    QCOMPARE(next.lines(), QStringList({ QStringLiteral("first"), QStringLiteral("message:Wake up") }));

    quit(id);
    QVERIFY(next.waitForExit());
}

void TestSingleInstance::wireFormat_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("wake-up") << QStringLiteral("Wake up");
    QTest::newRow("empty") << QString();
    QTest::newRow("non-ASCII") << QStringLiteral("Gr\u00fc\u00dfe \u2713 \U0001F44B");
    QTest::newRow("larger than a socket buffer") << QString(300000, QLatin1Char('k'));
}

void TestSingleInstance::wireFormat()
{
    QFETCH(QString, text);

    Instance first(uniqueId());
    QVERIFY(first.waitForLines(1));

    // Four bytes of big-endian length, the UTF-8 text, and a bare "ack" back.
    QCOMPARE(exchange(socketPath(), frame(text)), QByteArrayLiteral("ack"));
    QVERIFY(first.waitForLines(2));
    QCOMPARE(first.lines(), QStringList({ QStringLiteral("first"), QStringLiteral("message:") + text }));
}

void TestSingleInstance::brokenClients_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("staysConnected");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QStringList>("received");

    QTest::newRow("nothing, then leaves") << QByteArray() << false << QByteArray() << QStringList();
    QTest::newRow("half a text, then leaves")
        << (lengthPrefix(10) + "Wake") << false << QByteArray() << QStringList(QStringLiteral("Wake"));
    QTest::newRow("half a text, then waits")
        << (lengthPrefix(10) + "Wake") << true << QByteArrayLiteral("ack") << QStringList(QStringLiteral("Wake"));
    QTest::newRow("length beyond any memory")
        << (lengthPrefix(0x7fffffffu) + "abc") << false << QByteArray() << QStringList(QStringLiteral("abc"));
}

void TestSingleInstance::brokenClients()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, staysConnected);
    QFETCH(QByteArray, answer);
    QFETCH(QStringList, received);

    Instance first(uniqueId());
    QVERIFY(first.waitForLines(1));
    const QString path = socketPath();

    {
        QLocalSocket broken;
        broken.connectToServer(path);
        QVERIFY(broken.waitForConnected(5000));
        if (!bytes.isEmpty()) {
            broken.write(bytes);
            QVERIFY(broken.waitForBytesWritten(5000));
        }
        if (staysConnected) {
            QByteArray got;
            QVERIFY(QTest::qWaitFor(
                [&]() {
                    got += broken.readAll();
                    return got.size() >= 3 || broken.state() == QLocalSocket::UnconnectedState;
                },
                45000));
            got += broken.readAll();
            QCOMPARE(got, answer);
        }
        broken.disconnectFromServer();
    }

    // Whatever the broken client did, the first instance lives on and serves the next one.
    QCOMPARE(exchange(path, frame(QStringLiteral("after"))), QByteArrayLiteral("ack"));
    QVERIFY(first.running());
    QVERIFY(first.waitForLines(2 + received.size()));
    QStringList expected(QStringLiteral("first"));
    for (const QString& text : received + QStringList(QStringLiteral("after")))
        expected << QStringLiteral("message:") + text;
    QCOMPARE(first.lines(), expected);
}

QTEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
