// Cost of a popup: time until 20 popups, opened by the page through the bridge in one script run,
// have all been shown by their own page, and the memory each one adds; against 20 bare top-level
// windows of the same size, and 20 bare web views on the same popup page, shown in the same run. Then the memory given back once the tray's
// "close all" has closed them and the process has settled, and what stays after each further
// round: a pool the web engine reuses levels off, a leak keeps growing. Last, the memory one text
// into an open popup keeps, over a stream of texts into it.
// Needs a display (scripts/desktop-session.sh).
//
// Usage: bench_popups [count] [rounds] [texts]   (default 20 popups, 1 round, 300 texts)
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QWebFrame>
#include <QWebPage>
#include <QWebView>
#include <QWidget>

#include <functional>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "web/enginememory.h"
#include "web/indexwindow.h"
#include "../residentkib.h"

#include <QGraphicsWebView>

namespace {


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
Result measure(Open open, QList<QPointer<QWidget>>& windows)
{
    const long before = residentKiB();
    QElapsedTimer timer;
    timer.start();
    open(windows);
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
    // As the program runs: every widget paints in software.
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
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
    const Result bare = measure([count, width, height](QList<QPointer<QWidget>>& windows) {
        for (int i = 0; i < count; ++i) {
            auto* window = new QWidget(nullptr, Qt::WindowStaysOnTopHint);
            window->setFixedSize(width, height);
            window->move(20 + 10 * i, 20 + 10 * i);
            window->show();
            windows << window;
        }
    }, bareWindows);
    for (const QPointer<QWidget>& window : bareWindows)
        delete window.data();
    QCoreApplication::processEvents();

    // The web engine's share: as many bare web views on the popup page, each shown once its page
    // has loaded, as a popup is. The page is loaded once before, so that neither the web views
    // nor the popups pay for its first load alone.
    const QUrl popupPage = QUrl::fromLocalFile(QDir::current().absoluteFilePath(QStringLiteral("html/notification.html")));
    {
        QWebView warmUp;
        bool loaded = false;
        QObject::connect(&warmUp, &QWebView::loadFinished, [&loaded] { loaded = true; });
        warmUp.load(popupPage);
        waitFor([&loaded] { return loaded; });
    }
    QList<QPointer<QWidget>> webViews;
    const Result web = measure([count, width, height, &popupPage](QList<QPointer<QWidget>>& windows) {
        for (int i = 0; i < count; ++i) {
            auto* view = new QWebView(nullptr);
            view->setWindowFlags(Qt::WindowStaysOnTopHint);
            view->setFixedSize(width, height);
            view->move(20 + 10 * i, 20 + 10 * i);
            QObject::connect(view, &QWebView::loadFinished, view, &QWidget::show);
            view->load(popupPage);
            windows << view;
        }
    }, webViews);
    for (const QPointer<QWidget>& view : webViews)
        delete view.data();
    QCoreApplication::processEvents();
    // What the web views left goes back now, not into the popups' figures.
    EngineMemory::reclaimNow();

    QWebFrame* frame = mainWindow.indexWindow()->webView()->page()->mainFrame();
    const bool bridged = waitFor([frame]() {
        return frame->evaluateJavaScript(QStringLiteral("typeof qtIndexWindow")).toString() == QLatin1String("object");
    });
    const auto script = [count](const QString& prefix) {
        return QStringLiteral(
            "for (var i = 0; i < %1; ++i)"
            "  qtIndexWindow.launchQuickReply('%2-' + i,"
            "    JSON.stringify({name: 'Benchmark', message: 'Are we still on for tonight?', sound: false}),"
            "    300, 200, 'Benchmark ' + i);").arg(count).arg(prefix);
    };
    const auto openPopups = [&](const QString& prefix) {
        return [&, prefix](QList<QPointer<QWidget>>& windows) {
            frame->evaluateJavaScript(script(prefix));
            for (int i = 0; i < count; ++i)
                windows << NotificationWindowManager::getInstance()->getNotificationWindow(prefix + QStringLiteral("-%1").arg(i));
        };
    };
    const long base = residentKiB();
    // Closed as the tray's "close all" closes them. The web engine's collector gives the closed
    // pages back on its own timer, typically 5 to 15 s later: the figure is taken 15 s after.
    const auto closeAndSettle = [](const QList<QPointer<QWidget>>& windows) {
        NotificationWindowManager::getInstance()->closeAllQuickReplyWindows();
        const bool closed = waitFor([&windows]() {
            for (const QPointer<QWidget>& window : windows) {
                if (window)
                    return false;
            }
            return true;
        });
        QElapsedTimer settle;
        settle.start();
        waitFor([&settle]() { return settle.elapsed() > 15000; });
        return closed;
    };

    const int rounds = argc > 2 ? qMax(1, atoi(argv[2])) : 1;
    Result popups;
    long open = 0;
    bool allClosed = true;
    QStringList staysAfterRound;
    double givenBack = 0;
    for (int round = 1; round <= rounds; ++round) {
        QList<QPointer<QWidget>> windows;
        const Result shown = measure(openPopups(QStringLiteral("round%1").arg(round)), windows);
        if (round == 1) {
            popups = shown;
            open = residentKiB();
        }
        allClosed = closeAndSettle(windows) && shown.ok && allClosed;
        staysAfterRound << QString::number((residentKiB() - base) / count);
        if (round == 1)
            givenBack = open > base ? 100.0 * (open - residentKiB()) / (open - base) : 0;
    }

    // Texts into one open popup, as a thread's new messages reach its window. The figure is taken
    // against the memory after a first tenth of them, once the page's own buffers have grown.
    const int texts = argc > 3 ? qMax(10, atoi(argv[3])) : 300;
    frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.launchQuickReply('stream', "
        "JSON.stringify({name: 'Benchmark', message: 'first', sound: false}), 300, 200, 'Stream')"));
    QPointer<NotificationWindow> stream = NotificationWindowManager::getInstance()->getNotificationWindow(QStringLiteral("stream"));
    waitFor([&stream]() { return !stream || stream->isVisible(); });
    long textsBase = 0;
    QElapsedTimer textTimer;
    for (int i = 0; i < texts && stream; ++i) {
        if (i == texts / 10)
            textsBase = residentKiB();
        frame->evaluateJavaScript(QStringLiteral("qtIndexWindow.launchQuickReply('stream', "
            "JSON.stringify({name: 'Benchmark', message: 'Message %1 of the stream', sound: false}), 300, 200, 'Stream')").arg(i));
        textTimer.start();
        waitFor([&textTimer]() { return textTimer.elapsed() > 20; });
    }
    const double perText = stream ? double(residentKiB() - textsBase) / (texts - texts / 10) : 0;

