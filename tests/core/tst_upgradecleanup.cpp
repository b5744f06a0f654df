#include <QtTest>

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include <sys/stat.h>

#include "core/properties.h"
#include "core/upgradecleanup.h"

namespace {

const QString versionKey = QStringLiteral("previous_app_version");

// Builds a folder from short descriptions: "name/" a folder, "fifo:name" a named pipe,
// "link:name>target" a symbolic link, anything else a file holding a few bytes.
bool build(const QString& root, const QStringList& entries)
{
    if (!QDir().mkpath(root))
        return false;
    for (const QString& entry : entries) {
        if (entry.endsWith(QLatin1Char('/'))) {
            if (!QDir(root).mkpath(entry))
                return false;
        } else if (entry.startsWith(QLatin1String("fifo:"))) {
            const QByteArray path = QFile::encodeName(root + QLatin1Char('/') + entry.mid(5));
            if (::mkfifo(path.constData(), 0600) != 0)
                return false;
        } else if (entry.startsWith(QLatin1String("link:"))) {
            const QStringList parts = entry.mid(5).split(QLatin1Char('>'));
            if (!QFile::link(parts.value(1), root + QLatin1Char('/') + parts.value(0)))
                return false;
        } else {
            QFile file(root + QLatin1Char('/') + entry);
            if (!file.open(QIODevice::WriteOnly) || file.write("kestrelgap") != 10)
                return false;
        }
    }
    return true;
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

// What a long-used cache or old install folder may hold.
const QStringList clutter = { QStringLiteral("index.html"),
                              QStringLiteral("data8/"),
                              QStringLiteral("data8/aa/"),
                              QStringLiteral("data8/aa/0f3c1d"),
                              QStringLiteral(".hidden"),
                              QStringLiteral(".prepared/"),
                              QStringLiteral(".prepared/.lock"),
                              QStringLiteral("fifo:pipe"),
                              QStringLiteral("link:dangling>nowhere") };

} // namespace

class TestUpgradeCleanup : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void removeDir_data();
    void removeDir();
    void upgradeCleanup_data();
    void upgradeCleanup();
    void upgradeCleanupUsesBuildVersion();
    void oldLeftovers_data();
    void oldLeftovers();

private:
    QString scratch() const { return QDir::homePath() + QStringLiteral("/scratch"); }
};

void TestUpgradeCleanup::init()
{
    QSettings().remove(versionKey);
    QVERIFY(QDir(genericData()).removeRecursively());
    QVERIFY(QDir(scratch()).removeRecursively());
    QVERIFY(QDir().mkpath(genericData()));
}

void TestUpgradeCleanup::removeDir_data()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<bool>("exists");

    QTest::newRow("missing folder") << QStringList() << false;
    QTest::newRow("files and nested folders")
        << QStringList({ QStringLiteral("a.txt"), QStringLiteral("sub/"), QStringLiteral("sub/deeper/"),
                         QStringLiteral("sub/deeper/b.bin"), QStringLiteral("sub/empty/") })
        << true;
    QTest::newRow("everything at once") << clutter << true;
    QTest::newRow("link to a folder elsewhere")
        << QStringList({ QStringLiteral("link:elsewhere>../elsewhere") }) << true;
}

void TestUpgradeCleanup::removeDir()
{
    QFETCH(QStringList, entries);
    QFETCH(bool, exists);

    const QString target = scratch() + QStringLiteral("/doomed");
    // A neighbour that a link inside may point at; it isn't ours to empty.
    const QString elsewhere = scratch() + QStringLiteral("/elsewhere");
    QVERIFY(build(elsewhere, { QStringLiteral("precious.txt") }));
    if (exists)
        QVERIFY(build(target, entries));

    QVERIFY(::removeDir(target));
    QVERIFY(!QFileInfo::exists(target));
    QVERIFY(QFileInfo::exists(elsewhere + QStringLiteral("/precious.txt")));
}

