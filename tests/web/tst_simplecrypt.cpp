#include <QtTest>

#include "web/simplecrypt.h"

// Expected ciphertexts below were worked out from the binary form, not taken from the class:
// version 3, flags (1 compressed, 2 checksum, 4 hash), then the block
//   random byte | integrity (none, qChecksum as big-endian 16 bits, or SHA-1) | payload
// enciphered as c[i] = b[i] ^ keyPart[i % 8] ^ c[i - 1], with c[-1] = 0 and keyPart[0] the lowest key byte.
namespace {

const quint64 testKey = Q_UINT64_C(0x0F1E2D3C4B5A6978); // parts 78 69 5a 4b 3c 2d 1e 0f

SimpleCrypt::RandomSource fixedRandom(int value)
{
    return [value] { return value; };
}

} // namespace

class TestSimpleCrypt : public QObject
{
    Q_OBJECT

private slots:
    void sharedCipherBeforeSetUp();
    void sharedCipherAfterSetUp();
    void encrypt_data();
    void encrypt();
    void decrypt_data();
    void decrypt();
    void compressedSizeClaim_data();
    void compressedSizeClaim();
    void noKey();
};

void TestSimpleCrypt::sharedCipherBeforeSetUp()
{
    SimpleCrypt* shared = SimpleCrypt::shared();
    QVERIFY(shared);
    QVERIFY(shared->hasKey());
    // Whatever the library call answers is the key, even a failed conversion.
    QCOMPARE(shared->key(), quint64(QStringLiteral("Kestrelgap482").toULongLong(nullptr, 64)));
    QCOMPARE(shared->protectionMode(), SimpleCrypt::ProtectionChecksum);
    QCOMPARE(shared->compressionMode(), SimpleCrypt::CompressionAuto);
}

void TestSimpleCrypt::sharedCipherAfterSetUp()
{
    SimpleCrypt::setUpShared();
    QCOMPARE(SimpleCrypt::shared()->protectionMode(), SimpleCrypt::ProtectionHash);
    QCOMPARE(SimpleCrypt::shared()->compressionMode(), SimpleCrypt::CompressionAuto);

    const QString text = QStringLiteral("c2Vzc2lvbi10b2tlbg==");
    const QString cyphertext = encryptSharedText(text);
    const QByteArray binary = QByteArray::fromBase64(cyphertext.toLatin1());
    QCOMPARE(binary.at(0), char(3));
    QCOMPARE(binary.at(1), char(0x04));
    QCOMPARE(binary.size(), 2 + 1 + 20 + text.size());
    QCOMPARE(decryptSharedText(cyphertext), text);
}

void TestSimpleCrypt::encrypt_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("compression");
    QTest::addColumn<int>("protection");
    QTest::addColumn<int>("randomByte");
    QTest::addColumn<QByteArray>("expectedHex");

    // block 5a 48 c3 a9
    QTest::newRow("none, never, UTF-8 text") << QStringLiteral("H\u00e9") << int(SimpleCrypt::CompressionNever)
                                             << int(SimpleCrypt::ProtectionNone) << 0x5A
                                             << QByteArray("030022039a78");
    // block 01 | 34bd | 68656c6c6f
    QTest::newRow("checksum, never") << QStringLiteral("hello") << int(SimpleCrypt::CompressionNever)
                                     << int(SimpleCrypt::ProtectionChecksum) << 0x01
                                     << QByteArray("03027924c3e0b9f88aea");
    // block ff | aaf4c61ddcc5e8a2dabede0f3b482cd9aea9434d | 68656c6c6f
    QTest::newRow("hash, never") << QStringLiteral("hello") << int(SimpleCrypt::CompressionNever)
                                 << int(SimpleCrypt::ProtectionHash) << 0xFF
                                 << QByteArray("03048744ea6746b76c8b51e20693a0b6e0c362a5565e2f6a11726660");
    // block 10 | 00000005 78dacb48cdc9c90700062c0215 (qCompress keeps the longer result in "always")
    QTest::newRow("none, always") << QStringLiteral("hello") << int(SimpleCrypt::CompressionAlways)
                                  << int(SimpleCrypt::ProtectionNone) << 0x10
                                  << QByteArray("030168015b10297cb87c4ce87bf9c2eff7d4aed2");
    // block 33 | SHA-1 of the compressed payload | 00000040 78da4b4ca40c0000148d1841
    QTest::newRow("hash, auto, compressible")
        << QString(64, QLatin1Char('a')) << int(SimpleCrypt::CompressionAuto) << int(SimpleCrypt::ProtectionHash)
        << 0x33 << QByteArray("03054b00f61915ac1e6ea0a05fb763d92284380509ba99b4aaa59d8c0c0c7cf5e7e890ed3a6914");
    // block 00 | 7926 | 4869: compressing would make it longer, so flag bit 0 stays clear
    QTest::newRow("checksum, auto, short") << QStringLiteral("Hi") << int(SimpleCrypt::CompressionAuto)
                                           << int(SimpleCrypt::ProtectionChecksum) << 0x00
                                           << QByteArray("03027868141742");
    // Only the low eight bits of the random source count.
    QTest::newRow("random source above a byte") << QStringLiteral("Hi") << int(SimpleCrypt::CompressionAuto)
                                                << int(SimpleCrypt::ProtectionChecksum) << 0x7F00
                                                << QByteArray("03027868141742");
}

