#include <QtTest>

#include "core/properties.h"
#include "resourceinit.h"

using StringMap = QMap<QString, QString>;

class TestProperties : public QObject {
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<StringMap>("expected");

        QTest::newRow("CR LF, no final line end")
            << QByteArray("version=2.89\r\nname=x") << StringMap { { "version", "2.89" }, { "name", "x" } };
        QTest::newRow("value holding =") << QByteArray("url=http://h/p?a=b&c=d\n")
                                         << StringMap { { "url", "http://h/p?a=b&c=d" } };
        QTest::newRow("line without =") << QByteArray("justtext\r\n") << StringMap { { "justtext", "justtext" } };
        QTest::newRow("empty key and empty lines skipped")
            << QByteArray("=orphan\r\n\r\nkept=\r\n") << StringMap { { "kept", "" } };
        QTest::newRow("blanks kept, UTF-8") << QByteArray(" key = Cr\xc3\xa9"
                                                          "celle\r\n")
                                            << StringMap { { " key ", QStringLiteral(" Cr\u00e9celle") } };
    }

    void parse()
    {
        QFETCH(QByteArray, content);
        QBuffer buffer(&content);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        QTEST(Properties::parse(&buffer), "expected");
    }

    // Stored as they are, so a sound player can take the bytes straight: PNG images, plain PCM sounds.
    void resourcesUsableAsStored()
    {
        kestrelgapInitResources();
        QStringList kinds;
        for (QDirIterator it(":/", QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
            QFile file(it.next());
            if (!file.fileName().contains(QRegularExpression("^:/(images|sounds)/")))
                continue;
            QCOMPARE(QResource(file.fileName()).compressionAlgorithm(), QResource::NoCompression);
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray bytes = file.readAll();
            const bool wave = bytes.startsWith("RIFF") && bytes.mid(8, 8) == "WAVEfmt "
                && bytes.mid(20, 2) == QByteArray("\1\0", 2);
            QVERIFY2(wave || !QImage::fromData(bytes, "PNG").isNull(), qPrintable(file.fileName()));
            kinds << (wave ? "sound" : "image");
        }
        QVERIFY(kinds.contains("sound") && kinds.contains("image"));
    }
};

QTEST_GUILESS_MAIN(TestProperties)
#include "tst_properties.moc"
