#include "properties.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

#include "logger.h"
#include "platform/osversion.h"

namespace {
const QString logModule = QStringLiteral("properties");
}

Properties::Properties()
{
    QFile file(QStringLiteral(":/properties/kestrelgap.properties"));
    if (file.open(QIODevice::ReadOnly))
        mProperties = parse(&file);
}

Properties* Properties::getInstance()
{
    static Properties* instance = new Properties();
    return instance;
}

QMap<QString, QString> Properties::parse(QIODevice* device)
{
    QMap<QString, QString> properties;
    QTextStream in(device);
    in.setCodec("UTF-8");
    for (QString line = in.readLine(); !line.isNull(); line = in.readLine()) {
        // readLine strips LF and CR LF alike.
        const int split = line.indexOf(QLatin1Char('='));
        const QString key = line.left(split);
        if (key.isEmpty())
            continue;
        const QString value = line.mid(split + 1);
        properties[key] = value;
        qDebug() << QStringLiteral("[properties][constructor] - key=") + key + QStringLiteral(", value=") + value;
    }
    return properties;
}

QString Properties::getValue(const QString& key) const
{
    const QString value = mProperties.value(key, QStringLiteral(""));
    Logger::Debug(logModule, QStringLiteral("[getValue] key=") + key + QStringLiteral(", value=") + value);
    return value;
}

QString Properties::getPersistentStorageLocation()
{
    const QStringList locations = QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    const QString path = locations.value(0) + QStringLiteral("/Kestrelgap");
    Logger::Debug(logModule, QStringLiteral("[getPersistentStorageLocation] localStoragePath=") + path);
    return path;
}

QString Properties::getHtmlFolder()
{
    return QStringLiteral("html");
}

QString Properties::getOsVersion()
{
    OsVersionSource* source = OsVersionSource::instance();
    const int windowsVersion = source->windowsVersion();
    Logger::Debug(logModule, QStringLiteral("[getOsVersion] - ") + QString::number(windowsVersion));

    QString version;
    switch (windowsVersion) {
    case OsVersionSource::WV_32s: version = QStringLiteral("WIN3.1"); break;
    case OsVersionSource::WV_95: version = QStringLiteral("WIN95"); break;
    case OsVersionSource::WV_98: version = QStringLiteral("WIN98"); break;
    case OsVersionSource::WV_Me: version = QStringLiteral("WINMe"); break;
    case OsVersionSource::WV_NT: version = QStringLiteral("WINNT"); break;
    case OsVersionSource::WV_2000: version = QStringLiteral("WIN2000"); break;
    case OsVersionSource::WV_XP: version = QStringLiteral("WINXP"); break;
    case OsVersionSource::WV_2003: version = QStringLiteral("WIN2003"); break;
    case OsVersionSource::WV_VISTA: version = QStringLiteral("WINVISTA"); break;
    case OsVersionSource::WV_WINDOWS7: version = QStringLiteral("WIN7"); break;
    case OsVersionSource::WV_WINDOWS8: version = QStringLiteral("WIN8"); break;
    case OsVersionSource::WV_WINDOWS8_1: version = QStringLiteral("WIN8.1"); break;
    default: version = QStringLiteral("WIN10-OR-OTHER"); break;
    }

    // Windows 10 without a compatibility manifest claims to be Windows 8; its "ver" line tells them apart.
    if (windowsVersion == OsVersionSource::WV_WINDOWS8) {
        QElapsedTimer duration;
        duration.start();
        const OsVersionSource::CommandOutput output = source->versionCommand(30000);
        // Only a trace that the command returned: the tail of the text shortens as the wait grows.
        Logger::Info(logModule, QStringLiteral("[getOsVersion - duration: ").mid(int(duration.elapsed())));

        QString osVersion = output.standardOutput.simplified();
        // Not found gives -1, and the cut then keeps the text from index 7 on.
        osVersion = osVersion.mid(osVersion.indexOf(QLatin1String("Version ")) + 8);
        osVersion.chop(1);
        Logger::Info(logModule, QStringLiteral("[getOsVersion] - osVersion: ") + osVersion);
        Logger::Info(logModule, QStringLiteral("[getOsVersion] - err: ") + output.standardError);
        if (osVersion.startsWith(QLatin1String("10.")))
            version = QStringLiteral("WIN10");
    }

    version += QStringLiteral("-pc");
    Logger::Info(logModule, QStringLiteral("[getOsVersion] - version: ") + version);
    return version;
}
