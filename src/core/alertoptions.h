#pragma once
// The alert options: how the program remembers failures between scans. Every option is off by
// default, and with all of them off a scan alerts exactly as it always has: every action of a
// service found not running, at every scan.
//
// They are kept in a file of their own in the data folder, one "Name=value" line each. Reading
// never loses anything: a file that cannot be read, or that holds a line it does not know, gives
// the defaults (all off) and says why; the file itself is only replaced when the user saves.
#include <QString>
#include <QStringList>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

struct AlertOptions {
    // A failure runs its actions once; found Running again, it gets a recovery line and mail.
    bool once = false;
    // While a failure lasts, its mail and message actions run again every that many scans
    // (0: never). Only with once.
    int remindScans = 0;
    // A server that does not answer is one failure of its own, mailed to serverDownMail.
    bool serverDown = false;
    QString serverDownMail;
    // After restartLimit restarts of one service within restartScans scans its restarts stop
    // until it is found Running (0: no limit).
    int restartLimit = 0;
    int restartScans = 0;
    // A failed unit's last journal lines go into its alert mail.
    bool journal = false;
    // Failures, recoveries and servers down show as desktop notifications.
    bool notify = false;

    bool restartGuard() const { return restartLimit > 0 && restartScans > 0; }
    bool operator==(const AlertOptions&) const = default;
};

struct AlertOptionsRead {
    AlertOptions options;
    // Why the file gave the defaults instead of its own values; empty when it was read (or does
    // not exist).
    QString problem;
};

AlertOptionsRead readAlertOptions(platform::TextFiles& files, const QString& path);
bool writeAlertOptions(platform::TextFiles& files, const QString& path, const AlertOptions& options);
QStringList alertOptionLines(const AlertOptions& options);

} // namespace velmora::core
