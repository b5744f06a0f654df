#include <QtTest>

#include <QSettings>

#include "notifications/soundplayer.h"
#include "platform/desktopnotifier.h"
#include "resourceinit.h"
#include "web/indexwindow.h"

namespace {

struct RecordingPlayer : SoundPlayer {
    QStringList played;
    void play(const QString& resourcePath) override { played << resourcePath; }
};

struct FakeNotifier : DesktopNotifier {
    QString kind;
    bool isServiceAvailable() override { return kind != "none"; }
    void show(const Notification&) override {}
    bool playsSound() override { return kind == "sounding"; }
};

} // namespace

class TestSounds : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        kestrelgapInitResources();
        SoundPlayer::setInstance(&mPlayer);
        DesktopNotifier::setInstance(&mNotifier);
        mWindow = new IndexWindow();
    }

    void playback_data()
    {
        QTest::addColumn<QString>("service"); // none, silent or sounding
        QTest::addColumn<QString>("enabled");
        QTest::addColumn<QString>("route");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("label"); // null: the page's own sound under the rules; else a preview
        QTest::addColumn<QString>("played");
        const QString quick = "quick-reply-notification", toast = "native-notification", none, on = "1";

        QTest::newRow("off") << "silent" << "0" << quick << none << none << none;
        QTest::newRow("only 1 is on") << "silent" << "true" << quick << none << none << none;
        QTest::newRow("display name is no label") << "silent" << on << quick << "Ping" << none << "proxima.wav";
        // Desktop notifications: a service that sounds plays it; one that can't leaves it to us.
        QTest::newRow("toast, sounding service") << "sounding" << on << toast << none << none << none;
        QTest::newRow("toast, silent service") << "silent" << on << toast << "spring" << none << "spring.wav";
        QTest::newRow("toast, no service") << "none" << on << toast << none << none << "proxima.wav";
        QTest::newRow("quick reply beside a sounding service") << "sounding" << on << quick << none << none << "proxima.wav";
        QTest::newRow("preview ignores rules") << "sounding" << "0" << toast << none << "pillsbury" << "pillsbury.wav";
        QTest::newRow("preview, path") << "silent" << "0" << quick << none << "../ping" << "proxima.wav";
    }

    void playback()
    {
        QFETCH(QString, service);
        QFETCH(QString, enabled);
        QFETCH(QString, route);
        QFETCH(QString, stored);
        QFETCH(QString, label);
        QFETCH(QString, played);

        QSettings().clear();
        mPlayer.played.clear();
        mNotifier.kind = service;
        mWindow->setNotificationSoundEnabled(enabled);
        mWindow->setNativeNotificationSetting(route);
        if (!stored.isNull())
            mWindow->setNotificationSoundSetting(stored);
        label.isNull() ? mWindow->playNotificationSound() : mWindow->playNotificationSound(label);
        const QStringList expected = played.isEmpty() ? QStringList() : QStringList {":/sounds/sounds/" + played};
        QCOMPARE(mPlayer.played, expected);
        QVERIFY(played.isEmpty() || QFile::exists(expected.first()));
    }

private:
    IndexWindow* mWindow = nullptr;
    RecordingPlayer mPlayer;
    FakeNotifier mNotifier;
};

QTEST_MAIN(TestSounds)
#include "tst_sounds.moc"
