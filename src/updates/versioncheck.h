#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// One fetch of the version document on the service host: the newest published version and where
// its installer is. Used once; the owner keeps it as a child until the owner goes.
class VersionCheck : public QObject
{
    Q_OBJECT

public:
    explicit VersionCheck(QObject* parent);

    void loadObject();

    double getCurrentVersion() const;
    QString getDownloadPath() const;
    QString getErrorMessage() const;

    // The version of this build, from the properties resource.
    static double installedVersion();
    // Both owners of a check compare the same way: the published values go onto `store` as the
    // properties "current_version" and "download_path", and true means no update is due. A
    // published number below this build's counts as the same, so nobody is offered a downgrade.
    bool compareWithInstalled(QObject* store, const QString& logModule) const;

    // Tests point the fetch at a loopback server; an empty URL restores the service host's document.
    static void setDocumentUrlForTests(const QUrl& url);
    static QUrl documentUrl();

signals:
    void versionCheckLoadComplete(VersionCheck* versionCheck);
    void versionCheckErrorOccurred(VersionCheck* versionCheck);

public slots:
    void requestFinished(QNetworkReply* mNetworkReply);

private:
    double currentVersion;
    QString downloadPath;
    QString errorMessage;
    QNetworkAccessManager mNetworkManager;
};
