// The allowed-URL document comes over plain http from the service host, so anyone on the path can
// change it. Any reply body must be read without a memory error, and the two built-in sign-in
// pages must stay allowed whatever the document says.
#include <QByteArray>
#include <QUrl>

#include <cstdlib>

#include "cannedreply.h"
#include "core/servicehost.h"
#include "fuzzsupport.h"
#include "web/containerallowedurls.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    ContainerAllowedUrls urls(nullptr);
    CannedReply reply(ContainerAllowedUrls::documentUrl(), body);
    urls.requestFinished(&reply);

    const QString signIn = QStringLiteral("https://") + ServiceHost::signInHost();
    if (!urls.isUrlAllowed(QUrl(signIn + QStringLiteral("/ServiceLogin?continue=x")))
        || !urls.isUrlAllowed(QUrl(signIn + QStringLiteral("/AccountChooser"))))
        abort();
    urls.isUrlAllowed(QUrl(QStringLiteral("https://elsewhere.example/page")));
    return 0;
}
