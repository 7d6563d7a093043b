#include "joblog/logandalerts.h"

#include "core/timestamps.h"
#include "joblog/alertwindow.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QTreeWidget>

namespace velmora::joblog {

namespace {
constexpr int kBeepHz = 1300;
constexpr int kBeepMs = 500;
const QString kFailedServices = QStringLiteral("Failed Services :");
const QString kAllServices = QStringLiteral("All Services to be monitored :");
} // namespace

LogAndAlerts::LogAndAlerts(core::RunState& state, platform::Timer* signalTimer, QWidget* windowParent)
    : QObject(nullptr), state_(state), timer_(signalTimer), windowParent_(windowParent),
      log_(state.platform, state)
{
    if (timer_)
        connect(timer_, &platform::Timer::timeout, this, &LogAndAlerts::beep);
    // Lost lines are told where the user looks for the log: the indicator and the caption of
    // the alert window, once, for as long as they are being lost; never a box per line.
    connect(&log_, &JobLog::lostLinesChanged, this, [this] {
        const LostLines& lost = log_.lostLines();
        if (!lost.any() && !window_)
            return;
        alertwindow()->setLostLines(lost.any() ? lostLinesText(lost, log_.locale()) : QString());
        if (!lost.any())
            updatelogsize(SizeCaption::Activation);
    });
}

LogAndAlerts::~LogAndAlerts()
{
    delete window_.data();
}

AlertWindow* LogAndAlerts::alertwindow()
{
    if (!window_) {
        window_ = new AlertWindow(*this, windowParent_);
        connect(window_, &QObject::destroyed, this, [this] { rows_.clear(); });
        if (log_.lostLines().any())
            window_->setLostLines(lostLinesText(log_.lostLines(), log_.locale()));
    }
    return window_;
}

AlertWindow* LogAndAlerts::loadedAlertwindow() const
{
    return window_;
}

void LogAndAlerts::showalertwindow()
{
    AlertWindow* w = alertwindow();
    if (w->isMinimized())
        w->showNormal();
    else
        w->show();
    w->raise();
    w->activateWindow();
}

void LogAndAlerts::addalertrow(const QString& server, const QString& service, const QString& state,
                               const QString& actions)
{
    alertwindow();
    addrow(server, service, state, actions, true);
}

void LogAndAlerts::addcheckrow(const QString& server, const QString& service, const QString& shown,
                               const QString& actions, bool red)
{
    AlertWindow* w = alertwindow();
    w->Label1->setText(QStringLiteral("Interval in turn"));
    addrow(server, service, shown, actions, red);
}

void LogAndAlerts::addrow(const QString& server, const QString& service, const QString& state,
                          const QString& actions, bool red)
{
    const QDateTime at = log_.now();
    rows_.append({core::dateText(at), timeText(at, log_.locale()), server, service, state, actions, red});
}

void LogAndAlerts::beginTimedScan()
{
    AlertWindow* w = alertwindow();
    if (w->Label2->text() == kAllServices) {
        w->Text1->clear();
        rows_.clear();
    }
    w->Label2->setText(kFailedServices);
}

void LogAndAlerts::beginImmediateCheck()
{
    AlertWindow* w = alertwindow();
    w->Label2->setText(kAllServices);
    w->Text1->clear();
    rows_.clear();
}

void LogAndAlerts::showNextScan(const QDateTime& at)
{
    alertwindow()->Label1->setText(QStringLiteral("Next scan at :  ") + core::dateText(at) + QLatin1Char(' ') +
                                   timeText(at, joblog().locale()));
}

void LogAndAlerts::resetalert()
{
    if (timer_)
        timer_->setEnabled(false);
    const int error = state_.platform.sound->stop();
    if (error != 0)
        state_.platform.boxes->show(QStringLiteral("Error: can not stop playing sound!  ") + QString::number(error),
                                    platform::MsgIcon::Critical, platform::MsgButtons::Ok);
}

void LogAndAlerts::clearalert()
{
    rows_.clear();
    if (timer_)
        timer_->setEnabled(false);
}

void LogAndAlerts::updatelogsize(SizeCaption caption)
{
    const qint64 bytes = log_.size();
    if (bytes < 0)
        return;
    alertwindow()->setLogSize(bytes, caption);
}

void LogAndAlerts::updatelogsizecolour()
{
    const qint64 bytes = log_.size();
    if (bytes < 0)
        return;
    alertwindow()->setLogSize(bytes, std::nullopt);
}

void LogAndAlerts::beep()
{
    if (state_.platform.beeper)
        state_.platform.beeper->beep(kBeepHz, kBeepMs);
}

} // namespace velmora::joblog
