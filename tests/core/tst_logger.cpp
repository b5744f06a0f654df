#include <QtTest>

#include <QSettings>
#include <QTemporaryDir>

#include "core/logger.h"

namespace {

const qint64 rotationSize = 1048576;

void setPreference(const QString& key, const QString& value)
{
    QSettings settings;
    value.isNull() ? settings.remove(key) : settings.setValue(key, value);
}

QString readLog()
{
    QFile file(Logger::logFilePath());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QDir logFolder()
{
    return QFileInfo(Logger::logFilePath()).absoluteDir();
}

const QString stamp = QStringLiteral("\\d\\d-\\d\\d-\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}");

QStringList debugOutput;
void recordDebugOutput(QtMsgType, const QMessageLogContext&, const QString& text)
{
    debugOutput.append(text);
}

qint64 folderSize()
{
    qint64 total = 0;
    for (const QFileInfo& file : logFolder().entryInfoList(QDir::Files))
        total += file.size();
    return total;
}

} // namespace

class TestLogger : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void gate_data();
    void gate();
    void lineFormats_data();
    void lineFormats();
    void rotation_data();
    void rotation();
    void unwritableLogFileDropsLineOnly();
    void debugOutputOnlyWhenLoggingIsOn_data();
    void debugOutputOnlyWhenLoggingIsOn();
    void folderStaysBounded_data();
    void folderStaysBounded();

private:
    QTemporaryDir mWorkingDir;
};

void TestLogger::initTestCase()
{
    // The writer makes a "logs" folder in the working directory; keep it out of the build tree.
    QVERIFY(QDir::setCurrent(mWorkingDir.path()));
}

void TestLogger::init()
{
    setPreference(QStringLiteral("pref-debug-enabled"), QString());
    setPreference(QStringLiteral("pref-debug-enabled-code"), QString());
    for (const QString& name : logFolder().entryList(QDir::Files))
        QVERIFY(logFolder().remove(name));
}

void TestLogger::gate_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("open");

    const QString logging = QStringLiteral("pref-debug-enabled");
    const QString code = QStringLiteral("pref-debug-enabled-code");
    QTest::newRow("logging absent") << logging << QString() << false;
    QTest::newRow("logging one") << logging << "1" << true;
    QTest::newRow("logging true") << logging << "true" << false;
    QTest::newRow("logging blank-padded") << logging << " 1" << false;
    QTest::newRow("logging zero-padded") << logging << "01" << false;
    QTest::newRow("code exact") << code << "KVTR-MOL" << true;
    QTest::newRow("code lower case") << code << "kvtr-mol" << false;
    QTest::newRow("code trailing blank") << code << "KVTR-MOL " << false;
}

void TestLogger::gate()
{
    QFETCH(QString, key);
    QFETCH(QString, stored);
    QFETCH(bool, open);

    setPreference(key, stored);
    if (key.endsWith(QLatin1String("code"))) {
        QCOMPARE(Logger::isDebugCodeValid(), open);
        return;
    }
    Logger::Warn(QStringLiteral("properties"), QStringLiteral("[getValue] gate check"));
    // A closed gate leaves no file behind either.
    QCOMPARE(QFile::exists(Logger::logFilePath()), open);
    QCOMPARE(readLog().contains(QLatin1String("[getValue] gate check")), open);
    // The gate is read at every line, so switching off takes effect at once.
    setPreference(key, QStringLiteral("0"));
    Logger::Warn(QStringLiteral("properties"), QStringLiteral("[getValue] after off"));
    QVERIFY(!readLog().contains(QLatin1String("after off")));
}

void TestLogger::lineFormats_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("prefix"); // empty: the line must not reach the file

    QTest::newRow("Trace") << "Trace" << "[Trace] [main-0]";
    QTest::newRow("Debug stays out of the file") << "Debug" << QString();
    QTest::newRow("Info") << "Info" << "[Info] [main-2]";
    QTest::newRow("Warn writes Warning") << "Warn" << "[Warning] [main-3]";
    QTest::newRow("Error") << "Error" << "[Error] [main-4]";
    QTest::newRow("Fatal does not abort") << "Fatal" << "[Fatal] [main-5]";
}

