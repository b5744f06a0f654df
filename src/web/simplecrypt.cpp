#include "simplecrypt.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDateTime>
#include <QtEndian>
#include <QtGlobal>

#include "core/logger.h"

namespace {

const QString logModule = QStringLiteral("simplecrypt");

const char formatVersion = 3;

enum CryptoFlag : char {
    CryptoFlagNone = 0,
    CryptoFlagCompression = 0x01,
    CryptoFlagChecksum = 0x02,
    CryptoFlagHash = 0x04,
};

const int checksumSize = 2;
const int hashSize = 20;

// Deflate never expands more than 1032 to 1. qUncompress reserves whatever size the first four
// bytes announce before it inflates anything, so a damaged or forged value of a few bytes could
// make it take up to 2 GiB; such a claim is refused as the corrupt data it is.
const quint64 maxInflateRatio = 1032;

QByteArray uncompressBounded(const QByteArray& data)
{
    if (data.size() >= 4) {
        const quint64 announced = qFromBigEndian<quint32>(data.constData());
        if (announced > quint64(data.size() - 4) * maxInflateRatio + 1024) {
            Logger::Warn(logModule, QStringLiteral("[decryptToByteArray] - Compressed size out of range."));
            return QByteArray();
        }
    }
    return qUncompress(data);
}

// qrand()/qsrand() are deprecated, but the stored format was defined with them and the shared
// cipher keeps using them; the deprecation is silenced here only.
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED
void seedDefaultRandom()
{
    qsrand(uint(QDateTime::currentMSecsSinceEpoch() & 0xFFFF));
}

int defaultRandom()
{
    return qrand();
}
QT_WARNING_POP

SimpleCrypt* makeSharedCipher()
{
    // Base 64 is outside what toULongLong supports; whatever it returns is the key that every stored
    // cookie value was enciphered with, so it stays a run-time call.
    const quint64 key = QStringLiteral("Kestrelgap482").toULongLong(nullptr, 64);
    return new SimpleCrypt(key);
}

SimpleCrypt* const sharedCipher = makeSharedCipher();

} // namespace

SimpleCrypt::SimpleCrypt()
    : mKey(0)
    , mCompressionMode(CompressionAuto)
    , mProtectionMode(ProtectionChecksum)
    , mLastError(ErrorNoError)
    , mRandomSource(defaultRandom)
{
    seedDefaultRandom();
}

SimpleCrypt::SimpleCrypt(quint64 key)
    : mKey(key)
    , mCompressionMode(CompressionAuto)
    , mProtectionMode(ProtectionChecksum)
    , mLastError(ErrorNoError)
    , mRandomSource(defaultRandom)
{
    seedDefaultRandom();
    splitKey();
}

void SimpleCrypt::setKey(quint64 key)
{
    mKey = key;
    splitKey();
}

void SimpleCrypt::splitKey()
{
    mKeyParts.clear();
    mKeyParts.resize(8);
    for (int i = 0; i < 8; ++i)
        mKeyParts[i] = char((mKey >> (8 * i)) & 0xFF);
}

void SimpleCrypt::setRandomSource(RandomSource source)
{
    mRandomSource = source ? std::move(source) : RandomSource(defaultRandom);
}

QByteArray SimpleCrypt::encryptToByteArray(const QString& plaintext)
{
    return encryptToByteArray(plaintext.toUtf8());
}

