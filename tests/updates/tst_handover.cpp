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
const char promptScript[] = "#!/bin/sh\necho \"$@\" > \"$(dirname \"$0\")/asked.txt\"\nexit %1\n";

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content, QFileDevice::Permissions extra = {})
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
        && file.setPermissions(file.permissions() | extra);
}
} // namespace

class TestHandOver : public QObject
{
    Q_OBJECT
private slots:
    void handOver_data();
    void handOver();
};

void TestHandOver::handOver_data()
{
    QTest::addColumn<QString>("installer");
    QTest::addColumn<int>("promptExit");
    QTest::addColumn<bool>("restarted"); // false: the client stays and says so

    // Blanks in the download folder and the volume must survive the script's quoting.
    QTest::newRow("installer program") << "My Downloads/setup.run" << 0 << true;
    QTest::newRow("package installed") << "kestrelgap_2.90_amd64.deb" << 0 << true;
    QTest::newRow("package: prompt dismissed") << "kestrelgap_2.90_amd64.deb" << 126 << false;
}

void TestHandOver::handOver()
{
    QFETCH(QString, installer);
    QFETCH(int, promptExit);
    QFETCH(bool, restarted);

    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("bin") && QDir(dir.path()).mkpath("My Downloads"));
    QVERIFY(writeFile(dir.filePath("bin/pkexec"), QByteArray(promptScript).replace("%1", QByteArray::number(promptExit)),
        QFileDevice::ExeOwner));
    // Downloads arrive without the execute bit.
    const bool package = installer.endsWith(".deb");
    const QString path = dir.filePath(installer);
    QVERIFY(writeFile(path, package ? "!<arch>\ndebian-binary" : installerScript));

    QProcess client;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", dir.filePath("bin:") + environment.value("PATH"));
    environment.insert("HANDOVER_RESTARTED", dir.filePath("restarted"));
    client.setProcessEnvironment(environment);
    client.start(QStringLiteral(HANDOVER_CLIENT), { StagedFolder::path(), path, "Kestrelgap Setup" });
    QVERIFY(client.waitForFinished(15000));

    if (package) {
        QCOMPARE(QString::fromUtf8(contentOf(dir.filePath("bin/asked.txt"))), "apt-get install -y " + path + '\n');
    } else {
        const QString marker = dir.filePath("My Downloads/marker.txt");
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(marker).size() > 0, 10000);
        // Run from the program folder, with no arguments of its own.
        QCOMPARE(QString::fromLocal8Bit(contentOf(marker)), QDir(StagedFolder::path()).canonicalPath() + "\n0\n");
    }
    if (restarted) {
        QCOMPARE(client.exitStatus(), QProcess::CrashExit);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath("restarted")), 10000);
    } else {
        QCOMPARE(client.exitCode(), 4);
        QVERIFY(client.readAllStandardOutput().startsWith("refused: The update could not be installed."));
        QVERIFY(!QFile::exists(dir.filePath("restarted")));
    }
}

QTEST_MAIN(TestHandOver)
#include "tst_handover.moc"
