#include "autostartentry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include "platform/xdgdesktopentry.h"

namespace {

// The freedesktop autostart folder: desktop sessions start every entry of it at log-in.
class XdgAutostartEntry : public AutostartEntry
{
public:
    QString location() override
    {
        return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
            + QStringLiteral("/autostart/kestrelgap.desktop");
    }

    bool create(const Program& program) override
    {
        const QString path = location();
        if (!QDir().mkpath(QFileInfo(path).absolutePath()))
            return false;

        const QString text = QStringLiteral("[Desktop Entry]\n"
                                            "Type=Application\n"
                                            "Name=Kestrelgap\n")
            + QStringLiteral("Exec=") + XdgDesktopEntry::escapeValue(XdgDesktopEntry::execArgument(program.executable))
            // Once the program is gone the desktop skips the entry rather than failing on it.
            + QStringLiteral("\nTryExec=") + XdgDesktopEntry::escapeValue(program.executable)
            + QStringLiteral("\nPath=") + XdgDesktopEntry::escapeValue(program.folder)
            + QStringLiteral("\nIcon=") + XdgDesktopEntry::escapeValue(program.icon)
            + QStringLiteral("\nX-GNOME-Autostart-enabled=true\n");

        // A half-written entry would start nothing, or the wrong thing, at the next log-in.
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write(text.toUtf8());
        return file.commit();
    }

    bool exists() override { return QFileInfo::exists(location()); }

    bool remove() override { return QFile::remove(location()); }
};

} // namespace

AutostartEntry* AutostartEntry::systemInstance()
{
    static XdgAutostartEntry entry;
    return &entry;
}
