#pragma once
// The program started on a private bus with a mocked systemd: the local computer is "testhost"
// (TESTHOST in the lists, answering the ping on 127.0.0.1) and its services are the bus's units,
// reached through the real systemd backend. Everything else is simulated as in WindowFixture.
#include "platform/linux/systemdservices.h"
#include "support/mockbus.h"
#include "support/windowfixture.h"

#include <memory>

namespace velmora::test {

// Options for the systemd backend that make the bus the local computer "testhost", with no ssh
// control connections to other computers.
platform::SystemdServices::Options localSystemdOptions(const testsupport::MockSystemdBus& bus);

class SystemdFixture {
public:
    // Starts the bus holding the units (a JSON list, see systemd_mock.py); error says why not.
    explicit SystemdFixture(const QString& unitsJson);

    // Writes "Computerlist", builds the program on the bus and runs its start-up, including the
    // second's pause. Call only when error is empty.
    shell::MainWindow& start(const QStringList& computerlist);

    testsupport::MockSystemdBus bus;
    QString error;
    std::unique_ptr<platform::SystemdServices> systemd;
    WindowFixture f;
};

} // namespace velmora::test
