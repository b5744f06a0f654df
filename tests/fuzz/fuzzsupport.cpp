#include "fuzzsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdlib>

namespace FuzzSupport {

void init(int* argc, char*** argv)
{
    static bool done = false;
    if (done)
        return;
    done = true;

    static QTemporaryDir home(QDir::tempPath() + QStringLiteral("/kestrelgap-fuzz-XXXXXX"));
    const QByteArray root = QFile::encodeName(home.path());
    for (const char* sub : {"/config", "/data", "/cache", "/tmp"})
        QDir().mkpath(QFile::decodeName(root + sub));
    setenv("HOME", root.constData(), 1);
    setenv("XDG_CONFIG_HOME", (root + "/config").constData(), 1);
    setenv("XDG_DATA_HOME", (root + "/data").constData(), 1);
    setenv("XDG_CACHE_HOME", (root + "/cache").constData(), 1);
    setenv("TMPDIR", (root + "/tmp").constData(), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);

    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    // Local sockets, network replies and QSettings want an application object; it lives to the end.
    new QCoreApplication(*argc, *argv);
}

} // namespace FuzzSupport
