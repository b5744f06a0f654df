#include <QtTest>

#include <QStandardPaths>

#include "desktop/automaticstartup.h"
#include "platform/xdgdesktopentry.h"

namespace {
QString autostartFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

QStringList entryLines()
{
    QFile file(autostartFolder() + QStringLiteral("/kestrelgap.desktop"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts) : QStringList();
}
} // namespace

class TestAutomaticStartup : public QObject
{
    Q_OBJECT
private slots:
    void init() { QDir(autostartFolder()).removeRecursively(); }
    void entryDescribesThisProgram();
    void unwritableFolder();
    void execLine_data();
    void execLine();
};

// Set twice: one entry, and nothing else beside it (no temporary or backup file).
void TestAutomaticStartup::entryDescribesThisProgram()
{
    AutomaticStartup::setAutomaticStartup();
    AutomaticStartup::setAutomaticStartup();
    const QString folder = QCoreApplication::applicationDirPath();
    QCOMPARE(entryLines(), QStringList({ "[Desktop Entry]", "Type=Application", "Name=Kestrelgap",
        "Exec=" + QCoreApplication::applicationFilePath(), "TryExec=" + QCoreApplication::applicationFilePath(),
        "Path=" + folder,
        "Icon=" + folder + "/kestrelgap.iconset/icon_512x512.png", "X-GNOME-Autostart-enabled=true" }));
    QCOMPARE(QDir(autostartFolder()).entryList(QDir::Files | QDir::Hidden), QStringList { "kestrelgap.desktop" });
}

// A file where the folder goes stops even root; nothing fails loudly and the file stays.
void TestAutomaticStartup::unwritableFolder()
{
    QVERIFY(QFile(autostartFolder()).open(QIODevice::WriteOnly));
    AutomaticStartup::setAutomaticStartup();
    QVERIFY(!AutomaticStartup::isSettingsAvailable());
    AutomaticStartup::removeAutomaticStartup();
    QVERIFY(QFileInfo(autostartFolder()).isFile());
    QVERIFY(QFile::remove(autostartFolder()));
}

void TestAutomaticStartup::execLine_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("value"); // as written after "Exec="

    QTest::newRow("blank; percent is no field code") << "/home/a b/100 %u/kg" << "\"/home/a b/100 %%u/kg\"";
    // Escaped once for the quoting, and that backslash again for the file's string rules.
    QTest::newRow("dollar, backquote, backslash") << "/opt/$x`y`\\b/kg" << "\"/opt/\\\\$x\\\\`y\\\\`\\\\\\\\b/kg\"";
    QTest::newRow("line break can't start a key") << "/opt/a\nExec=x" << "\"/opt/a\\nExec=x\"";
}

void TestAutomaticStartup::execLine()
{
    QFETCH(QString, path);
    QFETCH(QString, value);
    QCOMPARE(XdgDesktopEntry::escapeValue(XdgDesktopEntry::execArgument(path)), value);
}

QTEST_GUILESS_MAIN(TestAutomaticStartup)
#include "tst_automaticstartup.moc"
