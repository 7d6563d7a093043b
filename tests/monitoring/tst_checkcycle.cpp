#include "actions/alertmailer.h"
#include "actions/dispatcher.h"
#include "core/monitoredservices.h"
#include "core/serverlist.h"
#include "joblog/alertsink.h"
#include "joblog/alertwindow.h"
#include "joblog/joblog.h"
#include "joblog/logandalerts.h"
#include "monitoring/alertkeeper.h"
#include "monitoring/checkcycle.h"
#include "monitoring/setupwindow.h"
#include "support/windowfixture.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>
#include <algorithm>
#include <random>

using namespace velmora;
using test::WindowFixture;
namespace svcstate = platform::svcstate;

namespace {

// Runs each job at once but holds its completion back until the test releases it, so that
// answers can be delivered in any order.
class HoldingWorker : public platform::Worker {
public:
    void run(QObject* context, std::function<std::function<void()>()> job) override
    {
        QPointer<QObject> guard(context);
        held.push_back([guard, done = job()] {
            if (guard && done)
                done();
        });
    }
    // Releases every held completion (and those they cause) in a shuffled order.
    void releaseScrambled(unsigned seed)
    {
        std::mt19937 rng(seed);
        while (!held.empty()) {
            std::shuffle(held.begin(), held.end(), rng);
            auto next = std::move(held.back());
            held.pop_back();
            next();
        }
    }
    std::vector<std::function<void()>> held;
};

QStringList alertRows(WindowFixture& f)
{
    QStringList out;
    auto* list = f.program->logandalerts->alertwindow()->ListView1;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        const auto* item = list->topLevelItem(i);
        out << QStringList{item->text(2), item->text(3), item->text(4), item->text(5)}.join('|');
    }
    return out;
}

// Four servers: WEB1 with two services, DB2 that does not answer, LAB3 in maintenance, and
// FILE4 with one service. Interval 30 minutes.
struct Fleet : WindowFixture {
    Fleet()
    {
        writeFile("Computerlist", {"WEB1\tmonitored", "DB2\tmonitored", "LAB3\tmonitored", "FILE4\tmonitored"});
        writeFile("Computers", {"WEB1", "DB2", "LAB3", "FILE4"});
        writeFile("WEB1", {"Web server;nginx.service;Alert;;;;;", "Jobs;cron.service;Restart Service;;;;;",
                           "No final semicolon;ssh.service;;;;;Alert", "[Properties:]", "[EOF]"});
        writeFile("DB2", {"Database;mariadb.service;Alert;;;;;"});
        writeFile("LAB3", {"Lab;lab.service;Alert;;;;;"});
        writeFile("FILE4", {"Samba;smbd.service;;;;;;"});
        writeFile("Interval", {"30"});
        sim.icmp.addComputer("WEB1", "10.4.0.1", 0);
        sim.icmp.addComputer("DB2", "10.4.0.2", 11010);
        sim.icmp.addComputer("LAB3", "10.4.0.3", 0);
        sim.icmp.addComputer("FILE4", "10.4.0.4", 0);
        auto& s = sim.services;
        s.addService("WEB1", {.name = "nginx.service", .state = svcstate::stopped});
        s.addService("WEB1", {.name = "cron.service", .state = svcstate::running});
        s.addService("WEB1", {.name = "ssh.service", .state = svcstate::stopped});
        s.addService("FILE4", {.name = "smbd.service", .state = svcstate::paused});
        s.addService("DB2", {.name = "mariadb.service", .state = svcstate::stopped});
        s.addService("LAB3", {.name = "lab.service", .state = svcstate::running});
    }
    shell::MainWindow& startWithMaintenance()
    {
        create();
        program->load();
        program->servers.setMaintenance("LAB3", true);
        sim.clock.advance(1000);
        return *window;
    }
};

const QStringList kFirstScan{
    "WEB1\tnginx.service\tStopped", "Alert activated",
    "WEB1\tcron.service\tRunning",
    "DB2\tCould not reach Server, Server not available.",
    "LAB3\tServer is in Maintenance Mode",
    "FILE4\tsmbd.service\tPaused",
};

// The alert sink of a scan built without a window: it writes what it is told into a journal.
struct Journal : joblog::AlertSink {
    QStringList events;

