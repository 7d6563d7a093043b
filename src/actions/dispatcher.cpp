#include "actions/dispatcher.h"

#include "actions/alertmailer.h"
#include "actions/netsend.h"
#include "joblog/joblog.h"

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

ActionDispatcher::ActionDispatcher(const platform::Platform& platform, joblog::JobLog& log, AlertMailer& mailer,
                                   platform::NetMessenger& messenger, platform::Timer* alertSignal, QObject* parent)
    : QObject(parent), p_(platform), log_(log), mailer_(mailer), messenger_(messenger), alertSignal_(alertSignal)
{
}

bool runsFor(const core::Failure& failure, Action action)
{
    using Runs = core::Failure::Runs;
    if (action == Action::Restart && failure.restarts != core::Failure::Restarts::Run)
        return false;
    switch (failure.runs) {
    case Runs::All: return true;
    case Runs::Reminder: return action == Action::Email || action == Action::NetMessage;
    case Runs::Mail: return action == Action::Email;
    case Runs::Nothing: return false;
    }
    return false;
}

void ActionDispatcher::runactions(const core::Failure& failure, Done done)
{
    Dispatch d;
    d.failure = failure;
    for (const QString& entry : failure.record.actions) {
        for (PlannedAction& a : planEntry(entry))
            if (runsFor(failure, a.action))
                d.steps.push_back(std::move(a));
    }
    d.done = std::move(done);
    queue_.push_back(std::move(d));
    pump();
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
            // The failure the test windows and the test message describe from now on. A queued
            // dispatch becomes the last when it starts, not when it was asked for.
            results_.last = current_->failure;
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
        runStep(step, d.failure, [this](bool ok) {
            waiting_ = false;
            if (!ok && current_)
                current_->aborted = true;
            pump();
        });
    }
    pumping_ = false;
}

void ActionDispatcher::runStep(const PlannedAction& step, const core::Failure& failure, Continue cont)
{
    switch (step.action) {
    case Action::Alert:
        subalert(std::move(cont));
        return;
    case Action::Restart:
        subrestart(failure.server, failure.service(), std::move(cont));
        return;
    case Action::Email:
        results_.mailaddress = step.parameter;
        mailer_.sendalert(failure, results_, std::move(cont));
        return;
    case Action::Program:
        substartprogram(step.parameter, std::move(cont));
        return;
    case Action::NetMessage:
        results_.netsendrecipient = step.parameter;
        subnetsend(failure, false, std::move(cont));
        return;
    case Action::Sound:
        playwav(step.parameter, std::move(cont));
        return;
    }
}

bool ActionDispatcher::logResult(const QString& line, QString& result)
{
    if (!log_.appendjobline(line))
        return false;
    result = line;
    return true;
}

void ActionDispatcher::subalert(Continue cont)
{
    if (alertSignal_)
        alertSignal_->setEnabled(true);
    cont(logResult(QStringLiteral("Alert activated"), results_.alert));
}

void ActionDispatcher::playwav(const QString& wavfile, Continue cont)
{
    const int code = p_.sound ? p_.sound->playLoop(wavfile) : platform::sounderror::notReady;
    const QString line = code != 0
                             ? QStringLiteral("Play Sound error: ") + QString::number(code) + QStringLiteral("  ") + wavfile
                             : QStringLiteral("Play Sound ") + wavfile + QStringLiteral(" successfully");
    cont(logResult(line, results_.sound));
}

void ActionDispatcher::substartprogram(const QString& progtostart, Continue cont)
{
    // Opening may wait seconds for the desktop's launcher, so it runs on a worker thread; the
    // action line is written, and the next action started, once it has answered.
    platform::FileOpener* opener = p_.opener;
    p_.worker->run(this, [this, opener, progtostart, cont]() -> std::function<void()> {
        const int code = opener->open(progtostart);
        return [this, code, progtostart, cont] {
            const QString line = code > 32 ? QStringLiteral("Program started: ") + progtostart
                                           : QStringLiteral("Error starting program: ") + progtostart +
                                                 QLatin1Char(' ') + startErrorText(code);
            cont(logResult(line, results_.program));
        };
    });
}

void ActionDispatcher::subrestart(const QString& computername, const QString& service, Continue cont)
{
    platform::ServiceManager* manager = p_.services;
    // The manager's calls block, so they run on a worker thread; only the completion, back on
    // the user-interface thread, touches this object.
    p_.worker->run(this, [this, manager, computername, service, cont]() -> std::function<void()> {
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
                               results_.restart));
                return;
            }
            // The service gets time to come up before the next action; the window goes on.
            p_.clock->singleShot(
                kRestartWaitMs, this,
                [this, service, cont] {
                    cont(logResult(QStringLiteral("Attemp to restart service : ") + service +
                                       QStringLiteral(" Successfull"),
                                   results_.restart));
                },
                platform::Precision::Precise);
        };
    });
}

void ActionDispatcher::subnetsend(const core::Failure& failure, bool test, Continue cont)
{
    results_.netsendrecipient = trimBlanks(results_.netsendrecipient);
    const QString to = results_.netsendrecipient;
    const QString message = netsendMessage(failure.server, failure.service(), failure.state);
    messenger_.send(this, to, message, [this, to, test, cont](int code) {
        const QString line = netsendResultLine(code, to);
        const bool logged = log_.appendjobline(line);
        results_.netsend = line;
        if (test)
            p_.boxes->show(line, platform::MsgIcon::Information);
        cont(logged);
    });
}

void ActionDispatcher::testnetsend(const QString& recipient)
{
    results_.netsendrecipient = recipient;
    subnetsend(results_.last, true, [](bool) {});
}

} // namespace velmora::actions
