#pragma once
// The action dispatcher: what happens when a monitored service is found not running. It goes
// through the service's five action slots in order and runs every action an entry names:
//
//   "Alert"                 switches the alert signal on (the main window's Timer6)
//   "Restart Service"       asks the service manager to start the service, then waits 5000 ms
//   "Send Email to: ADDR"   the alert mail (AlertMailer), over SMTP or a mail profile
//   "Start program: PATH"   opens PATH the way a double-click does
//   "Net Message Send to: R" a network message to R
//   "Play Sound: FILE"      loops FILE until the alert is reset
//
// The failure travels as a value from the check cycle to every action. Each action writes one
// action line to the job log and leaves the same text in its result (ActionResults: restart,
// program, alert, netsend, sound); nothing ever clears them, so the alert mail carries the
// results of the actions before it. A failure an action detects is only logged; the next slot runs. A line that cannot
// be appended to the job log ends the whole dispatch of that service.
//
// Asynchronous: runactions() returns at once; the actions run one after the other, none starts
// before the previous one has ended (the restart's start request runs on a worker thread, its
// wait on the platform clock, the transports complete through callbacks), and `done` runs on
// the user-interface thread after the last one. Calls made while a dispatch runs are queued
// and run in call order, so the job-log lines of two services never interleave. The window is
// never blocked.
#include "actions/actionresults.h"
#include "actions/mailtypes.h"
#include "core/failure.h"
#include "platform/platform.h"

#include <QObject>
#include <QString>
#include <deque>
#include <optional>
#include <vector>

namespace velmora::joblog { class JobLog; }

namespace velmora::actions {

// Kind texts, as the alert setup stores them.
namespace kind {
inline const QString alert = QStringLiteral("Alert");
inline const QString playsound = QStringLiteral("Play Sound:");
inline const QString restart = QStringLiteral("Restart Service");
inline const QString email = QStringLiteral("Send Email to:");
inline const QString netmessage = QStringLiteral("Net Message Send to:");
inline const QString program = QStringLiteral("Start program:");
} // namespace kind

enum class Action { Alert, Restart, Email, Program, NetMessage, Sound };

struct PlannedAction {
    Action action;
    QString parameter; // the text the action is given (empty for Alert and Restart)
    bool operator==(const PlannedAction&) const = default;
};

// The actions one entry starts, in the order they run, each with its parameter. The kind texts
// are searched without regard to case: "Alert" and "Restart Service" anywhere in the entry, the
// other four at its start. The tests are not exclusive (an e-mail address containing "alert"
// also starts the Alert action). The parameter is the text after the kind and its blank: for
// mail and net message the blank is kept (the transports trim it), the program path and the
// sound file are taken exactly, each cut at its classic length (125 or 255 characters).
std::vector<PlannedAction> planEntry(const QString& entry);

// Whether action runs for failure, as its history calls for (failure.runs, failure.restarts).
bool runsFor(const core::Failure& failure, Action action);

// The text after "Error starting program: " + path + " " for a shell-execute result code of 32
// or less (empty for codes without a text).
QString startErrorText(int code);

class AlertMailer;

class ActionDispatcher : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void()>;

    // platform gives the service manager (restart), the worker thread, the clock (the restart
    // wait), the sound, the program opener and the message boxes (the test message's result).
    // Action lines go to log; alertSignal is the main window's Timer6.
    ActionDispatcher(const platform::Platform& platform, joblog::JobLog& log, AlertMailer& mailer,
                     platform::NetMessenger& messenger, platform::Timer* alertSignal, QObject* parent = nullptr);

    // Runs the five action slots of a failed service, those of its actions that its history
    // calls for (runsFor); done runs on the user-interface thread when they have all finished
    // (possibly inside the call).
    void runactions(const core::Failure& failure, Done done);

    // Whether a dispatch is running or queued.
    bool busy() const { return current_.has_value() || !queue_.empty(); }

    // What the actions left behind (never cleared).
    const ActionResults& results() const { return results_; }

    // The single actions; each logs its line, sets its result text and then calls cont(ok),
    // ok false when the line could not be written.
    void subalert(Continue cont);
    void playwav(const QString& wavfile, Continue cont);
    void subrestart(const QString& computername, const QString& service, Continue cont);
    void substartprogram(const QString& progtostart, Continue cont);
    // The network message about failure to results().netsendrecipient (trimmed in place); with
    // test set the result line is also shown in a box.
    void subnetsend(const core::Failure& failure, bool test, Continue cont);

    // "&Test Net Send": a test message to recipient about the last failure, outside any dispatch.
    void testnetsend(const QString& recipient);

    // How long a successful restart request is followed by a wait, in milliseconds.
    static constexpr int kRestartWaitMs = 5000;

private:
    struct Dispatch {
        core::Failure failure;
        std::vector<PlannedAction> steps;
        size_t next = 0;
        bool aborted = false;
        Done done;
    };
    void pump();
    void runStep(const PlannedAction& step, const core::Failure& failure, Continue cont);
    // Appends the line; on success stores it in result too.
    bool logResult(const QString& line, QString& result);

    platform::Platform p_;
    joblog::JobLog& log_;
    AlertMailer& mailer_;
    platform::NetMessenger& messenger_;
    platform::Timer* alertSignal_;
    ActionResults results_;
    std::optional<Dispatch> current_;
    std::deque<Dispatch> queue_;
    bool pumping_ = false;
    bool waiting_ = false;
};

} // namespace velmora::actions
