#include "actions/dispatcher.h"

#include "core/runstate.h"
#include "platform/clock.h"
#include "platform/platform.h"

namespace velmora::actions {

namespace {

bool containsNoCase(const QString& entry, const QString& text)
{
    return entry.contains(text, Qt::CaseInsensitive);
}

bool startsNoCase(const QString& entry, const QString& text)
{
    return entry.startsWith(text, Qt::CaseInsensitive);
}

// Characters from 1-based position `from`, at most `count`, as the classic Mid$ takes them.
QString mid(const QString& entry, int from, int count)
{
    return entry.mid(from - 1, count);
}

} // namespace

std::vector<PlannedAction> planEntry(const QString& entry)
{
    std::vector<PlannedAction> out;
    if (entry.isEmpty())
        return out;
    if (containsNoCase(entry, kind::alert))
        out.push_back({Action::Alert, {}});
    if (containsNoCase(entry, kind::restart))
        out.push_back({Action::Restart, {}});
    if (startsNoCase(entry, kind::email))
        out.push_back({Action::Email, mid(entry, 15, 125)});
    if (startsNoCase(entry, kind::program))
        out.push_back({Action::Program, mid(entry, 16, 255)});
    if (startsNoCase(entry, kind::netmessage))
        out.push_back({Action::NetMessage, mid(entry, 21, 255)});
    if (startsNoCase(entry, kind::playsound))
        out.push_back({Action::Sound, mid(entry, 13, 255)});
    return out;
}

QString startErrorText(int code)
{
    switch (code) {
    case 2: return QStringLiteral(" File not found! ");
    case 3: return QStringLiteral(" Path not found! ");
    case 5: return QStringLiteral("Access denied !  ");
    case 8: return QStringLiteral("  Low memory!    ");
    case 11: return QStringLiteral(" Currupt EXE File! ");
    case 26: return QStringLiteral(" Access violation occured! ");
    case 27: return QStringLiteral(" Unreliable file Association! ");
    case 28: return QStringLiteral(" DDE Time out ");
    case 29: return QStringLiteral(" DDE transaction failed! ");
    case 30: return QStringLiteral(" DDE bussy! ");
    case 31: return QStringLiteral(" No Application for file extention! ");
    case 32: return QStringLiteral(" DLL not found!  ");
    default: return {};
    }
}

ActionDispatcher::ActionDispatcher(core::RunState& state, platform::Timer* alertSignal,
                                   std::function<QString()> dataFolder, QObject* parent)
    : QObject(parent), state_(state), alertSignal_(alertSignal), dataFolder_(std::move(dataFolder))
{
}

joblog::JobLog& ActionDispatcher::joblog()
{
    if (shared_)
        return *shared_;
    if (!log_)
        log_ = std::make_unique<joblog::JobLog>(state_.platform, state_);
    return *log_;
}

void ActionDispatcher::runactions(const QString& server, const QString& service, const QString& serviceState,
                                  const std::array<QString, 5>& actions, Done done)
{
    Dispatch d;
    d.server = server;
    d.service = service;
    for (const QString& entry : actions) {
        for (PlannedAction& a : planEntry(entry))
            d.steps.push_back(std::move(a));
    }
    d.state = serviceState;
    d.done = std::move(done);
    queue_.push_back(std::move(d));
    pump();
}

void ActionDispatcher::runactions(const QString& server, const core::MonitoredService& record, Done done)
{
    runactions(server, record.servicename, state_.currentstate, record.actions, std::move(done));
}

// Runs the steps of the current dispatch and then the queued ones. An action that completes at
// once calls back inside runStep(); the loop then goes on rather than recursing, so a long run
// of synchronous actions and dispatches never deepens the stack. An action that completes
// later calls pump() again from the event loop.
void ActionDispatcher::pump()
{
    if (pumping_)
        return;
    pumping_ = true;
    while (!waiting_) {
        if (!current_) {
            if (queue_.empty())
                break;
            current_ = std::move(queue_.front());
            queue_.pop_front();
            // The shared values the alert mail and the network message read. A queued dispatch
            // sets them when it starts, not when it was asked for.
            state_.currentserver = current_->server;
            state_.currentservice = current_->service;
            state_.currentstate = current_->state;
        }
        Dispatch& d = *current_;
        if (d.aborted || d.next >= d.steps.size()) {
            Done done = std::move(d.done);
            current_.reset();
            if (done)
                done(); // may queue the next service's dispatch; the loop picks it up
            continue;
        }
        const PlannedAction step = d.steps[d.next++];
        waiting_ = true;
        runStep(step, d, [this](bool ok) {
            waiting_ = false;
            if (!ok && current_)
                current_->aborted = true;
            pump();
        });
    }
    pumping_ = false;
}

void ActionDispatcher::runStep(const PlannedAction& step, const Dispatch& d, Continue cont)
{
    switch (step.action) {
    case Action::Alert:
        subalert(std::move(cont));
        return;
    case Action::Restart:
        subrestart(d.server, d.service, std::move(cont));
        return;
    case Action::Email: {
        state_.mailaddress = step.parameter;
        auto& transport = state_.usesmtp ? sendemail : subemail;
        if (transport)
            transport(state_.mailaddress, std::move(cont));
        else
            cont(true);
        return;
    }
    case Action::Program:
        substartprogram(step.parameter, std::move(cont));
        return;
    case Action::NetMessage:
        state_.netsendrecipient = step.parameter;
        if (netsend)
            netsend(state_.netsendrecipient, false, std::move(cont));
        else
            cont(true);
        return;
    case Action::Sound:
        playwav(step.parameter, std::move(cont));
        return;
    }
}

bool ActionDispatcher::logResult(const QString& line, QString& result)
{
    if (!joblog().appendjobline(line))
        return false;
    result = line;
    return true;
}

void ActionDispatcher::subalert(Continue cont)
{
    if (dataFolder_)
        dataFolder_();
    if (alertSignal_)
        alertSignal_->setEnabled(true);
    cont(logResult(QStringLiteral("Alert activated"), state_.alertresult));
}

void ActionDispatcher::playwav(const QString& wavfile, Continue cont)
{
    const int code = state_.platform.sound ? state_.platform.sound->playLoop(wavfile) : platform::sounderror::notReady;
    const QString line = code != 0
                             ? QStringLiteral("Play Sound error: ") + QString::number(code) + QStringLiteral("  ") + wavfile
                             : QStringLiteral("Play Sound ") + wavfile + QStringLiteral(" successfully");
    cont(logResult(line, state_.soundresult));
}

void ActionDispatcher::substartprogram(const QString& progtostart, Continue cont)
{
    if (dataFolder_)
        dataFolder_();
    // Opening may wait seconds for the desktop's launcher, so it runs on a worker thread; the
    // action line is written, and the next action started, once it has answered.
    platform::FileOpener* opener = state_.platform.opener;
    state_.platform.worker->run(this, [this, opener, progtostart, cont]() -> std::function<void()> {
        const int code = opener->open(progtostart);
        return [this, code, progtostart, cont] {
            const QString line = code > 32 ? QStringLiteral("Program started: ") + progtostart
                                           : QStringLiteral("Error starting program: ") + progtostart +
                                                 QLatin1Char(' ') + startErrorText(code);
            cont(logResult(line, state_.programresult));
        };
    });
}

void ActionDispatcher::subrestart(const QString& computername, const QString& service, Continue cont)
{
    if (dataFolder_)
        dataFolder_();
    platform::ServiceManager* manager = state_.platform.services;
    // The manager's calls block, so they run on a worker thread; only the completion, back on
    // the user-interface thread, touches this object.
    state_.platform.worker->run(this, [this, manager, computername, service, cont]() -> std::function<void()> {
        using platform::ServiceManager;
        int error = 0;
        platform::ScmHandle scm = manager->openManager(computername);
        if (!scm.valid()) {
            error = scm.error;
        } else {
            platform::ServiceHandle handle = manager->openService(scm, service);
            if (!handle.valid()) {
                error = handle.error;
            } else {
                const platform::StatusResult status = manager->queryStatus(handle);
                error = status.error != 0 ? status.error : manager->start(handle);
                ServiceManager::close(handle);
            }
            ServiceManager::close(scm);
        }
        return [this, error, service, cont] {
            if (error != 0) {
                // No wait after a refused request.
                cont(logResult(QStringLiteral("Attemp to restart service: ") + service + QStringLiteral(" returned error :") +
                                   QString::number(error),
                               state_.restartresult));
                return;
            }
            // The service gets time to come up before the next action; the window goes on.
            state_.platform.clock->singleShot(
                kRestartWaitMs, this,
                [this, service, cont] {
                    cont(logResult(QStringLiteral("Attemp to restart service : ") + service +
                                       QStringLiteral(" Successfull"),
                                   state_.restartresult));
                },
                platform::Precision::Precise);
        };
    });
}

void ActionDispatcher::testnetsend(const QString& recipient)
{
    state_.netsendrecipient = recipient;
    if (netsend)
        netsend(state_.netsendrecipient, true, [](bool) {});
}

} // namespace velmora::actions
