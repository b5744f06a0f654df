// Test-only stand-in for the program's entry: joins the single-instance guard the way start-up does,
// then, as the first instance, reports on stdout every text it receives.
//
//   singleinstance_helper [id] [lifetime-ms]
//
// Exits 0 after a running instance took its "Wake up"; otherwise prints "first", then one line
// "message:<text>" per message, and ends with 0 on the message "quit" or with 3 when its lifetime
// is up.

#include <QObject>
#include <QString>
#include <QTextStream>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

#include "qtsingleapplication/qtsingleapplication.h"

int main(int argc, char** argv)
{
    // Read before the application object, which may rewrite argv.
    const QString id = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("Kestrelgap");
    const int lifetime = argc > 2 ? std::atoi(argv[2]) : 30000;

    QtSingleApplication app(id, argc, argv);
    if (app.sendMessage(QStringLiteral("Wake up"), 5000))
        return 0;

    QTextStream out(stdout);
    out.setCodec("UTF-8");
    out << "first" << Qt::endl;

    QObject::connect(&app, &QtSingleApplication::messageReceived, &app, [&](const QString& text) {
        out << "message:" << text << Qt::endl;
        if (text == QLatin1String("quit"))
            app.exit(0);
    });
    QTimer::singleShot(lifetime, &app, [&app]() { app.exit(3); });
    return app.exec();
}
