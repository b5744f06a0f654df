#include <QtTest>

#include "core/logger.h"
#include "core/properties.h"
#include "core/upgradecleanup.h"
#include "resourceinit.h"

using StringMap = QMap<QString, QString>;

namespace {

const qint64 rotationSize = 1048576;
const QString stamp = QStringLiteral("\\d\\d-\\d\\d-\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}");

QStringList debugOutput; // what went to stderr

QString readLog()
{
    QFile file(Logger::logFilePath());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QDir logFolder()
{
    return QFileInfo(Logger::logFilePath()).absoluteDir();
}

// A long-used data folder: a cache and old install folders holding what such folders may hold (hidden
// entries, a named pipe, links out of them), beside the program's own files and a neighbour's.
const char builder[] = R"(set -e
clutter() { mkdir -p "$1/data8/aa" "$1/.prepared"; touch "$1/index.html" "$1/data8/aa/0f3c1d" "$1/.hidden"
            mkfifo "$1/pipe"; ln -s nowhere "$1/dangling"; ln -s "$HOME/elsewhere" "$1/elsewhere"; }
rm -rf "$1"; mkdir -p "$HOME/elsewhere" "$2" "$3"
touch "$HOME/elsewhere/precious.txt" "$3/keep.txt" "$2/c.ini" "$2/kg.log" "$2/cookies.ini"
clutter "$3/cache"; clutter "$1/Kestrelgap Desktop"; clutter "$3/Kestrelgap Desktop")";

} // namespace

// What the program keeps in files of its own: the properties it ships, the log, the data folder.
class TestCoreFiles : public QObject {
    Q_OBJECT

