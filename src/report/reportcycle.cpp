#include "report/reportcycle.h"

#include "core/datafolder.h"
#include "core/timestamps.h"
#include "joblog/joblog.h"
#include "report/reportexport.h"

#include <QMetaObject>

namespace velmora::report {

namespace {

const QString kRunning = QStringLiteral("Running");
const QString kServerNotAvailable = QStringLiteral("Error Server not Available");

} // namespace

FilterWords filterWords(const core::SettingsRecord& s)
{
    return {s.reportrunning ? QStringLiteral("running") : QString(),
            s.reportnotrunning ? QStringLiteral("not running") : QString(),
            s.reporterrors ? QStringLiteral("errors") : QString()};
}

QString runningStatusText(const QString& next, const FilterWords& w)
{
    return QStringLiteral("Next at:  ") + next + QStringLiteral(" Filter: ") + w.running + QLatin1Char(' ') +
           w.notrunning + QLatin1Char(' ') + w.errors;
}

QString stoppedStatusText(const FilterWords& w)
{
    return QStringLiteral("Next at: Report Stopped  Filter: ") + w.running + QLatin1Char(' ') + w.notrunning +
           QLatin1Char(' ') + w.errors;
}

ReportCycle::ReportCycle(core::RunState& state, monitoring::CheckCycle& checks, ReportRows& rows, QObject* parent)
    : QObject(parent), state_(state), checks_(checks), rows_(rows)
{
    connect(&checks_, &monitoring::CheckCycle::immediateResult, this, &ReportCycle::takeResult);
}

ReportCycle::~ReportCycle()
{
    // The check cycle outlives the report: it must not go on filling a report that is gone.
    if (passRunning_)
        checks_.setReportScanActive(false);
}

std::optional<ReportRow> ReportCycle::rowFor(const monitoring::ImmediateResult& r, const QDateTime& at) const
{
    const core::SettingsRecord& s = state_.settings;
    ReportRow row;
    const bool failed = !r.reachable || !r.lasterror.isEmpty();
    if (failed) {
        if (!s.reporterrors)
            return std::nullopt;
        row.texts[StateColumn] = r.reachable ? r.lasterror : kServerNotAvailable;
    } else if (r.state == kRunning) {
        if (!s.reportrunning)
            return std::nullopt;
        row.running = true;
        row.texts[StateColumn] = r.state;
    } else {
        if (!s.reportnotrunning)
            return std::nullopt;
        row.texts[StateColumn] = r.state;
    }
    // The results of one scan share a few seconds: their texts are formatted once a second.
    const qint64 second = at.toSecsSinceEpoch();
    if (second != stampSecond_) {
        stampSecond_ = second;
        stampDate_ = core::dateText(at);
        stampTime_ = joblog::timeText(at);
    }
    row.texts[DateColumn] = stampDate_;
    row.texts[TimeColumn] = stampTime_;
    row.texts[ComputerColumn] = r.server;
    row.texts[ServiceColumn] = r.service;
    row.texts[ActionsColumn] = r.actions;
    row.texts[AckColumn] = QStringLiteral(" ");
    return row;
}

void ReportCycle::takeResult(const monitoring::ImmediateResult& result)
{
    if (!passRunning_ || !scanFlag_)
        return;
    if (auto row = rowFor(result, state_.platform.clock->now()))
        pending_.push_back(std::move(*row));
    // Rows are added in batches, once the results that arrived together have been applied.
    if (!flushQueued_ && !pending_.empty()) {
        flushQueued_ = true;
        QMetaObject::invokeMethod(this, &ReportCycle::flushRows, Qt::QueuedConnection);
    }
}

void ReportCycle::flushRows()
{
    flushQueued_ = false;
    if (pending_.empty())
        return;
    std::vector<ReportRow> rows;
    rows.swap(pending_);
    rows_.add(std::move(rows));
}

bool ReportCycle::monitoredServersListed() const
{
    auto& files = *state_.platform.files;
    const QString computers = state_.file(core::files::computers);
    if (!files.exists(computers))
        return false;
    const auto lines = files.readLines(computers, true);
    return lines && !lines->isEmpty() && !lines->first().isEmpty();
}

void ReportCycle::runPass(std::function<void()> done)
{
    if (checks_.scanRunning()) {
        // Another scan holds the check cycle; ours follows it, so that only our pass's
        // results become rows.
        passWaiting_ = true;
        connect(&checks_, &monitoring::CheckCycle::scanFinished, this,
                [this, done = std::move(done)]() mutable {
                    passWaiting_ = false;
                    runPass(std::move(done));
                },
                Qt::SingleShotConnection);
        return;
    }
    passRunning_ = true;
    emit busy(true);
    checks_.setReportScanActive(true);
    checks_.triggerimmediate([this, done = std::move(done)] {
        checks_.setReportScanActive(false);
        passRunning_ = false;
        flushRows();
        emit busy(false);
        done();
    });
}

void ReportCycle::firstScan(int minutes)
{
    scanFlag_ = true;
    runPass([this] { scanFlag_ = false; });
    nextscan_ = state_.platform.clock->now().addSecs(qint64(minutes) * 60);
    emit statusChanged(runningStatus());
    if (!monitoredServersListed()) {
        // The first scan's answers may still be on their way: none of them becomes a row.
        clearScanFlag();
        pending_.clear();
        rows_.clear();
        state_.platform.boxes->show(kNoServices, platform::MsgIcon::Exclamation);
    }
}

void ReportCycle::tick(int minutes)
{
    if (!nextscan_.isValid() || state_.platform.clock->now() < nextscan_ || noServices_)
        return;
    checkservices(minutes);
}

void ReportCycle::checkservices(int minutes)
{
    nextscan_ = state_.platform.clock->now().addSecs(qint64(minutes) * 60);
    if (passRunning_ || passWaiting_)
        return; // the last scan is still on its way; this one is skipped
    scanFlag_ = true;
    if (stopped_) {
        scanFlag_ = false;
        return;
    }
    if (!monitoredServersListed()) {
        noServices_ = true;
        scanFlag_ = false;
        state_.platform.boxes->show(kNoServices, platform::MsgIcon::Exclamation);
        return;
    }
    noServices_ = false;
    runPass([this] {
        emit statusChanged(runningStatus());
        runautoexport();
        scanFlag_ = false;
    });
}

void ReportCycle::runautoexport()
{
    const core::SettingsRecord& s = state_.settings;
    if (!s.autoexport || exportRunning_)
        return;
    bool numeric = false;
    const double threshold = s.autoexportcount.trimmed().toDouble(&numeric);
    if (rows_.count() < (numeric ? threshold : 0))
        return;
    const QString path = s.autoexportfile;
    const quint64 upTo = rows_.nextSerial();
    exportRunning_ = true;
    writeExport(state_.platform, this, path, rows_.exportLines(),
                s.autoexportoverwrite ? WriteMode::Replace : WriteMode::AppendOrCreate,
                [this, path, upTo](WriteOutcome outcome) {
                    exportRunning_ = false;
                    if (!outcome.ok) {
                        // The rows stay; the next scan tries again.
                        QString line = joblog::serverLineText(state_.platform.clock->now(), QStringLiteral("Report"),
                                                              QStringLiteral("Automatic export to ") + path +
                                                                  QStringLiteral(" failed, the rows are kept"));
                        if (!outcome.error.isEmpty())
                            line += QStringLiteral(": ") + outcome.error;
                        emit exportFailed(line);
                        return;
                    }
                    rows_.removeBefore(upTo);
                    emit autoExported(path);
                });
}

void ReportCycle::start()
{
    stopped_ = false;
    emit statusChanged(runningStatus());
}

void ReportCycle::stop()
{
    stopped_ = true;
    emit statusChanged(stoppedStatusText(filterWords(state_.settings)));
}

void ReportCycle::clearScanFlag()
{
    scanFlag_ = false;
    // A pass still running adds no more rows.
    if (passRunning_)
        checks_.setReportScanActive(false);
}

QString ReportCycle::nextText() const
{
    if (!nextscan_.isValid())
        return {};
    return core::dateText(nextscan_) + QLatin1Char(' ') + joblog::timeText(nextscan_);
}

QString ReportCycle::runningStatus() const { return runningStatusText(nextText(), filterWords(state_.settings)); }

QString ReportCycle::statusText() const
{
    return stopped_ ? stoppedStatusText(filterWords(state_.settings)) : runningStatus();
}

} // namespace velmora::report
