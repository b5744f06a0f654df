#pragma once

#include "platform/seam.h"

#include <QString>

// Plays a short sound from the resources, fire and forget.
class SoundPlayer : public Seam<SoundPlayer>
{
public:
    virtual ~SoundPlayer() = default;

    virtual void play(const QString& resourcePath) = 0;

private:
    friend class Seam<SoundPlayer>;
    static SoundPlayer* systemInstance();
};
