// The floor for a page in a Qt window: a bare QWebView that loads one page, titled "Kestrelgap"
// from the start and painting in software only, like the client. Timed from the outside like
// the client, it shows what QtWebKit itself adds to start-up, memory and idle CPU. Its page may
// reach the service host from the local start page, as the client's may.
//
// Usage: bench_webfloor URL
#include <QApplication>
#include <QUrl>
#include <QWebSettings>
#include <QWebView>

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    QWebView view;
    view.settings()->setAttribute(QWebSettings::LocalContentCanAccessRemoteUrls, true);
    view.setWindowTitle(QStringLiteral("Kestrelgap"));
    view.resize(1000, 700);
    view.load(QUrl::fromUserInput(QString::fromLocal8Bit(argv[1])));
    view.show();
    return QApplication::exec();
}
