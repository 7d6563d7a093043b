#pragma once
// One monitored service found not running in one scan: what the check cycle hands to the alert
// actions, and what every action (the alert mail, the network message, the restart) reads. It
// travels as a value from the check cycle through the dispatcher to each action.
#include "core/serverfile.h"

#include <QDateTime>
#include <QString>

namespace velmora::core {

struct Failure {
    QString server;          // the server as the check cycle names it (upper case)
    MonitoredService record; // the service's record: display name, key name, five action slots
    QString state;           // the state text the check found ("Stopped", "Paused", ...)
    QDateTime found;         // when the check found it

    const QString& service() const { return record.servicename; }
};

} // namespace velmora::core
