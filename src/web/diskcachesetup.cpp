#include "diskcachesetup.h"

#include <QNetworkAccessManager>
#include <QNetworkDiskCache>

#include "core/logger.h"
#include "core/properties.h"

void DiskCacheSetup::install(QNetworkAccessManager* manager, QObject* cacheParent, const QString& module,
    const QString& tag)
{
    auto* cache = new QNetworkDiskCache(cacheParent);
    cache->setCacheDirectory(Properties::getPersistentStorageLocation() + QStringLiteral("/cache"));
    // The size is found by reading every file of the folder: only for the log, never on the way
    // to the first paint of a user who doesn't keep one (the cache sizes itself at its first write).
    if (Logger::isLoggingEnabled())
        Logger::Info(module, tag + QStringLiteral(" cache size=") + QString::number(cache->cacheSize()));
    Logger::Info(module, tag + QStringLiteral(" maximum cache size =") + QString::number(cache->maximumCacheSize()));
    if (cache->maximumCacheSize() < minimumMaximumSize) {
        cache->setMaximumCacheSize(minimumMaximumSize);
        Logger::Info(module,
            tag + QStringLiteral(" new maximum cache size = ") + QString::number(cache->maximumCacheSize()));
    }
    Logger::Debug(module, tag + QStringLiteral(" cache directory = ") + cache->cacheDirectory());
    manager->setCache(cache);
}
