#pragma once
// The journal of a systemd unit: its last lines, as `journalctl -u UNIT -o short-iso` prints
// them ("2026-11-25T14:02:11+0000 host sleep[812]: text"), oldest first.
#include <QString>
#include <QStringList>

namespace velmora::platform {

struct JournalLines {
    QStringList lines;
    // Why there are no lines: a Windows server (which keeps no journal), a journal that cannot
    // be read, a server that cannot be reached, or a unit without entries. Empty when lines
    // holds the unit's lines.
    QString problem;
};

class UnitJournal {
public:
    virtual ~UnitJournal() = default;
    // The last `count` lines of unit's journal on computer. unit is a service's key name; a name
    // without a unit type is a service ("cron" is "cron.service"). Blocks while it reads the
    // journal (over ssh for a remote computer): call it on a worker thread.
    virtual JournalLines lastLines(const QString& computer, const QString& unit, int count) = 0;
};

} // namespace velmora::platform
