#pragma once
#include "platform/journal.h"

#include <functional>

namespace velmora::platform {

// The journal through libsystemd's sd-journal on this computer, and through `journalctl` over
// the server's ssh connection on a remote one. Windows servers have none.
class SystemdJournal : public UnitJournal {
public:
    struct Options {
        // The folder of the local journal files; empty: this computer's own journal.
        QString directory;
        // This computer's name; empty: the host name. It (and its short form) reads locally.
        QString localName;
        // The ssh control socket of a server's connection (SshConnections::controlPath).
        std::function<QString(const QString& server)> controlPath;
        std::function<bool(const QString& server)> isWindows;
        QString sshProgram = QStringLiteral("ssh");
        int timeoutMs = 15000;
    };
    explicit SystemdJournal(Options options);

    JournalLines lastLines(const QString& computer, const QString& unit, int count) override;

    // unit with ".service" added when it names no unit type.
    static QString unitName(const QString& unit);

private:
    JournalLines local(const QString& unit, int count);
    JournalLines remote(const QString& server, const QString& unit, int count);

    Options options_;
};

} // namespace velmora::platform