    out << "windows: " << count << "\n";
    out << "bare windows: all shown after " << bare.ms << " ms, " << bare.kib / count << " KiB each"
        << (bare.ok ? "" : " (timed out)") << "\n";
    out << "popups:       all shown after " << popups.ms << " ms, " << popups.kib / count << " KiB each"
        << (popups.ok ? "" : " (timed out)") << "\n";
    out << "bare web views: all shown after " << web.ms << " ms, " << web.kib / count << " KiB each"
        << (web.ok ? "" : " (timed out)") << "\n";
    if (bare.ms > 0)
        out << "time ratio popups/bare: " << QString::number(double(popups.ms) / bare.ms, 'f', 1) << "\n";
    if (web.ms > 0)
        out << "time ratio popups/bare web views: " << QString::number(double(popups.ms) / web.ms, 'f', 2) << "\n";
    out << "closed all: " << QString::number(givenBack, 'f', 0) << "% given back 15 s later, "
        << staysAfterRound.first() << " KiB per popup stays" << (allClosed ? "" : " (some not closed)") << "\n";
    if (rounds > 1)
        out << "KiB per popup that stays after each round of " << count << ": " << staysAfterRound.join(QStringLiteral(", ")) << "\n";

    out << "texts into an open popup: " << QString::number(perText, 'f', 2) << " KiB kept per text over "
        << texts << (stream ? "" : " (the popup went away)") << "\n";
    out.flush();
    return bridged && bare.ok && web.ok && allClosed ? 0 : 1;
}
