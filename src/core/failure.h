#pragma once
// One monitored service found not running in one scan: what the check cycle hands to the alert
// actions, and what every action (the alert mail, the network message, the restart) reads. It
// travels as a value from the check cycle through the dispatcher to each action.
//
// It also carries what its history calls for: the alert keeper, in front of the dispatcher,
// sets which of its actions run (all of them, as always, unless an alert option says
// otherwise), and the dispatcher goes by that.
#include "core/serverfile.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

namespace velmora::core {

struct Failure {
    QString server;          // the server as the check cycle names it (upper case)
    MonitoredService record; // the service's record: display name, key name, five action slots
    QString state;           // the state text the check found ("Stopped", "Paused", ...)
    QDateTime found;         // when the check found it

    enum class Runs {
        All,      // every action of its slots
        Reminder, // only its mail and network message actions (a reminder)
        Mail,     // only its mail actions (a recovery, a server's own failure)
        Nothing,  // none: already alerted, or its server is down
    };
    Runs runs = Runs::All;
    // The restart guard: its "Restart Service" runs, has been stopped at this failure (one
    // alert says so), or was stopped before.
    enum class Restarts { Run, JustStopped, Stopped };
    Restarts restarts = Restarts::Run;
    // The unit's last journal lines, which its alert mail carries after the body.
    QStringList journal = {};

    const QString& service() const { return record.servicename; }
};

} // namespace velmora::core