    void beginTimedScan() override { events << "begin"; }
    void beginImmediateCheck() override { events << "begin immediate"; }
    void showNextScan(const QDateTime&) override {}
    void showalertwindow() override {}
    void addalertrow(const QString& server, const QString& service, const QString& state,
                     const QString& actions) override
    {
        events << QStringList{"row", server, service, state, actions.trimmed()}.join('|');
    }
    void addcheckrow(const QString& server, const QString& service, const QString& shown, const QString&,
                     bool red) override
    {
        events << QStringList{"check", server, service, shown, red ? "red" : ""}.join('|');
    }
    void markrecovered(const QString&, const QString&, const QString&) override {}
    void updatelogsize(joblog::SizeCaption) override {}
    void updatelogsizecolour() override {}
};

// A scan without a program or a window over the files and the fleet of f: run state, server
// list (servers, all monitored), files, job log, the alert actions and the recording sink.
struct BareScan {
    BareScan(WindowFixture& f, const QStringList& names) : state(stateOf(f))
    {
        for (const QString& name : names)
            servers.add(name, true);
        log.ensurejoblog();
    }
    static core::RunState stateOf(WindowFixture& f)
    {
        core::RunState s;
        s.platform = f.sim.platform();
        s.datafolder = f.dir.path();
        return s;
    }
    core::RunState state;
    core::ServerList servers;
    core::MonitoredServices monitored{*state.platform.files, state};
    joblog::JobLog log{state.platform, state};
    Journal journal;
    core::Schedule schedule;
    actions::AlertMailer mailer{*state.platform.files, nullptr, nullptr, *state.platform.clock, *state.platform.tcp,
                                *state.platform.profilemail, *state.platform.boxes, log, state.datafolder};
    actions::ActionDispatcher dispatcher{state.platform, log, mailer, *state.platform.messenger, nullptr};
    monitoring::AlertKeeper keeper{state.platform, state, log, journal, dispatcher};
    monitoring::CheckCycle cycle{state, schedule, servers, monitored, log, keeper, journal};
    QSignalSpy finished{&cycle, &monitoring::CheckCycle::scanFinished};
};

} // namespace

class TestCheckCycle : public QObject {
    Q_OBJECT
private slots:
    void timedScanLogsAlertsAndActsInFileOrder()
    {
        Fleet f;
        auto& w = f.startWithMaintenance();
        QCOMPARE(f.logLines(), kFirstScan);
        QCOMPARE(alertRows(f).size(), 2);
        QVERIFY(f.program->logandalerts->alertwindow()->isVisible()); // the popup option is on by default
        QVERIFY(w.Timer6->isEnabled());
        // Every monitored server, the one in maintenance too.
        QCOMPARE(f.program->setupWindow()->List3->count(), 4);
        // The server in maintenance was neither pinged nor queried by the scan: its one ping is
        // the start-up's, which the others had too.
        QCOMPARE(f.sim.icmp.pinged.count("10.4.0.3"), 1);
        QCOMPARE(f.sim.icmp.pinged.count("10.4.0.1"), 2);
        QVERIFY(!f.sim.services.calls().join('\n').contains("LAB3"));

        // Nothing is remembered: the next scan, 30 minutes on, does it all again.
        f.sim.clock.advance(30 * 60 * 1000 - 1000);
        QCOMPARE(f.logLines().size(), kFirstScan.size());
        f.sim.clock.advance(1000);
        QCOMPARE(f.logLines(), kFirstScan + kFirstScan);
        QCOMPARE(alertRows(f).size(), 4);
    }

    // The scan on its own: a failure's actions (a restart and its wait) hold the scan; nothing
    // after it is applied until they end.
    void aScanNeedsNoWindowAndWaitsForEachFailuresActions()
    {
        Fleet f; // the files and the simulated fleet; no program and no window are built
        f.writeFile("WEB1", {"Web server;nginx.service;Restart Service;;;;;", "Jobs;cron.service;;;;;;"});
        BareScan bare(f, {"WEB1", "DB2", "LAB3", "FILE4"});
        bare.servers.setMaintenance("LAB3", true);
        bare.cycle.trigger();
        QCOMPARE(bare.journal.events, (QStringList{"begin", "row|WEB1|nginx.service|Stopped|Restart Service"}));
        QCOMPARE(f.logLines(), QStringList{"WEB1\tnginx.service\tStopped"});
        QVERIFY(bare.cycle.scanRunning());
        f.sim.clock.advance(actions::ActionDispatcher::kRestartWaitMs - 1);
        QCOMPARE(f.logLines().size(), 1);
        f.sim.clock.advance(1);
        QCOMPARE(bare.journal.events.mid(2), QStringList{"row|FILE4|smbd.service|Paused|"});
        QCOMPARE(f.logLines(), (QStringList{"WEB1\tnginx.service\tStopped",
                                           "Attemp to restart service : nginx.service Successfull",
                                           "WEB1\tcron.service\tRunning",
                                           "DB2\tCould not reach Server, Server not available.",
                                           "LAB3\tServer is in Maintenance Mode", "FILE4\tsmbd.service\tPaused"}));
        QCOMPARE(bare.finished.count(), 1);
        QVERIFY(!bare.cycle.scanRunning());
        QCOMPARE(bare.servers.find("DB2")->icon(), 10);
        QCOMPARE(bare.servers.find("WEB1")->icon(), 9);
    }

