// The settings file is plain text in the user's config folder, and other programs may write it.
// Any content must read without a memory error, and the logging switch must read as on only for
// the exact value "1".
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <cstdlib>

#include "core/logger.h"
#include "fuzzsupport.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = QSettings().fileName();
    QDir().mkpath(QFileInfo(path).absolutePath());
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            abort();
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    QSettings settings;
    for (const QString& key : settings.allKeys())
        settings.value(key).toString();
    const QString stored = settings.value(QStringLiteral("pref-debug-enabled")).toString();
    if (Logger::isLoggingEnabled() != (stored == QLatin1String("1")))
        abort();
    Logger::isDebugCodeValid();
    return 0;
}
