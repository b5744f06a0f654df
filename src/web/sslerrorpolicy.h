#pragma once

#include <QList>
#include <QSslError>
#include <QString>

class QNetworkReply;

// Every TLS error is accepted for every reply; only the count is logged.
class SslErrorPolicy
{
public:
    static void ignoreAll(QNetworkReply* reply, const QList<QSslError>& errors, const QString& module);
};