    // A server with a thousand services is gone through a lot at a time, the event loop
    // turning between the lots; the log comes out whole and in file order.
    void aLargeServerIsCheckedALotPerTurnOfTheEventLoop()
    {
        WindowFixture f;
        constexpr int records = 1000;
        QStringList lines, expected;
        for (int k = 0; k < records; ++k) {
            const QString svc = QStringLiteral("svc%1.service").arg(k);
            lines << QStringLiteral("Service %1;%2;Alert;;;;;").arg(k).arg(svc);
            expected << "BIG\t" + svc + "\tRunning";
            f.sim.services.addService("BIG", {.name = svc, .state = svcstate::running});
        }
        f.writeFile("BIG", lines);
        f.writeFile("Computers", {"BIG"});
        f.sim.icmp.addComputer("BIG", "10.4.0.9", 0);
        BareScan bare(f, {"BIG"});
        bare.cycle.trigger();
        QCOMPARE(f.logLines(), expected.mid(0, monitoring::CheckCycle::kRecordsPerTurn));
        QTRY_COMPARE(bare.finished.count(), 1);
        QCOMPARE(f.logLines(), expected);
    }

    // Answers that arrive in any order, and later than they were read, give the same log, each
    // line with the time it was written: the log never goes back in time.
    void answersInAnyOrderGiveTheSameLog()
    {
        QStringList reference;
        {
            Fleet f;
            f.startWithMaintenance();
            reference = f.logLines();
        }
        for (unsigned seed : {1u, 2u, 3u, 4u, 5u}) {
            Fleet f;
            HoldingWorker worker;
            auto p = f.sim.platform();
            p.worker = &worker;
            shell::Program program(p);
            program.load();
            program.servers.setMaintenance("LAB3", true);
            f.sim.clock.advance(1000);
            // The pings come in and the services are read now; their answers arrive 7 s later.
            auto pings = std::move(worker.held);
            worker.held.clear();
            for (auto& ping : pings)
                ping();
            const QDateTime applied = f.sim.clock.now().addSecs(7);
            f.sim.clock.setNow(applied);
            worker.releaseScrambled(seed);
            QCOMPARE(f.logLines(), reference);
            QVERIFY(!program.checkcycle->scanRunning());
            const QString stamp = joblog::checkLineText(applied, "WEB1", "nginx.service", "Stopped").section('\t', 0, 0);
            for (const QString& line : QString::fromUtf8(f.readBytes("Jobs.log")).split("\r\n", Qt::SkipEmptyParts))
                QVERIFY2(!line.contains('\t') || line.startsWith(stamp), qPrintable(line));
        }
    }

    // Once an action has run, every state not yet applied is read again, on every server: a
    // restart on this computer is seen under its other name too.
    void aRestartIsSeenUnderEveryNameOfTheMachine()
    {
        WindowFixture f;
        f.sim.system.computer_name = "VM";
        f.writeFile("Computerlist", {"VM\tmonitored", "127.0.0.1\tmonitored"});
        f.writeFile("Computers", {"VM", "127.0.0.1"});
        f.writeFile("VM", {"App;app.service;Restart Service;;;;;"});
        f.writeFile("127.0.0.1", {"Db;db.service;Alert;;;;;"});
        f.writeFile("Interval", {"30"});
        f.sim.icmp.addComputer("VM", "10.4.2.1", 0);
        f.sim.icmp.addComputer("127.0.0.1", "127.0.0.1", 0);
        f.sim.services.addService("VM", {.name = "db.service", .state = svcstate::stopped});
        f.sim.services.addService("VM", {.name = "app.service", .state = svcstate::stopped, .dependsOn = {"db.service"}});
        f.sim.services.addAlias("127.0.0.1", "VM");
        auto& w = f.start();
        f.sim.clock.advance(5000); // the restart's wait
        QCOMPARE(f.logLines(), (QStringList{"VM\tapp.service\tStopped", "Attemp to restart service : app.service Successfull",
                                           "127.0.0.1\tdb.service\tRunning"}));
        QCOMPARE(alertRows(f), QStringList{"VM|app.service|Stopped|Restart Service            "});
        QVERIFY(!w.Timer6->isEnabled());
    }

