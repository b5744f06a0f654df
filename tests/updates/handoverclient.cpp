// Plays the running client for the hand-over test: starts the hand-over with its own process id,
// then waits to be killed. Arguments: program folder, installer, volume.
#include <QCoreApplication>
#include <QStringList>
#include <QTimer>

#include "platform/updatehandover.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        return 2;
    UpdateHandOver::instance()->start(
        &app, args.at(1), QString::number(QCoreApplication::applicationPid()), args.at(2), args.at(3));
    // Still alive by then: the script didn't do its job.
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(3); });
    return app.exec();
}
