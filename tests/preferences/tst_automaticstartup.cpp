#include <QtTest>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include "desktop/automaticstartup.h"
#include "platform/xdgdesktopentry.h"

namespace {

QString autostartFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

QString entryPath()
{
    return autostartFolder() + QStringLiteral("/kestrelgap.desktop");
}

QStringList entryLines()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace

class TestAutomaticStartup : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void entryDescribesThisProgram();
    void toggling_data();
    void toggling();
    void handMadeEntryCounts();
    void unwritableFolderFailsQuietly();
    void execArgument_data();
    void execArgument();
    void escapeValue_data();
    void escapeValue();
    void durationBucket_data();
    void durationBucket();
};

void TestAutomaticStartup::init()
{
    QFile::remove(autostartFolder());
    QDir(autostartFolder()).removeRecursively();
}

void TestAutomaticStartup::entryDescribesThisProgram()
{
    AutomaticStartup::setAutomaticStartup();

    // Exec is quoted only where the path needs it; the test folders need none.
    const QString folder = QCoreApplication::applicationDirPath();
    QCOMPARE(entryLines(),
        QStringList({QStringLiteral("[Desktop Entry]"), QStringLiteral("Type=Application"), QStringLiteral("Name=Kestrelgap"),
            QStringLiteral("Exec=") + QCoreApplication::applicationFilePath(), QStringLiteral("Path=") + folder,
            QStringLiteral("Icon=") + folder + QStringLiteral("/kestrelgap.iconset/icon_512x512.png"),
            QStringLiteral("X-GNOME-Autostart-enabled=true")}));
}

void TestAutomaticStartup::toggling_data()
{
    QTest::addColumn<QString>("steps"); // s = set, r = remove
    QTest::addColumn<bool>("registered");

    QTest::newRow("set") << "s" << true;
    QTest::newRow("set twice keeps one entry") << "ss" << true;
    QTest::newRow("set, remove") << "sr" << false;
    QTest::newRow("remove without entry") << "r" << false;
    QTest::newRow("set, remove, remove") << "srr" << false;
    QTest::newRow("set, remove, set") << "srs" << true;
}

void TestAutomaticStartup::toggling()
{
    QFETCH(QString, steps);
    QFETCH(bool, registered);

    for (const QChar step : steps) {
        if (step == QLatin1Char('s'))
            AutomaticStartup::setAutomaticStartup();
        else
            AutomaticStartup::removeAutomaticStartup();
    }
    QCOMPARE(AutomaticStartup::isSettingsAvailable(), registered);
    const QStringList expected = registered ? QStringList {QStringLiteral("kestrelgap.desktop")} : QStringList();
    // Nothing else lands in the folder: no temporary or backup files beside the entry.
    QCOMPARE(QDir(autostartFolder()).entryList(QDir::Files | QDir::Hidden), expected);
}

void TestAutomaticStartup::handMadeEntryCounts()
{
    QVERIFY(QDir().mkpath(autostartFolder()));
    QFile file(entryPath());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("not a desktop entry at all");
    file.close();

    QVERIFY(AutomaticStartup::isSettingsAvailable());
    AutomaticStartup::setAutomaticStartup();
    QCOMPARE(entryLines().value(0), QStringLiteral("[Desktop Entry]"));
}

void TestAutomaticStartup::unwritableFolderFailsQuietly()
{
    // A file where the folder should be stops even root from writing the entry.
    QFile blocker(autostartFolder());
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    AutomaticStartup::setAutomaticStartup();
    QVERIFY(!AutomaticStartup::isSettingsAvailable());
    AutomaticStartup::removeAutomaticStartup();
    QVERIFY(QFileInfo(autostartFolder()).isFile());
}

void TestAutomaticStartup::execArgument_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("argument");

    QTest::newRow("plain") << "/opt/kestrelgap/kestrelgap" << "/opt/kestrelgap/kestrelgap";
    QTest::newRow("blank") << "/home/a b/kestrelgap" << "\"/home/a b/kestrelgap\"";
    QTest::newRow("percent is no field code") << "/opt/100%/kg" << "/opt/100%%/kg";
    QTest::newRow("percent and blank") << "/opt/100 %u/kg" << "\"/opt/100 %%u/kg\"";
    QTest::newRow("dollar") << "/opt/$HOME/kg" << "\"/opt/\\$HOME/kg\"";
    QTest::newRow("backquote") << "/opt/`x`/kg" << "\"/opt/\\`x\\`/kg\"";
    QTest::newRow("double quote") << "/opt/\"q\"/kg" << "\"/opt/\\\"q\\\"/kg\"";
    QTest::newRow("single quote") << "/opt/it's/kg" << "\"/opt/it's/kg\"";
    QTest::newRow("backslash") << "/opt/a\\b/kg" << "\"/opt/a\\\\b/kg\"";
    QTest::newRow("empty") << "" << "\"\"";
}

void TestAutomaticStartup::execArgument()
{
    QFETCH(QString, path);
    QFETCH(QString, argument);
    QCOMPARE(XdgDesktopEntry::execArgument(path), argument);
}

void TestAutomaticStartup::escapeValue_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("escaped");

    QTest::newRow("plain") << "/opt/kg" << "/opt/kg";
    QTest::newRow("backslash") << "/opt/a\\b" << "/opt/a\\\\b";
    QTest::newRow("line break cannot end the key") << "/opt/a\nExec=x" << "/opt/a\\nExec=x";
    QTest::newRow("tab and return") << "a\tb\rc" << "a\\tb\\rc";
    QTest::newRow("leading blank survives trimming") << " a b" << "\\sa b";
    QTest::newRow("quoted exec with backslash") << "\"/a\\\\b\"" << "\"/a\\\\\\\\b\"";
}

void TestAutomaticStartup::escapeValue()
{
    QFETCH(QString, value);
    QFETCH(QString, escaped);
    QCOMPARE(XdgDesktopEntry::escapeValue(value), escaped);
}

void TestAutomaticStartup::durationBucket_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::addColumn<QString>("bucket");

    QTest::newRow("negative") << -1 << "0s-5s";
    QTest::newRow("zero") << 0 << "0s-5s";
    QTest::newRow("4999") << 4999 << "0s-5s";
    QTest::newRow("5000") << 5000 << "5s-10s";
    QTest::newRow("9999") << 9999 << "5s-10s";
    QTest::newRow("10000") << 10000 << "10s-20s";
    QTest::newRow("19999") << 19999 << "10s-20s";
    QTest::newRow("20000") << 20000 << "20s+";
}

void TestAutomaticStartup::durationBucket()
{
    QFETCH(int, milliseconds);
    QFETCH(QString, bucket);
    QCOMPARE(AutomaticStartup::durationBucket(milliseconds), bucket);
}

QTEST_GUILESS_MAIN(TestAutomaticStartup)
#include "tst_automaticstartup.moc"
