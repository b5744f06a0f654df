#include <QtTest>

#include <QSettings>

#include "notifications/soundplayer.h"
#include "platform/osversion.h"
#include "resourceinit.h"
#include "web/indexwindow.h"

namespace {

class RecordingPlayer : public SoundPlayer
{
public:
    QStringList played;
    void play(const QString& resourcePath) override { played << resourcePath; }
};

class FakeOsVersion : public OsVersionSource
{
public:
    int code = WV_None;
    QString verLine;
    int asked = 0;

    int windowsVersion() override
    {
        ++asked;
        return code;
    }
    CommandOutput versionCommand(int /*timeoutMs*/) override { return CommandOutput {verLine, QString()}; }
};

const QString win10Ver = QStringLiteral("Microsoft Windows [Version 10.0.19045.3803]");
const QString win81Ver = QStringLiteral("Microsoft Windows [Version 6.3.9600]");

QString sound(const char* file)
{
    return QStringLiteral(":/sounds/sounds/") + QLatin1String(file);
}

} // namespace

class TestSounds : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void freshStoreAnswersOffAndWritesIt();
    void offNeverAsksTheSystem();
    void rules_data();
    void rules();
    void explicitLabelIgnoresRules_data();
    void explicitLabelIgnoresRules();

private:
    IndexWindow* mWindow = nullptr;
    RecordingPlayer mPlayer;
    FakeOsVersion mOs;
};

void TestSounds::initTestCase()
{
    kestrelgapInitResources();
    SoundPlayer::setInstance(&mPlayer);
    OsVersionSource::setInstance(&mOs);
    mWindow = new IndexWindow();
}

void TestSounds::cleanupTestCase()
{
    delete mWindow;
    SoundPlayer::setInstance(nullptr);
    OsVersionSource::setInstance(nullptr);
}

void TestSounds::init()
{
    QSettings().clear();
    mPlayer.played.clear();
    mOs = FakeOsVersion();
}

void TestSounds::freshStoreAnswersOffAndWritesIt()
{
    QVERIFY(!QSettings().contains(QStringLiteral("play-notification-sound")));
    QVERIFY(!mWindow->isNotificationSoundEnabled());
    QCOMPARE(QSettings().value(QStringLiteral("play-notification-sound")).toString(), QStringLiteral("0"));

    // An emptied value counts as fresh again.
    mWindow->setNotificationSoundEnabled(QString());
    QVERIFY(!mWindow->isNotificationSoundEnabled());
    QCOMPARE(QSettings().value(QStringLiteral("play-notification-sound")).toString(), QStringLiteral("0"));
}

void TestSounds::offNeverAsksTheSystem()
{
    mWindow->setNotificationSoundEnabled(QStringLiteral("0"));
    mWindow->playNotificationSound();
    QCOMPARE(mOs.asked, 0);
    QVERIFY(mPlayer.played.isEmpty());
}

void TestSounds::rules_data()
{
    QTest::addColumn<int>("osCode");
    QTest::addColumn<QString>("verLine");
    QTest::addColumn<QString>("enabled");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QStringList>("played");

    const int win7 = OsVersionSource::WV_WINDOWS7;
    const int win8 = OsVersionSource::WV_WINDOWS8;
    const int none = OsVersionSource::WV_None;
    const QString quick = QStringLiteral("quick-reply-notification");
    const QString toast = QStringLiteral("native-notification");

    QTest::newRow("off") << win7 << QString() << QStringLiteral("0") << quick << QString() << QStringList();
    QTest::newRow("fresh store") << win7 << QString() << QString() << quick << QString() << QStringList();
    QTest::newRow("only 1 means on") << win7 << QString() << QStringLiteral("true") << quick << QString()
                                     << QStringList();
    QTest::newRow("default label") << win7 << QString() << QStringLiteral("1") << quick << QString()
                                   << QStringList {sound("proxima.wav")};
    QTest::newRow("chosen label") << win7 << QString() << QStringLiteral("1") << quick << QStringLiteral("tink")
                                  << QStringList {sound("tink.wav")};
    QTest::newRow("display name is no label") << win7 << QString() << QStringLiteral("1") << quick
                                              << QStringLiteral("Ping") << QStringList {sound("proxima.wav")};
    QTest::newRow("win10 toast is silent") << win8 << win10Ver << QStringLiteral("1") << toast << QString()
                                           << QStringList();
    QTest::newRow("win10 quick reply") << win8 << win10Ver << QStringLiteral("1") << quick << QStringLiteral("yeah")
                                       << QStringList {sound("yeah.wav")};
    QTest::newRow("win8.1 toast") << win8 << win81Ver << QStringLiteral("1") << toast << QString()
                                  << QStringList {sound("proxima.wav")};
    QTest::newRow("win7 toast") << win7 << QString() << QStringLiteral("1") << toast << QString()
                                << QStringList {sound("proxima.wav")};
    // This desktop reports itself under the "WIN10-OR-OTHER" name, so the toast rule holds here too.
    QTest::newRow("this desktop, toast") << none << QString() << QStringLiteral("1") << toast << QString()
                                         << QStringList();
    QTest::newRow("this desktop, quick reply") << none << QString() << QStringLiteral("1") << quick
                                               << QStringLiteral("spring") << QStringList {sound("spring.wav")};
}

void TestSounds::rules()
{
    QFETCH(int, osCode);
    QFETCH(QString, verLine);
    QFETCH(QString, enabled);
    QFETCH(QString, route);
    QFETCH(QString, label);
    QFETCH(QStringList, played);

    mOs.code = osCode;
    mOs.verLine = verLine;
    if (!enabled.isNull())
        mWindow->setNotificationSoundEnabled(enabled);
    mWindow->setNativeNotificationSetting(route);
    if (!label.isNull())
        mWindow->setNotificationSoundSetting(label);

    mWindow->playNotificationSound();
    QCOMPARE(mPlayer.played, played);
}

void TestSounds::explicitLabelIgnoresRules_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("file");

    QTest::newRow("ping") << QStringLiteral("ping") << sound("ping.wav");
    QTest::newRow("spring") << QStringLiteral("spring") << sound("spring.wav");
    QTest::newRow("tink") << QStringLiteral("tink") << sound("tink.wav");
    QTest::newRow("yeah") << QStringLiteral("yeah") << sound("yeah.wav");
    QTest::newRow("pillsbury") << QStringLiteral("pillsbury") << sound("pillsbury.wav");
    QTest::newRow("default") << QStringLiteral("default") << sound("proxima.wav");
    QTest::newRow("capitalised") << QStringLiteral("Pillsbury") << sound("proxima.wav");
    QTest::newRow("catch has no label") << QStringLiteral("catch") << sound("proxima.wav");
    QTest::newRow("empty") << QString() << sound("proxima.wav");
    QTest::newRow("path-like") << QStringLiteral("../ping") << sound("proxima.wav");
}

void TestSounds::explicitLabelIgnoresRules()
{
    QFETCH(QString, label);
    QFETCH(QString, file);

    // Sounds off and a silent toast route: the preview plays all the same.
    mOs.code = OsVersionSource::WV_WINDOWS8;
    mOs.verLine = win10Ver;
    mWindow->setNotificationSoundEnabled(QStringLiteral("0"));
    mWindow->setNativeNotificationSetting(QStringLiteral("native-notification"));

    mWindow->playNotificationSound(label);
    QCOMPARE(mPlayer.played, QStringList {file});
    QVERIFY2(QFile::exists(file), qPrintable(file));
}

QTEST_MAIN(TestSounds)
#include "tst_sounds.moc"
