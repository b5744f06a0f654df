#include <QtTest>

#include <QSettings>
#include <QStandardPaths>

#include <sys/stat.h>

#include "core/properties.h"
#include "core/upgradecleanup.h"

namespace {

const QString versionKey = QStringLiteral("previous_app_version");

// "name/" a folder, "fifo:name" a named pipe, "link:name>target" a symbolic link, else a small file.
bool build(const QString& root, const QStringList& entries)
{
    bool ok = QDir().mkpath(root);
    for (const QString& entry : entries) {
        const QString path
            = root + QLatin1Char('/') + entry.section(QLatin1Char(':'), -1).section(QLatin1Char('>'), 0, 0);
        QFile file(path);
        if (entry.endsWith(QLatin1Char('/')))
            ok = ok && QDir().mkpath(path);
        else if (entry.startsWith(QLatin1String("fifo:")))
            ok = ok && ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
        else if (entry.startsWith(QLatin1String("link:")))
            ok = ok && QFile::link(entry.section(QLatin1Char('>'), 1), path);
        else
            ok = ok && file.open(QIODevice::WriteOnly) && file.write("kestrelgap") == 10;
    }
    return ok;
}

QString genericData()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

QString appData()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation);
}

QString cacheFolder()
{
    return Properties::getPersistentStorageLocation() + QStringLiteral("/cache");
}

// What a long-used cache or old install folder may hold, a link out of it included.
QStringList clutter()
{
    return { "index.html", "data8/", "data8/aa/", "data8/aa/0f3c1d", ".hidden", ".prepared/", "fifo:pipe",
        "link:dangling>nowhere", "link:elsewhere>" + QDir::homePath() + "/elsewhere" };
}

} // namespace

class TestUpgradeCleanup : public QObject {
    Q_OBJECT
private slots:
    void init();
    void removeDir();
    void upgradeCleanup_data();
    void upgradeCleanup();
    void oldLeftovers();
};

void TestUpgradeCleanup::init()
{
    QSettings().remove(versionKey);
    QVERIFY(QDir(genericData()).removeRecursively());
    // A neighbour that a link inside may point at; it isn't ours to empty.
    QVERIFY(build(QDir::homePath() + "/elsewhere", { "precious.txt" }));
}

void TestUpgradeCleanup::removeDir()
{
    const QString target = QDir::homePath() + "/doomed";
    QVERIFY(::removeDir(target));
    QVERIFY(build(target, clutter()));
    QVERIFY(::removeDir(target));
    QVERIFY(!QFileInfo::exists(target));
    QVERIFY(QFileInfo::exists(QDir::homePath() + "/elsewhere/precious.txt"));
}

void TestUpgradeCleanup::upgradeCleanup_data()
{
    QTest::addColumn<QString>("stored"); // null: never stored
    QTest::addColumn<QString>("current"); // null: the build's own version
    QTest::addColumn<bool>("cachePresent");
    QTest::addColumn<bool>("cacheEmptied");

    QTest::newRow("first run") << QString() << "2.89" << true << true;
    QTest::newRow("first run, no cache yet") << QString() << "2.89" << false << true;
    QTest::newRow("same version") << "2.89" << "2.89" << true << false;
    QTest::newRow("2.89 to 2.9") << "2.89" << "2.9" << true << true;
    QTest::newRow("same number, other text") << "2.9" << "2.90" << true << true;
    QTest::newRow("build's own, unchanged")
        << Properties::getInstance()->getValue("version") << QString() << true << false;
}

void TestUpgradeCleanup::upgradeCleanup()
{
    QFETCH(QString, stored);
    QFETCH(QString, current);
    QFETCH(bool, cachePresent);
    QFETCH(bool, cacheEmptied);

    if (!stored.isNull())
        QSettings().setValue(versionKey, stored);
    if (cachePresent)
        QVERIFY(build(cacheFolder(), clutter()));
    QVERIFY(build(Properties::getPersistentStorageLocation(), { "keep.txt" }));

    current.isNull() ? doUpgradeCleanup() : doUpgradeCleanup(current);

    QCOMPARE(QFileInfo::exists(cacheFolder()), cachePresent && !cacheEmptied);
    QVERIFY(QFileInfo::exists(Properties::getPersistentStorageLocation() + "/keep.txt"));
    QVERIFY(QFileInfo::exists(QDir::homePath() + "/elsewhere/precious.txt"));
    QCOMPARE(QSettings().value(versionKey).toString(), current.isNull() ? stored : current);
}

void TestUpgradeCleanup::oldLeftovers()
{
    const QString storage = Properties::getPersistentStorageLocation();
    const QString firstForm = genericData() + "/Kestrelgap Desktop";
    const QString secondForm = storage + "/Kestrelgap Desktop";
    // Nothing to clean must not fail.
    docleanup();

    QVERIFY(build(storage, { "cache/", "cache/entry" }));
    QVERIFY(build(appData(), { "c.ini", "kg.log", "cookies.ini" }));
    QVERIFY(build(firstForm, clutter()));
    QVERIFY(build(secondForm, clutter()));
    docleanup();

    QVERIFY(!QFileInfo::exists(appData() + "/cookies.ini"));
    QVERIFY(!QFileInfo::exists(firstForm));
    QVERIFY(!QFileInfo::exists(secondForm));
    // What the running program keeps: its cache, the cookie store and the log.
    for (const QString& kept : { storage + "/cache/entry", appData() + "/c.ini", appData() + "/kg.log" })
        QVERIFY2(QFileInfo::exists(kept), qPrintable(kept));
}

QTEST_MAIN(TestUpgradeCleanup)
#include "tst_upgradecleanup.moc"
