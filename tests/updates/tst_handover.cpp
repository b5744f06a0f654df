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

} // namespace

class TestHandOver : public QObject
{
    Q_OBJECT
private slots:
    void scriptKillsTheClientAndRunsTheInstaller();
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
    QFile file(installer);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(installerScript);
    file.close();
    // Downloads arrive without the execute bit.
    QVERIFY(!(file.permissions() & QFileDevice::ExeUser));

    QProcess client;
    client.start(QStringLiteral(HANDOVER_CLIENT), { programFolder, installer, volume });
    QVERIFY(client.waitForStarted());
    QVERIFY(client.waitForFinished(15000));
    QCOMPARE(client.exitStatus(), QProcess::CrashExit);

    const QString marker = dir.filePath(folderName + QStringLiteral("/marker.txt"));
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(marker).size() > 0, 10000);
    QFile written(marker);
    QVERIFY(written.open(QIODevice::ReadOnly));
    // The installer runs from the program folder, with no arguments of its own.
    QCOMPARE(QString::fromLocal8Bit(written.readAll()), QDir(programFolder).canonicalPath() + QStringLiteral("\n0\n"));
    QVERIFY(QFile(installer).permissions() & QFileDevice::ExeUser);
}

QTEST_MAIN(TestHandOver)
#include "tst_handover.moc"
