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
    int windowsVersion() override { return code; }
    CommandOutput versionCommand(int) override { return CommandOutput {verLine, QString()}; }
};

} // namespace

class TestSounds : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void playback_data();
    void playback();

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

void TestSounds::playback_data()
{
    QTest::addColumn<int>("os");
    QTest::addColumn<QString>("ver");
    QTest::addColumn<QString>("enabled");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("label"); // null: the page's own sound under the rules; else a preview
    QTest::addColumn<QString>("played");

    const int win7 = OsVersionSource::WV_WINDOWS7, win8 = OsVersionSource::WV_WINDOWS8, here = OsVersionSource::WV_None;
    const QString win10 = QStringLiteral("Microsoft Windows [Version 10.0.19045.3803]");
    const QString win81 = QStringLiteral("Microsoft Windows [Version 6.3.9600]");
    const QString quick = QStringLiteral("quick-reply-notification"), toast = QStringLiteral("native-notification");
    const QString none, on = QStringLiteral("1");

    QTest::newRow("off") << win7 << none << "0" << quick << none << none << none;
    QTest::newRow("only 1 is on") << win7 << none << "true" << quick << none << none << none;
    QTest::newRow("default label") << win7 << none << on << quick << none << none << "proxima.wav";
    QTest::newRow("chosen label") << win7 << none << on << quick << "tink" << none << "tink.wav";
    QTest::newRow("display name is no label") << win7 << none << on << quick << "Ping" << none << "proxima.wav";
    QTest::newRow("win10 toast is silent") << win8 << win10 << on << toast << none << none << none;
    QTest::newRow("win8.1 toast") << win8 << win81 << on << toast << "spring" << none << "spring.wav";
    // This desktop reports itself as "WIN10-OR-OTHER": the system sounds its own notifications.
    QTest::newRow("here, toast") << here << none << on << toast << none << none << none;
    QTest::newRow("here, quick reply") << here << none << on << quick << none << none << "proxima.wav";
    QTest::newRow("preview ignores rules") << win8 << win10 << "0" << toast << none << "pillsbury" << "pillsbury.wav";
    QTest::newRow("preview, capitals") << win7 << none << "0" << quick << none << "Pillsbury" << "proxima.wav";
    QTest::newRow("preview, path") << win7 << none << "0" << quick << none << "../ping" << "proxima.wav";
}

void TestSounds::playback()
{
    QFETCH(int, os);
    QFETCH(QString, ver);
    QFETCH(QString, enabled);
    QFETCH(QString, route);
    QFETCH(QString, stored);
    QFETCH(QString, label);
    QFETCH(QString, played);

    QSettings().clear();
    mPlayer.played.clear();
    mOs.code = os;
    mOs.verLine = ver;
    mWindow->setNotificationSoundEnabled(enabled);
    mWindow->setNativeNotificationSetting(route);
    if (!stored.isNull())
        mWindow->setNotificationSoundSetting(stored);
    if (label.isNull())
        mWindow->playNotificationSound();
    else
        mWindow->playNotificationSound(label);

    const QStringList expected = played.isEmpty() ? QStringList() : QStringList {":/sounds/sounds/" + played};
    QCOMPARE(mPlayer.played, expected);
    if (!played.isEmpty())
        QVERIFY2(QFile::exists(expected.first()), qPrintable(expected.first()));
}

QTEST_MAIN(TestSounds)
#include "tst_sounds.moc"