    void failedCallsBecomeCheckLinesAndRestartRunsToTheEnd()
    {
        Fleet f;
        f.sim.services.removeService("WEB1", "nginx.service");
        f.sim.services.setState("WEB1", "cron.service", svcstate::stopped);
        f.sim.services.failOn(platform::sim::SimServices::Call::QueryStatus, 5, "FILE4");
        auto& w = f.start();
        // The restart waits 5000 ms on the clock before the scan goes on to the next server.
        QCOMPARE(f.logLines(), (QStringList{"WEB1\tnginx.service\tOpen Service failed.   Error  1060",
                                           "WEB1\tcron.service\tStopped"}));
        f.sim.clock.advance(5000);
        QCOMPARE(f.logLines().mid(2), (QStringList{"Attemp to restart service : cron.service Successfull",
                                                  "DB2\tCould not reach Server, Server not available.",
                                                  "LAB3\tlab.service\tRunning",
                                                  "FILE4\tsmbd.service\tQuery Service Status failed.   Error  5"}));
    }

    void aScanIsNeverStartedTwiceAndNoneIsLost()
    {
        Fleet f;
        f.writeFile("Interval", {"1"});
        f.sim.services.setState("WEB1", "cron.service", svcstate::stopped);
        f.start();
        auto scans = [&] { return int(f.logLines().count("WEB1\tnginx.service\tStopped")); };
        f.sim.clock.advance(5000); // the first scan's restart
        QCOMPARE(scans(), 1);
        // The next scan waits for its pings over three more intervals; they queue one scan.
        f.sim.worker.hold = true;
        f.sim.clock.advance(4 * 60000);
        QCOMPARE(scans(), 1);
        QVERIFY(f.program->checkcycle->scanRunning());
        f.sim.worker.release();
        QCOMPARE(scans(), 3);
        QVERIFY(!f.program->checkcycle->scanRunning());
        QCOMPARE(f.logLines().count("WEB1\tcron.service\tRunning"), 2); // the restart brought it back
    }

    void immediateCheckShowsEveryServiceWithoutLoggingOrActing()
    {
        Fleet f;
        auto& w = f.startWithMaintenance();
        f.writeBytes("Jobs.log", "");
        w.Timer6->setEnabled(false);
        f.sim.services.failOn(platform::sim::SimServices::Call::OpenManager, 1722, "FILE4");
        w.mnuChecknow->trigger();
        QCOMPARE(f.readBytes("Jobs.log"), QByteArray());
        QVERIFY(!w.Timer6->isEnabled());
        auto* form4 = f.program->logandalerts->alertwindow();
        QCOMPARE(form4->Label2->text(), QStringLiteral("All Services to be monitored :"));
        QCOMPARE(form4->Label1->text(), QStringLiteral("Interval in turn"));
        QCOMPARE(alertRows(f), (QStringList{"WEB1|nginx.service|Stopped|Alert            ",
                                            "WEB1|cron.service|Running|Restart Service            ",
                                            "DB2|mariadb.service|Error Server not Available|Alert            ",
                                            "LAB3|lab.service|Running|Alert            ",
                                            "FILE4|smbd.service|Open Service Manager failed. Error  1722|            "}));
        QCOMPARE(form4->ListView1->topLevelItem(1)->foreground(4).color(), form4->ListView1->palette().text().color());
        QVERIFY(!f.program->checkcycle->checkNowActive());

        // The next timed scan starts its own list again.
        f.sim.services.clearFailures();
        f.sim.clock.advance(30 * 60 * 1000);
        QCOMPARE(form4->Label2->text(), QStringLiteral("Failed Services :"));
        QCOMPARE(alertRows(f).size(), 2);
    }

    void immediateCheckNeedsMonitoredServers()
    {
        WindowFixture f;
        auto& w = f.start();
        w.Command9->click();
        f.writeBytes("Computers", "\r\nSRV\r\n");
        w.Command9->click();
        const QString msg = "There are no Services to be monitored,  please configure Services to be monitored !    ";
        QCOMPARE(f.sim.boxes.texts(), (QStringList{msg, msg}));
        QCOMPARE(int(f.sim.boxes.shown.first().icon), int(platform::MsgIcon::Exclamation));
    }
};

QTEST_MAIN(TestCheckCycle)
#include "tst_checkcycle.moc"
