#include <QtTest>

#include <QBuffer>
#include <QDirIterator>
#include <QImage>
#include <QResource>

#include "core/properties.h"
#include "platform/osversion.h"
#include "resourceinit.h"

using StringMap = QMap<QString, QString>;
Q_DECLARE_METATYPE(StringMap)

namespace {

class FakeOsVersion : public OsVersionSource {
public:
    int code = WV_None;
    QString out;
    int commandCalls = 0;

    int windowsVersion() override { return code; }
    CommandOutput versionCommand(int) override
    {
        ++commandCalls;
        CommandOutput output;
        output.standardOutput = out;
        return output;
    }
};

} // namespace

class TestProperties : public QObject {
    Q_OBJECT
private slots:
    void osVersion_data();
    void osVersion();
    void systemSourceOnThisPlatform();
    void parse_data();
    void parse();
    void resourcesUsableAsStored();
};

void TestProperties::osVersion_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("out"); // what the version command prints; asked only for Windows 8
    QTest::addColumn<QString>("expected");

    const int eight = OsVersionSource::WV_WINDOWS8;
    const QString ten = QStringLiteral("Microsoft Windows [Version 10.0.19045.3570]");
    QTest::newRow("none") << int(OsVersionSource::WV_None) << ten << "WIN10-OR-OTHER-pc";
    QTest::newRow("code past the table") << 0xc0 << ten << "WIN10-OR-OTHER-pc";
    QTest::newRow("8 that is 10") << eight << "\r\n" + ten + "\r\n" << "WIN10-pc";
    QTest::newRow("8 proper") << eight << "Microsoft Windows [Version 6.2.9200]" << "WIN8-pc";
    QTest::newRow("blanks folded before the search") << eight << "Microsoft  Windows\r\n[Version\t\t10.0.1]"
                                                     << "WIN10-pc";
    // Not found is index -1: the text from index 7 on stands, less its last character.
    QTest::newRow("search is case-sensitive") << eight << "Microsoft Windows [version 10.0.1]" << "WIN8-pc";
    QTest::newRow("not found, number at index 7") << eight << "output 10.0.17763]" << "WIN10-pc";
}

void TestProperties::osVersion()
{
    FakeOsVersion fake;
    QFETCH(int, code);
    QFETCH(QString, out);
    fake.code = code;
    fake.out = out;
    OsVersionSource::setInstance(&fake);
    QTEST(Properties::getOsVersion(), "expected");
    OsVersionSource::setInstance(nullptr);
    QCOMPARE(fake.commandCalls, code == OsVersionSource::WV_WINDOWS8 ? 1 : 0);
}

void TestProperties::systemSourceOnThisPlatform()
{
    QCOMPARE(Properties::getOsVersion(), QStringLiteral("WIN10-OR-OTHER-pc"));
    // Never reached from getOsVersion here, but it must still answer with the system's own line.
    const QString line = OsVersionSource::instance()->versionCommand(30000).standardOutput;
    QVERIFY2(line.startsWith(QLatin1String("Linux ")), qPrintable(line));
}

void TestProperties::parse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<StringMap>("expected");

    QTest::newRow("CR LF") << QByteArray("version=2.89\r\n") << StringMap { { "version", "2.89" } };
    QTest::newRow("no final line end") << QByteArray("version=2.89") << StringMap { { "version", "2.89" } };
    QTest::newRow("key without value") << QByteArray("empty=\n") << StringMap { { "empty", "" } };
    QTest::newRow("value holding =") << QByteArray("url=http://h/p?a=b&c=d\r\n")
                                     << StringMap { { "url", "http://h/p?a=b&c=d" } };
    QTest::newRow("line without =") << QByteArray("justtext\r\n") << StringMap { { "justtext", "justtext" } };
    QTest::newRow("empty key and empty lines skipped")
        << QByteArray("=orphan\r\n\r\nkept=1\r\n") << StringMap { { "kept", "1" } };
    QTest::newRow("duplicate key, last wins") << QByteArray("v=1\r\nv=2\r\n") << StringMap { { "v", "2" } };
    QTest::newRow("blanks are kept") << QByteArray(" key = value \r\n") << StringMap { { " key ", " value " } };
    QTest::newRow("UTF-8 value") << QByteArray("name=Cr\xc3\xa9"
                                               "celle\r\n")
                                 << StringMap { { "name", QStringLiteral("Cr\u00e9celle") } };
    QTest::newRow("empty file") << QByteArray() << StringMap();
}

void TestProperties::parse()
{
    QFETCH(QByteArray, content);
    QBuffer buffer(&content);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    QTEST(Properties::parse(&buffer), "expected");
}

void TestProperties::resourcesUsableAsStored()
{
    kestrelgapInitResources();
    int images = 0;
    int sounds = 0;
    QStringList paths;
    for (const char* root : { ":/images", ":/sounds" })
        for (QDirIterator it(QLatin1String(root), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            paths << it.next();
    for (const QString& path : paths) {
        // Stored as they are, so a sound player can take the bytes straight.
        QCOMPARE(QResource(path).compressionAlgorithm(), QResource::NoCompression);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        if (path.endsWith(QLatin1String(".png"))) {
            QVERIFY2(!QImage::fromData(bytes, "PNG").isNull(), qPrintable(path));
            ++images;
        } else {
            // Plain PCM, which every player reads.
            QVERIFY2(
                bytes.startsWith("RIFF") && bytes.mid(8, 8) == "WAVEfmt " && bytes.mid(20, 2) == QByteArray("\1\0", 2),
                qPrintable(path));
            ++sounds;
        }
    }
    QVERIFY(images > 0 && sounds > 0);
}

QTEST_GUILESS_MAIN(TestProperties)
#include "tst_properties.moc"
