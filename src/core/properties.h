#pragma once

#include <QMap>
#include <QString>

class QIODevice;

// Build properties from the resource tree, and where the program keeps its data.
class Properties
{
public:
    static Properties* getInstance();

    QString getValue(const QString& key) const;

    static QString getPersistentStorageLocation();
    static QString getHtmlFolder();
    // "WIN7-pc", "WIN10-pc", "WIN10-OR-OTHER-pc", ...: a Windows-style release name for the page and analytics.
    static QString getOsVersion();

    // "key=value" lines; only the first "=" splits. Exposed for tests of odd files.
    static QMap<QString, QString> parse(QIODevice* device);

private:
    Properties();

    QMap<QString, QString> mProperties;
};
