#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// Gives memory the pages no longer use back to the system. The web engine collects its script
// heap only once it has grown by tens of megabytes, and neither its allocator nor the C library
// hands freed pages back on their own, so a tray program that lives for weeks would hold the
// high-water mark of every burst of popups and messages. Work that leaves garbage behind calls
// noteActivity(); once the pages have been quiet for a moment, or at the latest once a minute
// while they never are, the collector runs and the free pages go back. Idle costs nothing.
class EngineMemory : public QObject
{
    Q_OBJECT

public:
    static EngineMemory* instance();

    static void noteActivity();

    // Runs the engine's collector (where this build of the engine offers one) and returns the
    // free pages of both allocators; false when only the C library's could be returned.
    static bool reclaimNow();

    int reclaims() const { return reclaimCount; }
    // Whether a reclaim is still to come; once nothing happens, nothing is.
    bool pending() const { return quiet.isActive() || settled.isActive(); }
    // Tests only: the quiet time, the second pass after it and the longest busy stretch, in ms;
    // the busy stretch counts from here.
    void setTimings(int quietMs, int settledMs, qint64 busyMs);

private:
    explicit EngineMemory(QObject* parent);

    void reclaim();

    QTimer quiet;
    QTimer settled;
    QElapsedTimer sinceReclaim;
    qint64 busyMs;
    int reclaimCount = 0;
};
