#pragma once

#include <QString>

class QNetworkAccessManager;
class QObject;

// Each network manager of the hosted surfaces (the main view's, the one all popups share, a page-opened
// window's) gets its own QNetworkDiskCache on the one shared cache folder, raised to 1 GiB.
class DiskCacheSetup
{
public:
    static constexpr qint64 minimumMaximumSize = 1073741824;

    // tag is the log prefix of the caller, e.g. "[createWindow]" or "[constructor] ".
    static void install(QNetworkAccessManager* manager, QObject* cacheParent, const QString& module,
        const QString& tag);
};
