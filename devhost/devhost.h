#pragma once

#include <QHash>

#include <functional>
#include <QString>

#include "demoeventqueue.h"
#include "httpserver.h"

// The local stand-in for the service host. It serves the pages and documents of a site folder
// that a developer edits, and plays the parts of the service the client reacts to: a sign-in
// that leaves a persistent session cookie, a sign-out that ends it, and a channel of demo
// events the messenger page picks up. Every answer is computed afresh from the files, so an
// edit shows on the next reload. handle() is called on the server's thread.
class DevHost
{
public:
    static const QByteArray sessionCookieName;
    // How long a sign-in lasts; long enough to outlive restarts of the client and of this host.
    static constexpr int sessionDays = 30;

    // `serviceHost` is the host[:port] the client was built for; pages and documents that name
    // the host get it through the placeholder @SERVICE_HOST@.
    DevHost(const QString& siteRoot, const QString& serviceHost);

    HttpServer::Reply handle(const HttpServer::Request& request);

    // A second folder for /downloads/, for installers the build makes; the site's own files win.
    void setDownloadsFolder(const QString& folder);
    // The installer the version document offers, a file name under /downloads/ (@UPDATE_INSTALLER@).
    void setUpdateInstaller(const QString& fileName) { mUpdateInstaller = fileName; }

    // The signed-in user named by the request's session cookie; empty when signed out.
    static QString sessionUser(const HttpServer::Request& request);
    // The file under the site root that the decoded `path` names, or empty when it points outside the root.
    QString siteFile(const QString& path) const;
    static QString fileUnder(const QString& root, const QString& path);
    static QByteArray contentType(const QString& fileName);

    DemoEventQueue& events() { return mEvents; }

    // A page asking for events when there are none is held open on the channel this names (long
    // polling), up to `longPollMs`; `pushed` is told the page whose events came in, to wake it.
    static QString eventChannel(const QString& audience);
    static constexpr int longPollMs = 25000;
    void setEventsPushed(const std::function<void(const QString& audience)>& pushed) { mPushed = pushed; }

private:
    HttpServer::Reply signIn(const HttpServer::Request& request);
    HttpServer::Reply signOut();
    HttpServer::Reply demoEvents(const HttpServer::Request& request);
    HttpServer::Reply serveFile(const QString& path, const QHash<QByteArray, QByteArray>& substitutions);

    QString mSiteRoot;
    QString mServiceHost;
    QString mDownloadsRoot;
    QString mUpdateInstaller = QStringLiteral("kestrelgap-update-demo.sh");
    DemoEventQueue mEvents;
    std::function<void(const QString&)> mPushed;
};
