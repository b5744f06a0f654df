#include <QtTest>

#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

#include <functional>

#include "core/logger.h"
#include "core/qloggermanager.h"

namespace {

const char prefKey[] = "pref-debug-enabled";
const qint64 rotationSize = 1048576;

void setPreference(const QVariant& value, const QString& key = QLatin1String(prefKey))
{
    QSettings settings;
    if (value.isNull())
        settings.remove(key);
    else
        settings.setValue(key, value);
}

QString logPath()
{
    return Logger::logFilePath();
}

QByteArray readLog()
{
    QFile file(logPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file in the log folder but the live one: what rotation has left behind.
QStringList rotatedFiles()
{
    QDir dir(QFileInfo(logPath()).absolutePath());
    QStringList names = dir.entryList(QDir::Files);
    names.removeAll(QStringLiteral("kg.log"));
    return names;
}

void clearLogFolder()
{
    QDir dir(QFileInfo(logPath()).absolutePath());
    for (const QString& name : dir.entryList(QDir::Files))
        QVERIFY(dir.remove(name));
}

using FrontEnd = std::function<void(const QString&, const QString&)>;

FrontEnd frontEnd(const QString& name)
{
    static const QMap<QString, FrontEnd> calls { { "Trace", Logger::Trace }, { "Debug", Logger::Debug },
        { "Info", Logger::Info }, { "Warn", Logger::Warn }, { "Error", Logger::Error }, { "Fatal", Logger::Fatal } };
    return calls.value(name);
}

const QString fileStampPattern = QStringLiteral("(\\d\\d-\\d\\d-\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3})");

} // namespace

class TestLogger : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    // Must stay first: it checks that nothing exists before the first gated line.
    void closedGateMakesNothing();
    void gate_data();
    void gate();
    void lineFormats_data();
    void lineFormats();
    void switchingOffStopsAtNextLine();
    void rotation_data();
    void rotation();
    void unwritableLogFileDropsLineOnly();

private:
    QTemporaryDir mWorkingDir;
};

void TestLogger::initTestCase()
{
    // The writer makes a "logs" folder in the working directory; keep it out of the build tree.
    QVERIFY(mWorkingDir.isValid());
    QVERIFY(QDir::setCurrent(mWorkingDir.path()));
}

void TestLogger::init()
{
    setPreference(QVariant());
    clearLogFolder();
}

void TestLogger::closedGateMakesNothing()
{
    Logger::Info(QStringLiteral("main"), QStringLiteral("[main] - argc=1"));
    Logger::Error(QStringLiteral("main"), QStringLiteral("[main] failed"));
    QVERIFY(!QLogger::QLoggerManager::exists());
    QVERIFY(!QFile::exists(logPath()));
    QVERIFY(!QDir(mWorkingDir.path()).exists(QStringLiteral("logs")));
}

void TestLogger::gate_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("open");

    const QString logging = QLatin1String(prefKey);
    const QString code = QStringLiteral("pref-debug-enabled-code");
    QTest::newRow("logging absent") << logging << QVariant() << false;
    QTest::newRow("logging one") << logging << QVariant(QStringLiteral("1")) << true;
    QTest::newRow("logging zero") << logging << QVariant(QStringLiteral("0")) << false;
    QTest::newRow("logging true") << logging << QVariant(QStringLiteral("true")) << false;
    QTest::newRow("logging blank-padded") << logging << QVariant(QStringLiteral(" 1")) << false;
    QTest::newRow("logging zero-padded") << logging << QVariant(QStringLiteral("01")) << false;
    QTest::newRow("code exact") << code << QVariant(QStringLiteral("KVTR-MOL")) << true;
    QTest::newRow("code lower case") << code << QVariant(QStringLiteral("kvtr-mol")) << false;
    QTest::newRow("code trailing blank") << code << QVariant(QStringLiteral("KVTR-MOL ")) << false;
    QTest::newRow("code prefix only") << code << QVariant(QStringLiteral("KVTR")) << false;
    QTest::newRow("code absent") << code << QVariant() << false;
}

void TestLogger::gate()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(bool, open);

    setPreference(QVariant(), QStringLiteral("pref-debug-enabled-code"));
    setPreference(stored, key);
    if (key != QLatin1String(prefKey)) {
        QCOMPARE(Logger::isDebugCodeValid(), open);
        return;
    }
    QCOMPARE(Logger::isLoggingEnabled(), open);
    Logger::Warn(QStringLiteral("properties"), QStringLiteral("[getValue] gate check"));
    QCOMPARE(readLog().contains("[getValue] gate check"), open);
}

void TestLogger::lineFormats_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("fileLevel"); // empty: the line must not reach the file
    QTest::addColumn<QString>("moduleKey");

    QTest::newRow("Trace") << "Trace" << "Trace" << "main-0";
    QTest::newRow("Debug never reaches the file") << "Debug" << QString() << QString();
    QTest::newRow("Info") << "Info" << "Info" << "main-2";
    QTest::newRow("Warn writes Warning") << "Warn" << "Warning" << "main-3";
    QTest::newRow("Error") << "Error" << "Error" << "main-4";
    QTest::newRow("Fatal does not abort") << "Fatal" << "Fatal" << "main-5";
}

