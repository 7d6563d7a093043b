#include "history/loghistory.h"

#include "history/logparser.h"
#include "joblog/joblog.h"
#include "platform/clock.h"
#include "platform/worker.h"

namespace velmora::history {

// The parser is handed to one read at a time; a read still running when this object goes keeps
// it alive and is told to stop.
struct LogHistory::Shared {
    LogParser parser;
    std::atomic<bool> cancel{false};
};

LogHistory::LogHistory(platform::Worker& worker, platform::Clock& clock, joblog::JobLog& log,
                       QObject* parent)
    : QObject(parent), worker_(worker), clock_(clock), log_(log),
      shared_(std::make_shared<Shared>())
{
}

LogHistory::~LogHistory() { shared_->cancel = true; }

qint64 LogHistory::now() const { return clock_.now().toSecsSinceEpoch(); }

void LogHistory::refresh()
{
    if (busy_) {
        again_ = true;
        return;
    }
    busy_ = true;
    const QString path = log_.path();
    const qint64 at = now(), interval = defaultInterval_;
    worker_.run(this, [this, shared = shared_, path, at, interval]() -> std::function<void()> {
        shared->parser.setDefaultInterval(interval);
        shared->parser.read(path, &shared->cancel);
        auto read = std::make_shared<History>(shared->parser.snapshot(at));
        return [this, read] {
            history_ = std::move(*read);
            busy_ = false;
            readOnce_ = true;
            emit updated();
            if (again_) {
                again_ = false;
                refresh();
            }
        };
    });
}

} // namespace velmora::history
