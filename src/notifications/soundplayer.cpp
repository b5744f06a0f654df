#include "soundplayer.h"

#include <QSound>

namespace {

class DevicePlayer : public SoundPlayer
{
public:
    // No device or an unplayable file goes unreported, as a notification sound isn't worth an error.
    void play(const QString& resourcePath) override { QSound::play(resourcePath); }
};

SoundPlayer*& installedPlayer()
{
    static SoundPlayer* player = nullptr;
    return player;
}

} // namespace

SoundPlayer* SoundPlayer::instance()
{
    static DevicePlayer devicePlayer;
    SoundPlayer* player = installedPlayer();
    return player ? player : &devicePlayer;
}

void SoundPlayer::setInstance(SoundPlayer* player)
{
    installedPlayer() = player;
}
