// What a later start sends to the first over the local socket: a 32-bit length, then UTF-8.
// Any process of the user can connect and send anything; the first instance must take it or
// drop it without a memory error, without trusting the announced length and without hanging.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>

#include <cstdlib>

#include "fuzzsupport.h"
#include "qtsingleapplication/qtlocalpeer.h"

namespace {

// Opens the peer's socket name and server, which the program keeps to itself.
class ListeningPeer : public QtLocalPeer
{
public:
    ListeningPeer()
        : QtLocalPeer(nullptr, QStringLiteral("kestrelgap-fuzz"))
    {
    }
    QString name() const { return socketName; }
    QLocalServer* localServer() const { return server; }
};

ListeningPeer* peer = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    peer = new ListeningPeer();
    if (peer->isClient()) // the lock lives in the private temporary folder: nobody else has it
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Connected after the peer's own slot, so it runs once the peer has dealt with the client.
    bool handled = false;
    const QMetaObject::Connection done = QObject::connect(
        peer->localServer(), &QLocalServer::newConnection, [&handled]() { handled = true; });

    QLocalSocket client;
    client.connectToServer(peer->name());
    if (!client.waitForConnected(5000))
        abort();
    client.write(reinterpret_cast<const char*>(data), qint64(size));
    client.waitForBytesWritten(5000);
    // The sender goes away at once, as a crashed or hostile one would.
    client.disconnectFromServer();

    QElapsedTimer clock;
    clock.start();
    while (!handled) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
        if (clock.elapsed() > 20000)
            abort(); // the first instance is stuck on one client
    }
    QObject::disconnect(done);
    return 0;
}
