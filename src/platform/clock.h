#pragma once
// Wall clock and timers. Every timer of the program comes from here, so that tests can move
// time with the simulated clock instead of waiting.
#include <QDateTime>
#include <QObject>
#include <functional>

namespace velmora::platform {

// A repeating timer with a fixed interval in milliseconds. As with the classic window timers,
// an interval of 0 never fires, and changing the interval restarts the count.
class Timer : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual void setInterval(int ms) = 0;
    virtual int interval() const = 0;
    virtual void setEnabled(bool on) = 0;
    virtual bool isEnabled() const = 0;
signals:
    void timeout();
};

// How closely a timer keeps its interval. A coarse timer may fire up to 5 % early or late so
// that the system can group wake-ups; a precise one never fires early. Waits that promise a
// minimum time (the pause after a restart, a reply's time limit) are precise.
enum class Precision { Coarse, Precise };

class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    // A new disabled timer owned by parent, with the given objectName.
    virtual Timer* createTimer(QObject* parent, const QString& name, int intervalMs,
                               Precision precision = Precision::Coarse) = 0;
    // Runs fn once after ms on the user-interface thread, unless context is gone by then.
    virtual void singleShot(int ms, QObject* context, std::function<void()> fn,
                            Precision precision = Precision::Coarse) = 0;
};

} // namespace velmora::platform
