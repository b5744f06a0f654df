#include "updatehandover.h"

#include <QCoreApplication>
#include <QProcess>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("updatehandover");

class LinuxUpdateHandOver : public UpdateHandOver
{
public:
    // Through /bin/sh, so the script needs no execute bit of its own: a program folder copied
    // without modes still updates.
    void start(QObject* owner, const QString& programFolder, const QString& pid, const QString& installer,
        const QString& volume) override
    {
        auto* process = new QProcess(owner);
        process->setWorkingDirectory(programFolder);
        process->setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(process, &QProcess::errorOccurred, process, [process](QProcess::ProcessError error) {
            Logger::Error(logModule, QStringLiteral("[start] - error=") + QString::number(int(error))
                    + QStringLiteral(", ") + process->errorString());
        });
        // Normally the script ends this process first; an end we live to see means it failed.
        QObject::connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), owner,
            [process, owner](int exitCode) {
                Logger::Error(logModule, QStringLiteral("[start] - script ended, exitCode=") + QString::number(exitCode)
                        + QStringLiteral(", output=") + QString::fromLocal8Bit(process->readAll()));
                // A package that didn't go in (the prompt refused, the package broken) leaves us running.
                QMetaObject::invokeMethod(owner, "handOverFailed", Qt::QueuedConnection,
                    Q_ARG(QString, QCoreApplication::translate("UpdateHandOver",
                        "The update could not be installed. Kestrelgap goes on running in its current version.")));
            });
        Logger::Info(logModule, QStringLiteral("[start] - folder=") + programFolder);
        // The last argument is what the script starts again once the installer is done.
        process->start(QStringLiteral("/bin/sh"),
            { scriptName(), pid, installer, volume, QCoreApplication::applicationFilePath() }, QIODevice::ReadWrite);
    }
};
} // namespace

QString UpdateHandOver::scriptName()
{
    return QStringLiteral("install_update.sh");
}

UpdateHandOver* UpdateHandOver::systemInstance()
{
    static LinuxUpdateHandOver handOver;
    return &handOver;
}