void TestLogger::lineFormats()
{
    QFETCH(QString, call);
    QFETCH(QString, fileLevel);
    QFETCH(QString, moduleKey);

    setPreference(QStringLiteral("1"));
    // Placeholders and non-ASCII text must come through untouched.
    const QString message = QStringLiteral("[main] - 100% done %1 \u00fcml\u00e4ut");
    frontEnd(call)(QStringLiteral("main"), message);

    const QString file = QString::fromUtf8(readLog());
    if (fileLevel.isEmpty()) {
        QVERIFY2(file.isEmpty(), qPrintable(file));
        return;
    }
    const QRegularExpression fileLine(QStringLiteral("^\\[") + fileStampPattern + QStringLiteral("\\] \\[") + fileLevel
        + QStringLiteral("\\] \\[") + moduleKey + QStringLiteral("\\] ") + QRegularExpression::escape(message)
        + QStringLiteral("\n$"));
    QVERIFY2(fileLine.match(file).hasMatch(), qPrintable(file));
    // The historic empty folder beside the working directory, and nothing in it.
    QVERIFY(QDir(mWorkingDir.path()).exists(QStringLiteral("logs")));
    QVERIFY(QDir(mWorkingDir.filePath(QStringLiteral("logs"))).isEmpty());
}

void TestLogger::switchingOffStopsAtNextLine()
{
    setPreference(QStringLiteral("1"));
    Logger::Info(QStringLiteral("mainwindow"), QStringLiteral("[zoomIn] first"));
    setPreference(QStringLiteral("0"));
    Logger::Info(QStringLiteral("mainwindow"), QStringLiteral("[zoomIn] second"));
    setPreference(QStringLiteral("1"));
    Logger::Info(QStringLiteral("mainwindow"), QStringLiteral("[zoomIn] third"));

    const QByteArray file = readLog();
    QVERIFY(file.contains("[zoomIn] first"));
    QVERIFY(!file.contains("[zoomIn] second"));
    QVERIFY(file.contains("[zoomIn] third"));
    QCOMPARE(file.count('\n'), 2);
}

void TestLogger::rotation_data()
{
    QTest::addColumn<qint64>("existingSize");
    QTest::addColumn<bool>("rotates");

    QTest::newRow("one byte short") << rotationSize - 1 << false;
    QTest::newRow("exactly the limit") << rotationSize << true;
    QTest::newRow("well past the limit") << rotationSize * 3 << true;
}

void TestLogger::rotation()
{
    QFETCH(qint64, existingSize);
    QFETCH(bool, rotates);

    setPreference(QStringLiteral("1"));
    {
        QFile file(logPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(QByteArray(existingSize, 'x')), existingSize);
    }
    Logger::Info(QStringLiteral("cookiejar"), QStringLiteral("[save] after"));

    const QStringList rotated = rotatedFiles();
    const QStringList lines = QString::fromUtf8(readLog()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (!rotates) {
        QVERIFY2(rotated.isEmpty(), qPrintable(rotated.join(' ')));
        QVERIFY(QFileInfo(logPath()).size() > existingSize);
        QVERIFY(lines.constLast().endsWith(QLatin1String("[Info] [cookiejar-2] [save] after")));
        return;
    }
    QCOMPARE(rotated.size(), 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^kg_\\d\\d_\\d\\d_\\d\\d__\\d\\d_\\d\\d_\\d\\d\\.log$"))
                 .match(rotated.constFirst())
                 .hasMatch(),
        qPrintable(rotated.constFirst()));
    const QString rotatedPath = QFileInfo(logPath()).absolutePath() + QLatin1Char('/') + rotated.constFirst();
    QCOMPARE(QFileInfo(rotatedPath).size(), existingSize);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(QRegularExpression(QStringLiteral("^") + fileStampPattern + QStringLiteral(" - Previuous log ")
                 + QRegularExpression::escape(rotatedPath) + QStringLiteral("$"))
                 .match(lines.at(0))
                 .hasMatch(),
        qPrintable(lines.at(0)));
    QVERIFY(lines.at(1).endsWith(QLatin1String("[Info] [cookiejar-2] [save] after")));
}

void TestLogger::unwritableLogFileDropsLineOnly()
{
    setPreference(QStringLiteral("1"));
    // A folder where the file should be: the open fails whoever runs the test.
    QVERIFY(QDir().mkpath(logPath()));
    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] lost"));
    QVERIFY(QFileInfo(logPath()).isDir());
    QVERIFY(QDir(logPath()).removeRecursively());

    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] kept"));
    QVERIFY(readLog().contains("[replyFinished] kept"));
}

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
