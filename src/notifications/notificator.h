#pragma once

#include <QIcon>
#include <QObject>
#include <QString>

class QSystemTrayIcon;

// Shows one balloon for the page. A new one is made for every balloon.
class Notificator : public QObject
{
    Q_OBJECT
public:
    enum Class { Information = 0, Warning = 1, Critical = 2 };
    Q_ENUM(Class)

    enum Mode { Unavailable = 0, SystemTray = 2 };

    Notificator(const QString& programName, const QString& json, QSystemTrayIcon* trayIcon, QObject* parent);

    int mode() const { return mMode; }

public slots:
    void notify(Notificator::Class cls, QString json, QString title, QString text, QIcon icon = QIcon(),
        bool launchOnClick = false, bool showReplyButton = false, QString contactImage = QString(),
        int millisTimeout = 30000);
    void windowsSystemTrayIconClicked();

private:
    void notifySystray(const QString& json, const QString& title, const QString& text, int millisTimeout,
        bool showReplyButton, const QString& contactImage);

    QObject* mParent;
    QString mProgramName;
    int mMode;
    QSystemTrayIcon* mTrayIcon;
    QString mJson;
};
