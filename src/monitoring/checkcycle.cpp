#include "monitoring/checkcycle.h"

#include "actions/dispatcher.h"
#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/serverlist.h"
#include "joblog/alertsink.h"
#include "joblog/joblog.h"
#include "monitoring/alertkeeper.h"
#include "servicecontrol/statetext.h"

#include <algorithm>

namespace velmora::monitoring {

using platform::MsgIcon;
namespace svcerror = platform::svcerror;

namespace {

const QString kRunning = QStringLiteral("Running");

QStringList actionSlots(const core::MonitoredService& record)
{
    return QStringList(record.actions.begin(), record.actions.end());
}

// The five action slots joined with three blanks, empty slots keeping their separators.
QString joinactions(const core::MonitoredService& record) { return actionSlots(record).join(QStringLiteral("   ")); }

} // namespace

QString checkResultText(const ServiceCheck& c, bool immediate)
{
    // The immediate check spells its failure texts with one blank after the period.
    const QString gap = immediate ? QStringLiteral(" ") : QStringLiteral("   ");
    if (c.scmError != svcerror::ok)
        return QStringLiteral("Open Service Manager failed.") + gap + QStringLiteral("Error  ") + QString::number(c.scmError);
    if (c.serviceError != svcerror::ok)
        return QStringLiteral("Open Service failed.") + gap + QStringLiteral("Error  ") + QString::number(c.serviceError);
    if (c.statusError != svcerror::ok)
        return QStringLiteral("Query Service Status failed.") + gap + QStringLiteral("Error  ") +
               QString::number(c.statusError);
    return servicecontrol::stateText(c.state).value_or(QString());
}

// ---------------------------------------------------------------------------------------------

struct CheckCycle::Server {
    QString name;
    bool maintenance = false;
    std::vector<core::MonitoredService> records;
    bool pinged = false;
    PingOutcome ping;
    bool checkServices = false; // decided once the pings are in
    bool queried = false;
    std::vector<ServiceCheck> checks; // one per record, in file order
    // How many actions of the scan had run when the answers still to come were asked for; when
    // more have run since, the answers are read again before they are applied.
    int readAfterActions = 0;
    bool headerDone = false;
    size_t nextRecord = 0;
};

struct CheckCycle::Scan {
    bool immediate = false;
    std::vector<Server> servers;
    size_t current = 0;
    bool pingsIn = false;
    bool waitingForActions = false;
    int actionsRun = 0; // failures whose actions have run in this scan
    std::function<void()> done;
};

CheckCycle::CheckCycle(core::RunState& state, const core::Schedule& schedule, core::ServerList& servers,
                       core::MonitoredServices& monitored, joblog::JobLog& log, AlertKeeper& keeper,
                       joblog::AlertSink& alerts, QObject* parent)
    : QObject(parent), state_(state), schedule_(schedule), servers_(servers), monitored_(monitored), log_(log),
      keeper_(keeper),
      alerts_(alerts), reach_(*state.platform.icmp, *state.platform.worker)
{
}

CheckCycle::~CheckCycle() = default;

void CheckCycle::timer5Tick()
{
    const QDateTime now = state_.platform.clock->now();
    if (nextscan_.isValid() && nextscan_ > now)
        return;
    checkintervall(QString::number(schedule_.minutes()));
}

void CheckCycle::checkintervall(const QString& period)
{
    nextscan_ = state_.platform.clock->now().addSecs(qint64(core::leadingNumber(period)) * 60);
    alerts_.showNextScan(nextscan_);
    emit nextScanSet(nextscan_);
    trigger();
}

void CheckCycle::trigger()
{
    if (scan_) {
        // A scan that outlasts the interval is not started twice; the next one follows it.
        timedScanWaiting_ = true;
        return;
    }
    alerts_.beginTimedScan();
    startScan(false, {});
}

void CheckCycle::checkNow()
{
    auto& files = *state_.platform.files;
    const QString computers = state_.file(core::files::computers);
    const auto lines = files.readLines(computers, true);
    if (!files.exists(computers) || !lines || lines->isEmpty() || lines->first().isEmpty()) {
        state_.platform.boxes->show(
            QStringLiteral("There are no Services to be monitored,  please configure Services to be monitored !    "),
            MsgIcon::Exclamation);
        return;
    }
    emit reportPaused(true);
    checknowactive_ = true;
    triggerimmediate([this] {
        checknowactive_ = false;
        emit reportPaused(false);
        emit immediateFinished();
    });
}

void CheckCycle::triggerimmediate(std::function<void()> done)
{
    if (scan_) {
        // One pass at a time: this one follows the pass that is running.
        connect(this, &CheckCycle::scanFinished, this, [this, done] { triggerimmediate(done); },
                Qt::SingleShotConnection);
        return;
    }
    if (checknowactive_)
        alerts_.beginImmediateCheck();
    startScan(true, std::move(done));
}

void CheckCycle::startScan(bool immediate, std::function<void()> done)
{
    auto scan = std::make_shared<Scan>();
    scan->immediate = immediate;
    scan->done = std::move(done);
    scan_ = scan;
    if (!immediate)
        keeper_.beginScan();

    alerts_.updatelogsizecolour();

    auto& files = *state_.platform.files;
    QStringList paths;
    if (!immediate || files.exists(state_.file(core::files::computers))) {
        for (const QString& name : monitored_.servers()) {
            Server s;
            s.name = name;
            const core::ServerEntry* entry = servers_.find(name);
            s.maintenance = !immediate && entry && entry->maintenance;
            paths << state_.file(name);
            scan->servers.push_back(std::move(s));
        }
    }
    // The servers' files are read off the user-interface thread: one may hold thousands of
    // records.
    platform::TextFiles* textFiles = &files;
    state_.platform.worker->run(this, [this, scan, paths, textFiles]() -> std::function<void()> {
        std::vector<std::vector<core::MonitoredService>> records;
        records.reserve(size_t(paths.size()));
        for (const QString& path : paths)
            records.push_back(core::readMonitoredServices(*textFiles, path));
        return [this, scan, records = std::move(records)]() mutable {
            for (size_t i = 0; i < records.size(); ++i)
                scan->servers[i].records = std::move(records[i]);
            if (scan_ == scan)
                pingServers(scan);
        };
    });
}

void CheckCycle::pingServers(const std::shared_ptr<Scan>& scan)
{
    const bool immediate = scan->immediate;
    // One ping for every server that is visited; in the immediate check only servers with
    // services are pinged, since it pings per service.
    QStringList names;
    std::vector<size_t> pinged;
    for (size_t i = 0; i < scan->servers.size(); ++i) {
        const Server& s = scan->servers[i];
        if (s.maintenance || (immediate && s.records.empty()))
            continue;
        names << s.name;
        pinged.push_back(i);
    }
    reach_.pingAll(names, this, [this, scan, pinged](const std::vector<PingOutcome>& outcomes) {
        for (size_t k = 0; k < pinged.size(); ++k) {
            Server& s = scan->servers[pinged[k]];
            s.pinged = true;
            s.ping = outcomes[k];
        }
        // Which servers get their services checked: in a timed scan a server that is missing
        // from the server list keeps the reachability of the server before it.
        bool reachable = serverreachable_;
        for (size_t i = 0; i < scan->servers.size(); ++i) {
            Server& s = scan->servers[i];
            if (s.maintenance)
                continue;
            if (scan->immediate) {
                s.checkServices = s.pinged && s.ping.reachable();
            } else {
                if (servers_.contains(s.name))
                    reachable = s.ping.reachable();
                s.checkServices = reachable;
            }
            if (s.checkServices && !s.records.empty())
                queryServices(scan, i, 0);
            else
                s.queried = true;
        }
        scan->pingsIn = true;
        if (scan_ == scan)
            advance();
    });
}

void CheckCycle::queryServices(const std::shared_ptr<Scan>& scan, size_t index, size_t from)
{
    Server& server = scan->servers[index];
    server.queried = false;
    server.readAfterActions = scan->actionsRun;
    const int asked = scan->actionsRun;
    const QString computer = server.name;
    QStringList keys;
    for (size_t n = from; n < server.records.size(); ++n)
        keys << server.records[n].servicename;
    platform::ServiceManager* sm = state_.platform.services;
    state_.platform.worker->run(this, [this, scan, index, from, asked, computer, keys, sm]() -> std::function<void()> {
        std::vector<ServiceCheck> checks = sm->checkServices(computer, keys);
        return [this, scan, index, from, asked, checks = std::move(checks)]() mutable {
            Server& s = scan->servers[index];
            if (asked != s.readAfterActions)
                return; // read before an action; the answers asked for since then count
            s.checks.resize(s.records.size());
            std::move(checks.begin(), checks.end(), s.checks.begin() + qsizetype(from));
            s.queried = true;
            if (scan_ == scan && scan->pingsIn && !scan->waitingForActions)
                advance();
        };
    });
}

void CheckCycle::advance()
{
    const std::shared_ptr<Scan> scan = scan_;
    if (!scan || scan->waitingForActions || !scan->pingsIn)
        return;
    int budget = kRecordsPerTurn;
    while (scan->current < scan->servers.size()) {
        Server& s = scan->servers[scan->current];
        if (!s.headerDone) {
            if (s.maintenance) {
                log_.appendjobline(joblog::serverLineText(log_.now(), s.name, joblog::kServerInMaintenance));
                // A server in maintenance is skipped; the servers after it are still checked,
                // since one server's maintenance is no reason to stop watching the others.
                ++scan->current;
                continue;
            }
            if (!scan->immediate)
                visitServer(s);
            s.headerDone = true;
        }
        if (!s.queried)
            return; // the answers of this server are still on their way
        if (!scan->immediate && !s.checkServices) {
            ++scan->current; // an unreachable server's services are not checked
            continue;
        }
        while (s.nextRecord < s.records.size()) {
            if (--budget < 0) {
                // A server with thousands of services is gone through a lot at a time, each lot
                // in a turn of the event loop of its own, so that the window never stands still
                // for the whole server.
                QMetaObject::invokeMethod(
                    this, [this, scan] {
                        if (scan_ == scan)
                            advance();
                    },
                    Qt::QueuedConnection);
                return;
            }
            if (s.readAfterActions != scan->actionsRun) {
                // What an action just did (a restart that pulled up a dependency, say) shows in
                // every service still to come, on this server and on the others, which may be
                // this machine under another name: read them all again, now, together.
                rereadRest(scan);
                return;
            }
            const size_t n = s.nextRecord++;
            const core::MonitoredService& record = s.records[n];
            if (scan->immediate) {
                monitorimmediate(s, record, s.checkServices ? &s.checks[n] : nullptr);
                continue;
            }
            if (monitorservice(scan, s, record, s.checks[n]))
                return;
        }
        ++scan->current;
    }
    finishScan();
}

void CheckCycle::rereadRest(const std::shared_ptr<Scan>& scan)
{
    for (size_t i = scan->current; i < scan->servers.size(); ++i) {
        Server& s = scan->servers[i];
        if (s.checkServices && s.nextRecord < s.records.size() && s.readAfterActions != scan->actionsRun)
            queryServices(scan, i, s.nextRecord);
    }
}

bool CheckCycle::monitorservice(const std::shared_ptr<Scan>& scan, Server& s, const core::MonitoredService& record,
                                const ServiceCheck& c)
{
    log_.ensurejoblog();
    const QString result = checkResultText(c, false);
    // A check line carries the time it is written, so the log never goes back in time.
    const QDateTime now = log_.now();
    // A service manager that cannot be reached makes the server's own failure.
    if (c.scmError != svcerror::ok)
        keeper_.serverDown(s.name, now);
    else
        keeper_.serverUp(s.name, now);
    if (c.failed()) {
        log_.appendjobline(joblog::checkLineText(now, s.name, record.servicename, result));
        return false;
    }
    if (!result.isEmpty())
        laststate_ = result;
    const core::Failure found{s.name, record, laststate_, now};
    log_.appendjobline(joblog::checkLineText(now, s.name, record.servicename, found.state));
    if (found.state == kRunning) {
        keeper_.running(found);
        return false;
    }
    // What its history calls for: with every alert option off, all of it at every scan.
    const core::Failure failure = keeper_.judge(found);
    if (failure.runs == core::Failure::Runs::Nothing)
        return false;
    if (failure.runs == core::Failure::Runs::All) {
        alerts_.updatelogsize(joblog::SizeCaption::CheckRun);
        if (state_.settings.popupalert)
            alerts_.showalertwindow();
        alerts_.addalertrow(s.name, record.servicename, failure.state, joinactions(record));
    }
    scan->waitingForActions = true;
    if (std::any_of(record.actions.begin(), record.actions.end(), [](const QString& a) { return !a.isEmpty(); }))
        ++scan->actionsRun;
    // Actions that end inside the call (an alert, say) let the scan go on; those that end later
    // resume it from their completion.
    auto insideCall = std::make_shared<bool>(true);
    keeper_.dispatch(failure, [this, scan, insideCall] {
        scan->waitingForActions = false;
        if (!*insideCall && scan_ == scan)
            advance();
    });
    *insideCall = false;
    return scan->waitingForActions;
}

void CheckCycle::monitorimmediate(Server& s, const core::MonitoredService& record, const ServiceCheck* c)
{
    // The immediate check pings per service; the icon follows each answer.
    if (const core::ServerEntry* entry = servers_.find(s.name))
        if (entry->reachable != s.ping.reachable())
            servers_.setReachable(s.name, s.ping.reachable());
    ImmediateResult r{s.name, record.servicename, c != nullptr, {}, {}, joinactions(record)};
    if (c) {
        const QString text = checkResultText(*c, true);
        if (c->failed())
            r.lasterror = text;
        else
            r.state = text;
    }
    if (checknowactive_) {
        alerts_.showalertwindow();
        const QString shown = !r.reachable ? QStringLiteral("Error Server not Available")
                              : !r.lasterror.isEmpty() ? r.lasterror
                                                       : r.state;
        // Every service is listed; only a state other than "Running" is drawn red.
        alerts_.addcheckrow(s.name, record.servicename, shown, joinactions(record), shown != kRunning);
    }
    if (reportScanActive_)
        emit immediateResult(r);
}

void CheckCycle::visitServer(Server& s)
{
    if (!servers_.contains(s.name))
        return;
    servers_.setPing(s.name, s.ping.result, s.ping.address, false);
    servers_.setIcon(s.name, s.ping.reachable() ? 9 : 10);
    serverreachable_ = s.ping.reachable();
    if (!s.ping.reachable()) {
        log_.appendjobline(joblog::serverLineText(log_.now(), s.name, joblog::kServerNotReachable));
        keeper_.serverDown(s.name, log_.now());
    }
}

void CheckCycle::finishScan()
{
    auto scan = scan_;
    scan_.reset();
    if (scan && !scan->immediate)
        keeper_.endScan();
    if (scan && scan->done)
        scan->done();
    emit scanFinished();
    if (timedScanWaiting_ && !scan_) {
        timedScanWaiting_ = false;
        trigger();
    }
}

} // namespace velmora::monitoring