void TestUpgradeCleanup::upgradeCleanup_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("cachePresent");
    QTest::addColumn<bool>("cacheEmptied");

    QTest::newRow("first run") << QVariant() << QStringLiteral("2.89") << true << true;
    QTest::newRow("first run, no cache yet") << QVariant() << QStringLiteral("2.89") << false << true;
    QTest::newRow("empty stored version") << QVariant(QString()) << QStringLiteral("2.89") << true << true;
    QTest::newRow("same version") << QVariant(QStringLiteral("2.89")) << QStringLiteral("2.89") << true << false;
    QTest::newRow("2.89 to 2.9") << QVariant(QStringLiteral("2.89")) << QStringLiteral("2.9") << true << true;
    QTest::newRow("same number, other text") << QVariant(QStringLiteral("2.9")) << QStringLiteral("2.90") << true
                                             << true;
}

void TestUpgradeCleanup::upgradeCleanup()
{
    QFETCH(QVariant, stored);
    QFETCH(QString, current);
    QFETCH(bool, cachePresent);
    QFETCH(bool, cacheEmptied);

    if (stored.isValid())
        QSettings().setValue(versionKey, stored);
    if (cachePresent)
        QVERIFY(build(cacheFolder(), clutter));
    const QString storage = Properties::getPersistentStorageLocation();
    QVERIFY(build(storage, { QStringLiteral("keep.txt") }));

    doUpgradeCleanup(current);

    QCOMPARE(QFileInfo::exists(cacheFolder()), cachePresent && !cacheEmptied);
    QVERIFY(QFileInfo::exists(storage + QStringLiteral("/keep.txt")));
    QCOMPARE(QSettings().value(versionKey).toString(), current);
}

void TestUpgradeCleanup::upgradeCleanupUsesBuildVersion()
{
    const QString buildVersion = Properties::getInstance()->getValue(QStringLiteral("version"));
    QSettings().setValue(versionKey, QStringLiteral("0.1-long-gone"));
    QVERIFY(build(cacheFolder(), clutter));

    doUpgradeCleanup();
    QVERIFY(!QFileInfo::exists(cacheFolder()));
    QCOMPARE(QSettings().value(versionKey).toString(), buildVersion);

    // The next start of the same build leaves the cache alone.
    QVERIFY(build(cacheFolder(), clutter));
    doUpgradeCleanup();
    QVERIFY(QFileInfo::exists(cacheFolder() + QStringLiteral("/index.html")));
}

void TestUpgradeCleanup::oldLeftovers_data()
{
    QTest::addColumn<bool>("oldCookies");
    QTest::addColumn<bool>("firstForm");
    QTest::addColumn<bool>("secondForm");

    QTest::newRow("nothing left over") << false << false << false;
    QTest::newRow("old cookie file") << true << false << false;
    QTest::newRow("old install folder, first form") << false << true << false;
    QTest::newRow("old install folder, second form") << false << false << true;
    QTest::newRow("all of it") << true << true << true;
}

void TestUpgradeCleanup::oldLeftovers()
{
    QFETCH(bool, oldCookies);
    QFETCH(bool, firstForm);
    QFETCH(bool, secondForm);

    const QString storage = Properties::getPersistentStorageLocation();
    QCOMPARE(storage, genericData() + QStringLiteral("/Kestrelgap"));
    const QString firstFolder = genericData() + QStringLiteral("/Kestrelgap Desktop");
    const QString secondFolder = storage + QStringLiteral("/Kestrelgap Desktop");

    // What the running program keeps: the storage folder with its cache, and the cookie store.
    QVERIFY(build(storage, { QStringLiteral("cache/"), QStringLiteral("cache/entry") }));
    QVERIFY(build(appData(), { QStringLiteral("c.ini"), QStringLiteral("kg.log") }));
    if (oldCookies)
        QVERIFY(build(appData(), { QStringLiteral("cookies.ini") }));
    if (firstForm)
        QVERIFY(build(firstFolder, clutter));
    if (secondForm)
        QVERIFY(build(secondFolder, clutter));

    docleanup();

    QVERIFY(!QFileInfo::exists(appData() + QStringLiteral("/cookies.ini")));
    QVERIFY(!QFileInfo::exists(firstFolder));
    QVERIFY(!QFileInfo::exists(secondFolder));
    QVERIFY(QFileInfo::exists(storage + QStringLiteral("/cache/entry")));
    QVERIFY(QFileInfo::exists(appData() + QStringLiteral("/c.ini")));
    QVERIFY(QFileInfo::exists(appData() + QStringLiteral("/kg.log")));

}

QTEST_MAIN(TestUpgradeCleanup)
#include "tst_upgradecleanup.moc"
