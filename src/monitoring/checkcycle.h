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
//
// The cycle knows no window: it reads and changes the server list and the run state, writes the
// job log, shows its results through the alert sink, hands each failure as a value through the
// alert keeper to the action dispatcher, and tells the rest of the program what happened through
// its signals.
#include "core/runstate.h"
#include "core/schedule.h"
#include "core/serverfile.h"
#include "monitoring/reachability.h"
#include "servicecontrol/queries.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <vector>

namespace velmora::core { class ServerList; class MonitoredServices; }
namespace velmora::joblog { class AlertSink; class JobLog; }

namespace velmora::monitoring {

class AlertKeeper;

// What one status query of a monitored service found.
using ServiceCheck = servicecontrol::ServiceQuery;

// The result text of a check line for a query: the state text, or the failure text with its
// code. immediate selects the immediate check's spelling of the failure texts.
QString checkResultText(const ServiceCheck& check, bool immediate);

// One service as the immediate check found it.
struct ImmediateResult {
    QString server, service;
    bool reachable = true;
    QString state;     // the state text when the query worked
    QString lasterror; // the failure text when it did not
    QString actions;   // the record's five action slots joined as the alert window shows them
};

class CheckCycle : public QObject {
    Q_OBJECT
public:
    // schedule gives the interval the scheduler goes by; keeper decides from a failure's history
    // what it runs, and hands it to the action dispatcher.
    CheckCycle(core::RunState& state, const core::Schedule& schedule, core::ServerList& servers,
               core::MonitoredServices& monitored, joblog::JobLog& log, AlertKeeper& keeper,
               joblog::AlertSink& alerts,
               QObject* parent = nullptr);
    ~CheckCycle() override;

    // The monitored services a scan goes through in one turn of the event loop (a count, not a
    // time, so that a scan goes the same way on a busy machine); the rest of a larger server, or
    // of many servers, follows in the next turns.
    static constexpr int kRecordsPerTurn = 50;

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

    // Whether the instant report's own scan is on: then every immediate result is reported.
    void setReportScanActive(bool on) { reportScanActive_ = on; }

    bool scanRunning() const { return scan_ != nullptr; }
    // When the next timed scan is due (invalid before the first).
    QDateTime nextScan() const { return nextscan_; }
    // Whether "Check Services Now" is running its pass.
    bool checkNowActive() const { return checknowactive_; }

signals:
    // checkintervall has set the next scan time: the program is ready for "Check Services Now".
    void nextScanSet(const QDateTime& at);
    void scanFinished();
    // "Check Services Now" holds the instant report while it runs (true) and releases it (false).
    void reportPaused(bool paused);
    void immediateFinished();
    // One service of an immediate pass, while the report's scan is on.
    void immediateResult(const velmora::monitoring::ImmediateResult& result);

private:
    struct Server;
    struct Scan;
    void startScan(bool immediate, std::function<void()> done);
    // Pings the servers of a scan whose records have been read, then queries their services.
    void pingServers(const std::shared_ptr<Scan>& scan);
    // Reads the states of a server's services from record `from` on, off the user-interface thread.
    void queryServices(const std::shared_ptr<Scan>& scan, size_t index, size_t from);
    void advance();
    void visitServer(Server& server);
    // The timed check of one service: its check line, and for a failure the alert row and the
    // actions. Returns true when it waits for the actions to end.
    bool monitorservice(const std::shared_ptr<Scan>& scan, Server& server, const core::MonitoredService& record,
                        const ServiceCheck& check);
    // Reads again every state of the scan not yet applied, on every server still to come.
    void rereadRest(const std::shared_ptr<Scan>& scan);
    // The immediate check of one service: the server's icon, the alert row, the report.
    void monitorimmediate(Server& server, const core::MonitoredService& record, const ServiceCheck* check);
    void finishScan();

    core::RunState& state_;
    const core::Schedule& schedule_;
    core::ServerList& servers_;
    core::MonitoredServices& monitored_;
    joblog::JobLog& log_;
    AlertKeeper& keeper_;
    // The state text of the last service checked: a state without a text keeps the one before.
    QString laststate_;
    joblog::AlertSink& alerts_;
    Reachability reach_;
    bool reportScanActive_ = false;
    std::shared_ptr<Scan> scan_;
    bool timedScanWaiting_ = false;
    bool checknowactive_ = false;
    // A timed scan's server missing from the server list keeps the reachability of the one before.
    bool serverreachable_ = false;
    QDateTime nextscan_;
};

} // namespace velmora::monitoring
