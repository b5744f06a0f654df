// Cost of one logged line: Logger::Info with the log switched on (settings read, writer look-up, file
// opened, appended and closed, rotation at 1 MiB included) against the same calls with it switched
// off (settings read and debug output only). Debug output is swallowed in both runs so that the
// terminal's speed doesn't drown the difference. Prints lines per second for each and the ratio.
//
// Usage: bench_logging [lines] [rounds]   (defaults 5000 and 5; the median round is reported)
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>

#include "core/logger.h"

namespace {

void swallow(QtMsgType, const QMessageLogContext&, const QString&) { }

// A line of the length the program's own lines tend to have.
const QString message = QStringLiteral("[resizeWindowToMessengerSize] - width=1912, height=1075, vx=4, vy=2");

double medianLinesPerSecond(int lines, int rounds, const char* preference)
{
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QString::fromLatin1(preference));
    QVector<double> rates;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < lines; ++i)
            Logger::Info(QStringLiteral("mainwindow"), message);
        rates << lines * 1e9 / qMax<qint64>(1, timer.nsecsElapsed());
    }
    std::sort(rates.begin(), rates.end());
    return rates.at(rates.size() / 2);
}

} // namespace

int main(int argc, char** argv)
{
    // Keep the user's settings and log out of reach; the writer's empty "logs" folder goes there too.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    QDir::setCurrent(home.path());

    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));

    const int lines = argc > 1 ? qMax(1, QByteArray(argv[1]).toInt()) : 5000;
    const int rounds = argc > 2 ? qMax(1, QByteArray(argv[2]).toInt()) : 5;
    qInstallMessageHandler(swallow);

    // Warm both paths once so that neither pays for first-use set-up in its measured rounds.
    medianLinesPerSecond(100, 1, "0");
    medianLinesPerSecond(100, 1, "1");
    const double off = medianLinesPerSecond(lines, rounds, "0");
    const double on = medianLinesPerSecond(lines, rounds, "1");

    const QDir logFolder(QStandardPaths::writableLocation(QStandardPaths::DataLocation));
    QTextStream out(stdout);
    out << "lines " << lines << ", rounds " << rounds << ", median round\n";
    out << "logging off: " << qRound64(off) << " lines/s\n";
    out << "logging on:  " << qRound64(on) << " lines/s\n";
    out << "on/off cost ratio: " << QString::number(off / on, 'f', 2) << " (one line on costs this many lines off)\n";
    out << "log files written: " << logFolder.entryList(QDir::Files).size() << " (rotation at 1 MiB included)\n";
    return 0;
}
