// The stored cookie list is a QDataStream inside the cookie file: a version, a count and each
// cookie's raw form, whose value is then deciphered. A damaged or hostile file must give some
// cookies or none, never a memory error or an allocation the size of a lie.
#include <QByteArray>
#include <QDataStream>
#include <QNetworkCookie>

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
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    QDataStream stream(input);
    QList<QNetworkCookie> cookies;
    stream >> cookies;
    for (const QNetworkCookie& cookie : cookies) {
        // As the jar reads a value: deciphered, then Base64.
        const QByteArray value = QByteArray::fromBase64(decryptSharedText(QString::fromUtf8(cookie.value())).toLatin1());
        Q_UNUSED(value)
        // What the next save writes back must itself be a cookie line.
        if (!cookie.toRawForm(QNetworkCookie::Full).contains('='))
            abort();
    }
    return 0;
}
