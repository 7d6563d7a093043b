#include "support/systemdfixture.h"

namespace velmora::test {

platform::SystemdServices::Options localSystemdOptions(const QString& address)
{
    platform::SystemdServices::Options options;
    options.localAddress = address;
    options.localName = QStringLiteral("testhost");
    options.controlPath = [](const QString&) { return QString(); };
    return options;
}

SystemdFixture::SystemdFixture(const QMap<QString, QString>& units, const QStringList& enabled, bool journal)
{
    error = manager.start(units, enabled, journal);
    if (!error.isEmpty())
        return;
    systemd = std::make_unique<platform::SystemdServices>(localSystemdOptions(manager.address()));
    f.sim.system.computer_name = "testhost";
    f.sim.icmp.addComputer("TESTHOST", "127.0.0.1", 0);
}

shell::MainWindow& SystemdFixture::start(const QStringList& computerlist)
{
    f.writeFile("Computerlist", computerlist);
    auto p = f.sim.platform();
    p.services = systemd.get();
    if (tcp)
        p.tcp = tcp;
    p.journal = journal;
    p.notifier = notifier;
    f.program = std::make_unique<shell::Program>(p);
    f.window = f.program->window.get();
    f.program->load();
    f.sim.clock.advance(1000);
    return *f.window;
}

} // namespace velmora::test