void TestSimpleCrypt::encrypt()
{
    QFETCH(QString, text);
    QFETCH(int, compression);
    QFETCH(int, protection);
    QFETCH(int, randomByte);
    QFETCH(QByteArray, expectedHex);

    SimpleCrypt crypt(testKey);
    crypt.setCompressionMode(SimpleCrypt::CompressionMode(compression));
    crypt.setProtectionMode(SimpleCrypt::IntegrityProtectionMode(protection));
    crypt.setRandomSource(fixedRandom(randomByte));

    QCOMPARE(crypt.encryptToByteArray(text).toHex(), expectedHex);
    QCOMPARE(crypt.lastError(), SimpleCrypt::ErrorNoError);
    QCOMPARE(crypt.encryptToString(text), QString::fromLatin1(QByteArray::fromHex(expectedHex).toBase64()));
}

void TestSimpleCrypt::decrypt_data()
{
    QTest::addColumn<QString>("cyphertext");
    QTest::addColumn<quint64>("key");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("expectedError");

    const int ok = SimpleCrypt::ErrorNoError;
    const int integrity = SimpleCrypt::ErrorIntegrityFailed;

    // The reading cipher is in hash mode: the flags of the text decide the checks.
    QTest::newRow("no integrity") << QStringLiteral("AwAiA5p4") << testKey << QStringLiteral("H\u00e9") << ok;
    QTest::newRow("checksum form") << QStringLiteral("AwJ5JMPgufiK6g==") << testKey << QStringLiteral("hello") << ok;
    QTest::newRow("hash form") << QStringLiteral("AwSHROpnRrdsi1HiBpOgtuDDYqVWXi9qEXJmYA==") << testKey
                               << QStringLiteral("hello") << ok;
    QTest::newRow("compressed") << QStringLiteral("AwFoAVsQKXy4fEzoe/nC7/fUrtI=") << testKey
                                << QStringLiteral("hello") << ok;
    QTest::newRow("compressed with hash")
        << QStringLiteral("AwVLAPYZFawebqCgX7dj2SKEOAUJupm0qqWdjAwMfPXn6JDtOmkU") << testKey
        << QString(64, QLatin1Char('a')) << ok;
    QTest::newRow("wrong key, checksum") << QStringLiteral("AwJ5JMPgufiK6g==") << Q_UINT64_C(0x1122334455667788)
                                         << QString() << integrity;
    QTest::newRow("wrong key, hash") << QStringLiteral("AwSHROpnRrdsi1HiBpOgtuDDYqVWXi9qEXJmYA==")
                                     << Q_UINT64_C(0x1122334455667788) << QString() << integrity;
    // Last byte of the hash row changed from 0x60 to 0x61.
    QTest::newRow("tampered") << QStringLiteral("AwSHROpnRrdsi1HiBpOgtuDDYqVWXi9qEXJmYQ==") << testKey << QString()
                              << integrity;
    // 03 04 | 3 bytes: the block cannot hold a 20-byte digest.
    QTest::newRow("hash flag, too short") << QStringLiteral("AwQAAAA=") << testKey << QString() << integrity;
    // 03 02 | 2 bytes: one byte left after the random byte, short of a checksum.
    QTest::newRow("checksum flag, too short") << QStringLiteral("AwIAAA==") << testKey << QString() << integrity;
    QTest::newRow("bad version") << QStringLiteral("AgAiA5p4") << testKey << QString()
                                 << int(SimpleCrypt::ErrorUnknownVersion);
    QTest::newRow("plain text, not a cyphertext") << QStringLiteral("hello world") << testKey << QString()
                                                  << int(SimpleCrypt::ErrorUnknownVersion);
}

void TestSimpleCrypt::decrypt()
{
    QFETCH(QString, cyphertext);
    QFETCH(quint64, key);
    QFETCH(QString, expected);
    QFETCH(int, expectedError);

    SimpleCrypt crypt(key);
    crypt.setProtectionMode(SimpleCrypt::ProtectionHash);
    const QString clear = crypt.decryptToString(cyphertext);
    QCOMPARE(int(crypt.lastError()), expectedError);
    QCOMPARE(clear, expected);
    QCOMPARE(crypt.decryptToByteArray(QByteArray::fromBase64(cyphertext.toLatin1())), expected.toUtf8());
}

void TestSimpleCrypt::compressedSizeClaim_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray run(1 << 20, 'a'); // deflate's best case, about 1000 to 1
    QTest::newRow("densest real stream") << qCompress(run, 9) << run;
    QTest::newRow("2 GiB announced by a few bytes") << QByteArray::fromHex("7ffffff0789c030000000001") << QByteArray();
}

void TestSimpleCrypt::compressedSizeClaim()
{
    QFETCH(QByteArray, payload);
    QFETCH(QByteArray, expected);

    // Enciphered as is, then marked compressed: the flags byte is not enciphered.
    SimpleCrypt crypt(testKey);
    crypt.setCompressionMode(SimpleCrypt::CompressionNever);
    crypt.setProtectionMode(SimpleCrypt::ProtectionNone);
    QByteArray cypher = crypt.encryptToByteArray(payload);
    cypher[1] = 0x01;
    QCOMPARE(crypt.decryptToByteArray(cypher), expected);
}

void TestSimpleCrypt::noKey()
{
    SimpleCrypt crypt;
    QVERIFY(!crypt.hasKey());
    QVERIFY(crypt.encryptToByteArray(QStringLiteral("hello")).isEmpty());
    QCOMPARE(crypt.lastError(), SimpleCrypt::ErrorNoKeySet);

    QVERIFY(crypt.decryptToString(QStringLiteral("AwJ5JMPgufiK6g==")).isEmpty());
    QCOMPARE(crypt.lastError(), SimpleCrypt::ErrorNoKeySet);

    crypt.setKey(testKey);
    crypt.setRandomSource(fixedRandom(0x01));
    QCOMPARE(crypt.encryptToString(QStringLiteral("hello")), QStringLiteral("AwJ5JMPgufiK6g=="));
}

QTEST_GUILESS_MAIN(TestSimpleCrypt)

#include "tst_simplecrypt.moc"
