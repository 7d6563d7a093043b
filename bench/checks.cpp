// One computer with 300 monitored services on a private bus with a mocked systemd: the timed
// scan of the program as built (real ICMP to localhost, the systemd backend on that bus, real
// timers, worker threads and files), next to `systemctl is-active` of the same 300 units against
// the same bus. systemctl runs in a private mount namespace with an empty /run/systemd/system (it
// refuses to run without one) and finds the bus through DBUS_SYSTEM_BUS_ADDRESS.
//
//   scan_ms            one timed scan, from its trigger to its end
//   systemctl_ms       one `systemctl is-active` with the 300 units, from its start to its end
//   scan_vs_systemctl  scan_ms / systemctl_ms
//   max_stall_ms       the longest time the event loop stood still during the scans
//   scan_rss_mb        resident memory after the scans
// Each figure is the median of several runs, a scan and a systemctl run taking turns.
#include "../tests/support/mockbus.h"
#include "monitoring/checkcycle.h"
#include "platform/linux/linuxplatform.h"
#include "platform/linux/systemdservices.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace velmora;
using namespace velmora::bench;

namespace {

constexpr int kUnits = 300, kRuns = 7;
const QString kComputer = QStringLiteral("localhost");

QString unitName(int i) { return QStringLiteral("bench-unit-%1.service").arg(i, 3, 10, QLatin1Char('0')); }

// One `systemctl is-active` of every unit inside a private mount namespace: its milliseconds,
// or a negative number (with the reason in why).
double systemctlRun(const QString& address, QString& why)
{
    QString units;
    for (int i = 0; i < kUnits; ++i)
        units += ' ' + unitName(i);
    // is-active ends with 3 when a unit is not active; only a run that printed nothing failed.
    const QString script = QStringLiteral(
        "set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/systemd/system; export DBUS_SYSTEM_BUS_ADDRESS='%1'; "
        "s=$(date +%s%N); n=$(systemctl is-active%2 | wc -l); e=$(date +%s%N); "
        "[ \"$n\" = %3 ] || { echo \"systemctl printed $n states\" >&2; exit 1; }; echo $((e - s))").arg(address, units).arg(kUnits);
    for (const QStringList& prefix : {QStringList{"-m"}, QStringList{"-r", "-m"}}) {
        QProcess p;
        p.start(QStringLiteral("unshare"), prefix + QStringList{"sh", "-c", script});
        if (!p.waitForFinished(120000) || p.exitCode() != 0) {
            why = QString::fromUtf8(p.readAllStandardError()).trimmed();
            continue;
        }
        return p.readAllStandardOutput().trimmed().toDouble() / 1e6;
    }
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (const QString missing = testsupport::mockBusMissing(); !missing.isEmpty()) {
        std::printf("error: %s\n", qPrintable(missing));
        return 1;
    }
    testsupport::MockSystemdBus bus;
    if (const QString error = bus.start({}, kUnits); !error.isEmpty()) {
        std::printf("error: %s\n", qPrintable(error));
        return 1;
    }

    // The data folder: the one computer, monitored, with every unit of the bus as a service
    // without actions (a stopped service is logged, nothing else).
    QTemporaryDir dir;
    QStringList records;
    for (int i = 0; i < kUnits; ++i)
        records << QStringLiteral("Unit %1;%2;;;;;;").arg(i).arg(unitName(i));
    writeLines(dir.filePath(kComputer), records);
    writeLines(dir.filePath(QStringLiteral("Computers")), {kComputer});
    writeLines(dir.filePath(QStringLiteral("Computerlist")), {kComputer + "\tmonitored"});
    writeLines(dir.filePath(QStringLiteral("Interval")), {"240"});

    platform::LinuxPlatform real;
    platform::Platform p = real.platform();
    FolderSystem system(*p.system, dir.path());
    OnlyCopy only;
    platform::SystemdServices::Options options;
    options.localAddress = bus.address();
    options.localName = kComputer;
    platform::SystemdServices services(options);
    p.system = &system;
    p.instance = &only;
    p.services = &services;

    shell::Program program(p);
    shell::MainWindow& window = *program.window;
    QElapsedTimer clock;
    qint64 maxStall = 0, lastTick = 0;
    bool measuring = false;
    QTimer probe;
    probe.setInterval(2);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed();
        if (measuring)
            maxStall = std::max(maxStall, now - lastTick);
        lastTick = now;
    });

    std::vector<double> scanMs, systemctlMs, ratio;
    QString why;
    bool systemctlFailed = false;
    int finished = 0;
    const auto nextScan = [&] {
        // From a quiet event loop: the stall probe has ticked before the scan starts.
        QTimer::singleShot(100, &app, [&] {
            clock.restart();
            lastTick = 0;
            measuring = true;
            program.checkcycle->trigger();
        });
    };
    QObject::connect(program.checkcycle, &monitoring::CheckCycle::scanFinished, [&] {
        if (++finished == 1) {
            // The start-up scan is done (it also opened the connection to the bus).
            nextScan();
            return;
        }
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        measuring = false;
        scanMs.push_back(ms);
        const double s = systemctlRun(bus.address(), why);
        if (s > 0) {
            systemctlMs.push_back(s);
            ratio.push_back(ms / s);
        } else {
            systemctlFailed = true;
        }
        if (int(scanMs.size()) < kRuns)
            nextScan();
        else
            app.quit();
    });
    clock.start();
    probe.start();
    program.load();
    QTimer::singleShot(300000, &app, [&] { app.quit(); });
    app.exec();

    if (int(scanMs.size()) < kRuns) {
        std::printf("error: only %zu of %d scans finished\n", scanMs.size(), kRuns);
        return 1;
    }
    std::printf("services: %d\n", kUnits);
    std::printf("scan_ms: %.1f\n", median(scanMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(maxStall));
    std::printf("scan_rss_mb: %.1f\n", residentMb());
    if (systemctlFailed) {
        std::printf("systemctl_ms: unavailable (%s)\n", qPrintable(why));
    } else {
        std::printf("systemctl_ms: %.1f\n", median(systemctlMs));
        std::printf("scan_vs_systemctl: %.2f\n", median(ratio));
    }
    QFile load(QStringLiteral("/proc/loadavg"));
    if (load.open(QIODevice::ReadOnly))
        std::printf("load_average: %s\n", qPrintable(QString::fromLatin1(load.readAll()).section(' ', 0, 2)));
    std::fflush(stdout);
    window.menuExit();
    return systemctlFailed ? 1 : 0;
}
