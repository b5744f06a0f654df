#include <QtTest>

#include "web/simplecrypt.h"

// The expected forms were worked out by hand from the layout: version 3, flags (1 compressed,
// 2 checksum, 4 hash), then random byte | integrity (qChecksum big-endian, or SHA-1) | payload,
// enciphered as c[i] = b[i] ^ keyPart[i % 8] ^ c[i - 1], c[-1] = 0, keyPart[0] the lowest key byte.
namespace {
const quint64 testKey = Q_UINT64_C(0x0F1E2D3C4B5A6978);
}

class TestSimpleCrypt : public QObject {
    Q_OBJECT
private slots:
    void knownForms_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("compression");
        QTest::addColumn<int>("protection");
        QTest::addColumn<int>("randomByte");
        QTest::addColumn<QByteArray>("expectedHex");

        // block 01 | 34bd | 68656c6c6f
        QTest::newRow("checksum") << "hello" << int(SimpleCrypt::CompressionNever)
                                  << int(SimpleCrypt::ProtectionChecksum) << 0x01 << QByteArray("03027924c3e0b9f88aea");
        // block 33 | SHA-1 of the compressed payload | 00000040 78da4b4ca40c0000148d1841
        QTest::newRow("hash, compressible")
            << QString(64, 'a') << int(SimpleCrypt::CompressionAuto) << int(SimpleCrypt::ProtectionHash) << 0x33
            << QByteArray("03054b00f61915ac1e6ea0a05fb763d92284380509ba99b4aaa59d8c0c0c7cf5e7e890ed3a6914");
    }

    void knownForms()
    {
        QFETCH(QString, text);
        QFETCH(int, compression);
        QFETCH(int, protection);
        QFETCH(int, randomByte);
        QFETCH(QByteArray, expectedHex);

        SimpleCrypt crypt(testKey);
        crypt.setCompressionMode(SimpleCrypt::CompressionMode(compression));
        crypt.setProtectionMode(SimpleCrypt::IntegrityProtectionMode(protection));
        crypt.setRandomSource([randomByte] { return randomByte; });
        QCOMPARE(crypt.encryptToByteArray(text).toHex(), expectedHex);
        // The reader follows the flags of the text, whatever its own protection setting.
        SimpleCrypt reader(testKey);
        QCOMPARE(reader.decryptToString(QString::fromLatin1(QByteArray::fromHex(expectedHex).toBase64())), text);
        QCOMPARE(reader.lastError(), SimpleCrypt::ErrorNoError);
    }

    void rejected_data()
    {
        QTest::addColumn<QString>("cyphertext");
        QTest::addColumn<quint64>("key");
        QTest::addColumn<int>("expectedError");

        const int integrity = SimpleCrypt::ErrorIntegrityFailed;
        const quint64 otherKey = Q_UINT64_C(0x1122334455667788);
        QTest::newRow("wrong key, checksum") << "AwJ5JMPgufiK6g==" << otherKey << integrity;
        // "hello" under the hash, block ff | SHA-1 | payload, its last byte changed from 0x60 to 0x61.
        QTest::newRow("tampered") << "AwSHROpnRrdsi1HiBpOgtuDDYqVWXi9qEXJmYQ==" << testKey << integrity;
        // 03 04 | 3 bytes: too short to hold a 20-byte digest.
        QTest::newRow("hash flag, too short") << "AwQAAAA=" << testKey << integrity;
        QTest::newRow("no key") << "AwJ5JMPgufiK6g==" << quint64(0) << int(SimpleCrypt::ErrorNoKeySet);
    }

    void rejected()
    {
        QFETCH(QString, cyphertext);
        QFETCH(quint64, key);
        SimpleCrypt crypt;
        if (key)
            crypt.setKey(key);
        QCOMPARE(crypt.decryptToString(cyphertext), QString());
        QTEST(int(crypt.lastError()), "expectedError");
    }

    void compressedSizeClaim_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("expected");

        const QByteArray run(1 << 20, 'a'); // deflate's best case, about 1000 to 1
        QTest::newRow("densest real stream") << qCompress(run, 9) << run;
        QTest::newRow("2 GiB announced by a few bytes")
            << QByteArray::fromHex("7ffffff0789c030000000001") << QByteArray();
    }

    void compressedSizeClaim()
    {
        QFETCH(QByteArray, payload);
        // Enciphered as is, then marked compressed: the flags byte is not enciphered.
        SimpleCrypt crypt(testKey);
        crypt.setCompressionMode(SimpleCrypt::CompressionNever);
        crypt.setProtectionMode(SimpleCrypt::ProtectionNone);
        QByteArray cypher = crypt.encryptToByteArray(payload);
        cypher[1] = 0x01;
        QTEST(crypt.decryptToByteArray(cypher), "expected");
    }

    void sharedCipher()
    {
        // Earlier versions' cookie files were enciphered under this key, failed conversion and all.
        QCOMPARE(SimpleCrypt::shared()->key(), quint64(QStringLiteral("Kestrelgap482").toULongLong(nullptr, 64)));
        SimpleCrypt::setUpShared();
        const QString text = QStringLiteral("c2Vzc2lvbi10b2tlbg==");
        // Hash protected, and never compressed at this length.
        QCOMPARE(QByteArray::fromBase64(encryptSharedText(text).toLatin1()).left(2), QByteArray("\x03\x04"));
        QCOMPARE(decryptSharedText(encryptSharedText(text)), text);
    }
};

QTEST_GUILESS_MAIN(TestSimpleCrypt)
#include "tst_simplecrypt.moc"
