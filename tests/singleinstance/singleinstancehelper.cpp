// Test stand-in for the program's start: joins the single-instance guard as start-up does. A later
// start exits 0 once the first took its "Wake up"; the first prints "first", then "message:<text>"
// per message, and exits 3 when its lifetime (argument 2, ms) is up.
#include <QTimer>

#include "qtsingleapplication/qtsingleapplication.h"

int main(int argc, char** argv)
{
    // Read before the application object, which may rewrite argv.
    const QString id = QString::fromLocal8Bit(argv[1]);
    const int lifetime = QByteArray(argv[2]).toInt();
    QtSingleApplication app(id, argc, argv);
    if (app.sendMessage(QStringLiteral("Wake up"), 5000))
        return 0;
    printf("first\n");
    fflush(stdout);
    QObject::connect(&app, &QtSingleApplication::messageReceived, &app, [](const QString& text) {
        printf("message:%s\n", text.toUtf8().constData());
        fflush(stdout);
    });
    QTimer::singleShot(lifetime, &app, [&app] { app.exit(3); });
    return app.exec();
}
