#include "support/systemdfixture.h"

namespace velmora::test {

platform::SystemdServices::Options localSystemdOptions(const testsupport::MockSystemdBus& bus)
{
    platform::SystemdServices::Options options;
    options.localAddress = bus.address();
    options.localName = QStringLiteral("testhost");
    options.controlPath = [](const QString&) { return QString(); };
    return options;
}

SystemdFixture::SystemdFixture(const QString& unitsJson)
{
    error = bus.start(unitsJson);
    if (!error.isEmpty())
        return;
    systemd = std::make_unique<platform::SystemdServices>(localSystemdOptions(bus));
    f.sim.system.computer_name = "testhost";
    f.sim.icmp.addComputer("TESTHOST", "127.0.0.1", 0);
}

shell::MainWindow& SystemdFixture::start(const QStringList& computerlist)
{
    f.writeFile("Computerlist", computerlist);
    auto p = f.sim.platform();
    p.services = systemd.get();
    f.program = std::make_unique<shell::Program>(p);
    f.window = f.program->window.get();
    f.program->load();
    f.sim.clock.advance(1000);
    return *f.window;
}

} // namespace velmora::test
