#include "devhost.h"


#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLocale>
#include <QSet>
#include <QUrl>
#include <QUrlQuery>

const QByteArray DevHost::sessionCookieName = "kg_session";

namespace {

HttpServer::Reply textReply(int status, const QByteArray& body, const QByteArray& type = "text/plain; charset=utf-8")
{
    HttpServer::Reply reply;
    reply.status = status;
    reply.body = body;
    reply.headers.append(qMakePair(QByteArray("Content-Type"), type));
    // Edited pages and documents must show on the next load, whatever the client has cached.
    reply.headers.append(qMakePair(QByteArray("Cache-Control"), QByteArray("no-cache")));
    return reply;
}

HttpServer::Reply redirect(const QByteArray& location, int status = 302)
{
    HttpServer::Reply reply = textReply(status, QByteArray());
    reply.headers.append(qMakePair(QByteArray("Location"), location));
    return reply;
}

QByteArray httpDate(const QDateTime& time)
{
    return QLocale::c().toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'")).toLatin1();
}

QByteArray sessionCookie(const QByteArray& value, const QDateTime& expires)
{
    return DevHost::sessionCookieName + '=' + value + "; Path=/; Expires=" + httpDate(expires) + "; HttpOnly";
}

QByteArray htmlEscaped(const QString& text)
{
    return text.toHtmlEscaped().replace(QLatin1Char('\''), QLatin1String("&#39;")).toUtf8();
}

bool isText(const QByteArray& type)
{
    return type.startsWith("text/") || type.startsWith("application/json") || type.startsWith("application/javascript");
}

} // namespace

DevHost::DevHost(const QString& siteRoot, const QString& serviceHost)
    : mSiteRoot(QDir::cleanPath(QFileInfo(siteRoot).absoluteFilePath()))
    , mServiceHost(serviceHost)
{
}

HttpServer::Reply DevHost::handle(const HttpServer::Request& request)
{
    // Route on the path as the file system would see it, so "/media/../main.html" can't reach a
    // page around its own rule.
    const QString path = QDir::cleanPath(QUrl::fromPercentEncoding(request.pathWithoutQuery().toUtf8()));
    if (!path.startsWith(QLatin1Char('/')) || path.contains(QLatin1String("/..")))
        return textReply(404, "not found\n");
    if (request.method != "GET" && request.method != "HEAD" && request.method != "POST")
        return textReply(405, "method not allowed\n");

    if (path == QLatin1String("/"))
        return redirect("/signin");
    if (path == QLatin1String("/signin"))
        return signIn(request);
    if (path == QLatin1String("/signout"))
        return signOut();
    if (path == QLatin1String("/signout-next"))
        return serveFile(QStringLiteral("/signout-next.html"), {});
    if (path == QLatin1String("/demo/events"))
        return demoEvents(request);
    if (request.method == "POST")
        return textReply(405, "method not allowed\n");

    if (path == QLatin1String("/main.html")) {
        const QString user = sessionUser(request);
        if (user.isEmpty())
            return redirect("/signin");
        return serveFile(path, {{"@USER_NAME@", htmlEscaped(user)}});
    }
    return serveFile(path, {});
}

QString DevHost::sessionUser(const HttpServer::Request& request)
{
    // Cookie: a=1; kg_session=value; b=2
    for (const auto& header : request.headers) {
        if (header.first.compare("Cookie", Qt::CaseInsensitive) != 0)
            continue;
        for (const QByteArray& pair : header.second.split(';')) {
            const QByteArray trimmed = pair.trimmed();
            if (trimmed.startsWith(sessionCookieName + '='))
                return QUrl::fromPercentEncoding(trimmed.mid(sessionCookieName.size() + 1)).trimmed();
        }
    }
    return QString();
}

HttpServer::Reply DevHost::signIn(const HttpServer::Request& request)
{
    if (request.method == "POST") {
        QByteArray form = request.body;
        form.replace('+', ' ');
        const QUrlQuery query(QString::fromUtf8(form));
        QString name = query.queryItemValue(QStringLiteral("name"), QUrl::FullyDecoded).simplified();
        if (name.isEmpty())
            name = QStringLiteral("Demo User");
        name.truncate(60);
        // Persistent, not a session cookie: the client must keep it in its store across restarts.
        const QByteArray value = QUrl::toPercentEncoding(name);
        HttpServer::Reply reply = redirect("/main.html", 303);
        reply.headers.append(qMakePair(QByteArray("Set-Cookie"),
                                       sessionCookie(value, QDateTime::currentDateTimeUtc().addDays(sessionDays))));
        return reply;
    }
    if (!sessionUser(request).isEmpty())
        return redirect("/main.html");
    return serveFile(QStringLiteral("/signin.html"), {});
}

HttpServer::Reply DevHost::signOut()
{
    HttpServer::Reply reply = serveFile(QStringLiteral("/signout.html"), {});
    reply.headers.append(qMakePair(QByteArray("Set-Cookie"),
                                   sessionCookie(QByteArray(), QDateTime::fromSecsSinceEpoch(0, Qt::UTC))));
    return reply;
}

