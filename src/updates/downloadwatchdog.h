#pragma once

// How long a download attempt may go without its first byte before it counts as dead. Both
// download dialogs read it at each attempt.
class DownloadWatchdog
{
public:
    static constexpr int defaultIntervalMs = 4000;

    static int intervalMs();
    // Tests run the clock faster; 0 or less restores the default.
    static void setIntervalMsForTests(int ms);
};
