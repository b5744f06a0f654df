// A long day of messages through the bridge, each against a baseline in the same run:
//  - battery reports into the tray, against as many bridge calls that only read a setting;
//  - quick-reply popups opened by the page and closed by their title bar, against as many bare
//    web windows on a page of their own, shown and closed.
// Prints the time and the memory kept per operation (settled: deferred deletes done, the web
// engine's caches and garbage collected, freed heap handed back). Needs a display with a tray
// (scripts/desktop-session.sh).
//
// Usage: bench_load [reports] [cycles]   (default 10000 reports, 500 cycles)
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGraphicsWebView>
#include <QPointer>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>
#include <QWebSettings>
#include <QWebView>

#include <cstdio>
#include <functional>
#include <malloc.h>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "web/indexwindow.h"
#include "../residentkib.h"

namespace {

// The service's page reduced to what the load needs.
const char mainPage[] = R"(<html><body><script>
function genericNativeNotificationButtonClickedCallbackHelper(text) {}
function reportBattery(from, count) {
  for (var i = from; i < from + count; i++) qtIndexWindow.showBatteryStatus(i % 101, i % 3 == 0);
}
function readSetting(from, count) {
  for (var i = from; i < from + count; i++) qtIndexWindow.getSetting('bench-' + (i % 101), 'x');
}
function notify(n) {
  var key = "thread-" + (n % 5);
  var payload = { key: key, name: "Contact " + (n % 5), message: "Message " + n, sound: false };
  return qtIndexWindow.launchQuickReply(key, JSON.stringify(payload), 340, 200, payload.name);
}
</script></body></html>)";

bool waitFor(const std::function<bool()>& done, int ms = 20000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

long settledKiB()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
    QWebSettings::clearMemoryCaches();
    malloc_trim(0);
    return residentKiB();
}

// Runs `one` count times after a warm-up of `warm`; prints "<what>: N in T ms, B bytes kept each".
bool measure(const char* what, int count, int warm, const std::function<bool(int)>& one)
{
    for (int i = 0; i < warm; ++i) {
        if (!one(i))
            return false;
    }
    const long before = settledKiB();
    QElapsedTimer clock;
    clock.start();
    for (int i = warm; i < warm + count; ++i) {
        if (!one(i)) {
            printf("%s: stuck at %d\n", what, i);
            return false;
        }
    }
    const qint64 ms = clock.elapsed();
    const long after = settledKiB();
    printf("%s: %d in %lld ms, %.0f bytes kept each\n", what, count, ms, double(after - before) * 1024.0 / count);
    fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir home;
    for (const char* name : { "HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME" })
        qputenv(name, QFile::encodeName(home.path() + QLatin1Char('/') + QLatin1String(name)));
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const int reports = argc > 1 ? qMax(500, atoi(argv[1])) : 10000;
    const int cycles = argc > 2 ? qMax(1, atoi(argv[2])) : 500;
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});

    MainWindow mainWindow;
    mainWindow.showInitialWindow();
    mainWindowHolder::set(&mainWindow);
    if (!QDir::setCurrent(QStringLiteral(KESTRELGAP_STAGE_DIR))) {
        printf("staged program folder missing: %s\n", KESTRELGAP_STAGE_DIR);
        return 1;
    }
    WinMenuBarIcon::getInstance(nullptr)->show();
    QWebFrame* frame = mainWindow.indexWindow()->webView()->page()->mainFrame();
    bool loaded = false;
    QObject::connect(frame->page(), &QWebPage::loadFinished, [&loaded](bool) { loaded = true; });
    frame->setHtml(QString::fromLatin1(mainPage), QUrl(QStringLiteral("http://127.0.0.1/")));
    if (!waitFor([&] { return loaded; }))
        return 1;

    // In pieces of 500, with the event loop running between them as between the page's reports.
    const auto inPieces = [frame](const char* function) {
        return [frame, function](int i) {
            if (i % 500 == 0) {
                frame->evaluateJavaScript(QStringLiteral("%1(%2, 500)").arg(QLatin1String(function)).arg(i));
                QCoreApplication::processEvents();
            }
            return true;
        };
    };
    bool ok = measure("bridge calls reading a setting", reports, 1000, inPieces("readSetting"))
        && measure("battery reports", reports, 1000, inPieces("reportBattery"));

    NotificationWindowManager* manager = NotificationWindowManager::getInstance();
    const QString popupPage = QStringLiteral("<html><body><textarea></textarea><script>var n = 0;</script></body></html>");
    ok = ok && measure("bare web windows", cycles, 20, [&](int) {
        QPointer<QWebView> view = new QWebView();
        view->setAttribute(Qt::WA_DeleteOnClose);
        view->resize(340, 200);
        bool done = false;
        QObject::connect(view->page(), &QWebPage::loadFinished, [&done](bool) { done = true; });
        view->setHtml(popupPage);
        view->show();
        if (!waitFor([&] { return done && view->isVisible(); }))
            return false;
        view->close();
        return waitFor([&] { return !view; });
    });
    ok = ok && measure("popup cycles", cycles, 20, [&](int n) {
        const QString key = QStringLiteral("thread-%1").arg(n % 5);
        if (!frame->evaluateJavaScript(QStringLiteral("notify(%1)").arg(n)).toBool())
            return false;
        QPointer<NotificationWindow> window;
        if (!waitFor([&] { return (window = manager->getNotificationWindow(key)) && window->isVisible(); }))
            return false;
        window->close(); // the title bar's close: asks the page before the window goes
        return waitFor([&] { return !window; });
    });
    manager->closeAllNotificationWindows();
    return ok ? 0 : 1;
}
