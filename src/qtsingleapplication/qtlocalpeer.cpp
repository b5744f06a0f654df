#include "qtlocalpeer.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/sessionid.h"

namespace {
const char ack[] = "ack";
const int ackLength = 3;
// How long a client may take to send the length, then the rest, then to leave after our answer.
const int lengthTimeout = 30000;
const int restTimeout = 2000;
const int ackTimeout = 1000;
// A wake-up is a few bytes; the cap only bounds what a stranger's client can make us hold.
const qint64 maxMessageBytes = 1 << 20;
}

QtLocalPeer::QtLocalPeer(QObject* parent, const QString& appId)
    : QObject(parent)
    , id(appId)
{
    QString prefix = id;
    if (id.isEmpty()) {
        id = QCoreApplication::applicationFilePath().toLower();
        prefix = id.section(QLatin1Char('/'), -1);
    }
    prefix.remove(QRegularExpression(QStringLiteral("[^a-zA-Z]")));
    prefix.truncate(6);

    const QByteArray idc = id.toUtf8();
    const quint16 idNum = qChecksum(idc.constData(), uint(idc.size()));
    socketName = QLatin1String("qtsingleapp-") + prefix + QLatin1Char('-') + QString::number(idNum, 16);

    QString session;
    if (SessionId::current(session))
        socketName += QLatin1Char('-') + session;

    server = new QLocalServer(this);

    // Both names live where only this user can make files, so no one else can take them first.
    const QString folder = privateFolder();
    socketName = folder + QLatin1Char('/') + socketName;
    lockFile.setFileName(socketName + QLatin1String("-lockfile"));
    if (!lockFile.open(QIODevice::ReadWrite)) {
        // Whatever sits at our name in our own folder (a file we can't open, a folder) is not ours to
        // keep: the folder is ours, so the name can be freed.
        QFile::remove(lockFile.fileName());
        QDir(lockFile.fileName()).removeRecursively();
        lockFile.open(QIODevice::ReadWrite);
    }
    if (lockFile.isOpen())
        lockFile.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
}

QString QtLocalPeer::privateFolder()
{
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty())
        return runtime;
    // No usable runtime folder (Qt refuses one that is not ours or not private): a private folder of
    // our own in the temporary folder, checked the same way.
    const QString own = QDir::tempPath() + QStringLiteral("/kestrelgap-%1").arg(::geteuid());
    const QByteArray path = QFile::encodeName(own);
    ::mkdir(path.constData(), 0700);
    struct stat info;
    if (::lstat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid()
        && (info.st_mode & 077) == 0)
        return own;
    // Someone else holds that name too: a fresh folder, which keeps the start going without the guard.
    QByteArray unique = QFile::encodeName(QDir::tempPath()) + "/kestrelgap-XXXXXX";
    return ::mkdtemp(unique.data()) ? QFile::decodeName(unique) : QDir::tempPath();
}

bool QtLocalPeer::isClient()
{
    if (lockFile.isLocked())
        return false;

    if (!lockFile.lock(QtLP_Private::QtLockedFile::WriteLock, false))
        return true;

    if (!listen())
        qWarning("QtSingleCoreApplication: listen on local socket failed, %s", qPrintable(server->errorString()));
    QObject::connect(server, &QLocalServer::newConnection, this, &QtLocalPeer::receiveConnection);
    return false;
}

bool QtLocalPeer::listen()
{
    // Other users' processes must not be able to wake us or feed us texts.
    server->setSocketOptions(QLocalServer::UserAccessOption);
    // A socket file outlives a holder that crashed. Only the lock holder listens, so whatever has our
    // name now is stale; left in place it would keep every later wake-up from reaching us.
    QLocalServer::removeServer(socketName);
    return server->listen(socketName);
}

bool QtLocalPeer::sendMessage(const QString& message, int timeout)
{
    if (!isClient())
        return false;

    QLocalSocket socket;
    bool connOk = false;
    for (int i = 0; i < 2; i++) {
        socket.connectToServer(socketName);
        connOk = socket.waitForConnected(timeout / 2);
        if (connOk || i)
            break;
        // The other process may be just starting and not listen yet.
        QThread::msleep(250);
    }
    if (!connOk)
        return false;

    const QByteArray uMsg(message.toUtf8());
    QDataStream ds(&socket);
    ds.writeBytes(uMsg.constData(), uint(uMsg.size()));
    bool res = socket.waitForBytesWritten(timeout);
    if (res) {
        res &= socket.waitForReadyRead(timeout);
        if (res)
            res &= (socket.read(ackLength) == QByteArray(ack, ackLength));
    }
    return res;
}

void QtLocalPeer::receiveConnection()
{
    // Each client is read as its bytes come, never by waiting on it: a client that connects and stays
    // silent must neither freeze the program nor keep a later start from being answered.
    while (QLocalSocket* socket = server->nextPendingConnection()) {
        struct Reception {
            QByteArray text;
            qint64 remaining = -1; // unknown until the length has come
            bool done = false;
        };
        auto state = std::make_shared<Reception>();
        auto* timer = new QTimer(socket);
        timer->setSingleShot(true);

        const auto finish = [this, socket, timer, state] {
            if (state->done)
                return;
            state->done = true;
            timer->stop();
            disconnect(socket, nullptr, this, nullptr);
            disconnect(timer, nullptr, this, nullptr);
            if (state->remaining < 0) {
                qWarning("QtLocalPeer: Message reception failed %s", qPrintable(socket->errorString()));
                socket->deleteLater();
                return;
            }
            // A text cut short is passed on all the same.
            const QString message = QString::fromUtf8(state->text);
            if (socket->state() == QLocalSocket::ConnectedState) {
                socket->write(ack, ackLength);
                socket->flush();
                connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
                connect(timer, &QTimer::timeout, socket, &QObject::deleteLater);
                timer->start(ackTimeout);
            } else {
                socket->deleteLater();
            }
            emit messageReceived(message);
        };
        const auto read = [socket, timer, state, finish] {
            if (state->done)
                return;
            if (state->remaining < 0) {
                if (socket->bytesAvailable() < qint64(sizeof(quint32)))
                    return;
                quint32 length = 0;
                QDataStream(socket) >> length;
                // Only what arrives is kept, so a bogus length can't make us allocate gigabytes.
                state->remaining = qMin<qint64>(length, maxMessageBytes);
                timer->start(restTimeout);
            }
            const QByteArray chunk = socket->read(state->remaining);
            state->text += chunk;
            state->remaining -= chunk.size();
            if (state->remaining == 0)
                finish();
            else if (!chunk.isEmpty())
                timer->start(restTimeout);
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        connect(socket, &QLocalSocket::disconnected, this, [read, finish] {
            read();
            finish();
        });
        connect(timer, &QTimer::timeout, this, finish);
        timer->start(lengthTimeout);
        read();
    }
}
