// Cipher texts come from the cookie file, which anything running as the user can rewrite.
// Decryption must reject or accept any bytes without a memory error, and whatever the cipher
// writes it must read back unchanged.
#include <QByteArray>
#include <QString>

#include <cstdlib>

#include "fuzzsupport.h"
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
    SimpleCrypt* cipher = SimpleCrypt::shared();

    cipher->decryptToByteArray(input);
    // The stored form: Base64 text, read as Latin-1.
    decryptSharedText(QString::fromLatin1(input));

    // The first byte picks the writer's settings; the rest is the plaintext.
    if (size > 0) {
        SimpleCrypt writer(cipher->key());
        writer.setCompressionMode(SimpleCrypt::CompressionMode(data[0] % 3));
        writer.setProtectionMode(SimpleCrypt::IntegrityProtectionMode((data[0] / 3) % 3));
        const QByteArray plain = input.mid(1);
        if (writer.decryptToByteArray(writer.encryptToByteArray(plain)) != plain
            || writer.lastError() != SimpleCrypt::ErrorNoError)
            abort();
    }
    return 0;
}
