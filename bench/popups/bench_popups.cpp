// Cost of a popup: time until 20 popups, opened one after another the way the page opens them,
// have all been shown by their own page, and the memory each one adds; against 20 bare top-level
// windows of the same size shown in the same run. Needs a display (scripts/desktop-session.sh).
//
// Usage: bench_popups [count] [hold-ms]   (default 20 popups; hold-ms keeps them open afterwards, to look at)
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QWidget>

#include <functional>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"

namespace {

// Resident set size in KiB, from the kernel's own count.
long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

// Spins the event loop until done() holds or 60 s have passed; false on time-out.
bool waitFor(const std::function<bool()>& done)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > 60000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

struct Result
{
    qint64 ms = 0;
    long kib = 0;
    bool ok = false;
};

template <typename Open>
Result measure(int count, Open open, QList<QPointer<QWidget>>& windows)
{
    const long before = residentKiB();
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < count; ++i)
        windows << open(i);
    Result result;
    result.ok = waitFor([&windows]() {
        for (const QPointer<QWidget>& window : windows) {
            if (!window || !window->isVisible())
                return false;
        }
        return true;
    });
    result.ms = timer.elapsed();
    result.kib = residentKiB() - before;
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir home;
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + QStringLiteral("/config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path() + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home.path() + QStringLiteral("/cache")));
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const int count = argc > 1 ? qMax(1, atoi(argv[1])) : 20;
    QTextStream out(stdout);

    // From the staged program folder, as the program runs: the popups load the real popup page.
    if (!QDir::setCurrent(QStringLiteral(KESTRELGAP_STAGE_DIR))) {
        out << "staged program folder missing: " << KESTRELGAP_STAGE_DIR << "\n";
        return 1;
    }
    MainWindow mainWindow;
    mainWindow.showInitialWindow();
    mainWindowHolder::set(&mainWindow);
    const int width = int(300 * mainWindow.getScaleFactor());
    const int height = int(200 * mainWindow.getScaleFactor());

    QList<QPointer<QWidget>> bareWindows;
    const Result bare = measure(count, [width, height](int i) {
        auto* window = new QWidget(nullptr, Qt::WindowStaysOnTopHint);
        window->setFixedSize(width, height);
        window->move(20 + 10 * i, 20 + 10 * i);
        window->show();
        return window;
    }, bareWindows);
    for (const QPointer<QWidget>& window : bareWindows)
        delete window.data();
    QCoreApplication::processEvents();

    const QString json = QStringLiteral("{\"name\":\"Benchmark\",\"message\":\"Are we still on for tonight?\",\"sound\":false}");
    QList<QPointer<QWidget>> popupWindows;
    const Result popups = measure(count, [&json](int i) {
        return NotificationWindowManager::getInstance()->createNotificationWindow(
            QStringLiteral("bench-%1").arg(i), json, 300, 200);
    }, popupWindows);

    out << "windows: " << count << "\n";
    out << "bare windows: all shown after " << bare.ms << " ms, " << bare.kib / count << " KiB each"
        << (bare.ok ? "" : " (timed out)") << "\n";
    out << "popups:       all shown after " << popups.ms << " ms, " << popups.kib / count << " KiB each"
        << (popups.ok ? "" : " (timed out)") << "\n";
    if (bare.ms > 0)
        out << "time ratio popups/bare: " << QString::number(double(popups.ms) / bare.ms, 'f', 1) << "\n";
    if (bare.kib > 0)
        out << "memory ratio popups/bare: " << QString::number(double(popups.kib) / bare.kib, 'f', 1) << "\n";

    out.flush();
    if (argc > 2) {
        QElapsedTimer hold;
        hold.start();
        waitFor([&hold, argv]() { return hold.elapsed() > atoi(argv[2]); });
    }
    NotificationWindowManager::getInstance()->closeAllNotificationWindows();
    return bare.ok && popups.ok ? 0 : 1;
}
