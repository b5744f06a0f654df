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
    void init()
    {
        QFile::remove(autostartFolder());
        QDir(autostartFolder()).removeRecursively();
    }
    void entryDescribesThisProgram();
    void toggling_data();
    void toggling();
    void execLine_data();
    void execLine();
};

void TestAutomaticStartup::entryDescribesThisProgram()
{
    AutomaticStartup::setAutomaticStartup();
    const QString folder = QCoreApplication::applicationDirPath();
    QCOMPARE(entryLines(), QStringList({ "[Desktop Entry]", "Type=Application", "Name=Kestrelgap",
        "Exec=" + QCoreApplication::applicationFilePath(), "TryExec=" + QCoreApplication::applicationFilePath(),
        "Path=" + folder,
        "Icon=" + folder + "/kestrelgap.iconset/icon_512x512.png", "X-GNOME-Autostart-enabled=true" }));
}

void TestAutomaticStartup::toggling_data()
{
    QTest::addColumn<QString>("steps"); // s = set, r = remove, b = a file where the folder goes
    QTest::addColumn<bool>("registered");
    QTest::newRow("set twice keeps one entry") << "ss" << true;
    QTest::newRow("set, remove") << "sr" << false;
    QTest::newRow("remove without entry") << "r" << false;
    // Stops even root from writing the entry; nothing fails loudly, the file stays.
    QTest::newRow("unwritable folder") << "bsr" << false;
}

void TestAutomaticStartup::toggling()
{
    QFETCH(QString, steps);
    QFETCH(bool, registered);

    for (const QChar step : steps) {
        if (step == 'b')
            QVERIFY(QFile(autostartFolder()).open(QIODevice::WriteOnly));
        else if (step == 's')
            AutomaticStartup::setAutomaticStartup();
        else
            AutomaticStartup::removeAutomaticStartup();
    }
    QCOMPARE(AutomaticStartup::isSettingsAvailable(), registered);
    // Nothing else lands in the folder: no temporary or backup files beside the entry.
    QCOMPARE(QDir(autostartFolder()).entryList(QDir::Files | QDir::Hidden),
        registered ? QStringList { "kestrelgap.desktop" } : QStringList());
    QCOMPARE(QFileInfo(autostartFolder()).isFile(), steps.startsWith('b'));
}

void TestAutomaticStartup::execLine_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("value"); // as written after "Exec="

    QTest::newRow("plain") << "/opt/kestrelgap/kestrelgap" << "/opt/kestrelgap/kestrelgap";
    QTest::newRow("blank") << "/home/a b/kg" << "\"/home/a b/kg\"";
    QTest::newRow("percent is no field code") << "/opt/100 %u/kg" << "\"/opt/100 %%u/kg\"";
    // Escaped once for the quoting, and that backslash again for the file's string rules.
    QTest::newRow("dollar and backquote") << "/opt/$x`y`/kg" << "\"/opt/\\\\$x\\\\`y\\\\`/kg\"";
    QTest::newRow("backslash") << "/opt/a\\b/kg" << "\"/opt/a\\\\\\\\b/kg\"";
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