    QTemporaryDir mWorkingDir;

private slots:
    void initTestCase()
    {
        // The writer makes a "logs" folder in the working directory; keep it out of the build tree.
        QVERIFY(QDir::setCurrent(mWorkingDir.path()));
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) { debugOutput << text; });
    }

    void init()
    {
        QSettings().remove("pref-debug-enabled");
        for (const QString& name : logFolder().entryList(QDir::Files))
            QVERIFY(logFolder().remove(name));
    }

    void gate_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<bool>("open");
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("one") << "1" << true;
        QTest::newRow("true") << "true" << false;
        QTest::newRow("blank-padded") << " 1" << false;
    }

    // The page's texts, names and numbers are in these lines; stderr ends up in the session's journal.
    void gate()
    {
        QFETCH(QString, stored);
        QFETCH(bool, open);
        QSettings().setValue("pref-debug-enabled", stored);
        const QString message = QStringLiteral("[showNotification] 100% %1 \u00fcml\u00e4ut +15551234567");
        debugOutput.clear();
        for (auto call : { Logger::Trace, Logger::Debug, Logger::Info, Logger::Warn, Logger::Error, Logger::Fatal })
            call(QStringLiteral("indexwindow"), message);
        QSettings().setValue("pref-debug-enabled", "0"); // read at every line: off takes effect at once
        Logger::Error(QStringLiteral("indexwindow"), message);

        QCOMPARE(debugOutput.filter("+15551234567").size(), open ? 6 : 0);
        QCOMPARE(QFile::exists(Logger::logFilePath()), open);
        QString log = readLog();
        log.remove(QRegularExpression("^\\[" + stamp + "\\] ", QRegularExpression::MultilineOption));
        QStringList expected;
        for (const char* level : { "Trace] [indexwindow-0", "Info] [indexwindow-2", "Warning] [indexwindow-3",
                 "Error] [indexwindow-4", "Fatal] [indexwindow-5" })
            expected << QStringLiteral("[%1] %2").arg(QLatin1String(level), message);
        QCOMPARE(log.split('\n', Qt::SkipEmptyParts), open ? expected : QStringList());
    }

    void rotation_data()
    {
        QTest::addColumn<qint64>("existing"); // bytes in the log before
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("files"); // in the folder after

        QTest::newRow("one byte short") << rotationSize - 1 << 1 << 10 << 1;
        QTest::newRow("exactly the limit") << rotationSize << 1 << 10 << 2;
        // About 11.5 MiB: eleven rotations, of which five stay.
        QTest::newRow("many rotations") << qint64(0) << 200 << 60000 << 6;
        // Each 4 MiB line is cut to 64 KiB: five of them stay in one file.
        QTest::newRow("megabyte lines") << qint64(0) << 5 << 4 * 1024 * 1024 << 1;
    }

    void rotation()
    {
        QFETCH(qint64, existing);
        QFETCH(int, count);
        QFETCH(int, length);

        QSettings().setValue("pref-debug-enabled", "1");
        QVERIFY(logFolder().mkpath("."));
        QFile file(Logger::logFilePath());
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray(existing, 'x')) == existing);
        file.close();
        const QString line(length, 'm');
        for (int i = 0; i < count; ++i)
            Logger::Info(QStringLiteral("indexwindow"), line);
        debugOutput.clear();

        const QFileInfoList all = logFolder().entryInfoList(QDir::Files, QDir::Time);
        QTEST(all.size(), "files");
        qint64 total = 0;
        for (const QFileInfo& info : all)
            total += info.size();
        // Six files of at most 1 MiB and one cut line each.
        QVERIFY2(total <= 6 * (rotationSize + 66000), qPrintable(QString::number(total)));
        if (all.size() == 1)
            return;
        const QRegularExpression previous('^' + stamp + " - Previuous log "
            + QRegularExpression::escape(logFolder().filePath("kg_"))
            + "\\d\\d_\\d\\d_\\d\\d__\\d\\d_\\d\\d_\\d\\d(_\\d+)?\\.log\n");
        QVERIFY2(previous.match(readLog()).hasMatch(), qPrintable(readLog().left(200)));
        const QFileInfo& rotated = all.at(all.at(0).fileName() == "kg.log" ? 1 : 0);
        QVERIFY(existing == 0 || rotated.size() == existing);
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<StringMap>("expected");

        QTest::newRow("CR LF, no final line end")
            << QByteArray("version=2.89\r\nname=x") << StringMap { { "version", "2.89" }, { "name", "x" } };
        QTest::newRow("value holding =") << QByteArray("url=http://h/p?a=b&c=d\n")
                                         << StringMap { { "url", "http://h/p?a=b&c=d" } };
        QTest::newRow("line without =") << QByteArray("justtext\r\n") << StringMap { { "justtext", "justtext" } };
        QTest::newRow("empty key and empty lines skipped")
            << QByteArray("=orphan\r\n\r\nkept=\r\n") << StringMap { { "kept", "" } };
        QTest::newRow("blanks kept, UTF-8")
            << QByteArray(" key = Cr\xc3\xa9" "celle\r\n") << StringMap { { " key ", QStringLiteral(" Cr\u00e9celle") } };
    }

    void parse()
    {
        QFETCH(QByteArray, content);
        QBuffer buffer(&content);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        QTEST(Properties::parse(&buffer), "expected");
    }

    // Stored as they are, so a sound player can take the bytes straight: PNG images, plain PCM sounds.
    void resourcesUsableAsStored()
    {
        kestrelgapInitResources();
        QStringList kinds;
        for (QDirIterator it(":/", QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
            QFile file(it.next());
            if (!file.fileName().contains(QRegularExpression("^:/(images|sounds)/")))
                continue;
            QCOMPARE(QResource(file.fileName()).compressionAlgorithm(), QResource::NoCompression);
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray bytes = file.readAll();
            const bool wave = bytes.startsWith("RIFF") && bytes.mid(8, 8) == "WAVEfmt "
                && bytes.mid(20, 2) == QByteArray("\1\0", 2);
            QVERIFY2(wave || !QImage::fromData(bytes, "PNG").isNull(), qPrintable(file.fileName()));
            kinds << (wave ? "sound" : "image");
        }
        QVERIFY(kinds.contains("sound") && kinds.contains("image"));
    }

    void cleansUp_data()
    {
        QTest::addColumn<QString>("stored"); // null: never stored
        QTest::addColumn<QString>("current"); // null: the build's own version
        QTest::addColumn<bool>("cacheEmptied");

        QTest::newRow("first run") << QString() << "2.89" << true;
        QTest::newRow("same version") << "2.89" << "2.89" << false;
        QTest::newRow("2.89 to 2.9") << "2.89" << "2.9" << true;
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

QTEST_MAIN(TestCoreFiles)
#include "tst_corefiles.moc"
