// Listing all services of a computer with 300 units, on a private bus with a mocked systemd:
// our listing next to `systemctl list-units --all` plus `systemctl list-unit-files` against the
// same bus. systemctl runs in a private mount namespace with an empty /run/systemd/system (it
// refuses to run without one) and finds the bus through DBUS_SYSTEM_BUS_ADDRESS.
//
//   velmora_ms          connect, then enumerate all services (what systemctl's two calls do)
//   velmora_details_ms  the main window's listing: enumerate, then the details of every service
//   systemctl_ms        the two systemctl runs
//   ratio               velmora_ms / systemctl_ms
// Each figure is the median of several runs.
#include "../tests/support/mockbus.h"
#include "platform/linux/systemdservices.h"
#include "servicecontrol/servicecontrol.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace velmora::platform;

namespace {

constexpr int kUnits = 300;
constexpr int kRuns = 7;

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

SystemdServices::Options options(const QString& address)
{
    SystemdServices::Options o;
    o.localAddress = address;
    return o;
}

// Runs both systemctl commands kRuns times inside one private mount namespace; returns the
// milliseconds of each run, or an empty list (with the reason in why).
std::vector<double> systemctlRuns(const QString& address, QString& why)
{
    const QString script = QStringLiteral(
        "set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/systemd/system; export DBUS_SYSTEM_BUS_ADDRESS='%1'; "
        "for i in $(seq %2); do s=$(date +%s%N); "
        "systemctl list-units --all --no-pager --no-legend >/dev/null; "
        "systemctl list-unit-files --no-pager --no-legend >/dev/null; "
        "e=$(date +%s%N); echo $((e - s)); done").arg(address).arg(kRuns);
    for (const QStringList& prefix : {QStringList{"-m"}, QStringList{"-r", "-m"}}) {
        QProcess p;
        p.start(QStringLiteral("unshare"), prefix + QStringList{"sh", "-c", script});
        if (!p.waitForFinished(120000) || p.exitCode() != 0) {
            why = QString::fromUtf8(p.readAllStandardError()).trimmed();
            continue;
        }
        std::vector<double> out;
        for (const QByteArray& line : p.readAllStandardOutput().split('\n'))
            if (!line.trimmed().isEmpty())
                out.push_back(line.trimmed().toDouble() / 1e6);
        return out;
    }
    return {};
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (const QString missing = velmora::testsupport::mockBusMissing(); !missing.isEmpty()) {
        std::printf("skipped: %s\n", qPrintable(missing));
        return 0;
    }
    velmora::testsupport::MockSystemdBus bus;
    if (const QString error = bus.start({}, kUnits); !error.isEmpty()) {
        std::printf("error: %s\n", qPrintable(error));
        return 1;
    }

    std::vector<double> listing, details;
    size_t listed = 0;
    for (int run = 0; run < kRuns; ++run) {
        QElapsedTimer t;
        t.start();
        SystemdServices sm(options(bus.address()));
        const EnumResult r = sm.enumerateServices(sm.openManager({}), svcfilter::all);
        listing.push_back(t.nsecsElapsed() / 1e6);
        listed = r.services.size();
        if (r.error) {
            std::printf("error: listing failed with %d\n", r.error);
            return 1;
        }
    }
    for (int run = 0; run < 3; ++run) {
        QElapsedTimer t;
        t.start();
        SystemdServices sm(options(bus.address()));
        const EnumResult r = sm.enumerateServices(sm.openManager({}), svcfilter::all);
        for (const ServiceEntry& s : r.services)
            velmora::servicecontrol::queryDetails(sm, {}, s.name);
        details.push_back(t.nsecsElapsed() / 1e6);
    }

    QString why;
    const std::vector<double> systemctl = systemctlRuns(bus.address(), why);

    std::printf("units: %d\n", kUnits);
    std::printf("listed: %zu\n", listed);
    std::printf("velmora_ms: %.1f\n", median(listing));
    std::printf("velmora_details_ms: %.1f\n", median(details));
    if (systemctl.empty()) {
        std::printf("systemctl_ms: unavailable (%s)\n", qPrintable(why));
        return 0;
    }
    std::printf("systemctl_ms: %.1f\n", median(systemctl));
    std::printf("ratio: %.2f\n", median(listing) / median(systemctl));
    return 0;
}
