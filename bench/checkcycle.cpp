// One timed scan over 200 servers with 5 monitored services each, 20 % of the servers not
// answering the ping. Status queries take 1 to 20 ms each (simulated service managers that
// sleep), unreachable servers cost the 500 ms ping time-out; timers, worker threads and files
// are real. Prints the scan's wall time, what a one-at-a-time scan would take, the target, and
// the longest stall of the event loop. Then a timed scan of one server whose file holds 10,000
// monitored services, all running: its wall time and the longest stall (large_file_*).
#include "monitoring/checkcycle.h"
#include "platform/linux/linuxplatform.h"
#include "platform/sim/simplatform.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <cstdio>
#include <random>

using namespace velmora;
using bench::writeLines;

namespace {

// A service manager whose status queries take a fixed time per service.
class SlowServices : public platform::ServiceManager {
public:
    explicit SlowServices(platform::ServiceManager& inner) : inner_(inner) {}
    QHash<QString, int> latencyMs; // "SERVER/service" -> ms

    platform::ScmHandle openManager(const QString& c) override { return inner_.openManager(c); }
    platform::ServiceHandle openService(const platform::ScmHandle& s, const QString& n) override
    {
        return inner_.openService(s, n);
    }
    platform::EnumResult enumerateServices(const platform::ScmHandle& s, int f) override
    {
        return inner_.enumerateServices(s, f);
    }
    platform::StatusResult queryStatus(const platform::ServiceHandle& s) override
    {
        QThread::msleep(unsigned(latencyMs.value(s.computer + '/' + s.name)));
        return inner_.queryStatus(s);
    }
    platform::ConfigResult queryConfig(const platform::ServiceHandle& s) override { return inner_.queryConfig(s); }
    platform::EnumResult enumerateDependents(const platform::ServiceHandle& s, int f) override
    {
        return inner_.enumerateDependents(s, f);
    }
    int start(const platform::ServiceHandle& s) override { return inner_.start(s); }
    int stop(const platform::ServiceHandle& s) override { return inner_.stop(s); }
    void disconnect(const QString& c) override { inner_.disconnect(c); }

private:
    platform::ServiceManager& inner_;
};

// Every service runs and answers at once: the large file's scan times the program, not the
// simulated fleet (whose lookups grow with the number of its services).
class RunningServices : public SlowServices {
public:
    using SlowServices::SlowServices;
    platform::ScmHandle openManager(const QString& c) override { return {c, platform::svcerror::ok}; }
    platform::ServiceHandle openService(const platform::ScmHandle& s, const QString& n) override
    {
        return {s.computer, n, platform::svcerror::ok};
    }
    platform::StatusResult queryStatus(const platform::ServiceHandle&) override
    {
        return {platform::svcerror::ok, platform::svcstate::running};
    }
};

} // namespace

