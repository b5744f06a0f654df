#include "soundplayer.h"

#include <QSound>

namespace {

class DevicePlayer : public SoundPlayer
{
public:
    // No device or an unplayable file goes unreported, as a notification sound isn't worth an error.
    void play(const QString& resourcePath) override { QSound::play(resourcePath); }
};

} // namespace

SoundPlayer* SoundPlayer::systemInstance()
{
    static DevicePlayer devicePlayer;
    return &devicePlayer;
}
