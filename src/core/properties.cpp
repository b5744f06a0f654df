#include "properties.h"

#include <QDebug>
#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

#include "logger.h"

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
