#include "monitoring/checkcycle.h"

#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "servicecontrol/statetext.h"
#include "shell/mainwindow.h"

#include "monitoring/setupwindow.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

namespace velmora::monitoring {

using platform::MsgIcon;
namespace svcerror = platform::svcerror;

namespace {

const QString kFailedServices = QStringLiteral("Failed Services :");
const QString kAllServices = QStringLiteral("All Services to be monitored :");
const QString kRunning = QStringLiteral("Running");

QStringList actionSlots(const core::MonitoredService& record)
{
    return QStringList(record.actions.begin(), record.actions.end());
}

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

int leadingNumber(const QString& text)
{
    const QString t = text.trimmed();
    qsizetype n = 0;
    if (n < t.size() && (t[n] == QLatin1Char('-') || t[n] == QLatin1Char('+')))
        ++n;
    while (n < t.size() && t[n].isDigit())
        ++n;
    bool ok = false;
    const int value = t.left(n).toInt(&ok);
    return ok ? value : 0;
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
    std::vector<ServiceCheck> checks;
    bool headerDone = false;
    size_t nextRecord = 0;
};

struct CheckCycle::Scan {
    bool immediate = false;
    std::vector<Server> servers;
    size_t current = 0;
    bool pingsIn = false;
    bool waitingForActions = false;
    std::function<void()> done;
};

CheckCycle::CheckCycle(shell::MainWindow& window, joblog::LogAndAlerts& alerts)
    : QObject(&window), w_(window), alerts_(alerts)
{
}

CheckCycle::~CheckCycle() = default;

void CheckCycle::timer5Tick()
{
    auto& state = w_.state;
    const QDateTime now = state.platform.clock->now();
    if (state.nextscan.isValid() && state.nextscan > now)
        return;
    const QString caption = intervalCaption ? intervalCaption() : state.checkinterval;
    checkintervall(QString::number(leadingNumber(caption)));
}

void CheckCycle::checkintervall(const QString& period)
{
    auto& state = w_.state;
    state.nextscan = state.platform.clock->now().addSecs(qint64(leadingNumber(period)) * 60);
    alerts_.alertwindow()->Label1->setText(QStringLiteral("Next scan at :  ") +
                                           QLocale::system().toString(state.nextscan, QLocale::ShortFormat));
    w_.unsetCursor();
    w_.Command9->setEnabled(true);
    w_.mnuChecknow->setEnabled(true);
    trigger();
}

void CheckCycle::trigger()
{
    if (scan_) {
        // A scan that outlasts the interval is not started twice; the next one follows it.
        timedScanWaiting_ = true;
        return;
    }
    auto* form4 = alerts_.alertwindow();
    if (form4->Label2->text() == kAllServices) {
        form4->Text1->clear();
        form4->ListView1->clear();
    }
    form4->Label2->setText(kFailedServices);
    startScan(false, {});
}

void CheckCycle::checkNow()
{
    auto& files = *w_.state.platform.files;
    const QString computers = w_.state.file(core::files::computers);
    const auto lines = files.readLines(computers, true);
    if (!files.exists(computers) || !lines || lines->isEmpty() || lines->first().isEmpty()) {
        w_.state.platform.boxes->show(
            QStringLiteral("There are no Services to be monitored,  please configure Services to be monitored !    "),
            MsgIcon::Exclamation);
        return;
    }
    if (pauseReport)
        pauseReport(true);
    w_.state.checknowactive = true;
    triggerimmediate([this] {
        w_.state.checknowactive = false;
        if (pauseReport)
            pauseReport(false);
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
    if (w_.state.checknowactive) {
        auto* form4 = alerts_.alertwindow();
        form4->Label2->setText(kAllServices);
        form4->Text1->clear();
        form4->ListView1->clear();
    }
    startScan(true, std::move(done));
}

void CheckCycle::startScan(bool immediate, std::function<void()> done)
{
    auto& state = w_.state;
    auto scan = std::make_shared<Scan>();
    scan->immediate = immediate;
    scan->done = std::move(done);
    scan_ = scan;

    state.datafolder = w_.Text7->text();
    w_.setupWindow()->List3->clear();
    alerts_.updatelogsizecolour();

    auto& files = *state.platform.files;
    const QString computers = state.file(core::files::computers);
    if (!immediate || files.exists(computers)) {
        for (const QString& name : core::readMonitoredServers(files, computers)) {
            Server s;
            s.name = name;
            const QTreeWidgetItem* item = w_.findServer(name);
            s.maintenance = !immediate && item && shell::MainWindow::serverInMaintenance(item);
            s.records = core::readMonitoredServices(files, state.file(name));
            scan->servers.push_back(std::move(s));
        }
    }

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
    auto* reach = new Reachability(*state.platform.icmp, *state.platform.worker, this);
    reach->pingAll(names, [this, scan, pinged, reach](const std::vector<PingOutcome>& outcomes) {
        reach->deleteLater();
        for (size_t k = 0; k < pinged.size(); ++k) {
            Server& s = scan->servers[pinged[k]];
            s.pinged = true;
            s.ping = outcomes[k];
        }
        // Which servers get their services checked: in a timed scan a server whose item is
        // missing from the server list keeps the reachability of the server before it.
        bool reachable = w_.state.serverreachable;
        for (size_t i = 0; i < scan->servers.size(); ++i) {
            Server& s = scan->servers[i];
            if (s.maintenance)
                continue;
            if (scan->immediate) {
                s.checkServices = s.pinged && s.ping.reachable();
            } else {
                if (w_.findServer(s.name))
                    reachable = s.ping.reachable();
                s.checkServices = reachable;
            }
            if (s.checkServices && !s.records.empty())
                queryServices(scan, i);
            else
                s.queried = true;
        }
        scan->pingsIn = true;
        if (scan_ == scan)
            advance();
    });
}

void CheckCycle::queryServices(const std::shared_ptr<Scan>& scan, size_t index)
{
    const QString computer = scan->servers[index].name;
    QStringList keys;
    for (const auto& r : scan->servers[index].records)
        keys << r.servicename;
    platform::ServiceManager* sm = w_.state.platform.services;
    w_.state.platform.worker->run(this, [this, scan, index, computer, keys, sm]() -> std::function<void()> {
        std::vector<ServiceCheck> checks;
        checks.reserve(size_t(keys.size()));
        for (const QString& key : keys)
            checks.push_back(servicecontrol::openAndQuery(*sm, computer, key));
        return [this, scan, index, checks = std::move(checks)] {
            Server& s = scan->servers[index];
            s.checks = checks;
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
    auto& state = w_.state;
    auto& log = alerts_.joblog();
    while (scan->current < scan->servers.size()) {
        Server& s = scan->servers[scan->current];
        if (!s.headerDone) {
            state.currentserver = s.name;
            if (s.maintenance) {
                log.appendjobline(joblog::serverLineText(log.now(), s.name, joblog::kServerInMaintenance));
                // A server in maintenance is skipped; the servers after it are still checked,
                // since one server's maintenance is no reason to stop watching the others.
                ++scan->current;
                continue;
            }
            if (!scan->immediate)
                applyServer(s);
            w_.setupWindow()->List3->addItem(s.name);
            s.headerDone = true;
        }
        if (!s.queried)
            return; // the answers of this server are still on their way
        if (!scan->immediate && !s.checkServices) {
            ++scan->current; // an unreachable server's services are not checked
            continue;
        }
        while (s.nextRecord < s.records.size()) {
            const core::MonitoredService& record = s.records[s.nextRecord];
            state.currentservice = record.servicename;
            if (scan->immediate) {
                // The immediate check pings per service; the icon follows each answer.
                if (QTreeWidgetItem* item = w_.findServer(s.name)) {
                    const int icon = shell::MainWindow::serverIcon(item);
                    const bool up = s.ping.reachable();
                    if (!up && (icon == 9 || icon == 7))
                        w_.setServerIcon(item, icon + 1);
                    else if (up && (icon == 10 || icon == 8))
                        w_.setServerIcon(item, icon - 1);
                }
                state.pingaddress = s.ping.address;
                state.pingresult = s.ping.result;
                ImmediateResult r{s.name, record.servicename, s.checkServices, {}, {}};
                if (s.checkServices) {
                    const ServiceCheck& c = s.checks[s.nextRecord];
                    const QString text = checkResultText(c, true);
                    if (c.failed()) {
                        state.lasterror = text;
                        r.lasterror = text;
                    } else {
                        r.state = text;
                    }
                }
                if (state.checknowactive) {
                    alerts_.showalertwindow();
                    auto* form4 = alerts_.alertwindow();
                    form4->Label1->setText(QStringLiteral("Interval in turn"));
                    const QString shown = !r.reachable ? QStringLiteral("Error Server not Available")
                                          : !r.lasterror.isEmpty() ? r.lasterror
                                                                   : r.state;
                    // Every service is listed; only a state other than "Running" is drawn red.
                    form4->addrow(log.now(), s.name, record.servicename, shown,
                                  joblog::LogAndAlerts::joinactions(actionSlots(record)), shown != kRunning);
                }
                if (reportResult && reportScanActive && reportScanActive())
                    reportResult(r);
                ++s.nextRecord;
                continue;
            }
            // The timed check of one service.
            log.ensurejoblog();
            const ServiceCheck& c = s.checks[s.nextRecord];
            const QString result = checkResultText(c, false);
            if (c.failed()) {
                log.appendjobline(joblog::checkLineText(log.now(), s.name, record.servicename, result));
                state.lasterror = result;
                ++s.nextRecord;
                continue;
            }
            if (!result.isEmpty())
                state.currentstate = result;
            log.appendjobline(joblog::checkLineText(log.now(), s.name, record.servicename, state.currentstate));
            ++s.nextRecord;
            if (state.currentstate == kRunning)
                continue;
            alerts_.updatelogsize(joblog::SizeCaption::CheckRun);
            if (state.settings.popupalert)
                alerts_.showalertwindow();
            alerts_.addalertrow(s.name, record.servicename, state.currentstate,
                                joblog::LogAndAlerts::joinactions(actionSlots(record)));
            if (runactions) {
                scan->waitingForActions = true;
                // Actions that end inside the call (an alert, say) let this loop go on; those that
                // end later resume it from their completion.
                auto insideCall = std::make_shared<bool>(true);
                runactions(s.name, record, state.currentstate, [this, scan, insideCall] {
                    scan->waitingForActions = false;
                    if (!*insideCall && scan_ == scan)
                        advance();
                });
                *insideCall = false;
                if (scan->waitingForActions)
                    return;
            }
        }
        ++scan->current;
    }
    finishScan();
}

void CheckCycle::applyServer(Server& s)
{
    auto& state = w_.state;
    auto& log = alerts_.joblog();
    state.pingaddress = s.ping.address;
    state.pingresult = s.ping.result;
    QTreeWidgetItem* item = w_.findServer(s.name);
    if (!item)
        return;
    if (!s.ping.reachable()) {
        w_.setServerIcon(item, 10);
        state.serverreachable = false;
        log.appendjobline(joblog::serverLineText(log.now(), s.name, joblog::kServerNotReachable));
        state.lasterror = joblog::kServerNotReachable;
    } else {
        w_.setServerIcon(item, 9);
        state.serverreachable = true;
    }
}

void CheckCycle::finishScan()
{
    auto scan = scan_;
    scan_.reset();
    if (scan && scan->done)
        scan->done();
    emit scanFinished();
    if (timedScanWaiting_ && !scan_) {
        timedScanWaiting_ = false;
        trigger();
    }
}

} // namespace velmora::monitoring
