#pragma once
// In front of the alert actions: what a failure runs, decided from its history in the failure
// memory under the alert options and written into the failure value the dispatcher goes by;
// and what the options add around it (recovery lines and mails, a server's own failure, the
// restart guard's alert, the unit's journal in the mail, desktop notices). With every option
// off a failure runs its actions exactly as before.
//
// The open failures are kept in the data folder's state file, written after every scan that
// changed them; a damaged one is ignored with one job-log line.
#include "core/alertoptions.h"
#include "core/failure.h"
#include "monitoring/failurememory.h"

#include <QObject>
#include <QString>
#include <functional>

namespace velmora::core { class DataFiles; }
namespace velmora::platform { struct Platform; class TextFiles; class UnitJournal; class Worker; }
namespace velmora::joblog { class AlertSink; class JobLog; }
namespace velmora::actions { class ActionDispatcher; }

namespace velmora::monitoring {

class AlertKeeper : public QObject {
    Q_OBJECT
public:
    // platform gives the files, the worker thread and the unit journal (none when it is null);
    // data names the data folder's files.
    AlertKeeper(const platform::Platform& platform, const core::DataFiles& data, joblog::JobLog& log,
                joblog::AlertSink& alerts, actions::ActionDispatcher& actions, QObject* parent = nullptr);

    // Reads the options and the state file of the data folder; a damaged file is said in the
    // job log, and its defaults (all off, nothing open) are used.
    void load();
    const core::AlertOptions& options() const { return memory_.options(); }
    void setOptions(const core::AlertOptions& options) { memory_.setOptions(options); }

    // A timed scan begins and ends (the end saves the open failures when they changed).
    void beginScan();
    void endScan();

    // A monitored service found not running: the failure with what its history calls for
    // (runs, restarts). Only runs All is alerted with a row of its own.
    core::Failure judge(core::Failure failure);
    // Runs what judge() chose for failure, with the unit's journal in the mail when the option
    // asks for it; done runs on the user-interface thread, possibly inside the call.
    void dispatch(core::Failure failure, std::function<void()> done);
    // Found Running: a recovery when a failure of it was open.
    void running(const core::Failure& found);
    // The server did not answer, or its service manager could not be reached; and it answered.
    void serverDown(const QString& server, const QDateTime& at);
    void serverUp(const QString& server, const QDateTime& at);
    // The user acknowledged the failure (report or alert window): no more reminders.
    void acknowledge(const QString& server, const QString& service);

    // The state text of a server's own failure.
    static const QString kServerDownState;
    // How many journal lines an alert mail carries.
    static constexpr int kJournalLines = 20;

signals:
    // A desktop notice of a failure, a recovery or a server down (only with the option on).
    void notice(const QString& summary, const QString& body, const QString& server, const QString& service);

private:
    // The mail actions of failure, run as a mail about it.
    void mailOnly(core::Failure failure);
    void notify(const QString& summary, const QString& body, const QString& server, const QString& service);

    platform::TextFiles& files_;
    platform::Worker& worker_;
    platform::UnitJournal* journal_;
    const core::DataFiles& data_;
    joblog::JobLog& log_;
    joblog::AlertSink& alerts_;
    actions::ActionDispatcher& actions_;
    FailureMemory memory_;
};

} // namespace velmora::monitoring