void TestLogger::lineFormats()
{
    QFETCH(QString, call);
    QFETCH(QString, prefix);

    setPreference(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    // Placeholders and non-ASCII text must come through untouched.
    const QString message = QStringLiteral("[main] - 100% done %1 \u00fcml\u00e4ut");
    const QMap<QString, void (*)(const QString&, const QString&)> calls { { "Trace", Logger::Trace },
        { "Debug", Logger::Debug }, { "Info", Logger::Info }, { "Warn", Logger::Warn }, { "Error", Logger::Error },
        { "Fatal", Logger::Fatal } };
    calls.value(call)(QStringLiteral("main"), message);

    const QString file = readLog();
    if (prefix.isEmpty())
        QVERIFY2(file.isEmpty(), qPrintable(file));
    else
        QVERIFY2(QRegularExpression(QStringLiteral("^\\[%1\\] ").arg(stamp)
                     + QRegularExpression::escape(prefix + ' ' + message) + "\n$") .match(file) .hasMatch(),
            qPrintable(file));
}

void TestLogger::rotation_data()
{
    QTest::addColumn<qint64>("existingSize");
    QTest::addColumn<bool>("rotates");

    QTest::newRow("one byte short") << rotationSize - 1 << false;
    QTest::newRow("exactly the limit") << rotationSize << true;
}

void TestLogger::rotation()
{
    QFETCH(qint64, existingSize);
    QFETCH(bool, rotates);

    setPreference(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    {
        QFile file(Logger::logFilePath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(QByteArray(existingSize, 'x')), existingSize);
    }
    Logger::Info(QStringLiteral("cookiejar"), QStringLiteral("[save] after"));

    QStringList rotated = logFolder().entryList(QDir::Files);
    rotated.removeAll(QStringLiteral("kg.log"));
    const QStringList lines = readLog().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY(lines.constLast().endsWith(QLatin1String("[Info] [cookiejar-2] [save] after")));
    if (!rotates) {
        QCOMPARE(rotated, QStringList());
        return;
    }
    QCOMPARE(rotated.size(), 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^kg_\\d\\d_\\d\\d_\\d\\d__\\d\\d_\\d\\d_\\d\\d\\.log$"))
                 .match(rotated.constFirst()) .hasMatch(),
        qPrintable(rotated.constFirst()));
    const QString rotatedPath = logFolder().filePath(rotated.constFirst());
    QCOMPARE(QFileInfo(rotatedPath).size(), existingSize);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(QRegularExpression('^' + stamp + " - Previuous log " + QRegularExpression::escape(rotatedPath) + '$')
                 .match(lines.at(0)) .hasMatch(),
        qPrintable(lines.at(0)));
}

void TestLogger::unwritableLogFileDropsLineOnly()
{
    setPreference(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    // A folder where the file should be: the open fails whoever runs the test.
    QVERIFY(QDir().mkpath(Logger::logFilePath()));
    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] lost"));
    QVERIFY(QDir(Logger::logFilePath()).removeRecursively());
    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] kept"));
    QVERIFY(readLog().contains(QLatin1String("[replyFinished] kept")));
}

void TestLogger::debugOutputOnlyWhenLoggingIsOn_data()
{
    QTest::addColumn<QString>("logging");
    QTest::addColumn<int>("lines"); // of six calls, one per level

    QTest::newRow("never switched on") << QString() << 0;
    QTest::newRow("switched off") << "0" << 0;
    QTest::newRow("switched on") << "1" << 6;
}

// The page's texts, names and numbers are in these lines; stderr ends up in the session's journal.
void TestLogger::debugOutputOnlyWhenLoggingIsOn()
{
    QFETCH(QString, logging);
    QFETCH(int, lines);

    setPreference(QStringLiteral("pref-debug-enabled"), logging);
    debugOutput.clear();
    const QtMessageHandler previous = qInstallMessageHandler(recordDebugOutput);
    const QString secret = QStringLiteral("[showNotification] text=meet at 5, +15551234567");
    for (auto call : { Logger::Trace, Logger::Debug, Logger::Info, Logger::Warn, Logger::Error, Logger::Fatal })
        call(QStringLiteral("indexwindow"), secret);
    qInstallMessageHandler(previous);
    QCOMPARE(debugOutput.filter(QStringLiteral("+15551234567")).size(), lines);
}

void TestLogger::folderStaysBounded_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("rotatedFiles");

    // 200 lines of 60000 characters: about 11.5 MiB, eleven rotations, of which five stay.
    QTest::newRow("many rotations") << 200 << 60000 << 5;
    // Each 4 MiB line is cut to 64 KiB: 50 of them make 3.2 MiB, three rotations.
    QTest::newRow("megabyte lines") << 50 << 4 * 1024 * 1024 << 3;
}

void TestLogger::folderStaysBounded()
{
    QFETCH(int, count);
    QFETCH(int, length);
    QFETCH(int, rotatedFiles);

    setPreference(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    const QString line(length, QLatin1Char('m'));
    for (int i = 0; i < count; ++i)
        Logger::Info(QStringLiteral("indexwindow"), line);
    QCOMPARE(logFolder().entryList(QDir::Files).size(), rotatedFiles + 1);
    // Six files of at most 1 MiB and one 64 KiB line each, with their stamps.
    QVERIFY2(folderSize() <= 6 * (rotationSize + 66000), qPrintable(QString::number(folderSize())));
}

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
