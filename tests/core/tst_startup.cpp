#include <QtTest>

#include "core/startup.h"

class TestStartup : public QObject
{
    Q_OBJECT
private slots:
    void rewriteArguments_data();
    void rewriteArguments();
    void launchDecision_data();
    void launchDecision();
};

void TestStartup::rewriteArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no arguments at all") << QStringList();
    QTest::newRow("program name only") << QStringList { "kestrelgap" };
    QTest::newRow("user arguments kept in order") << QStringList { "kestrelgap", "--foo", "bar baz", "-x" };
}

void TestStartup::rewriteArguments()
{
    QFETCH(QStringList, arguments);
    QList<QByteArray> storage;
    for (const QString& argument : arguments)
        storage << argument.toLocal8Bit();
    QVector<char*> argv;
    for (QByteArray& bytes : storage)
        argv << bytes.data();
    argv << nullptr;

    int newArgc = -1;
    char** newArgv = Startup::rewriteArguments(arguments.size(), argv.data(), newArgc);

    QCOMPARE(newArgc, arguments.size() + 1);
    for (int i = 0; i < arguments.size(); ++i)
        QCOMPARE(newArgv[i], argv[i]);
    // One element holding the blank, spelled as the platform argument always was.
    QCOMPARE(QByteArray(newArgv[newArgc - 1]), QByteArray("-platform windows:dipawareness=0"));
    delete[] newArgv;
}

void TestStartup::launchDecision_data()
{
    QTest::addColumn<QString>("tsLastLaunch");
    QTest::addColumn<QString>("startOnLaunch");
    QTest::addColumn<bool>("firstLaunch");
    QTest::addColumn<bool>("removeStartOnLaunch");

    const QString stamp = QStringLiteral("Sun Nov 22 20:55:00 2026");
    QTest::newRow("both empty: first launch") << QString() << QString() << true << false;
    QTest::newRow("leftover only: removed, not first") << QString() << QStringLiteral("1") << false << true;
    QTest::newRow("launched before") << stamp << QString() << false << false;
    QTest::newRow("launched before with leftover") << stamp << QStringLiteral("yes") << false << true;
}

void TestStartup::launchDecision()
{
    QFETCH(QString, tsLastLaunch);
    QFETCH(QString, startOnLaunch);
    QFETCH(bool, firstLaunch);
    QFETCH(bool, removeStartOnLaunch);

    const Startup::LaunchDecision decision = Startup::decideLaunch(tsLastLaunch, startOnLaunch);
    QCOMPARE(decision.firstLaunch, firstLaunch);
    QCOMPARE(decision.removeStartOnLaunch, removeStartOnLaunch);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
