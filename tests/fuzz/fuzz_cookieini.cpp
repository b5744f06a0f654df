// "c.ini" is an INI file whose cookie entry holds the enciphered cookie list. Whatever the file
// holds, the jar must load without a memory error and hand out only cookies that are cookies.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QUrl>

#include <cstdlib>

#include "fuzzsupport.h"
#include "web/cookiejar.h"
#include "web/simplecrypt.h"

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
    CookieJar jar;
    for (const QNetworkCookie& cookie : jar.cookiesForUrl(QUrl(QStringLiteral("https://kestrelgap.test/messages")))) {
        if (cookie.name().isEmpty())
            abort();
    }
    return 0;
}
