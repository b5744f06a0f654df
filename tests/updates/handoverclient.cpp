// The running client in the hand-over test. Arguments: program folder, installer, volume. Started
// again with none, as the script does once the installer is done, it marks $HANDOVER_RESTARTED.
#include <QCoreApplication>
#include <QFile>
#include <QTimer>

#include <cstdio>

#include "platform/updatehandover.h"

// Where the dialog would tell the user that the package did not go in.
class Owner : public QObject
{
    Q_OBJECT
public slots:
    void handOverFailed(const QString& reason)
    {
        std::printf("refused: %s\n", qPrintable(reason));
        std::fflush(stdout);
        QCoreApplication::exit(4);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 1) {
        QFile mark(qEnvironmentVariable("HANDOVER_RESTARTED"));
        return mark.open(QIODevice::WriteOnly) ? 0 : 1;
    }
    if (args.size() != 4)
        return 2;
    Owner owner;
    UpdateHandOver::instance()->start(
        &owner, args.at(1), QString::number(QCoreApplication::applicationPid()), args.at(2), args.at(3));
    // Still alive by then: the script didn't do its job.
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(3); });
    return app.exec();
}

#include "handoverclient.moc"
