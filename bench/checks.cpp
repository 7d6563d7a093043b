// One computer with 300, then 1,000 monitored services, half of them running, on Debian's own
// systemd as a user manager on a private bus: the timed scan of the program as built (real ICMP
// to localhost, the systemd backend on that bus, real timers, worker threads and files), next to
// `systemctl --user is-active` of the same units on the same manager. For each size N:
//
//   scan_ms_N                               one timed scan, from its trigger to its end
//   systemctl_ms_N                          one `systemctl is-active` of the N units
//   scan_vs_systemctl_N                     scan_ms_N / systemctl_ms_N
//   manager_cpu_per_check_us_N              systemd's own CPU time in a scan, per service
//   manager_cpu_per_systemctl_unit_us_N     systemd's own CPU time in systemctl, per unit
//   max_stall_ms_N                          the longest time the event loop stood still in the scans
//   scan_rss_mb_N                           resident memory after the scans
// Each figure is the median of several runs, a scan and a systemctl run taking turns.
#include "monitoring/checkcycle.h"
#include "platform/linux/linuxplatform.h"
#include "platform/linux/systemdservices.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"
#include "support/realmanager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace velmora;
using namespace velmora::bench;

namespace {

constexpr int kRuns = 7;
const QString kComputer = QStringLiteral("localhost");

// Measures one size; prints its figures. False when it could not be measured.
bool measure(int units)
{
    testsupport::RealSystemd manager;
    if (const QString error = startFleet(manager, units); !error.isEmpty()) {
        std::printf("error: %s\n", qPrintable(error));
        return false;
    }
    // The data folder: the one computer, monitored, with every unit as a service without
    // actions (a stopped service is logged, nothing else).
    QTemporaryDir dir;
    QStringList records, names;
    for (int i = 0; i < units; ++i) {
        records << QStringLiteral("Unit %1;%2;;;;;;").arg(i).arg(fleetUnit(i));
        names << fleetUnit(i);
    }
    writeLines(dir.filePath(kComputer), records);
    writeLines(dir.filePath(QStringLiteral("Computers")), {kComputer});
    writeLines(dir.filePath(QStringLiteral("Computerlist")), {kComputer + "\tmonitored"});
    writeLines(dir.filePath(QStringLiteral("Interval")), {"240"});

    platform::LinuxPlatform real;
    platform::Platform p = real.platform();
    FolderSystem system(*p.system, dir.path());
    OnlyCopy only;
    platform::SystemdServices::Options options;
    options.localAddress = manager.address();
    options.localName = kComputer;
    platform::SystemdServices services(options);
    p.system = &system;
    p.instance = &only;
    p.services = &services;

    shell::Program program(p);
    QElapsedTimer clock;
    StallProbe probe(clock);
    std::vector<double> scanMs, systemctlMs, ratio, cpuPerCheck, cpuPerUnit;
    QString why;
    bool systemctlFailed = false;
    int finished = 0;
    qint64 scanCpu = 0, maxStall = 0;
    QEventLoop loop;
    const auto nextScan = [&] {
        // From a quiet event loop: the stall probe has ticked before the scan starts.
        QTimer::singleShot(100, &loop, [&] {
            clock.restart();
            probe.start();
            scanCpu = cpuNs(manager.managerPid());
            program.checkcycle->trigger();
        });
    };
    QObject::connect(program.checkcycle, &monitoring::CheckCycle::scanFinished, &loop, [&] {
        if (++finished == 1) {
            // The start-up scan is done (it also opened the connection to the bus).
            nextScan();
            return;
        }
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        probe.stop();
        maxStall = std::max(maxStall, probe.max());
        scanMs.push_back(ms);
        cpuPerCheck.push_back(double(cpuNs(manager.managerPid()) - scanCpu) / 1e3 / units);
        const SystemctlRun s = timeSystemctl(manager, QStringList{QStringLiteral("is-active")} + names, why);
        if (s.ms > 0) {
            systemctlMs.push_back(s.ms);
            ratio.push_back(ms / s.ms);
            cpuPerUnit.push_back(double(s.managerCpuNs) / 1e3 / units);
        } else {
            systemctlFailed = true;
        }
        if (int(scanMs.size()) < kRuns)
            nextScan();
        else
            loop.quit();
    });
    clock.start();
    program.load();
    QTimer::singleShot(300000, &loop, [&] { loop.quit(); });
    loop.exec();

    if (int(scanMs.size()) < kRuns) {
        std::printf("error: only %zu of %d scans of %d services finished\n", scanMs.size(), kRuns, units);
        return false;
    }
    const auto figure = [units](const char* name, double value, const char* format = "%.1f") {
        printFigure(name, units, value, format);
    };
    figure("scan_ms", median(scanMs));
    figure("max_stall_ms", double(maxStall), "%.0f");
    figure("scan_rss_mb", residentMb());
    figure("manager_cpu_per_check_us", median(cpuPerCheck));
    if (systemctlFailed) {
        std::printf("systemctl_ms_%d: unavailable (%s)\n", units, qPrintable(why));
        return false;
    }
    figure("systemctl_ms", median(systemctlMs));
    figure("scan_vs_systemctl", median(ratio), "%.2f");
    figure("manager_cpu_per_systemctl_unit_us", median(cpuPerUnit));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    return measureEachSize(measure);
}
