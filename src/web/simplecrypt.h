#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <functional>

// Small symmetric scrambler with a 64-bit key, used to keep cookie values out of plain sight on disk.
// It is not strong cryptography. Binary form: version byte 3, flags byte, then a block of
// random byte + integrity data + payload enciphered with a key-and-previous-byte XOR chain.
class SimpleCrypt
{
public:
    enum CompressionMode { CompressionAuto = 0, CompressionAlways = 1, CompressionNever = 2 };
    enum IntegrityProtectionMode { ProtectionNone = 0, ProtectionChecksum = 1, ProtectionHash = 2 };
    enum Error { ErrorNoError = 0, ErrorNoKeySet = 1, ErrorUnknownVersion = 2, ErrorIntegrityFailed = 3 };

    // Supplies the byte that starts every block; only its low eight bits are used.
    using RandomSource = std::function<int()>;

    // Without a key every call fails with ErrorNoKeySet until setKey() is called.
    SimpleCrypt();
    explicit SimpleCrypt(quint64 key);

    void setKey(quint64 key);
    quint64 key() const { return mKey; }
    bool hasKey() const { return !mKeyParts.isEmpty(); }

    void setCompressionMode(CompressionMode mode) { mCompressionMode = mode; }
    CompressionMode compressionMode() const { return mCompressionMode; }
    void setProtectionMode(IntegrityProtectionMode mode) { mProtectionMode = mode; }
    IntegrityProtectionMode protectionMode() const { return mProtectionMode; }
    Error lastError() const { return mLastError; }

    // Replaces the random byte generator; tests pin it to get byte-exact ciphertext.
    // An empty function restores the default.
    void setRandomSource(RandomSource source);

    QByteArray encryptToByteArray(const QString& plaintext);
    QByteArray encryptToByteArray(const QByteArray& plaintext);
    QString encryptToString(const QString& plaintext);
    QString encryptToString(const QByteArray& plaintext);

    // The QString forms take Base64 text; the QByteArray form takes the binary ciphertext.
    QByteArray decryptToByteArray(const QString& cyphertext);
    QByteArray decryptToByteArray(const QByteArray& cypher);
    QString decryptToString(const QString& cyphertext);

    // The process-wide cipher, made before main() runs. Never deleted.
    static SimpleCrypt* shared();
    // Start-up step of main(): switches the shared cipher to hash protection.
    static void setUpShared();

private:
    void splitKey();

    quint64 mKey;
    QVector<char> mKeyParts;
    CompressionMode mCompressionMode;
    IntegrityProtectionMode mProtectionMode;
    Error mLastError;
    RandomSource mRandomSource;
};

// Forward to the shared cipher; the cookie store's only way to it.
QString encryptSharedText(const QString& plaintext);
QString decryptSharedText(const QString& cyphertext);
