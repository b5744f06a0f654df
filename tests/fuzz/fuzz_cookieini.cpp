// "c.ini" is an INI file whose cookie entry holds the enciphered cookie list. Whatever the file
// holds, the jar must load without a memory error and hand out only cookies that are cookies.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <cstdlib>

#include "fuzzsupport.h"
#include "web/cookiejar.h"
#include "web/simplecrypt.h"

namespace {
// The stored list as loaded, without asking the web engine (no GUI here) which cookies a page gets.
struct LoadedJar : CookieJar {
    QList<QNetworkCookie> loaded()
    {
        acceptPolicy(); // loads on first use
        return allCookies();
    }
};
} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    SimpleCrypt::setUpShared();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
    QDir().mkpath(folder);
    {
        QFile file(folder + QStringLiteral("/c.ini"));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            abort();
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    LoadedJar jar;
    for (const QNetworkCookie& cookie : jar.loaded()) {
        if (cookie.name().isEmpty())
            abort();
    }
    return 0;
}
