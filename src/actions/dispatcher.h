#pragma once
// The action dispatcher: what happens when a monitored service is found not running. It goes
// through the service's five action slots in order and runs every action an entry names:
//
//   "Alert"                 switches the alert signal on (the main window's Timer6)
//   "Restart Service"       asks the service manager to start the service, then waits 5000 ms
//   "Send Email to: ADDR"   the alert mail, over SMTP or a mail profile (state.usesmtp)
//   "Start program: PATH"   opens PATH the way a double-click does
//   "Net Message Send to: R" a network message to R
//   "Play Sound: FILE"      loops FILE until the alert is reset
//
// Each action writes one action line to the job log and leaves the same text in its result
// variable of the run state (restartresult, programresult, alertresult, netsendresult,
// soundresult); nothing ever clears them, so the alert mail carries the results of the actions
// before it. A failure an action detects is only logged; the next slot runs. A line that cannot
// be appended to the job log ends the whole dispatch of that service.
//
// Asynchronous: runactions() returns at once; the actions run one after the other, none starts
// before the previous one has ended (the restart's start request runs on a worker thread, its
// wait on the platform clock, the transports complete through callbacks), and `done` runs on
// the user-interface thread after the last one. Calls made while a dispatch runs are queued
// and run in call order, so the job-log lines of two services never interleave. The window is
// never blocked.
#include "actions/actionrunner.h"
#include "core/serverfile.h"
#include "joblog/joblog.h"

#include <QObject>
#include <QString>
#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace velmora::core { struct RunState; }
namespace velmora::platform { class Timer; }

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

// The text after "Error starting program: " + path + " " for a shell-execute result code of 32
// or less (empty for codes without a text).
QString startErrorText(int code);

class ActionDispatcher : public QObject, public ActionRunner {
    Q_OBJECT
public:
    using Done = std::function<void()>;
    // A transport's completion: false when its job-log line could not be written (which ends
    // the dispatch, as for the local actions).
    using Continue = std::function<void(bool ok)>;

    // alertSignal is the main window's Timer6. dataFolder returns the data folder the job log is
    // found in (empty: the run state's).
    ActionDispatcher(core::RunState& state, platform::Timer* alertSignal, std::function<QString()> dataFolder = {},
                     QObject* parent = nullptr);

    // Runs the five slots of a failed service. The check cycle sets currentserver,
    // currentservice and currentstate before it calls, since the alert mail and the network
    // message read them from the run state.
    void runactions(const QString& server, const QString& service, const QString& serviceState,
                    const std::array<QString, 5>& actions, Done done);
    // The same for a record: its key name, and the state from state.currentstate.
    void runactions(const QString& server, const core::MonitoredService& record, Done done) override;

    // Whether a dispatch is running or queued.
    bool busy() const { return current_.has_value() || !queue_.empty(); }

    // The single actions; each logs its line, sets its result text and then calls cont(ok),
    // ok false when the line could not be written. The dispatcher runs them through
    // runactions(); they are public for the alert setup's tests and for callers that need one.
    void subalert(Continue cont);
    void playwav(const QString& wavfile, Continue cont);
    void subrestart(const QString& computername, const QString& service, Continue cont);
    void substartprogram(const QString& progtostart, Continue cont);

    // The transports, plugged in by the mail and network message module; an empty one is
    // skipped. Each receives the shared variable (state.mailaddress or state.netsendrecipient,
    // leading blank included) to trim in place if it wants, writes its own job-log line and
    // result, and calls cont exactly once on the user-interface thread.
    std::function<void(QString& address, Continue cont)> sendemail; // SMTP (state.usesmtp true)
    std::function<void(QString& address, Continue cont)> subemail;  // mail profile (usesmtp false)
    // test is true for the alert setup's "&Test Net Send", which also shows the result in a box.
    std::function<void(QString& recipient, bool test, Continue cont)> netsend;

    // "&Test Net Send": a test message to recipient, outside any dispatch.
    void testnetsend(const QString& recipient);

    // How long a successful restart request is followed by a wait, in milliseconds.
    static constexpr int kRestartWaitMs = 5000;

    // The job log the action lines go to: the one given to logTo(), else one made on first use
    // from the run state's platform.
    joblog::JobLog& joblog();
    // Action lines go to log (the program's one job log, whose lost lines are shown).
    void logTo(joblog::JobLog& log) { shared_ = &log; }

private:
    struct Dispatch {
        QString server, service, state;
        std::vector<PlannedAction> steps;
        size_t next = 0;
        bool aborted = false;
        Done done;
    };
    void pump();
    void runStep(const PlannedAction& step, const Dispatch& d, Continue cont);
    // Appends the line; on success stores it in result too.
    bool logResult(const QString& line, QString& result);

    core::RunState& state_;
    platform::Timer* alertSignal_;
    std::function<QString()> dataFolder_;
    std::unique_ptr<joblog::JobLog> log_;
    joblog::JobLog* shared_ = nullptr;
    std::optional<Dispatch> current_;
    std::deque<Dispatch> queue_;
    bool pumping_ = false;
    bool waiting_ = false;
};

} // namespace velmora::actions
