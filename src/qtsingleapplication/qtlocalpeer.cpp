#include "qtlocalpeer.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QThread>

#include "platform/sessionid.h"

namespace {
const char ack[] = "ack";
const int ackLength = 3;
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

    quint32 sessionId = 0;
    if (SessionId::current(sessionId))
        socketName += QLatin1Char('-') + QString::number(sessionId, 16);

    server = new QLocalServer(this);

    const QString lockName = QDir(QDir::tempPath()).absolutePath() + QLatin1Char('/') + socketName
        + QLatin1String("-lockfile");
    lockFile.setFileName(lockName);
    // Anyone who can read the file can hold a read lock on it and so keep us from ever being first.
    if (lockFile.open(QIODevice::ReadWrite))
        lockFile.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
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
    QLocalSocket* socket = server->nextPendingConnection();
    if (!socket)
        return;

    // A client that stops half-way, or goes away, must not keep us waiting for ever.
    while (socket->bytesAvailable() < qint64(sizeof(quint32))) {
        if (!socket->waitForReadyRead(30000)) {
            qWarning("QtLocalPeer: Message reception failed %s", qPrintable(socket->errorString()));
            delete socket;
            return;
        }
    }

    QDataStream ds(socket);
    quint32 remaining = 0;
    ds >> remaining;

    // Grow the buffer by what has arrived rather than by the announced length, so that a bogus
    // length can't make us allocate gigabytes.
    QByteArray uMsg;
    int got = 0;
    do {
        const int offset = uMsg.size();
        const int chunk = int(qMin<qint64>(remaining, socket->bytesAvailable()));
        uMsg.resize(offset + chunk);
        got = ds.readRawData(uMsg.data() + offset, chunk);
        if (got < 0)
            break;
        uMsg.resize(offset + got);
        remaining -= quint32(got);
    } while (remaining && socket->waitForReadyRead(2000));

    if (got < 0) {
        qWarning("QtLocalPeer: Message reception failed %s", qPrintable(socket->errorString()));
        delete socket;
        return;
    }

    const QString message = QString::fromUtf8(uMsg);
    socket->write(ack, ackLength);
    socket->waitForBytesWritten(1000);
    if (socket->state() != QLocalSocket::UnconnectedState)
        socket->waitForDisconnected(1000);
    delete socket;
    emit messageReceived(message);
}
