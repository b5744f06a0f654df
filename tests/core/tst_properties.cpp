#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QResource>
#include <QSettings>
#include <QtTest>

#include "core/properties.h"
#include "platform/osversion.h"
#include "resourceinit.h"

using StringMap = QMap<QString, QString>;
Q_DECLARE_METATYPE(StringMap)

namespace {

class FakeOsVersion : public OsVersionSource
{
public:
    int code = WV_None;
    CommandOutput output;
    int commandCalls = 0;

    int windowsVersion() override { return code; }
    CommandOutput versionCommand(int) override
    {
        ++commandCalls;
        return output;
    }
};

} // namespace

class TestProperties : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void osVersionFromTable_data();
    void osVersionFromTable();
    void windows8AsksTheVersionCommand_data();
    void windows8AsksTheVersionCommand();
    void osVersionIsNotCached();
    void systemSourceOnThisPlatform();

    void parse_data();
    void parse();
    void shippedProperties_data();
    void shippedProperties();
    void resourceTree_data();
    void resourceTree();

private:
    FakeOsVersion mFake;
};

void TestProperties::initTestCase()
{
    kestrelgapInitResources();
}

void TestProperties::init()
{
    mFake = FakeOsVersion();
    OsVersionSource::setInstance(&mFake);
}

void TestProperties::cleanup()
{
    OsVersionSource::setInstance(nullptr);
}

void TestProperties::osVersionFromTable_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("expected");

    QTest::newRow("3.1") << int(OsVersionSource::WV_32s) << "WIN3.1-pc";
    QTest::newRow("XP") << int(OsVersionSource::WV_XP) << "WINXP-pc";
    QTest::newRow("7") << int(OsVersionSource::WV_WINDOWS7) << "WIN7-pc";
    QTest::newRow("8.1") << int(OsVersionSource::WV_WINDOWS8_1) << "WIN8.1-pc";
    QTest::newRow("none") << int(OsVersionSource::WV_None) << "WIN10-OR-OTHER-pc";
    QTest::newRow("code between rows") << 0x05 << "WIN10-OR-OTHER-pc";
    QTest::newRow("code past the table") << 0xc0 << "WIN10-OR-OTHER-pc";
    QTest::newRow("negative code") << -1 << "WIN10-OR-OTHER-pc";
}

void TestProperties::osVersionFromTable()
{
    QFETCH(int, code);
    QFETCH(QString, expected);

    mFake.code = code;
    // A version line that would read as Windows 10 if it were consulted.
    mFake.output.standardOutput = QStringLiteral("Microsoft Windows [Version 10.0.19045.3570]");
    QCOMPARE(Properties::getOsVersion(), expected);
    QCOMPARE(mFake.commandCalls, 0);
}

void TestProperties::windows8AsksTheVersionCommand_data()
{
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("expected");

    QTest::newRow("Windows 10") << "\r\nMicrosoft Windows [Version 10.0.19045.3570]\r\n" << "WIN10-pc";
    QTest::newRow("Windows 8 proper") << "\r\nMicrosoft Windows [Version 6.2.9200]\r\n" << "WIN8-pc";
    QTest::newRow("blanks folded before the search") << "Microsoft  Windows\r\n[Version\t\t10.0.1]   " << "WIN10-pc";
    QTest::newRow("ten without a dot") << "Microsoft Windows [Version 10]" << "WIN8-pc";
    QTest::newRow("a later major version") << "Microsoft Windows [Version 100.1]" << "WIN8-pc";
    QTest::newRow("no output") << "" << "WIN8-pc";
    // Not found is index -1: the text from index 7 on stands, less its last character.
    QTest::newRow("search is case-sensitive") << "Microsoft Windows [version 10.0.1]" << "WIN8-pc";
    QTest::newRow("not found, number at index 7") << "output 10.0.17763]" << "WIN10-pc";
    QTest::newRow("partial output cut off") << "Microsoft Windows [Vers" << "WIN8-pc";
}

void TestProperties::windows8AsksTheVersionCommand()
{
    QFETCH(QString, out);
    QFETCH(QString, expected);

    mFake.code = OsVersionSource::WV_WINDOWS8;
    mFake.output.standardOutput = out;
    QCOMPARE(Properties::getOsVersion(), expected);
    QCOMPARE(mFake.commandCalls, 1);
}

void TestProperties::osVersionIsNotCached()
{
    mFake.code = OsVersionSource::WV_WINDOWS8;
    mFake.output.standardOutput = QStringLiteral("Microsoft Windows [Version 6.2.9200]");
    QCOMPARE(Properties::getOsVersion(), QStringLiteral("WIN8-pc"));
    mFake.output.standardOutput = QStringLiteral("Microsoft Windows [Version 10.0.10240]");
    QCOMPARE(Properties::getOsVersion(), QStringLiteral("WIN10-pc"));
    mFake.code = OsVersionSource::WV_WINDOWS7;
    QCOMPARE(Properties::getOsVersion(), QStringLiteral("WIN7-pc"));
    QCOMPARE(mFake.commandCalls, 2);
}

void TestProperties::systemSourceOnThisPlatform()
{
    OsVersionSource::setInstance(nullptr);
    OsVersionSource* system = OsVersionSource::instance();
    QVERIFY(system != &mFake);
    QCOMPARE(system->windowsVersion(), int(OsVersionSource::WV_None));
    QCOMPARE(Properties::getOsVersion(), QStringLiteral("WIN10-OR-OTHER-pc"));

    // Never reached from getOsVersion here, but it must still answer with the system's own line.
    const OsVersionSource::CommandOutput output = system->versionCommand(30000);
    QVERIFY2(output.standardOutput.startsWith(QLatin1String("Linux ")), qPrintable(output.standardOutput));
}

