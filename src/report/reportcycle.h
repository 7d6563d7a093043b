#pragma once
// The instant report's cycle: at its own interval it runs the check cycle's immediate pass with
// the report flag on, turns each result that passes the filters into a report row, shows the
// status line and applies the automatic export. The report window owns one cycle and ticks it
// every second; the cycle knows no window.
//
// Filters, the automatic export settings and the interval live in the settings record; the
// next scan time, the stopped flag and the no-services flag live here.
#include "core/runstate.h"
#include "monitoring/checkcycle.h"
#include "report/reportrows.h"

#include <QDateTime>
#include <QObject>
#include <functional>
#include <vector>

namespace velmora::report {

// The three filter words of the status line: "running", "not running", "errors", each empty
// when its filter is off.
struct FilterWords {
    QString running, notrunning, errors;
};
FilterWords filterWords(const core::SettingsRecord& settings);

// "Next at:  " + next + " Filter: " + the three words, each after one blank.
QString runningStatusText(const QString& next, const FilterWords& words);
// "Next at: Report Stopped  Filter: " + the three words.
QString stoppedStatusText(const FilterWords& words);

inline const QString kNoServices = QStringLiteral(
    "There are no Services to be monitored,  please configure Services to be monitored !    ");

class ReportCycle : public QObject {
    Q_OBJECT
public:
    ReportCycle(core::RunState& state, monitoring::CheckCycle& checks, ReportRows& rows, QObject* parent = nullptr);
    ~ReportCycle() override;

    // The row a result makes under the current filters, if any; at is the time of the check.
    std::optional<ReportRow> rowFor(const monitoring::ImmediateResult& result, const QDateTime& at) const;

    // The first scan of a freshly loaded report: scan, next scan time, status line, and the
    // monitored-servers test (no servers: the rows go and the user is told).
    void firstScan(int minutes);
    // The timer tick: a scan when its time has come and servers are known to be monitored.
    void tick(int minutes);
    // One report cycle; minutes is the interval.
    void checkservices(int minutes);
    // Applies the automatic export to the rows as they stand.
    void runautoexport();

    void start();
    void stop();
    bool stopped() const { return stopped_; }
    // The window has been activated: timed scans may run again.
    void clearNoServices() { noServices_ = false; }
    bool noServices() const { return noServices_; }
    bool scanFlag() const { return scanFlag_; }
    // Clears the report scan flag (the window is hidden or closed).
    void clearScanFlag();

    QDateTime nextScan() const { return nextscan_; }
    // The status line for the report's state.
    QString statusText() const;
    QString runningStatus() const;

signals:
    void statusChanged(const QString& text);
    // A report scan has started (true) or ended (false): the window shows the busy pointer.
    void busy(bool on);
    // An automatic export has written its rows and removed them.
    void autoExported(const QString& path);
    // An automatic export failed; line is the job log's line that says so.
    void exportFailed(const QString& line);

private:
    bool monitoredServersListed() const;
    // Runs one immediate pass for the report once the check cycle is free; done follows it.
    void runPass(std::function<void()> done);
    void takeResult(const monitoring::ImmediateResult& result);
    void flushRows();
    QString nextText() const;

    core::RunState& state_;
    monitoring::CheckCycle& checks_;
    ReportRows& rows_;
    QDateTime nextscan_;
    bool stopped_ = false;
    bool scanFlag_ = false;
    bool noServices_ = false;
    bool passRunning_ = false;  // our pass is running in the check cycle
    bool passWaiting_ = false;  // our pass waits for the check cycle to be free
    bool exportRunning_ = false;
    bool flushQueued_ = false;
    std::vector<ReportRow> pending_;
    mutable qint64 stampSecond_ = -1;
    mutable QString stampDate_, stampTime_;
};

} // namespace velmora::report
