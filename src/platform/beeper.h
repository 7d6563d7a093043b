#pragma once
// A plain tone on the speaker, the signal of an unanswered alert.
namespace velmora::platform {

class Beeper {
public:
    virtual ~Beeper() = default;
    // Sounds a tone of frequencyHz for durationMs without blocking the caller. A beep that comes
    // while the previous one still sounds extends it, so repeated beeps give one steady tone.
    // Without an audio output nothing is heard and nothing is reported.
    virtual void beep(int frequencyHz, int durationMs) = 0;
};

} // namespace velmora::platform
