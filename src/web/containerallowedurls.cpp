#include "containerallowedurls.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>

#include "core/logger.h"
#include "core/servicehost.h"
#include "updates/documentlimits.h"

namespace {
const QString logModule = QStringLiteral("containerAllowedUrls");

QUrl& documentUrlOverride()
{
    static QUrl url;
    return url;
}
} // namespace

ContainerAllowedUrls::ContainerAllowedUrls(QObject* parent)
    : QObject(parent)
    , mNetworkManager(this)
{
    // Stored without a scheme: the sign-in pages may be reached over http or https.
    mAllowedUrls.append(ServiceHost::signInHost() + QStringLiteral("/ServiceLogin"));
    mAllowedUrls.append(ServiceHost::signInHost() + QStringLiteral("/AccountChooser"));

    connect(&mNetworkManager, &QNetworkAccessManager::finished, this, &ContainerAllowedUrls::requestFinished);
}

void ContainerAllowedUrls::setDocumentUrlForTests(const QUrl& url)
{
    documentUrlOverride() = url;
}

QUrl ContainerAllowedUrls::documentUrl()
{
    if (!documentUrlOverride().isEmpty())
        return documentUrlOverride();
    return QUrl(ServiceHost::httpAddress(QStringLiteral("/prod-assets/desktop-client/friendlyurls.json")));
}

void ContainerAllowedUrls::loadObject()
{
    Logger::Info(logModule, QStringLiteral("[loadObject] called"));
    const QUrl url = documentUrl();
    Logger::Info(logModule, QStringLiteral("[loadObject] - url=") + url.toString());
    // finished() of the manager brings the reply to requestFinished; nothing to keep here.
    DocumentLimits::guard(mNetworkManager.get(QNetworkRequest(url)));
    Logger::Info(logModule, QStringLiteral("[loadObject] - request sent"));
}

void ContainerAllowedUrls::requestFinished(QNetworkReply* mNetworkReply)
{
    Logger::Info(logModule, QStringLiteral("[requestFinished] - isFinished=")
                                + QString::fromLatin1(mNetworkReply->isFinished() ? "true" : "false")
                                + QStringLiteral(", error=") + QString::number(mNetworkReply->error()));

    // Status and redirect target are for the log only: the reply's error alone decides.
    const QVariant statusCodeV = mNetworkReply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    Logger::Info(logModule, QStringLiteral("[requestFinished] - statusCodeV=") + statusCodeV.toString());
    const QVariant redirectionTargetUrl = mNetworkReply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    Logger::Info(logModule,
                 QStringLiteral("[requestFinished] - redirectionTargetUrl=") + redirectionTargetUrl.toUrl().toString());

    if (mNetworkReply->error() != QNetworkReply::NoError) {
        Logger::Info(logModule, QStringLiteral("[requestFinished] - failed: ") + mNetworkReply->errorString());
        return;
    }

    const QByteArray response = DocumentLimits::read(mNetworkReply);
    Logger::Info(logModule, QStringLiteral("[requestFinished] - response=") + QString::fromUtf8(response));

    const QJsonDocument document = QJsonDocument::fromJson(response);
    const QJsonArray urls = document.object().value(QStringLiteral("urls")).toArray();
    for (const QJsonValue& entry : urls) {
        // An entry without "url" adds an empty fragment, which every URL contains.
        const QString friendlyUrl = entry.toObject().value(QStringLiteral("url")).toString();
        Logger::Info(logModule, QStringLiteral("[requestFinished] - friendlyUrl=") + friendlyUrl);
        mAllowedUrls.append(friendlyUrl);
    }

    emit containerAllowedUrlsLoadComplete(this);
}

bool ContainerAllowedUrls::isUrlAllowed(QUrl url)
{
    const QString text = url.toString();
    Logger::Info(logModule, QStringLiteral("[isUrlAllowed] - url=") + text);
    for (const QString& allowedUrl : qAsConst(mAllowedUrls)) {
        if (text.indexOf(allowedUrl, 0, Qt::CaseSensitive) != -1) {
            Logger::Info(logModule, QStringLiteral("[isUrlAllowed] - allowedUrl ") + allowedUrl
                                        + QStringLiteral(" found"));
            return true;
        }
    }
    return false;
}
