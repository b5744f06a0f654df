#include "sslerrorpolicy.h"

#include <QDebug>
#include <QNetworkReply>

#include "core/logger.h"

void SslErrorPolicy::ignoreAll(QNetworkReply* reply, const QList<QSslError>& errors, const QString& module)
{
    Logger::Info(module, QStringLiteral("[sslErrors] ssl error count=") + QString::number(errors.size()));
    for (const QSslError& error : errors)
        qDebug() << "sslErrors - " << error;
    reply->ignoreSslErrors(errors);
}
