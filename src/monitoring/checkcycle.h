#pragma once
// The monitor: the scheduler tick (Timer5), the timed scan over every monitored server and
// service with its job-log lines, alert rows and actions, and the immediate check that shows
// every monitored service in the alert window without logging or acting.
//
// A scan pings all its servers at once and queries the services of every reachable server
// together, off the user-interface thread. The answers are then applied on the user-interface
// thread strictly in file order (servers as in "Computers", services as in each server's file):
// icons, log lines, alert rows and actions come out exactly as a one-at-a-time scan writes them,
// and the actions of one failed service finish before the next service's results are applied.
#include "core/serverfile.h"
#include "monitoring/reachability.h"
#include "servicecontrol/servicecontrol.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace velmora::shell { class MainWindow; }
namespace velmora::joblog { class LogAndAlerts; }

namespace velmora::monitoring {

// What one status query of a monitored service found.
using ServiceCheck = servicecontrol::ServiceQuery;

// The result text of a check line for a query: the state text, or the failure text with its
// code. immediate selects the immediate check's spelling of the failure texts.
QString checkResultText(const ServiceCheck& check, bool immediate);

// The leading whole number of a text ("15 Minutes" is 15), 0 when it has none.
int leadingNumber(const QString& text);

class CheckCycle : public QObject {
    Q_OBJECT
public:
    CheckCycle(shell::MainWindow& window, joblog::LogAndAlerts& alerts);
    ~CheckCycle() override;

    // Runs the actions of a failed service; done must be called when they have all finished.
    using RunActions = std::function<void(const QString& server, const core::MonitoredService& record,
                                          const QString& state, std::function<void()> done)>;
    RunActions runactions;
    // The interval text of the setup window (its Label5 caption); empty hook: the run state's.
    std::function<QString()> intervalCaption;
    // The instant report: paused around an immediate check, and told every immediate result.
    std::function<void(bool paused)> pauseReport;
    struct ImmediateResult {
        QString server, service;
        bool reachable = true;
        QString state;     // the state text when the query worked
        QString lasterror; // the failure text when it did not
    };
    std::function<void(const ImmediateResult&)> reportResult;
    // Whether the report's own scan is on (then immediate results go to the report).
    std::function<bool()> reportScanActive;

    // Timer5: starts a scan when its time has come.
    void timer5Tick();
    // Sets the next scan one interval from now and runs a scan.
    void checkintervall(const QString& period);
    // The timed scan.
    void trigger();
    // "&Check Services Now...".
    void checkNow();
    // The immediate pass over every monitored service; done runs when it has been applied.
    void triggerimmediate(std::function<void()> done = {});

    bool scanRunning() const { return scan_ != nullptr; }

signals:
    void scanFinished();
    void immediateFinished();

private:
    struct Server;
    struct Scan;
    void startScan(bool immediate, std::function<void()> done);
    void queryServices(const std::shared_ptr<Scan>& scan, size_t index);
    void advance();
    void applyServer(Server& server);
    void finishScan();

    shell::MainWindow& w_;
    joblog::LogAndAlerts& alerts_;
    std::shared_ptr<Scan> scan_;
    bool timedScanWaiting_ = false;
};

} // namespace velmora::monitoring
