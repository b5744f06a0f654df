#pragma once

#include <QObject>
#include <QString>

#include "qtsingleapplication/qtlockedfile.h"

class QLocalServer;

// Decides by a lock file whether this process is the first of its id in the login session, and
// carries short texts from later processes to the first one over a local socket.
class QtLocalPeer : public QObject
{
    Q_OBJECT

public:
    explicit QtLocalPeer(QObject* parent = nullptr, const QString& appId = QString());

    // True when another process holds the lock. The first call that finds the lock free takes it
    // for the rest of this process's life and starts listening.
    bool isClient();
    bool sendMessage(const QString& message, int timeout);
    QString applicationId() const { return id; }
    // Where the lock and the socket live: the user's runtime folder, private to the user.
    static QString privateFolder();

Q_SIGNALS:
    void messageReceived(const QString& message);

protected Q_SLOTS:
    void receiveConnection();

protected:
    QString id;
    QString socketName;
    QLocalServer* server;
    QtLP_Private::QtLockedFile lockFile;

private:
    bool listen();
};
