// One start of the program's web surfaces: surfaceclient <url> <script> [popup]. Loads the URL in a main
// view and prints "main <script's result>", the same in a popup with "popup", then quits through the
// event loop as the program does, so what the surfaces keep is written on the way out.
#include <QApplication>
#include <QGraphicsWebView>
#include <QSignalSpy>
#include <QTextStream>
#include <QTimer>
#include <QWebFrame>
#include <QWebPage>

#include "notifications/notificationwindow.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

static QString runIn(QGraphicsWebView* view, const QUrl& url, const QString& script)
{
    QSignalSpy loaded(view->page(), &QWebPage::loadFinished);
    view->page()->mainFrame()->load(url);
    if (!loaded.wait(20000) || !loaded.first().first().toBool())
        return QStringLiteral("(not loaded)");
    return view->page()->mainFrame()->evaluateJavaScript(script).toString();
}

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    if (argc < 3)
        return 2;
    const QUrl url(QString::fromLocal8Bit(argv[1]));
    const QString script = QString::fromLocal8Bit(argv[2]);
    QTextStream out(stdout);
    auto* main = new IndexWindow();
    out << "main " << runIn(main->webView(), url, script) << '\n';
    NotificationWindow* popup = nullptr;
    if (argc > 3 && QByteArray(argv[3]) == "popup") {
        popup = new NotificationWindow(nullptr, false);
        out << "popup " << runIn(popup->webView(), url, script) << '\n';
    }
    out.flush();
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    const int result = app.exec();
    delete popup;
    delete main;
    return result;
}
