#pragma once
// What the scans remember of failures: which services and servers are down since when, when
// they were last alerted, their restarts, and whether the user acknowledged them. From that
// history it decides what a failure found in a scan runs. With every alert option off it
// decides what a scan has always done: every action, at every scan, and no recovery.
//
// The open failures outlive the program in a small state file (stateLines()/restore()), so
// that a restart of the program neither alerts a known failure again nor forgets a recovery.
#include "core/alertoptions.h"
#include "core/failure.h"

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace velmora::monitoring {

class FailureMemory {
public:
    explicit FailureMemory(core::AlertOptions options = {}) : options_(std::move(options)) {}

    const core::AlertOptions& options() const { return options_; }
    void setOptions(const core::AlertOptions& options) { options_ = options; }

    // A timed scan begins; scans are what reminders and the restart guard count.
    void beginScan();
    int scan() const { return scan_; }

    using Runs = core::Failure::Runs;
    using Restarts = core::Failure::Restarts;
    struct Decision {
        Runs run = Runs::All; // All, Reminder or Nothing
        Restarts restarts = Restarts::Run;
    };
    // A monitored service found not running at `at`; restarts tells whether its actions
    // include "Restart Service" (one that runs counts towards the restart guard).
    Decision failed(const QString& server, const QString& service, const QDateTime& at, bool restarts);
    // The service was found Running: when it had an open failure that counts for a recovery,
    // the time that failure began. It also lets its restarts run again.
    std::optional<QDateTime> running(const QString& server, const QString& service);
    // The user acknowledged the failure: no more reminders until it recovers. False when no
    // failure of it is open.
    bool acknowledge(const QString& server, const QString& service);

    // The server did not answer (or its service manager could not be reached) at `at`: true
    // when this is news, and alerted as one failure of its own.
    bool serverDown(const QString& server, const QDateTime& at);
    // It answered: when it had been down (and that was alerted), since when.
    std::optional<QDateTime> serverUp(const QString& server);
    bool isDown(const QString& server) const;

    // The open failures, for the state file; restore() takes them back and returns false (and
    // forgets nothing it holds) when the lines are damaged.
    QStringList stateLines() const;
    bool restore(const QStringList& lines);
    // Whether anything the state file holds has changed since stateLines() was last taken.
    bool changed() const { return changed_; }
    void markSaved() { changed_ = false; }

    // "3 h 5 min", "12 min", "40 s": how long something was down.
    static QString durationText(qint64 seconds);

private:
    struct Open {
        QDateTime since;
        int alertedScan = 0;
        bool acknowledged = false;
        bool restartsStopped = false;
        std::vector<int> restarts; // scans in which a restart ran
    };
    static QString key(const QString& server, const QString& service);

    core::AlertOptions options_;
    int scan_ = 0;
    QHash<QString, Open> failures_; // by key(); also services with restarts but no open failure
    QHash<QString, QDateTime> down_; // servers, upper case
    bool changed_ = false;
};

} // namespace velmora::monitoring