HttpServer::Reply DevHost::demoEvents(const HttpServer::Request& request)
{
    const QUrlQuery query(QUrl(request.path).query());
    if (request.method == "POST") {
        // One event object, or an array of them; the type decides which page gets it.
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(request.body, &error);
        QJsonArray pushed;
        if (document.isObject())
            pushed.append(document.object());
        else if (document.isArray())
            pushed = document.array();
        else
            return textReply(400, "expected a JSON object or array: " + error.errorString().toUtf8() + "\n");
        QJsonArray ids;
        // All or nothing, so a script that gets a 400 can simply send the batch again, mended.
        for (const QJsonValue& value : qAsConst(pushed)) {
            if (value.toObject().value(QStringLiteral("type")).toString().isEmpty())
                return textReply(400, "every event needs a \"type\"\n");
        }
        QSet<QString> audiences;
        for (const QJsonValue& value : qAsConst(pushed)) {
            const QJsonObject event = value.toObject();
            const bool forSignIn = event.value(QStringLiteral("type")).toString() == QLatin1String("signin");
            const QString audience = forSignIn ? QStringLiteral("signin") : QStringLiteral("main");
            ids.append(double(mEvents.push(audience, event)));
            audiences.insert(audience);
        }
        if (mPushed) {
            for (const QString& audience : qAsConst(audiences))
                mPushed(audience);
        }
        return textReply(200, QJsonDocument(QJsonObject{{QStringLiteral("ids"), ids}}).toJson(QJsonDocument::Compact),
                         "application/json");
    }
    const QString audience = query.queryItemValue(QStringLiteral("for"));
    if (audience != QLatin1String("signin") && audience != QLatin1String("main"))
        return textReply(400, "for=signin or for=main\n");
    const QJsonArray events = mEvents.take(audience);
    const QJsonObject answer{{QStringLiteral("events"), events}};
    HttpServer::Reply reply = textReply(200, QJsonDocument(answer).toJson(QJsonDocument::Compact), "application/json");
    // An idle page then costs nothing between events, on either side.
    if (events.isEmpty()) {
        reply.heldOn = eventChannel(audience);
        reply.delayBeforeHeadersMs = longPollMs;
    }
    return reply;
}

QString DevHost::eventChannel(const QString& audience)
{
    return QStringLiteral("events:") + audience;
}

void DevHost::setDownloadsFolder(const QString& folder)
{
    mDownloadsRoot = folder.isEmpty() ? QString() : QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
}

QString DevHost::siteFile(const QString& path) const
{
    return fileUnder(mSiteRoot, path);
}

QString DevHost::fileUnder(const QString& root, const QString& path)
{
    if (!path.startsWith(QLatin1Char('/')) || path.contains(QChar(0)) || path.contains(QLatin1Char('\\')))
        return QString();
    const QString file = QDir::cleanPath(root + path);
    if (!file.startsWith(root + QLatin1Char('/')))
        return QString();
    return file;
}

QByteArray DevHost::contentType(const QString& fileName)
{
    static const QHash<QString, QByteArray> types{
        {QStringLiteral("html"), "text/html; charset=utf-8"},
        {QStringLiteral("css"), "text/css; charset=utf-8"},
        {QStringLiteral("js"), "application/javascript; charset=utf-8"},
        {QStringLiteral("json"), "application/json; charset=utf-8"},
        {QStringLiteral("txt"), "text/plain; charset=utf-8"},
        {QStringLiteral("png"), "image/png"},
        {QStringLiteral("jpg"), "image/jpeg"},
        {QStringLiteral("jpeg"), "image/jpeg"},
        {QStringLiteral("gif"), "image/gif"},
        {QStringLiteral("svg"), "image/svg+xml"},
        {QStringLiteral("wav"), "audio/wav"},
        {QStringLiteral("sh"), "application/x-sh"},
        {QStringLiteral("deb"), "application/vnd.debian.binary-package"},
    };
    return types.value(QFileInfo(fileName).suffix().toLower(), "application/octet-stream");
}

HttpServer::Reply DevHost::serveFile(const QString& path, const QHash<QByteArray, QByteArray>& substitutions)
{
    QString fileName = siteFile(path);
    const QLatin1String downloads("/downloads/");
    if (!mDownloadsRoot.isEmpty() && path.startsWith(downloads) && !QFileInfo(fileName).isFile())
        fileName = fileUnder(mDownloadsRoot, path.mid(downloads.size() - 1));
    if (fileName.isEmpty())
        return textReply(404, "not found\n");
    QFile file(fileName);
    if (!QFileInfo(fileName).isFile() || !file.open(QIODevice::ReadOnly))
        return textReply(404, "not found\n");

    const QByteArray type = contentType(fileName);
    QByteArray body = file.readAll();
    if (isText(type)) {
        body.replace("@SERVICE_HOST@", mServiceHost.toUtf8());
        body.replace("@UPDATE_INSTALLER@", mUpdateInstaller.toUtf8());
        for (auto it = substitutions.constBegin(); it != substitutions.constEnd(); ++it)
            body.replace(it.key(), it.value());
    }
    return textReply(200, body, type);
}
