// Test helper: one run of the program's web surfaces. Loads the URL in a main view (IndexWindow),
// runs the script there and prints "main <result>"; with a third argument "popup", loads the URL in
// a popup (NotificationWindow) too, runs the script there and prints "popup <result>". Then quits
// through the event loop as the program does, so whatever the surfaces keep is written on the way
// out. Run several times, it shows what survives a restart.
//
// Usage: surfaceclient <url> <script> [popup]
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

namespace {

QString runIn(QGraphicsWebView* view, const QUrl& url, const QString& script)
{
    QSignalSpy loaded(view->page(), &QWebPage::loadFinished);
    view->page()->mainFrame()->load(url);
    if (!loaded.wait(20000) || !loaded.first().first().toBool())
        return QStringLiteral("(not loaded)");
    return view->page()->mainFrame()->evaluateJavaScript(script).toString();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));
    SimpleCrypt::setUpShared();
    QTextStream out(stdout);
    if (argc < 3) {
        out << "usage: surfaceclient <url> <script> [popup]\n";
        return 2;
    }
    const QUrl url(QString::fromLocal8Bit(argv[1]));
    const QString script = QString::fromLocal8Bit(argv[2]);

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
