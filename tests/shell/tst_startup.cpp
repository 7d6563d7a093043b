// The start-up without a window: what it tells the window, in which order, and the files it
// leaves; a run that must not go on touches no file.
#include "core/monitoredservices.h"
#include "core/runstate.h"
#include "platform/sim/simplatform.h"
#include "servicecontrol/connections.h"
#include "shell/startup.h"
#include "support/windowfixture.h"

#include <QTest>

using namespace velmora;

namespace {

struct World {
    World()
    {
        sim.system.program_folder = dir.path();
        state.platform = sim.platform();
        const auto note = [this](auto signal, const char* name) {
            QObject::connect(&startup, signal, &startup, [this, name] { steps << name; });
        };
        note(&shell::Startup::begun, "begun");
        note(&shell::Startup::refused, "refused");
        note(&shell::Startup::accepted, "accepted");
        note(&shell::Startup::monitoredServersRead, "monitoredServersRead");
        note(&shell::Startup::mailProfileCheckDue, "mailProfileCheckDue");
        note(&shell::Startup::schedulerDue, "schedulerDue");
        QObject::connect(&startup, &shell::Startup::serverNameRefused,
                         [this](const QString& server) { steps << "refused name " + server; });
        QObject::connect(&startup, &shell::Startup::serverListRead,
                         [this](const std::vector<core::ServerListLine>& lines, bool keep) {
                             steps << QStringLiteral("servers %1%2").arg(lines.size()).arg(keep ? " kept" : "");
                         });
        QObject::connect(&startup, &shell::Startup::scanDue, [this](const QString& i) { steps << "scan " + i; });
    }
    test::WindowFixture files; // only for its data folder helpers
    QTemporaryDir& dir = files.dir;
    platform::sim::SimPlatform& sim = files.sim;
    core::RunState state;
    core::MonitoredServices monitored{*sim.platform().files, state};
    servicecontrol::Connections connections{sim.net, sim.services, sim.boxes};
    shell::Startup startup{sim.platform(), state, monitored, connections};
    QStringList steps;
};

} // namespace

class TestStartup : public QObject {
    Q_OBJECT
private slots:
    void aFirstRunMakesItsFilesAndScansAfterASecond()
    {
        World w;
        w.files.writeFile("Computers", {"DC1", "COMPUTERS"});
        w.startup.run();
        QCOMPARE(w.steps, (QStringList{"begun", "accepted", "refused name COMPUTERS", "monitoredServersRead",
                                       "servers 1", "mailProfileCheckDue"}));
        QCOMPARE(w.files.readBytes("Computerlist"), QByteArray("DC1\tmonitored\r\n"));
        QCOMPARE(w.files.readBytes("Interval"), QByteArray("30\r\n"));
        QVERIFY(w.files.fileExists("Jobs.log"));
        w.sim.clock.advance(999);
        QCOMPARE(w.steps.size(), 6);
        w.sim.clock.advance(1);
        QCOMPARE(w.steps.mid(6), (QStringList{"scan 30", "schedulerDue"}));
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
