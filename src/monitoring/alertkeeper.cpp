#include "monitoring/alertkeeper.h"

#include "actions/dispatcher.h"
#include "core/datafolder.h"
#include "joblog/alertsink.h"
#include "joblog/joblog.h"
#include "platform/journal.h"
#include "platform/platform.h"

#include <algorithm>

namespace velmora::monitoring {

namespace {
const QString kRunning = QStringLiteral("Running");

// Whether any entry of failure's slots starts action, and its history lets it run.
bool runs(const core::Failure& failure, actions::Action action)
{
    return std::any_of(failure.record.actions.begin(), failure.record.actions.end(), [&](const QString& entry) {
        const auto planned = actions::planEntry(entry);
        return std::any_of(planned.begin(), planned.end(), [&](const actions::PlannedAction& a) {
            return a.action == action && actions::runsFor(failure, action);
        });
    });
}

// A failure of server alone, mailed to the addresses (none: nothing is mailed).
core::Failure serverFailure(const QString& server, const QString& state, const QDateTime& at, const QString& mail)
{
    core::Failure f{.server = server, .record = {}, .state = state, .found = at};
    if (!mail.isEmpty())
        f.record.actions[0] = actions::kind::email + QLatin1Char(' ') + mail;
    return f;
}
} // namespace

const QString AlertKeeper::kServerDownState = QStringLiteral("Server not available");

AlertKeeper::AlertKeeper(const platform::Platform& platform, const core::DataFiles& data, joblog::JobLog& log,
                         joblog::AlertSink& alerts, actions::ActionDispatcher& actions, QObject* parent)
    : QObject(parent), files_(*platform.files), worker_(*platform.worker), journal_(platform.journal), data_(data),
      log_(log), alerts_(alerts), actions_(actions)
{
}

void AlertKeeper::load()
{
    const core::AlertOptionsRead read = core::readAlertOptions(files_, data_.file(core::files::alertoptions));
    memory_.setOptions(read.options);
    if (!read.problem.isEmpty())
        log_.appendjobline(QString(read.problem).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    const QString path = data_.file(core::files::alertstate);
    if (!files_.exists(path))
        return;
    const auto lines = files_.readLines(path, true);
    if (!lines || !memory_.restore(*lines))
        log_.appendjobline(QStringLiteral("The open failures kept in ") + path +
                           QStringLiteral(" cannot be read; they are forgotten, and alerted again when found."));
}

void AlertKeeper::beginScan() { memory_.beginScan(); }

void AlertKeeper::endScan()
{
    const core::AlertOptions& o = options();
    if (!memory_.changed() || !(o.once || o.serverDown || o.restartGuard()))
        return;
    // Written beside the old file and renamed over it: a crash leaves the old state whole.
    if (files_.writeLines(data_.file(core::files::alertstate), memory_.stateLines()))
        memory_.markSaved();
}

void AlertKeeper::notify(const QString& summary, const QString& body, const QString& server, const QString& service)
{
    if (options().notify)
        emit notice(summary, body, server, service);
}

core::Failure AlertKeeper::judge(core::Failure failure)
{
    core::Failure all = failure;
    all.runs = core::Failure::Runs::All;
    const FailureMemory::Decision d =
        memory_.failed(failure.server, failure.service(), failure.found, runs(all, actions::Action::Restart));
    failure.runs = d.run;
    failure.restarts = d.restarts;
    if (failure.runs == core::Failure::Runs::All)
        notify(failure.service() + QStringLiteral(" on ") + failure.server + QStringLiteral(" is ") + failure.state,
               QStringLiteral("Server: ") + failure.server + QStringLiteral("\nService: ") +
                   failure.record.displayname + QStringLiteral("\nState: ") + failure.state,
               failure.server, failure.service());
    return failure;
}

void AlertKeeper::dispatch(core::Failure failure, std::function<void()> done)
{
    const QString& server = failure.server;
    const QString& service = failure.service();
    if (failure.restarts == core::Failure::Restarts::JustStopped) {
        const QString text = QStringLiteral("restarted %1 times in %2 scans; restarts stopped")
                                 .arg(options().restartLimit)
                                 .arg(options().restartScans);
        log_.checkline(server, service, text);
        alerts_.addalertrow(server, service, text, {});
        notify(service + QStringLiteral(" on ") + server + QStringLiteral(": restarts stopped"), text, server, service);
    }
    if (!options().journal || !journal_ || !runs(failure, actions::Action::Email)) {
        actions_.runactions(failure, std::move(done));
        return;
    }
    // The journal is read off the user-interface thread (over ssh it may take seconds); the
    // actions follow once it is in, and the mail carries it with its own failure.
    platform::UnitJournal* journal = journal_;
    worker_.run(this, [this, journal, failure, done]() -> std::function<void()> {
        const platform::JournalLines lines = journal->lastLines(failure.server, failure.service(), kJournalLines);
        return [this, lines, failure, done]() mutable {
            failure.journal = lines.problem.isEmpty() ? lines.lines : QStringList{lines.problem};
            actions_.runactions(failure, std::move(done));
        };
    });
}

void AlertKeeper::mailOnly(core::Failure failure)
{
    failure.runs = core::Failure::Runs::Mail;
    if (runs(failure, actions::Action::Email))
        actions_.runactions(failure, [] {});
}

void AlertKeeper::running(const core::Failure& found)
{
    const auto since = memory_.running(found.server, found.service());
    if (!since)
        return;
    const QString how = FailureMemory::durationText(since->secsTo(found.found));
    log_.serverline(found.server, QStringLiteral("Service ") + found.service() + QStringLiteral(" recovered after ") +
                                      how + QStringLiteral(" down"));
    alerts_.markrecovered(found.server, found.service(), QStringLiteral("Recovered after ") + how);
    notify(found.service() + QStringLiteral(" on ") + found.server + QStringLiteral(" recovered"),
           QStringLiteral("Running again after ") + how + QStringLiteral(" down"), found.server, found.service());
    mailOnly(found);
}

void AlertKeeper::serverDown(const QString& server, const QDateTime& at)
{
    if (!memory_.serverDown(server, at))
        return;
    const core::Failure f = serverFailure(server, kServerDownState, at, options().serverDownMail);
    alerts_.addalertrow(server, {}, kServerDownState, f.record.actions[0]);
    notify(server + QStringLiteral(" is not available"), QStringLiteral("Its services are not alerted while it is down."),
           server, {});
    mailOnly(f);
}

void AlertKeeper::serverUp(const QString& server, const QDateTime& at)
{
    const auto since = memory_.serverUp(server);
    if (!since || !options().serverDown)
        return;
    const QString how = FailureMemory::durationText(since->secsTo(at));
    log_.serverline(server, QStringLiteral("Server answers again after ") + how + QStringLiteral(" down"));
    alerts_.markrecovered(server, {}, QStringLiteral("Recovered after ") + how);
    notify(server + QStringLiteral(" answers again"), QStringLiteral("Available again after ") + how, server, {});
    mailOnly(serverFailure(server, QStringLiteral("available again"), at, options().serverDownMail));
}

void AlertKeeper::acknowledge(const QString& server, const QString& service)
{
    if (memory_.acknowledge(server, service))
        endScan();
}

} // namespace velmora::monitoring
