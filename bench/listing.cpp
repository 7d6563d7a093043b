// Listing all services of a computer with 300, then 1,000 units, half of them running, on
// Debian's own systemd as a user manager on a private bus: the main window's listing next to
// `systemctl --user list-units --all` plus `systemctl --user list-unit-files` on the same
// manager. For each size N:
//
//   velmora_ms_N    connect, then the listing (the unit list, and the state of each service
//                   for its icon)
//   systemctl_ms_N  the two systemctl runs
//   ratio_N         velmora_ms_N / systemctl_ms_N
//   details_ms_N    the details of one service, shown when it is selected (its state, start
//                   type, account and program)
// Each figure is the median of several runs.
#include "platform/linux/systemdservices.h"
#include "servicecontrol/queries.h"
#include "support/benchsupport.h"
#include "support/realmanager.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <vector>

using namespace velmora;
using namespace velmora::bench;
using namespace velmora::platform;

namespace {

constexpr int kRuns = 7;

bool measure(int units)
{
    testsupport::RealSystemd manager;
    if (const QString error = startFleet(manager, units); !error.isEmpty()) {
        std::printf("error: %s\n", qPrintable(error));
        return false;
    }
    SystemdServices::Options options;
    options.localAddress = manager.address();
    std::vector<double> listing, details, systemctl;
    size_t listed = 0;
    QString why;
    for (int run = 0; run < kRuns; ++run) {
        QElapsedTimer t;
        t.start();
        SystemdServices sm(options);
        const servicecontrol::Listing l = servicecontrol::queryListing(sm, {}, svcfilter::all);
        listing.push_back(double(t.nsecsElapsed()) / 1e6);
        if (l.openError || l.sizeCode != svcerror::moreData) {
            std::printf("error: the listing failed with %d, %d\n", l.openError, l.sizeCode);
            return false;
        }
        listed = l.services.size();
        t.restart();
        const servicecontrol::DetailQuery d = servicecontrol::queryDetails(sm, {}, fleetUnit(run * 7 % units));
        details.push_back(double(t.nsecsElapsed()) / 1e6);
        if (d.failed() || d.configError) {
            std::printf("error: the details failed\n");
            return false;
        }
        const SystemctlRun a = timeSystemctl(manager, {QStringLiteral("list-units"), QStringLiteral("--all")}, why);
        const SystemctlRun b = timeSystemctl(manager, {QStringLiteral("list-unit-files")}, why);
        if (a.ms < 0 || b.ms < 0) {
            std::printf("systemctl_ms_%d: unavailable (%s)\n", units, qPrintable(why));
            return false;
        }
        systemctl.push_back(a.ms + b.ms);
    }
    printFigure("listed", units, double(listed), "%.0f");
    printFigure("velmora_ms", units, median(listing));
    printFigure("systemctl_ms", units, median(systemctl));
    printFigure("ratio", units, median(listing) / median(systemctl), "%.2f");
    printFigure("details_ms", units, median(details), "%.2f");
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    return measureEachSize(measure);
}
