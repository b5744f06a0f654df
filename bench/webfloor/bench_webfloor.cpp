// The floor for a page in a Qt window: a bare QWebView that loads one page, titled "Kestrelgap"
// from the start and painting in software only, like the client. Timed from the outside like
// the client, it shows what QtWebKit itself adds to start-up, memory and idle CPU. Its page may
// reach the service host from the local start page, as the client's may.
//
// With --lean, the page's memory alone under a stream of events: the engine keeps no resource
// that no page uses, as in the client, and its collector runs every few seconds, so that a
// reading taken at a quiet moment counts what the page keeps, not garbage.
//
// Usage: bench_webfloor URL [--lean]
#include <QApplication>
#include <QTimer>
#include <QUrl>
#include <QWebSettings>
#include <QWebView>

#include "web/enginememory.h"

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    QTimer collect;
    if (argc > 2 && QByteArray(argv[2]) == "--lean") {
        QWebSettings::setObjectCacheCapacities(0, 0, 16 * 1024 * 1024);
        QObject::connect(&collect, &QTimer::timeout, &EngineMemory::reclaimNow);
        collect.start(5000);
    }
    QWebView view;
    view.settings()->setAttribute(QWebSettings::LocalContentCanAccessRemoteUrls, true);
    view.setWindowTitle(QStringLiteral("Kestrelgap"));
    view.resize(1000, 700);
    view.load(QUrl::fromUserInput(QString::fromLocal8Bit(argv[1])));
    view.show();
    return QApplication::exec();
}
