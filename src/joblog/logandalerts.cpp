#include "joblog/logandalerts.h"

#include "joblog/alertwindow.h"

#include <QTreeWidget>

namespace velmora::joblog {

namespace {
constexpr int kBeepHz = 1300;
constexpr int kBeepMs = 500;
} // namespace

LogAndAlerts::LogAndAlerts(core::RunState& state, platform::Timer* signalTimer, Hooks hooks, QWidget* windowParent)
    : QObject(nullptr), state_(state), timer_(signalTimer), hooks_(std::move(hooks)), windowParent_(windowParent),
      log_(state.platform, [this] { return datafolder(); })
{
    if (timer_)
        connect(timer_, &platform::Timer::timeout, this, &LogAndAlerts::beep);
}

LogAndAlerts::~LogAndAlerts()
{
    delete window_.data();
}

QString LogAndAlerts::datafolder()
{
    if (hooks_.datafolder)
        state_.datafolder = hooks_.datafolder();
    return state_.datafolder;
}

AlertWindow* LogAndAlerts::alertwindow()
{
    if (!window_)
        window_ = new AlertWindow(*this, windowParent_);
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
    alertwindow()->addrow(log_.now(), server, service, state, actions);
}

QString LogAndAlerts::joinactions(const QStringList& actionSlots)
{
    QStringList five = actionSlots.mid(0, 5);
    while (five.size() < 5)
        five << QString();
    return five.join(QStringLiteral("   "));
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
    if (window_)
        window_->ListView1->clear();
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
