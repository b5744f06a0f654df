#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdlib>

namespace {

QTemporaryDir* home()
{
    static QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/kestrelgap-test-XXXXXX"));
    return &dir;
}

// Runs before main(), ahead of any QStandardPaths or QSettings use.
struct Isolate
{
    Isolate()
    {
        const QString root = home()->path();
        const QByteArray rootBytes = QFile::encodeName(root);
        for (const char* sub : {"config", "data", "cache", "runtime"})
            QDir().mkpath(root + QLatin1Char('/') + QLatin1String(sub));
        // The single-instance guard lives here; private, as the session's own is.
        QFile::setPermissions(root + QLatin1String("/runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        setenv("XDG_RUNTIME_DIR", (rootBytes + "/runtime").constData(), 1);
        setenv("HOME", rootBytes.constData(), 1);
        setenv("XDG_CONFIG_HOME", (rootBytes + "/config").constData(), 1);
        setenv("XDG_DATA_HOME", (rootBytes + "/data").constData(), 1);
        setenv("XDG_CACHE_HOME", (rootBytes + "/cache").constData(), 1);
        QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
        QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    }
};

const Isolate isolate;

} // namespace

QString TestEnvironment::homePath()
{
    return home()->path();
}