QByteArray SimpleCrypt::encryptToByteArray(const QByteArray& plaintext)
{
    if (mKeyParts.isEmpty()) {
        Logger::Warn(logModule, QStringLiteral("[encryptToByteArray] - No key set."));
        mLastError = ErrorNoKeySet;
        return QByteArray();
    }

    QByteArray payload = plaintext;
    char flags = CryptoFlagNone;
    if (mCompressionMode == CompressionAlways) {
        payload = qCompress(payload, 9);
        flags |= CryptoFlagCompression;
    } else if (mCompressionMode == CompressionAuto) {
        const QByteArray compressed = qCompress(payload, 9);
        if (compressed.size() < payload.size()) {
            payload = compressed;
            flags |= CryptoFlagCompression;
        }
    }

    QByteArray integrity;
    if (mProtectionMode == ProtectionChecksum) {
        flags |= CryptoFlagChecksum;
        QDataStream stream(&integrity, QIODevice::WriteOnly);
        stream << qChecksum(payload.constData(), uint(payload.size()));
    } else if (mProtectionMode == ProtectionHash) {
        flags |= CryptoFlagHash;
        integrity = QCryptographicHash::hash(payload, QCryptographicHash::Sha1);
    }

    QByteArray block;
    block.reserve(1 + integrity.size() + payload.size());
    block.append(char(mRandomSource() & 0xFF));
    block.append(integrity);
    block.append(payload);

    char last = 0;
    for (int pos = 0; pos < block.size(); ++pos) {
        block[pos] = char(block.at(pos) ^ mKeyParts.at(pos % 8) ^ last);
        last = block.at(pos);
    }

    QByteArray result;
    result.reserve(2 + block.size());
    result.append(formatVersion);
    result.append(flags);
    result.append(block);
    mLastError = ErrorNoError;
    return result;
}

QString SimpleCrypt::encryptToString(const QString& plaintext)
{
    return encryptToString(plaintext.toUtf8());
}

QString SimpleCrypt::encryptToString(const QByteArray& plaintext)
{
    return QString::fromLatin1(encryptToByteArray(plaintext).toBase64());
}

QByteArray SimpleCrypt::decryptToByteArray(const QString& cyphertext)
{
    return decryptToByteArray(QByteArray::fromBase64(cyphertext.toLatin1()));
}

QByteArray SimpleCrypt::decryptToByteArray(const QByteArray& cypher)
{
    if (mKeyParts.isEmpty()) {
        Logger::Warn(logModule, QStringLiteral("[decryptToByteArray] - No key set."));
        mLastError = ErrorNoKeySet;
        return QByteArray();
    }

    // Too short to hold even the header and the random byte; the last error is left as it was.
    if (cypher.size() < 3)
        return QByteArray();

    if (cypher.at(0) != formatVersion) {
        mLastError = ErrorUnknownVersion;
        Logger::Warn(logModule, QStringLiteral("[decryptToByteArray] - Invalid version or not a cyphertext."));
        return QByteArray();
    }

    const char flags = cypher.at(1);
    QByteArray block = cypher.mid(2);

    char last = 0;
    for (int pos = 0; pos < block.size(); ++pos) {
        const char current = block.at(pos);
        block[pos] = char(current ^ mKeyParts.at(pos % 8) ^ last);
        last = current;
    }

    block = block.mid(1); // the random byte

    bool integrityOk = true;
    if (flags & CryptoFlagChecksum) {
        if (block.size() < checksumSize) {
            integrityOk = false;
        } else {
            quint16 storedChecksum = 0;
            QDataStream stream(block.left(checksumSize));
            stream >> storedChecksum;
            block = block.mid(checksumSize);
            integrityOk = storedChecksum == qChecksum(block.constData(), uint(block.size()));
        }
    } else if (flags & CryptoFlagHash) {
        if (block.size() < hashSize) {
            integrityOk = false;
        } else {
            const QByteArray storedHash = block.left(hashSize);
            block = block.mid(hashSize);
            integrityOk = storedHash == QCryptographicHash::hash(block, QCryptographicHash::Sha1);
        }
    }

    if (!integrityOk) {
        mLastError = ErrorIntegrityFailed;
        return QByteArray();
    }

    if (flags & CryptoFlagCompression)
        block = uncompressBounded(block);

    mLastError = ErrorNoError;
    return block;
}

QString SimpleCrypt::decryptToString(const QString& cyphertext)
{
    return QString::fromUtf8(decryptToByteArray(cyphertext));
}

SimpleCrypt* SimpleCrypt::shared()
{
    return sharedCipher;
}

void SimpleCrypt::setUpShared()
{
    sharedCipher->setProtectionMode(ProtectionHash);
}

QString encryptSharedText(const QString& plaintext)
{
    return SimpleCrypt::shared()->encryptToString(plaintext);
}

QString decryptSharedText(const QString& cyphertext)
{
    return SimpleCrypt::shared()->decryptToString(cyphertext);
}
