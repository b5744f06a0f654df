#include "servicehost.h"

#include "kestrelgap_config.h"

QString ServiceHost::host()
{
    return QStringLiteral(KESTRELGAP_SERVICE_HOST);
}

QString ServiceHost::bareHost()
{
    QString bare = host();
    if (bare.startsWith(QLatin1String("www.")))
        bare.remove(0, 4);
    return bare;
}

QString ServiceHost::signInHost()
{
    return QStringLiteral(KESTRELGAP_SIGNIN_HOST);
}

QString ServiceHost::httpAddress(const QString& path)
{
    return QStringLiteral("http://") + host() + path;
}

QString ServiceHost::httpsAddress(const QString& path)
{
    return QStringLiteral("https://") + host() + path;
}

QString ServiceHost::redirectPageAddress()
{
    return httpsAddress(QStringLiteral("/prod-assets/desktop-client/desktop-client-redirect.html"));
}

QString ServiceHost::signOutNextSuffix()
{
    const QString next = QStringLiteral("http://") + bareHost() + QStringLiteral("/signout-next");
    return QStringLiteral("continue_web=") + QString::fromLatin1(QUrl::toPercentEncoding(next));
}
