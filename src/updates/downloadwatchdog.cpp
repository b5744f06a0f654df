#include "downloadwatchdog.h"

namespace {
int testInterval = 0;
}

int DownloadWatchdog::intervalMs()
{
    return testInterval > 0 ? testInterval : defaultIntervalMs;
}

void DownloadWatchdog::setIntervalMsForTests(int ms)
{
    testInterval = ms;
}
