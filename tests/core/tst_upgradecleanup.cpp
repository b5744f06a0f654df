#include <QtTest>

#include "core/properties.h"
#include "core/upgradecleanup.h"

// A long-used data folder: a cache and old install folders holding what such folders may hold (hidden
// entries, a named pipe, links out of them), beside the program's own files and a neighbour's.
static const char builder[] = R"(set -e
clutter() { mkdir -p "$1/data8/aa" "$1/.prepared"; touch "$1/index.html" "$1/data8/aa/0f3c1d" "$1/.hidden"
            mkfifo "$1/pipe"; ln -s nowhere "$1/dangling"; ln -s "$HOME/elsewhere" "$1/elsewhere"; }
rm -rf "$1"; mkdir -p "$HOME/elsewhere" "$2" "$3"
touch "$HOME/elsewhere/precious.txt" "$3/keep.txt" "$2/c.ini" "$2/kg.log" "$2/cookies.ini"
clutter "$3/cache"; clutter "$1/Kestrelgap Desktop"; clutter "$3/Kestrelgap Desktop")";

class TestUpgradeCleanup : public QObject {
    Q_OBJECT
private slots:
    void cleansUp_data()
    {
        QTest::addColumn<QString>("stored"); // null: never stored
        QTest::addColumn<QString>("current"); // null: the build's own version
        QTest::addColumn<bool>("cacheEmptied");

        QTest::newRow("first run") << QString() << "2.89" << true;
        QTest::newRow("same version") << "2.89"
                                      << "2.89" << false;
        QTest::newRow("2.89 to 2.9") << "2.89"
                                     << "2.9" << true;
        QTest::newRow("build's own, unchanged") << Properties::getInstance()->getValue("version") << QString() << false;
    }

    void cleansUp()
    {
        QFETCH(QString, stored);
        QFETCH(QString, current);
        const QString generic = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        const QString app = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
        const QString storage = Properties::getPersistentStorageLocation();
        QCOMPARE(QProcess::execute("sh", { "-c", builder, "sh", generic, app, storage }), 0);
        stored.isNull() ? QSettings().remove("previous_app_version")
                        : QSettings().setValue("previous_app_version", stored);

        current.isNull() ? doUpgradeCleanup() : doUpgradeCleanup(current);
        docleanup();

        QTEST(!QFileInfo::exists(storage + "/cache"), "cacheEmptied");
        QCOMPARE(QSettings().value("previous_app_version").toString(), current.isNull() ? stored : current);
        for (const QString& gone :
            { app + "/cookies.ini", generic + "/Kestrelgap Desktop", storage + "/Kestrelgap Desktop" })
            QVERIFY2(!QFileInfo::exists(gone), qPrintable(gone));
        for (const QString& kept :
            { storage + "/keep.txt", app + "/c.ini", app + "/kg.log", QDir::homePath() + "/elsewhere/precious.txt" })
            QVERIFY2(QFileInfo::exists(kept), qPrintable(kept));
    }
};

QTEST_MAIN(TestUpgradeCleanup)
#include "tst_upgradecleanup.moc"
