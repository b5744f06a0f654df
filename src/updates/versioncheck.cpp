#include "versioncheck.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>

#include "core/logger.h"
#include "core/properties.h"
#include "core/servicehost.h"
#include "updates/documentlimits.h"

namespace {
const QString logModule = QStringLiteral("versioncheck");

QUrl& documentUrlOverride()
{
    static QUrl url;
    return url;
}

QString number(double value)
{
    return QString::number(value, 'g', 6);
}
} // namespace

VersionCheck::VersionCheck(QObject* parent)
    : QObject(parent)
    , currentVersion(0)
{
    connect(&mNetworkManager, &QNetworkAccessManager::finished, this, &VersionCheck::requestFinished);
}

void VersionCheck::setDocumentUrlForTests(const QUrl& url)
{
    documentUrlOverride() = url;
}

QUrl VersionCheck::documentUrl()
{
    if (!documentUrlOverride().isEmpty())
        return documentUrlOverride();
    return QUrl(ServiceHost::httpAddress(QStringLiteral("/prod-assets/desktop-client/versioncheck.json")));
}

void VersionCheck::loadObject()
{
    const QUrl url = documentUrl();
    Logger::Info(logModule, QStringLiteral("[loadObject] - url=") + url.toString());
    DocumentLimits::guard(mNetworkManager.get(QNetworkRequest(url)));
}

void VersionCheck::requestFinished(QNetworkReply* mNetworkReply)
{
    Logger::Info(logModule, QStringLiteral("[requestFinished] - isFinished=")
            + QVariant(mNetworkReply->isFinished()).toString());
    // The tag loses as many leading characters as the error's number; old logs read that way and
    // log readers match on it.
    Logger::Info(logModule, QStringLiteral("[requestFinished] - reply error=").mid(int(mNetworkReply->error())));

    // For the log only: redirects are not followed and the reply's error alone decides.
    const QVariant statusCodeV = mNetworkReply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    Logger::Info(logModule, QStringLiteral("[requestFinished] - statusCodeV=") + statusCodeV.toString());
    const QVariant redirectionTargetUrl = mNetworkReply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    Logger::Info(logModule,
        QStringLiteral("[requestFinished] - redirectionTargetUrl=") + redirectionTargetUrl.toUrl().toString());

    if (mNetworkReply->error() != QNetworkReply::NoError) {
        Logger::Info(logModule, QStringLiteral("[requestFinished] - failed: ") + mNetworkReply->errorString());
        errorMessage = QStringLiteral("Unable to check version number at this time.  Please try again later.");
        emit versionCheckErrorOccurred(this);
        return;
    }

    // An unreadable document reads as version 0, which never prompts.
    const QJsonObject document = QJsonDocument::fromJson(DocumentLimits::read(mNetworkReply)).object();
    currentVersion = document.value(QStringLiteral("current_version_pc")).toDouble(0);
    downloadPath = document.value(QStringLiteral("download_path_pc")).toString();
    Logger::Info(logModule, QStringLiteral("[requestFinished] - currentVersion=") + number(currentVersion)
            + QStringLiteral(", downloadPath=") + downloadPath);
    emit versionCheckLoadComplete(this);
}

double VersionCheck::getCurrentVersion() const
{
    return currentVersion;
}

QString VersionCheck::getDownloadPath() const
{
    return downloadPath;
}

QString VersionCheck::getErrorMessage() const
{
    return errorMessage;
}

double VersionCheck::installedVersion()
{
    return Properties::getInstance()->getValue(QStringLiteral("version")).toDouble();
}

bool VersionCheck::compareWithInstalled(QObject* store, const QString& module) const
{
    if (store) {
        store->setProperty("current_version", currentVersion);
        store->setProperty("download_path", downloadPath);
    }
    const double installed = installedVersion();
    // Plain decimal fractions with no tolerance: 2.9 is newer than 2.89, and the publisher keeps to that.
    const double diff = installed - currentVersion;
    const bool sameVersion = diff >= 0;
    Logger::Info(module, QStringLiteral("[versionCheckLoadComplete] - installedVersion=") + number(installed)
            + QStringLiteral(", currentVersion=") + number(currentVersion) + QStringLiteral(", diff=") + number(diff));
    Logger::Info(module, QStringLiteral("[versionCheckLoadComplete] - sameVersion=") + QString::number(int(sameVersion)));
    return sameVersion;
}
