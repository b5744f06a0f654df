#include <QtTest>

#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

#include "stagedfolder.h"

// Runs the real program from its staged folder, each time in a home of its own, and looks at what a
// launch leaves behind: the start-at-login entry and the launch keys.
class TestFirstLaunch : public QObject
{
    Q_OBJECT
private slots:
    void registration_data();
    void registration();
};

void TestFirstLaunch::registration_data()
{
    QTest::addColumn<QString>("tsLastLaunch");
    QTest::addColumn<QString>("startOnLaunch");
    QTest::addColumn<bool>("registered");

    QTest::newRow("first launch registers") << "" << "" << true;
    QTest::newRow("later launch doesn't") << "Mon Nov 23 06:00:00 2026" << "" << false;
    QTest::newRow("leftover key proves an earlier launch") << "" << "1" << false;
}

void TestFirstLaunch::registration()
{
    QFETCH(QString, tsLastLaunch);
    QFETCH(QString, startOnLaunch);
    QFETCH(bool, registered);

    const QString program = StagedFolder::path() + QStringLiteral("/kestrelgap");
    QVERIFY2(QFile::exists(program), "the build stages the program");
    QTemporaryDir home;
    QVERIFY(QDir(home.path()).mkpath(QStringLiteral("runtime")));
    QFile::setPermissions(home.filePath("runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString settingsPath = home.filePath("config/Kestrelgap/Kestrelgap.conf");
    {
        QSettings settings(settingsPath, QSettings::IniFormat);
        if (!tsLastLaunch.isEmpty())
            settings.setValue("ts-last-launch", tsLastLaunch);
        if (!startOnLaunch.isEmpty())
            settings.setValue("start-on-launch", startOnLaunch);
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The single-instance socket lives in the runtime folder: a private one keeps other copies out.
    for (const char* name : { "HOME", "XDG_CONFIG_HOME/config", "XDG_DATA_HOME/data", "XDG_CACHE_HOME/cache",
             "XDG_RUNTIME_DIR/runtime" })
        environment.insert(QString(name).section('/', 0, 0), home.filePath(QString(name).section('/', 1)));

    QProcess client;
    client.setProcessEnvironment(environment);
    client.setWorkingDirectory(StagedFolder::path());
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.setStandardOutputFile(QProcess::nullDevice());
    client.start(program, QStringList());
    QVERIFY(client.waitForStarted());

    // The launch time is written last before the event loop, after any registration.
    const auto launched = [&] {
        return QSettings(settingsPath, QSettings::IniFormat).value(QStringLiteral("ts-last-launch")).toString()
            != tsLastLaunch;
    };
    const bool started = QTest::qWaitFor(launched, 30000);
    client.kill();
    client.waitForFinished();
    QVERIFY(started);

    QCOMPARE(QFile::exists(home.filePath("config/autostart/kestrelgap.desktop")), registered);
    QVERIFY(!QSettings(settingsPath, QSettings::IniFormat).contains(QStringLiteral("start-on-launch")));
}

QTEST_GUILESS_MAIN(TestFirstLaunch)
#include "tst_firstlaunch.moc"
