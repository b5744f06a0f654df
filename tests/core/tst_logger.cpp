#include <QtTest>

#include "core/logger.h"

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

} // namespace

class TestLogger : public QObject {
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
        const QStringList lines = readLog().split('\n', Qt::SkipEmptyParts);
        const QStringList levels = { "Trace] [indexwindow-0", "Info] [indexwindow-2", "Warning] [indexwindow-3",
            "Error] [indexwindow-4", "Fatal] [indexwindow-5" };
        QCOMPARE(lines.size(), open ? levels.size() : 0);
        for (int i = 0; i < lines.size(); ++i)
            QVERIFY2(QRegularExpression("^\\[" + stamp + "\\] \\[" + QRegularExpression::escape(levels.at(i)) + "\\] "
                         + QRegularExpression::escape(message) + '$')
                         .match(lines.at(i))
                         .hasMatch(),
                qPrintable(lines.at(i)));
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
        QFETCH(int, files);

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
        QCOMPARE(all.size(), files);
        qint64 total = 0;
        for (const QFileInfo& info : all)
            total += info.size();
        // Six files of at most 1 MiB and one cut line each.
        QVERIFY2(total <= 6 * (rotationSize + 66000), qPrintable(QString::number(total)));
        if (files == 1)
            return;
        const QRegularExpression previous('^' + stamp + " - Previuous log "
            + QRegularExpression::escape(logFolder().filePath("kg_"))
            + "\\d\\d_\\d\\d_\\d\\d__\\d\\d_\\d\\d_\\d\\d(_\\d+)?\\.log\n");
        QVERIFY2(previous.match(readLog()).hasMatch(), qPrintable(readLog().left(200)));
        const QFileInfo& rotated = all.at(all.at(0).fileName() == "kg.log" ? 1 : 0);
        QVERIFY(existing == 0 || rotated.size() == existing);
    }
};

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
