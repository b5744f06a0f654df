#include "updatehandover.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

QString UpdateHandOver::refusal(const QString& installer) const
{
    return refusal(installer, QCoreApplication::applicationDirPath());
}

QString UpdateHandOver::refusal(const QString& installer, const QString& programFolder)
{
    QFile file(installer);
    if (!file.open(QIODevice::ReadOnly) || file.size() == 0) {
        return QCoreApplication::translate("UpdateHandOver", "The update was not downloaded completely.");
    }
    const QByteArray head = file.read(64);
    if (head.startsWith("!<arch>\ndebian-binary") || installer.endsWith(QLatin1String(".deb"), Qt::CaseInsensitive)) {
        if (QStandardPaths::findExecutable(QStringLiteral("pkexec")).isEmpty()
            || QStandardPaths::findExecutable(QStringLiteral("apt-get")).isEmpty()) {
            return QCoreApplication::translate("UpdateHandOver",
                "The update is a Debian package, and this system has no package installer that can be asked "
                "from here. Install %1 with your package manager.").arg(installer);
        }
        return QString();
    }
    // Installed by the package manager: a program run as this user can't replace it.
    if (!QFileInfo(programFolder).isWritable()) {
        return QCoreApplication::translate("UpdateHandOver",
            "Kestrelgap was installed by your system's package manager, and this update can't replace it. "
            "Update Kestrelgap with your package manager.");
    }
    if (!head.startsWith("\x7f" "ELF") && !head.startsWith("#!")) {
        return QCoreApplication::translate("UpdateHandOver", "The downloaded update is no program this system can run.");
    }
    return QString();
}
