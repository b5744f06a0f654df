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

QStringList captured;
QtMessageHandler previousHandler = nullptr;

void captureHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtDebugMsg) {
        captured << message;
        return;
    }
    previousHandler(type, context, message);
}

// Collects what reaches the debug output while it lives.
struct DebugOutput
{
    DebugOutput()
    {
        captured.clear();
        previousHandler = qInstallMessageHandler(captureHandler);
    }
    ~DebugOutput() { qInstallMessageHandler(previousHandler); }
    // Lines of the front end only, without the writer set-up notes.
    QStringList lines() const
    {
        QStringList result;
        for (const QString& line : captured)
            if (!line.startsWith(QLatin1String("\"[logger][setup]")))
                result << line;
        return result;
    }
};

void setPreference(const QVariant& value)
{
    QSettings settings;
    if (value.isNull())
        settings.remove(QLatin1String(prefKey));
    else
        settings.setValue(QLatin1String(prefKey), value);
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
    static const QMap<QString, FrontEnd> calls {
        { "Trace", Logger::Trace },
        { "Debug", Logger::Debug },
        { "Info", Logger::Info },
        { "Warn", Logger::Warn },
        { "Error", Logger::Error },
        { "Fatal", Logger::Fatal },
    };
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
    void debugCode_data();
    void debugCode();
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
    DebugOutput output;
    Logger::Info(QStringLiteral("main"), QStringLiteral("[main] - argc=1"));
    Logger::Error(QStringLiteral("main"), QStringLiteral("[main] failed"));

    QVERIFY(!QLogger::QLoggerManager::exists());
    QVERIFY(!QFile::exists(logPath()));
    QVERIFY(!QDir(mWorkingDir.path()).exists(QStringLiteral("logs")));
    // Nothing but the two lines themselves: no writer set-up notes either.
    QCOMPARE(captured.size(), 2);
    QVERIFY(captured.at(0).endsWith(QLatin1String("[Info][main][main] - argc=1\"")));
    QVERIFY(captured.at(1).endsWith(QLatin1String("[Error][main][main] failed\"")));
}

void TestLogger::gate_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("open");

    QTest::newRow("absent") << QVariant() << false;
    QTest::newRow("empty") << QVariant(QStringLiteral("")) << false;
    QTest::newRow("one") << QVariant(QStringLiteral("1")) << true;
    QTest::newRow("zero") << QVariant(QStringLiteral("0")) << false;
    QTest::newRow("true") << QVariant(QStringLiteral("true")) << false;
    QTest::newRow("leading blank") << QVariant(QStringLiteral(" 1")) << false;
    QTest::newRow("trailing blank") << QVariant(QStringLiteral("1 ")) << false;
    QTest::newRow("zero-padded") << QVariant(QStringLiteral("01")) << false;
}

void TestLogger::gate()
{
    QFETCH(QVariant, stored);
    QFETCH(bool, open);

    setPreference(stored);
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
    const QDateTime before = QDateTime::currentDateTime().addMSecs(-1);
    DebugOutput output;
    frontEnd(call)(QStringLiteral("main"), message);
    const QDateTime after = QDateTime::currentDateTime().addMSecs(1);

    QCOMPARE(output.lines().size(), 1);
    const QRegularExpression debugLine(QStringLiteral("^\"\\[(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3})\\]\\[")
        + call + QStringLiteral("\\]\\[main\\]") + QRegularExpression::escape(message) + QStringLiteral("\"$"));
    const QRegularExpressionMatch debugMatch = debugLine.match(output.lines().constFirst());
    QVERIFY2(debugMatch.hasMatch(), qPrintable(output.lines().constFirst()));
    const QDateTime debugStamp = QDateTime::fromString(debugMatch.captured(1), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    QVERIFY(debugStamp >= before && debugStamp <= after);

    const QString file = QString::fromUtf8(readLog());
    if (fileLevel.isEmpty()) {
        QVERIFY2(file.isEmpty(), qPrintable(file));
        return;
    }
    const QRegularExpression fileLine(QStringLiteral("^\\[") + fileStampPattern + QStringLiteral("\\] \\[") + fileLevel
        + QStringLiteral("\\] \\[") + moduleKey + QStringLiteral("\\] ") + QRegularExpression::escape(message)
        + QStringLiteral("\n$"));
    const QRegularExpressionMatch fileMatch = fileLine.match(file);
    QVERIFY2(fileMatch.hasMatch(), qPrintable(file));
    const QDateTime fileStamp = QDateTime::fromString(fileMatch.captured(1), QStringLiteral("dd-MM-yyyy hh:mm:ss.zzz"));
    QVERIFY(fileStamp >= before && fileStamp <= after);
    // The historic empty folder beside the working directory, and nothing in it.
    QVERIFY(QDir(mWorkingDir.path()).exists(QStringLiteral("logs")));
    QVERIFY(QDir(mWorkingDir.filePath(QStringLiteral("logs"))).isEmpty());
}

void TestLogger::switchingOffStopsAtNextLine()
{
    setPreference(QStringLiteral("1"));
    Logger::Info(QStringLiteral("mainwindow"), QStringLiteral("[zoomIn] first"));
    setPreference(QStringLiteral("0"));
    DebugOutput output;
    Logger::Info(QStringLiteral("mainwindow"), QStringLiteral("[zoomIn] second"));
    QCOMPARE(output.lines().size(), 1);
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

void TestLogger::debugCode_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("valid");

    QTest::newRow("exact") << QVariant(QStringLiteral("KVTR-MOL")) << true;
    QTest::newRow("lower case") << QVariant(QStringLiteral("kvtr-mol")) << false;
    QTest::newRow("trailing blank") << QVariant(QStringLiteral("KVTR-MOL ")) << false;
    QTest::newRow("leading blank") << QVariant(QStringLiteral(" KVTR-MOL")) << false;
    QTest::newRow("prefix only") << QVariant(QStringLiteral("KVTR")) << false;
    QTest::newRow("empty") << QVariant(QStringLiteral("")) << false;
    QTest::newRow("absent") << QVariant() << false;
}

void TestLogger::debugCode()
{
    QFETCH(QVariant, stored);
    QFETCH(bool, valid);

    QSettings settings;
    if (stored.isNull())
        settings.remove(QStringLiteral("pref-debug-enabled-code"));
    else
        settings.setValue(QStringLiteral("pref-debug-enabled-code"), stored);
    QCOMPARE(Logger::isDebugCodeValid(), valid);
}

void TestLogger::unwritableLogFileDropsLineOnly()
{
    setPreference(QStringLiteral("1"));
    // A folder where the file should be: the open fails whoever runs the test.
    QVERIFY(QDir().mkpath(logPath()));
    DebugOutput output;
    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] lost"));
    QCOMPARE(output.lines().size(), 1);
    QVERIFY(output.lines().constFirst().contains(QLatin1String("[replyFinished] lost")));
    QVERIFY(QFileInfo(logPath()).isDir());
    QVERIFY(QDir(logPath()).removeRecursively());

    Logger::Error(QStringLiteral("versioncheck"), QStringLiteral("[replyFinished] kept"));
    QVERIFY(readLog().contains("[replyFinished] kept"));
}

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
