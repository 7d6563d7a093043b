#pragma once
// The program started against Debian's own systemd as a user manager on a private bus: the
// local computer is "testhost" (TESTHOST in the lists, answering the ping on 127.0.0.1) and its
// services are the manager's units, reached through the real systemd backend. Everything else
// is simulated as in WindowFixture.
#include "platform/linux/systemdservices.h"
#include "support/realsystemd.h"
#include "support/windowfixture.h"

#include <memory>

namespace velmora::test {

// Options for the systemd backend that make the bus at address the local computer "testhost",
// with no ssh control connections to other computers.
platform::SystemdServices::Options localSystemdOptions(const QString& address);

class SystemdFixture {
public:
    // Starts the manager with the units (see RealSystemd::start); error says why not. A test
    // skips when RealSystemd::missing() says the manager cannot run here.
    // With journal, the manager keeps a journal of its own (RealSystemd::start).
    SystemdFixture(const QMap<QString, QString>& units, const QStringList& enabled, bool journal = false);

    // Writes "Computerlist", builds the program on the bus and runs its start-up, including the
    // second's pause. Call only when error is empty.
    shell::MainWindow& start(const QStringList& computerlist);

    // Real backends in place of the simulated ones, when set before start().
    platform::TcpNetwork* tcp = nullptr;
    platform::UnitJournal* journal = nullptr;
    platform::Notifier* notifier = nullptr;

    testsupport::RealSystemd manager;
    QString error;
    std::unique_ptr<platform::SystemdServices> systemd;
    WindowFixture f;
};

} // namespace velmora::test
