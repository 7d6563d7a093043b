#pragma once
// Whether servers answer a ping: one echo carrying "HelloServer", 500 ms time-out.
//
// Pings run off the user-interface thread; a batch of servers is pinged all at once and the
// results come back together, in the order the names were given, so callers apply them exactly
// as a one-by-one pass would.
#include "platform/platform.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace velmora::monitoring {

// "ip success", "ip req timed out", ... for a ping status; "unknown  msg returned" otherwise.
QString pingStatusText(int code);
// code + "   [ " + text + " ]", e.g. "11010   [ ip req timed out ]".
QString pingResultText(int code);
// A server counts as reachable exactly when its ping result begins with "0".
inline bool isReachable(const QString& pingresult) { return pingresult.startsWith(QLatin1Char('0')); }

struct PingOutcome {
    QString address; // dotted address the name resolved to, empty when it did not
    QString result;  // as pingResultText()
    bool reachable() const { return isReachable(result); }
};

// One outcome of a batch and the position of its name in the batch.
struct PingAnswer {
    qsizetype index = 0;
    PingOutcome outcome;
};

class Reachability {
public:
    static constexpr int timeoutMs = 500;
    static inline const QByteArray echoData = QByteArrayLiteral("HelloServer");

    Reachability(platform::Icmp& icmp, platform::Worker& worker);

    // Pings every name at once; done receives one outcome per name, in order, on the
    // user-interface thread, unless context is gone by then.
    void pingAll(const QStringList& names, QObject* context,
                 std::function<void(const std::vector<PingOutcome>&)> done);

    // Pings every name at once and hands the outcomes over in parts as they come: dotted
    // addresses need no name server, so theirs come after the echo time-out at the latest, those
    // of names once the names resolved or their time ran out. A part larger than sliceSize comes
    // in slices, one per turn of the event loop, so that applying them never holds the window up
    // for long. done follows the last part. Neither runs once context is gone.
    static constexpr int sliceSize = 1000;
    void pingInParts(const QStringList& names, QObject* context,
                     std::function<void(const std::vector<PingAnswer>&)> part, std::function<void()> done);

    // The blocking form, for worker threads.
    static std::vector<PingOutcome> pingNow(platform::Icmp& icmp, const QStringList& names);

private:
    platform::Icmp& icmp_;
    platform::Worker& worker_;
};

} // namespace velmora::monitoring
