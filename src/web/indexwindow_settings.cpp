// IndexWindow: the settings accessors shared by the page and all native code.
#include "indexwindow.h"

#include <QSettings>
#include <QStandardPaths>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
}

void IndexWindow::setSetting(QString key, QString value)
{
    Logger::Debug(logModule, QStringLiteral("[setSetting] key=") + key + QStringLiteral(", value=") + value);
    QSettings settings;
    settings.setValue(key, value);
    Logger::settingsWritten();
}

QString IndexWindow::getSetting(QString key, QString defaultValue)
{
    QSettings settings;
    const QString value = settings.value(key, QVariant()).toString();
    Logger::Debug(logModule, QStringLiteral("[getSetting] key=") + key + QStringLiteral(", value=") + value);
    // A stored empty text reads as absent.
    return value.isEmpty() ? defaultValue : value;
}

void IndexWindow::removeSetting(QString key)
{
    Logger::Debug(logModule, QStringLiteral("[removeSetting] key=") + key);
    QSettings settings;
    settings.remove(key);
}

void IndexWindow::setDefaultDownloadLocationSetting(QString value)
{
    setSetting(mDefaultDownloadLocationKey, value);
}

QString IndexWindow::getDefaultDownloadLocationSetting()
{
    const QStringList locations = QStandardPaths::standardLocations(QStandardPaths::DownloadLocation);
    return getSetting(mDefaultDownloadLocationKey, locations.value(0));
}

void IndexWindow::setNativeNotificationSetting(QString value)
{
    setSetting(QStringLiteral("native-notification-setting"), value);
}

QString IndexWindow::getNativeNotificationSetting()
{
    return getSetting(QStringLiteral("native-notification-setting"), QStringLiteral("quick-reply-notification"));
}

void IndexWindow::setNotificationSoundSetting(QString value)
{
    setSetting(QStringLiteral("notification-sound"), value);
}

QString IndexWindow::getNotificationSoundSetting()
{
    return getSetting(QStringLiteral("notification-sound"), QStringLiteral("default"));
}

void IndexWindow::setNotificationSoundEnabled(QString value)
{
    setSetting(QStringLiteral("play-notification-sound"), value);
}

bool IndexWindow::isNotificationSoundEnabled()
{
    QString value = getSetting(QStringLiteral("play-notification-sound"), QString());
    if (value.isEmpty()) {
        value = QStringLiteral("0");
        setSetting(QStringLiteral("play-notification-sound"), value);
    }
    return value == QLatin1String("1");
}
