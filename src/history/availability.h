#pragma once
// The availability of the monitored services as the job log tells it: for each server and
// service a run-length history of what its checks found, its outages, and its uptime.
//
// The log holds checks, not states, so the history decides what happened between two checks:
// - a check's state holds until the next check of the service, as long as that comes on time
//   (within the service's usual interval and a half, at least two minutes more);
// - when it comes late (the program was not running, the server dropped out of "Computers"), the
//   state holds for one usual interval after the last check and nothing is known after that:
//   "not checked" until the next check;
// - a server line stands for every service of its server seen so far: "Server is in Maintenance
//   Mode" is maintenance, "Could not reach Server" is "server not answering".
// An outage runs from the first check that found a service down (failed, or its server not
// answering) to the first check that found it running again or its server in maintenance; time
// without checks inside it does not end it, but is not counted as down time either. Uptime is
// running time over checked time: maintenance and time without checks count for neither.
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <array>
#include <vector>

namespace velmora::history {

// In the order a timeline pixel that covers several states shows them: the higher wins, so a
// short failure stays visible at any zoom.
enum class Avail : quint8 { NotChecked, Running, Maintenance, NotAnswering, Failed };
inline constexpr int kAvailCount = 5;
QString availName(Avail a);
inline bool isDown(Avail a) { return a == Avail::Failed || a == Avail::NotAnswering; }

// Times are seconds since 1970 (UTC).
struct Run {
    qint64 start = 0;
    Avail state = Avail::NotChecked;
};

struct Outage {
    qint64 start = 0;
    qint64 end = -1;        // the check that ended it; -1 while it lasts
    qint64 unchecked = 0;   // seconds inside it without checks (up to its last check)
    bool fromLogStart = false; // the service was down at its first line: it may have begun earlier
    QStringList states;     // the distinct states its checks found, in order
    QList<QPair<QString, int>> actions; // the distinct action lines written for it, with counts
};

struct ServiceHistory {
    QString server;
    QString service; // empty for a server none of whose services was ever checked
    QList<Run> runs; // each run lasts until the next one starts; the last one see knownUntil()
    QList<Outage> outages;
    qint64 first = 0, last = 0; // first and last check
    qint64 interval = 0;        // the usual seconds between two checks

    // Until when the last run's state is known, seen at now: up to now while the next check is
    // not yet overdue, else one usual interval after the last check.
    qint64 knownUntil(qint64 now) const;
    // The state at time t, seen at now.
    Avail stateAt(qint64 t, qint64 now) const;
    // Running seconds over checked seconds in [from, to), seen at now; -1 when nothing in it
    // was checked.
    double uptime(qint64 from, qint64 to, qint64 now) const;
    // The index of the run in force at t (the last one starting at or before t), -1 before
    // the first.
    qsizetype runAt(qint64 t) const;
};

// An outage's end, its down time and its time without checks, seen at now.
struct OutageSpan {
    qint64 end = 0;       // its end, or for one that lasts, until when the service was known down
    qint64 down = 0;      // seconds down: end - start - unchecked
    qint64 unchecked = 0;
    bool lasting = false;
};
OutageSpan outageSpan(const ServiceHistory& s, const Outage& o, qint64 now);

// How long a duration reads: "45 s", "12 min", "3 h 05 min", "2 d 04 h".
QString durationText(qint64 seconds);
// The actions of an outage as one text: "Alert activated (3×); Email sent to ops@example.org (3×)".
QString actionsText(const Outage& o);

inline constexpr qint64 kDay = 24 * 3600;
// The uptime periods: the last day, week and month (30 days).
inline constexpr qint64 kUptimePeriods[] = {kDay, 7 * kDay, 30 * kDay};

// What one read of the log found.
struct History {
    std::vector<ServiceHistory> services; // in the order they first appear in the log
    // Uptime over the last day, week and month for each service, seen at `computedAt`.
    std::vector<std::array<double, 3>> uptimes;
    qint64 computedAt = 0;
    qint64 lines = 0;        // lines read since the log began
    qint64 skipped = 0;      // lines that were neither checks, server lines nor actions
    QList<qint64> skippedLines; // the numbers of the first few of them (1-based)
    qint64 bytes = 0;        // bytes of the log read so far
    qint64 lastReadBytes = 0; // bytes the last read went through
    bool logExists = false;
    bool reread = false;     // the last read started over (the log was emptied or replaced)
};

// An outage named by the index of its service and its own index there.
struct OutageRef {
    int service = 0, outage = 0;
};
// A note on an outage: that it still lasts, or that the service was down when the log began.
QString outageNote(const Outage& o);
// The outage list as CSV: a header line, then one line per outage (times in local time,
// durations in seconds), fields quoted where they need it.
QStringList outagesCsv(const History& h, const QList<OutageRef>& outages, qint64 now);

} // namespace velmora::history
