#include "enginememory.h"

#include <QCoreApplication>
#include <qwebkitglobal.h>

#include <dlfcn.h>
#include <malloc.h>

namespace {

// After the last of a burst of events.
constexpr int defaultQuietMs = 2000;
// The closed pages' objects that went through deleteLater and the replies still being taken down
// have gone by then.
constexpr int defaultSettledMs = 10000;
// At most this long between collections while events keep coming.
constexpr qint64 defaultBusyMs = 60000;

using CollectGarbage = void (*)(void*);

// QtWebKit has no public call that runs the script collector alone: QWebSettings::clearMemoryCaches
// also drops the main page's compiled code, font data and cached resources, which it would then
// have to build again. The library exports the collector behind its bundle API; on the engine
// this build of the program runs on (602), that entry doesn't touch its bundle argument. Looked up
// at run time, so an engine without it leaves the script heap to its own collector.
CollectGarbage engineCollector()
{
    static const CollectGarbage collector = [] () -> CollectGarbage {
        if (!qWebKitVersion().startsWith(QLatin1String("602.")))
            return nullptr;
        return reinterpret_cast<CollectGarbage>(dlsym(RTLD_DEFAULT, "WKBundleGarbageCollectJavaScriptObjects"));
    }();
    return collector;
}

} // namespace

EngineMemory* EngineMemory::instance()
{
    static EngineMemory* memory = new EngineMemory(QCoreApplication::instance());
    return memory;
}

EngineMemory::EngineMemory(QObject* parent)
    : QObject(parent)
{
    quiet.setSingleShot(true);
    settled.setSingleShot(true);
    setTimings(defaultQuietMs, defaultSettledMs, defaultBusyMs);
    connect(&quiet, &QTimer::timeout, this, &EngineMemory::reclaim);
    connect(&settled, &QTimer::timeout, this, &EngineMemory::reclaim);
    sinceReclaim.start();
}

void EngineMemory::setTimings(int quietMs, int settledMs, qint64 busyMs)
{
    quiet.setInterval(quietMs);
    settled.setInterval(settledMs);
    this->busyMs = busyMs;
    sinceReclaim.restart();
}

void EngineMemory::noteActivity()
{
    EngineMemory* memory = instance();
    // Collected from the event loop, never inside the bridge call that reported the work.
    const bool overdue = memory->quiet.isActive() && memory->sinceReclaim.elapsed() > memory->busyMs;
    memory->quiet.start();
    memory->settled.stop();
    if (overdue) {
        memory->sinceReclaim.restart();
        QTimer::singleShot(0, memory, &EngineMemory::reclaim);
    }
}

bool EngineMemory::reclaimNow()
{
    CollectGarbage collect = engineCollector();
    // The collector also hands the engine's own allocator's free pages back.
    if (collect)
        collect(nullptr);
    malloc_trim(0);
    return collect != nullptr;
}

void EngineMemory::reclaim()
{
    const bool second = sender() == &settled;
    reclaimNow();
    ++reclaimCount;
    sinceReclaim.restart();
    // A second pass once what the first one freed has been taken down; not after that one.
    if (!second && !quiet.isActive())
        settled.start();
}