// A timed scan of one server with 10,000 monitored services (every check line written to the
// real job log): {scan ms, longest stall ms}, measured on the second scan.
std::pair<qint64, qint64> largeFileScan(QApplication& app)
{
    QTemporaryDir dir;
    constexpr int records = 10000;
    platform::LinuxPlatform real;
    platform::sim::SimPlatform sim;
    sim.system.program_folder = dir.path();
    sim.icmp.addComputer("BIG", "10.9.0.1", 0);
    QStringList lines;
    for (int k = 0; k < records; ++k) {
        const QString svc = QStringLiteral("svc%1.service").arg(k);
        lines << QStringLiteral("Service %1;%2;Alert;;;;;").arg(k).arg(svc);
    }
    writeLines(dir.filePath("BIG"), lines);
    bench::writeMonitoredFleet(dir.path(), {"BIG"});
    platform::Platform p = sim.platform();
    p.clock = real.platform().clock;
    p.worker = real.platform().worker;
    RunningServices running(sim.services);
    p.services = &running;
    shell::Program program(p);
    QElapsedTimer clock;
    bench::StallProbe probe(clock);
    qint64 scanMs = -1, stall = -1;
    int finished = 0;
    QObject::connect(program.checkcycle, &monitoring::CheckCycle::scanFinished, [&] {
        if (++finished == 1) {
            QTimer::singleShot(100, &app, [&] {
                clock.restart();
                probe.start();
                program.checkcycle->trigger();
            });
        } else {
            scanMs = clock.elapsed();
            // The turn that finished the scan counts too: read once it has ended.
            QTimer::singleShot(5, &app, [&] {
                stall = probe.max();
                probe.stop();
                app.quit();
            });
        }
    });
    clock.start();
    program.load();
    QTimer::singleShot(120000, &app, [&] { app.quit(); });
    app.exec();
    program.window->menuExit();
    return {scanMs, stall};
}

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    constexpr int servers = 200, perServer = 5, timeoutMs = 500;

    platform::LinuxPlatform real;
    platform::sim::SimPlatform sim;
    sim.system.program_folder = dir.path();
    SlowServices slow(sim.services);
    std::mt19937 rng(42);
    std::uniform_int_distribution<int> latency(1, 20);

    QStringList names;
    qint64 serialMs = 0, slowestServerMs = 0;
    for (int i = 0; i < servers; ++i) {
        const QString name = QStringLiteral("SRV%1").arg(i, 3, 10, QLatin1Char('0'));
        const bool up = i % 5 != 0;
        names << name;
        sim.icmp.addComputer(name, QStringLiteral("10.%1.%2.1").arg(i / 200).arg(i % 200), up ? 0 : 11010);
        QStringList records;
        qint64 serverMs = 0;
        for (int k = 0; k < perServer; ++k) {
            const QString svc = QStringLiteral("svc%1.service").arg(k);
            records << QStringLiteral("Service %1;%2;Alert;;;;;").arg(k).arg(svc);
            sim.services.addService(name, {.name = svc, .state = platform::svcstate::running});
            const int ms = latency(rng);
            slow.latencyMs.insert(name + '/' + svc, ms);
            serverMs += ms;
        }
        writeLines(dir.filePath(name), records);
        // A one-at-a-time scan waits for every ping and every query in turn.
        serialMs += up ? serverMs : timeoutMs;
        slowestServerMs = std::max(slowestServerMs, up ? serverMs : 0);
    }
    bench::writeMonitoredFleet(dir.path(), names);
    // The ping batch answers after the time-out, as a real echo socket with silent hosts does.
    sim.icmp.delay_ms = timeoutMs;

    platform::Platform p = sim.platform();
    p.clock = real.platform().clock;
    p.worker = real.platform().worker;
    p.services = &slow;

    shell::Program program(p);
    shell::MainWindow& window = *program.window;
    QElapsedTimer clock;
    qint64 cycleMs = -1, maxStall = 0, lastTick = 0;
    bool measuring = false;
    QTimer probe;
    probe.setInterval(2);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed();
        if (measuring)
            maxStall = std::max(maxStall, now - lastTick);
        lastTick = now;
    });

    int finished = 0;
    QObject::connect(program.checkcycle, &monitoring::CheckCycle::scanFinished, [&] {
        if (++finished == 1) {
            // The start-up scan is done; measure a second one from a quiet event loop.
            QTimer::singleShot(100, &app, [&] {
                clock.restart();
                lastTick = 0;
                measuring = true;
                program.checkcycle->trigger();
            });
        } else {
            cycleMs = clock.elapsed();
            // The turn that finished the scan counts too: stop once it has ended.
            QTimer::singleShot(5, &app, [&] {
                measuring = false;
                app.quit();
            });
        }
    });
    clock.start();
    probe.start();
    program.load();
    QTimer::singleShot(60000, &app, [&] { app.quit(); });
    app.exec();

    const qint64 limitMs = 2 * (timeoutMs + slowestServerMs);
    std::printf("cycle_ms: %lld\n", static_cast<long long>(cycleMs));
    std::printf("serial_ms: %lld\n", static_cast<long long>(serialMs));
    std::printf("limit_ms: %lld\n", static_cast<long long>(limitMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(maxStall));
    window.menuExit();
    const auto [largeScanMs, largeStallMs] = largeFileScan(app);
    std::printf("large_file_scan_ms: %lld\n", static_cast<long long>(largeScanMs));
    std::printf("large_file_max_stall_ms: %lld\n", static_cast<long long>(largeStallMs));
    return 0;
}
