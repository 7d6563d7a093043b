#pragma once
#include "platform/desktop.h"

#include <QPointer>

class QSoundEffect;

namespace velmora::platform {

// Loops WAV files on the default audio output through Qt Multimedia. The file is checked before
// anything plays (it exists, can be read and is a WAV of PCM or float samples), so that the
// caller learns at once why a sound will not be heard; an audio output that fails later is not
// reported.
class LoopSound : public Sound {
public:
    LoopSound();
    ~LoopSound() override;
    int playLoop(const QString& file) override;
    int stop() override;

    // The checks playLoop makes before it plays: 0 or a sounderror code.
    static int checkWavFile(const QString& file);

private:
    QPointer<QSoundEffect> effect_;
};

} // namespace velmora::platform
