// The version document comes over plain http from the service host, so anyone on the path can
// change it. Any reply body must be read without a memory error and end in "loaded", never
// "failed"; the version read from it must be a number, so that the user is offered an update
// exactly when it is above this build's; and a body that is no JSON object reads as no version.
#include <QByteArray>
#include <QObject>
#include <QVariant>

#include <cmath>
#include <cstdlib>

#include "cannedreply.h"
#include "fuzzsupport.h"
#include "resourceinit.h"
#include "updates/versioncheck.h"

namespace {

int completed = 0;
int failed = 0;

VersionCheck* check()
{
    // One check for the whole run: its network manager costs more than the input it reads, and
    // every reply overwrites what the one before left.
    static VersionCheck* versionCheck = [] {
        auto* created = new VersionCheck(nullptr);
        QObject::connect(created, &VersionCheck::versionCheckLoadComplete, [] { ++completed; });
        QObject::connect(created, &VersionCheck::versionCheckErrorOccurred, [] { ++failed; });
        return created;
    }();
    return versionCheck;
}

bool startsAsObject(const QByteArray& body)
{
    QByteArray rest = body;
    if (rest.startsWith("\xEF\xBB\xBF"))
        rest.remove(0, 3);
    for (char c : rest) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r')
            continue;
        return c == '{';
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    // The comparison needs this build's own version, which lives in the resource tree.
    kestrelgapInitResources();
    if (!(VersionCheck::installedVersion() > 0))
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    VersionCheck* versionCheck = check();
    completed = failed = 0;
    CannedReply reply(VersionCheck::documentUrl(), body);
    versionCheck->requestFinished(&reply);
    if (completed != 1 || failed != 0)
        abort();

    const double published = versionCheck->getCurrentVersion();
    if (!std::isfinite(published))
        abort();
    if (!startsAsObject(body) && (published != 0 || !versionCheck->getDownloadPath().isEmpty()))
        abort();

    QObject store;
    const bool upToDate = versionCheck->compareWithInstalled(&store, QStringLiteral("fuzz"));
    if (upToDate != (published <= VersionCheck::installedVersion()))
        abort();
    if (store.property("current_version").toDouble() != published
        || store.property("download_path").toString() != versionCheck->getDownloadPath())
        abort();
    return 0;
}
