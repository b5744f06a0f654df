#pragma once

#include <QString>

// Plays a short sound from the resources, fire and forget.
class SoundPlayer
{
public:
    virtual ~SoundPlayer() = default;

    virtual void play(const QString& resourcePath) = 0;

    // The player in force: a stand-in installed by a test, or the one that reaches the sound device.
    static SoundPlayer* instance();
    // Not owned. nullptr restores the real player.
    static void setInstance(SoundPlayer* player);
};
