#include <QtTest>

#include <QTemporaryDir>

#include "stagedfolder.h"

namespace {

// Prints a good deal first: its output pipes lead to the killed client.
const char installerScript[] = R"(#!/bin/sh
i=0
while [ $i -lt 200 ]; do echo "installing step $i"; echo "warning $i" >&2; i=$((i+1)); done
{ pwd; echo "$#"; } > "$(dirname "$0")/marker.txt"
)";

// Stands in for the desktop's privilege prompt: records what it was asked to run, answers as told.
const char promptScript[] = R"(#!/bin/sh
echo "$@" > "$(dirname "$0")/asked.txt"
exit %1
)";

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content, bool executable = false)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.close();
    return !executable || file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

} // namespace

class TestHandOver : public QObject
{
    Q_OBJECT
private slots:
    void scriptKillsTheClientAndRunsTheInstaller();
    void debianPackage_data();
    void debianPackage();
};

// Blanks in the download folder and the volume must survive the script's quoting.
void TestHandOver::scriptKillsTheClientAndRunsTheInstaller()
{
    const QString folderName = QStringLiteral("My Downloads"), volume = QStringLiteral("Kestrelgap Setup");
    const QString programFolder = StagedFolder::path();
    QVERIFY2(QFile::exists(programFolder + QStringLiteral("/install_update.sh")), qPrintable(programFolder));

    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath(folderName));
    const QString installer = dir.filePath(folderName + QStringLiteral("/setup.run"));
    QVERIFY(writeFile(installer, installerScript));
    // Downloads arrive without the execute bit.
    QVERIFY(!(QFile(installer).permissions() & QFileDevice::ExeUser));

    QProcess client;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HANDOVER_RESTARTED"), dir.filePath(QStringLiteral("restarted")));
    client.setProcessEnvironment(environment);
    client.start(QStringLiteral(HANDOVER_CLIENT), { programFolder, installer, volume });
    QVERIFY(client.waitForStarted());
    QVERIFY(client.waitForFinished(15000));
    QCOMPARE(client.exitStatus(), QProcess::CrashExit);

    const QString marker = dir.filePath(folderName + QStringLiteral("/marker.txt"));
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(marker).size() > 0, 10000);
    // The installer runs from the program folder, with no arguments of its own.
    QCOMPARE(QString::fromLocal8Bit(contentOf(marker)), QDir(programFolder).canonicalPath() + QStringLiteral("\n0\n"));
    QVERIFY(QFile(installer).permissions() & QFileDevice::ExeUser);
    // Once the installer is done, the client is started again.
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath(QStringLiteral("restarted"))), 10000);
}

void TestHandOver::debianPackage_data()
{
    QTest::addColumn<int>("promptExit");
    QTest::addColumn<bool>("installed");

    QTest::newRow("installed") << 0 << true;
    QTest::newRow("prompt dismissed") << 126 << false;
    QTest::newRow("package broken") << 100 << false;
}

// A package goes to the system's installer behind the privilege prompt while the client runs;
// the client stops and comes back only once the package is in, and otherwise stays and says so.
void TestHandOver::debianPackage()
{
    QFETCH(int, promptExit);
    QFETCH(bool, installed);

    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("bin")));
    QVERIFY(writeFile(dir.filePath(QStringLiteral("bin/pkexec")), QByteArray(promptScript).replace("%1", QByteArray::number(promptExit)), true));
    const QString package = dir.filePath(QStringLiteral("kestrelgap_2.90_amd64.deb"));
    QVERIFY(writeFile(package, "!<arch>\ndebian-binary"));

    QProcess client;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"), dir.filePath(QStringLiteral("bin:")) + environment.value(QStringLiteral("PATH")));
    environment.insert(QStringLiteral("HANDOVER_RESTARTED"), dir.filePath(QStringLiteral("restarted")));
    client.setProcessEnvironment(environment);
    client.start(QStringLiteral(HANDOVER_CLIENT), { StagedFolder::path(), package, QStringLiteral("kestrelgap2.90amd64") });
    QVERIFY(client.waitForStarted());
    QVERIFY(client.waitForFinished(15000));

    QCOMPARE(QString::fromUtf8(contentOf(dir.filePath(QStringLiteral("bin/asked.txt")))),
        QStringLiteral("apt-get install -y ") + package + QLatin1Char('\n'));
    if (installed) {
        QCOMPARE(client.exitStatus(), QProcess::CrashExit);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath(QStringLiteral("restarted"))), 10000);
    } else {
        // Still running when the script gave up: the client tells the user and lives on.
        QCOMPARE(client.exitStatus(), QProcess::NormalExit);
        QCOMPARE(client.exitCode(), 4);
        QVERIFY(client.readAllStandardOutput().startsWith("refused: The update could not be installed."));
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("restarted"))));
    }
}

QTEST_MAIN(TestHandOver)
#include "tst_handover.moc"
