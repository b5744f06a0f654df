// kestrelgap-devhost: the local stand-in for the service host, for running and testing the client
// on a machine that can't reach the real service.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSslCertificate>
#include <QSslSocket>
#include <QSslConfiguration>
#include <QSslKey>
#include <QTextStream>

#include <cstdio>

#include "devhost.h"
#include "httpserver.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kestrelgap-devhost"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Serves the client's service host on 127.0.0.1 from an editable site folder.\n"
        "Push demo events with: curl -d '{\"type\":\"text\"}' http://HOST/demo/events"));
    parser.addHelpOption();
    QCommandLineOption listenOption(QStringLiteral("listen"),
        QStringLiteral("The service host the client was built for, host[:port] (default %1). "
                       "Only 127.0.0.1 is bound, whatever the host name.").arg(QStringLiteral(KESTRELGAP_SERVICE_HOST)),
        QStringLiteral("host:port"), QStringLiteral(KESTRELGAP_SERVICE_HOST));
    QCommandLineOption siteOption(QStringLiteral("site"),
        QStringLiteral("Folder of pages and documents (default %1).").arg(QStringLiteral(KESTRELGAP_DEVHOST_SITE)),
        QStringLiteral("folder"), QStringLiteral(KESTRELGAP_DEVHOST_SITE));
    QCommandLineOption quietOption(QStringLiteral("quiet"), QStringLiteral("Don't print a line per request."));
    QCommandLineOption tlsOption(QStringLiteral("tls"),
        QStringLiteral("Folder with cert.pem and key.pem for https on the same port (default %1); "
                       "without them only plain http is served.").arg(QStringLiteral(KESTRELGAP_DEVHOST_TLS)),
        QStringLiteral("folder"), QStringLiteral(KESTRELGAP_DEVHOST_TLS));
    QCommandLineOption downloadsOption(QStringLiteral("downloads"),
        QStringLiteral("Second folder served under /downloads/ (default %1, where the build puts the demo "
                       "package).").arg(QStringLiteral(KESTRELGAP_DEVHOST_DOWNLOADS)),
        QStringLiteral("folder"), QStringLiteral(KESTRELGAP_DEVHOST_DOWNLOADS));
    QCommandLineOption installerOption(QStringLiteral("update-installer"),
        QStringLiteral("Installer the version document offers, under /downloads/ (default %1; "
                       "kestrelgap-update-demo.deb for a client installed from the package).")
            .arg(QStringLiteral("kestrelgap-update-demo.sh")),
        QStringLiteral("file"), QStringLiteral("kestrelgap-update-demo.sh"));
    parser.addOptions({listenOption, siteOption, quietOption, tlsOption, downloadsOption, installerOption});
    parser.process(app);

    QTextStream err(stderr);
    const QString serviceHost = parser.value(listenOption);
    const int colon = serviceHost.lastIndexOf(QLatin1Char(':'));
    bool portOk = true;
    const int port = colon < 0 ? 80 : serviceHost.mid(colon + 1).toInt(&portOk);
    if (!portOk || port <= 0 || port > 65535) {
        err << "kestrelgap-devhost: bad port in '" << serviceHost << "'\n";
        return 2;
    }
    const QString site = parser.value(siteOption);
    if (!QDir(site).exists(QStringLiteral("main.html"))) {
        err << "kestrelgap-devhost: no main.html in the site folder " << site << "\n";
        return 2;
    }

    DevHost host(site, serviceHost);
    host.setDownloadsFolder(parser.value(downloadsOption));
    host.setUpdateInstaller(parser.value(installerOption));
    const bool quiet = parser.isSet(quietOption);
    HttpServer server;
    server.setFallbackHandler([&host, quiet](const HttpServer::Request& request) {
        const HttpServer::Reply reply = host.handle(request);
        if (!quiet) {
            // One line per request, flushed at once: scripts and tests follow the client through it.
            std::printf("%s %s %d\n", request.method.constData(), request.path.toUtf8().constData(), reply.status);
            std::fflush(stdout);
        }
        return reply;
    });
    host.setEventsPushed([&server](const QString& audience) { server.wake(DevHost::eventChannel(audience)); });
    // The service sends the client to some pages by https; the client accepts any certificate.
    QFile certificateFile(QDir(parser.value(tlsOption)).filePath(QStringLiteral("cert.pem")));
    QFile keyFile(QDir(parser.value(tlsOption)).filePath(QStringLiteral("key.pem")));
    bool tls = false;
    if (certificateFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly)) {
        const QSslCertificate certificate(&certificateFile, QSsl::Pem);
        const QSslKey key(&keyFile, QSsl::Ec, QSsl::Pem);
        if (!certificate.isNull() && !key.isNull() && QSslSocket::supportsSsl()) {
            QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
            configuration.setLocalCertificate(certificate);
            configuration.setPrivateKey(key);
            configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
            server.setTlsConfiguration(configuration);
            tls = true;
        } else {
            err << "kestrelgap-devhost: unusable certificate or key in " << parser.value(tlsOption) << "; http only\n";
        }
    }
    if (!server.listen(quint16(port))) {
        err << "kestrelgap-devhost: can't listen on 127.0.0.1:" << port << " (in use?)\n";
        return 1;
    }
    std::printf("kestrelgap-devhost: serving %s at http%s://127.0.0.1:%d/ for %s\n",
                QDir(site).absolutePath().toUtf8().constData(), tls ? "(s)" : "", port,
                serviceHost.toUtf8().constData());
    std::fflush(stdout);
    return app.exec();
}
