#pragma once
// Simulated beeper: records each beep with the simulated clock's time.
#include "platform/beeper.h"
#include "platform/clock.h"

#include <QDateTime>
#include <QList>

namespace velmora::platform::sim {

class SimBeeper : public Beeper {
public:
    struct Beep {
        int frequency;
        int duration;
        QDateTime at;
    };
    explicit SimBeeper(const Clock& clock) : clock_(clock) {}
    void beep(int frequencyHz, int durationMs) override
    {
        beeps.append({frequencyHz, durationMs, clock_.now()});
    }
    QList<Beep> beeps;

private:
    const Clock& clock_;
};

} // namespace velmora::platform::sim
