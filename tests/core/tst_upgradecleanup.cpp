#include <QtTest>

#include <sys/stat.h>

#include "core/properties.h"
#include "core/upgradecleanup.h"

namespace {

// "name/" a folder, "fifo:name" a named pipe, "link:name>target" a symbolic link, else a small file.
bool build(const QString& root, const QStringList& entries)
{
    bool ok = QDir().mkpath(root);
    for (const QString& entry : entries) {
        const QString path = root + '/' + entry.section(':', -1).section('>', 0, 0);
        QFile file(path);
        if (entry.endsWith('/'))
            ok = ok && QDir().mkpath(path);
        else if (entry.startsWith("fifo:"))
            ok = ok && ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
        else if (entry.startsWith("link:"))
            ok = ok && QFile::link(entry.section('>', 1), path);
        else
            ok = ok && file.open(QIODevice::WriteOnly) && file.write("kestrelgap") == 10;
    }
    return ok;
}

} // namespace

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
        QVERIFY(QDir(generic).removeRecursively());
        stored.isNull() ? QSettings().remove("previous_app_version")
                        : QSettings().setValue("previous_app_version", stored);
        // What a long-used cache or old install folder may hold, links out of it included.
        const QStringList clutter = { "index.html", "data8/", "data8/aa/", "data8/aa/0f3c1d", ".hidden", ".prepared/",
            "fifo:pipe", "link:dangling>nowhere", "link:elsewhere>" + QDir::homePath() + "/elsewhere" };
        QVERIFY(build(QDir::homePath() + "/elsewhere", { "precious.txt" }));
        QVERIFY(build(storage + "/cache", clutter));
        QVERIFY(build(storage, { "keep.txt" }));
        QVERIFY(build(app, { "c.ini", "kg.log", "cookies.ini" }));
        QVERIFY(build(generic + "/Kestrelgap Desktop", clutter));
        QVERIFY(build(storage + "/Kestrelgap Desktop", clutter));

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
