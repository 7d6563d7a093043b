#pragma once
// The job log's history for the windows that show it: reads the log on a worker thread, first
// whole and then only what was appended, and tells when a new history is there. Nothing is read
// until someone asks, so a program whose availability window stays closed spends nothing on it.
#include "history/availability.h"

#include <QObject>
#include <functional>
#include <memory>

namespace velmora::platform { class Clock; class Worker; }
namespace velmora::joblog { class JobLog; }

namespace velmora::history {

class LogHistory : public QObject {
    Q_OBJECT
public:
    // The log is asked for its path (its real spelling) before every read.
    LogHistory(platform::Worker& worker, platform::Clock& clock, joblog::JobLog& log, QObject* parent = nullptr);
    // Stops a read that is still running; its result is dropped.
    ~LogHistory() override;

    // The seconds between checks assumed for a service until its own checks tell.
    void setDefaultInterval(qint64 seconds) { defaultInterval_ = seconds; }
    // Reads what is new in the log (and computes the uptimes for now). A request while a read
    // runs is served by one more read when that ends.
    void refresh();

    const History& history() const { return history_; }
    // True until the first read has ended.
    bool empty() const { return !readOnce_; }
    bool reading() const { return busy_; }
    qint64 now() const;

signals:
    void updated();

private:
    struct Shared;
    platform::Worker& worker_;
    platform::Clock& clock_;
    joblog::JobLog& log_;
    std::shared_ptr<Shared> shared_;
    History history_;
    qint64 defaultInterval_ = 1800;
    bool busy_ = false, again_ = false, readOnce_ = false;
};

} // namespace velmora::history
