// The properties file is read line by line as "key=value"; any bytes, in any encoding, must
// parse without a memory error, and every key kept must be a non-empty text without "=".
#include <QBuffer>
#include <QByteArray>

#include <cstdlib>

#include "core/properties.h"
#include "fuzzsupport.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray input(reinterpret_cast<const char*>(data), int(size));
    QBuffer buffer(&input);
    buffer.open(QIODevice::ReadOnly);
    const QMap<QString, QString> properties = Properties::parse(&buffer);
    for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
        if (it.key().isEmpty() || it.key().contains(QLatin1Char('=')))
            abort();
    }
    return 0;
}
