#include "osversion.h"

#include <QProcess>

namespace {

class LinuxOsVersionSource : public OsVersionSource
{
public:
    // No Windows release here; callers then use their "other" name.
    int windowsVersion() override { return WV_None; }

    // Never asked for on this system, since only a Windows 8 code leads here. The kernel's name and
    // release is the nearest thing to a version line.
    CommandOutput versionCommand(int timeoutMs) override
    {
        QProcess process;
        process.start(QStringLiteral("uname"), {QStringLiteral("-sr")}, QIODevice::ReadWrite);
        process.waitForFinished(timeoutMs);
        CommandOutput output;
        output.standardError = QString::fromLocal8Bit(process.readAllStandardError());
        output.standardOutput = QString::fromLocal8Bit(process.readAllStandardOutput());
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(1000);
        }
        return output;
    }
};

} // namespace

OsVersionSource* OsVersionSource::systemInstance()
{
    static LinuxOsVersionSource source;
    return &source;
}