void TestProperties::parse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<StringMap>("expected");

    QTest::newRow("the shipped line") << QByteArray("version=2.89\r\n") << StringMap{{"version", "2.89"}};
    QTest::newRow("LF line end") << QByteArray("version=2.89\n") << StringMap{{"version", "2.89"}};
    QTest::newRow("no final line end") << QByteArray("version=2.89") << StringMap{{"version", "2.89"}};
    QTest::newRow("key without value") << QByteArray("empty=\r\n") << StringMap{{"empty", ""}};
    QTest::newRow("value holding =") << QByteArray("url=http://h/p?a=b&c=d\r\n")
                                     << StringMap{{"url", "http://h/p?a=b&c=d"}};
    QTest::newRow("line without =") << QByteArray("justtext\r\n") << StringMap{{"justtext", "justtext"}};
    QTest::newRow("empty key skipped") << QByteArray("=orphan\r\nkept=1\r\n") << StringMap{{"kept", "1"}};
    QTest::newRow("empty lines skipped") << QByteArray("\r\n\r\nk=v\r\n\r\n") << StringMap{{"k", "v"}};
    QTest::newRow("duplicate key, last wins") << QByteArray("v=1\r\nother=x\r\nv=2\r\n")
                                              << StringMap{{"v", "2"}, {"other", "x"}};
    QTest::newRow("blanks are kept") << QByteArray(" key = value \r\n") << StringMap{{" key ", " value "}};
    QTest::newRow("UTF-8 value") << QByteArray("name=Cr\xc3\xa9" "celle\r\n")
                                 << StringMap{{"name", QStringLiteral("Cr\u00e9celle")}};
    QTest::newRow("empty file") << QByteArray() << StringMap();
}

void TestProperties::parse()
{
    QFETCH(QByteArray, content);
    QFETCH(StringMap, expected);

    QBuffer buffer(&content);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    QCOMPARE(Properties::parse(&buffer), expected);
}

void TestProperties::shippedProperties_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");

    QTest::newRow("version") << "version" << "2.89";
    QTest::newRow("keys are case-sensitive") << "Version" << "";
    QTest::newRow("whole line is not a key") << "version=2.89" << "";
    QTest::newRow("missing key") << "no-such-key" << "";
}

void TestProperties::shippedProperties()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QCOMPARE(Properties::getInstance()->getValue(key), value);
}

void TestProperties::resourceTree_data()
{
    QTest::addColumn<QString>("path");
    // The text's bytes (a required part, for the hand-over scripts); empty for images and sounds,
    // which are checked by their format.
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("properties") << ":/properties/kestrelgap.properties" << QByteArray("version=2.89\r\n");
    QTest::newRow("qt.conf") << ":/etc/qt.conf"
                             << QByteArray("[Platform]\n# WindowsArguments = -platform windows:dpiawareness=1\n");
    QTest::newRow("start-at-login helper") << ":/scripts/scripts/startup.bat"
                                           << QByteArray("start /D %1 Kestrelgap.exe\r\n");
    // The hand-over scripts are long; each must at least end the running client.
    QTest::newRow("update hand-over") << ":/scripts/scripts/install_update.bat" << QByteArray("taskkill /F /PID %PID%");
    QTest::newRow("update hand-over, shell form") << ":/scripts/install_update.sh" << QByteArray("kill -9 \"$PID\"");
    for (const char* image : {"icon_128x128.png", "icon_black_play_arrow.png", "compose_new.png",
             "popup_menu_logo.png", "icon-charging-blue.png", "teal_phone_dialer_logo2.png", "teal_pnlv_logo.png",
             "icon_black_volume_up.png", "icon_help.png", "send_link.png", "teal_phone_dialer_logo.png",
             "text_bubble.png"})
        QTest::newRow(image) << QStringLiteral(":/images/kestrelgap.iconset/") + QLatin1String(image) << QByteArray();
    for (const char* sound : {"ping", "proxima", "spring", "pillsbury", "tink", "yeah", "catch"})
        QTest::newRow(sound) << QStringLiteral(":/sounds/sounds/%1.wav").arg(QLatin1String(sound)) << QByteArray();
}

void TestProperties::resourceTree()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, content);

    QResource resource(path);
    QVERIFY2(resource.isValid(), qPrintable(path));
    // Stored as they are, so a sound player or script runner can take the bytes straight.
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVERIFY(!bytes.isEmpty());

    if (path.contains(QLatin1String("install_update"))) {
        QVERIFY(bytes.contains(content));
    } else if (!content.isEmpty()) {
        QCOMPARE(bytes, content);
    } else if (path.endsWith(QLatin1String(".png"))) {
        const QImage image = QImage::fromData(bytes, "PNG");
        QVERIFY(!image.isNull());
        QCOMPARE(image.width(), image.height());
        QVERIFY(image.hasAlphaChannel());
        if (path.endsWith(QLatin1String("icon_128x128.png")))
            QCOMPARE(image.width(), 128);
    } else if (path.endsWith(QLatin1String(".wav"))) {
        // Plain PCM, which every player reads.
        QCOMPARE(bytes.left(4), QByteArray("RIFF"));
        QCOMPARE(bytes.mid(8, 8), QByteArray("WAVEfmt "));
        QCOMPARE(bytes.mid(20, 2), QByteArray("\x01\x00", 2));
    } else {
        QFAIL("row without a check");
    }
}

QTEST_GUILESS_MAIN(TestProperties)
#include "tst_properties.moc"
