#include "automaticstartup.h"

#include <QCoreApplication>
#include <QFileInfo>

#include "core/logger.h"
#include "platform/autostartentry.h"

namespace {
// These are the tray class's operations; their lines stay under its module.
const QString logModule = QStringLiteral("winmenubaricon");

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}
} // namespace

void AutomaticStartup::setAutomaticStartup()
{
    AutostartEntry* entry = AutostartEntry::instance();
    const QString location = entry->location();
    Logger::Info(logModule, QStringLiteral("[setAutomaticStartup] - starupFolder=") + QFileInfo(location).absolutePath());

    AutostartEntry::Program program;
    program.executable = QCoreApplication::applicationFilePath();
    program.folder = QCoreApplication::applicationDirPath();
    program.icon = program.folder + QStringLiteral("/kestrelgap.iconset/icon_512x512.png");
    Logger::Info(logModule, QStringLiteral("[setAutomaticStartup] - appPath=") + program.executable);

    // A failure only shows in the log; the preferences read the truth back when next opened.
    const bool created = entry->create(program);
    Logger::Info(logModule, QStringLiteral("[setAutomaticStartup] - linkCreated=") + flag(created));
}

bool AutomaticStartup::isSettingsAvailable()
{
    const bool exists = AutostartEntry::instance()->exists();
    Logger::Info(logModule, QStringLiteral("[isSettingsAvailable] - exists=") + flag(exists));
    return exists;
}

void AutomaticStartup::removeAutomaticStartup()
{
    const bool removed = AutostartEntry::instance()->remove();
    Logger::Info(logModule, QStringLiteral("[removeAutomaticStartup] - removed=") + flag(removed));
}

QString AutomaticStartup::durationBucket(int milliseconds)
{
    if (milliseconds > 19999)
        return QStringLiteral("20s+");
    if (milliseconds > 9999)
        return QStringLiteral("10s-20s");
    if (milliseconds > 4999)
        return QStringLiteral("5s-10s");
    return QStringLiteral("0s-5s");
}
