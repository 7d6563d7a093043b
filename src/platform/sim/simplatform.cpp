#include "platform/sim/simplatform.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>
#include <algorithm>
#include <cerrno>

namespace velmora::platform::sim {

// ---- files ----

void SimTextFiles::failOn(Op op, const QString& fileName) { failures_.emplace_back(op, fileName); }
void SimTextFiles::clearFailures() { failures_.clear(); }

bool SimTextFiles::fails(Op op, const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    const bool failing = std::any_of(failures_.begin(), failures_.end(), [&](const auto& f) {
        return f.first == op && (f.second.isEmpty() || f.second.compare(name, Qt::CaseInsensitive) == 0);
    });
    if (failing)
        report(EACCES);
    return failing;
}

int SimTextFiles::writeBytes(int fd, const QByteArray& bytes)
{
    if (room_ < 0 || bytes.size() <= room_) {
        if (room_ >= 0)
            room_ -= bytes.size();
        return DiskTextFiles::writeBytes(fd, bytes);
    }
    const QByteArray fits = bytes.left(room_);
    room_ = 0;
    if (const int err = DiskTextFiles::writeBytes(fd, fits))
        return err;
    return ENOSPC;
}

bool SimTextFiles::exists(const QString& path) { return !fails(Op::Exists, path) && DiskTextFiles::exists(path); }
bool SimTextFiles::create(const QString& path) { return !fails(Op::Create, path) && DiskTextFiles::create(path); }
std::optional<QStringList> SimTextFiles::readLines(const QString& path, bool includeUnterminated)
{
    if (fails(Op::Read, path))
        return std::nullopt;
    return DiskTextFiles::readLines(path, includeUnterminated);
}
std::optional<QString> SimTextFiles::readAll(const QString& path)
{
    if (fails(Op::Read, path))
        return std::nullopt;
    return DiskTextFiles::readAll(path);
}
int SimTextFiles::lineCount(const QString& path) { return fails(Op::Read, path) ? -1 : DiskTextFiles::lineCount(path); }
bool SimTextFiles::writeLines(const QString& path, const QStringList& lines)
{
    return !fails(Op::Write, path) && DiskTextFiles::writeLines(path, lines);
}
bool SimTextFiles::appendLines(const QString& path, const QStringList& lines)
{
    return !fails(Op::Append, path) && DiskTextFiles::appendLines(path, lines);
}
qint64 SimTextFiles::size(const QString& path) { return fails(Op::Size, path) ? -1 : DiskTextFiles::size(path); }
bool SimTextFiles::remove(const QString& path) { return !fails(Op::Remove, path) && DiskTextFiles::remove(path); }

// ---- message boxes ----

MsgAnswer SimMessageBoxes::show(const QString& text, MsgIcon icon, MsgButtons buttons, const QString& title)
{
    shown.append({text, icon, buttons, title});
    if (whileOpen) {
        const ShownBox box = shown.last(); // a copy: the hook may show boxes of its own
        whileOpen(box);
    }
    if (!answers_.empty()) {
        const MsgAnswer a = answers_.front();
        answers_.pop_front();
        return a;
    }
    return (buttons == MsgButtons::YesNo || buttons == MsgButtons::YesNoCancel) ? MsgAnswer::Yes : MsgAnswer::Ok;
}

QStringList SimMessageBoxes::texts() const
{
    QStringList out;
    for (const auto& b : shown)
        out << b.text;
    return out;
}

// ---- clock ----

SimClock::SimClock() : now_(QDate(2026, 3, 2), QTime(8, 0, 0)) {}

Timer* SimClock::createTimer(QObject* parent, const QString& name, int intervalMs, Precision)
{
    auto* t = new SimTimer(*this, parent);
    t->setObjectName(name);
    t->setInterval(intervalMs);
    timers_.append(t);
    return t;
}

void SimClock::singleShot(int ms, QObject* context, std::function<void()> fn, Precision)
{
    shots_.push_back({elapsed_ + std::max(ms, 0), seq_++, context, std::move(fn)});
}

void SimClock::advance(qint64 ms)
{
    const qint64 end = elapsed_ + ms;
    for (;;) {
        // The earliest due event not later than end: single shots before timers at the same time.
        qint64 best = end + 1;
        SimTimer* timer = nullptr;
        int shot = -1;
        for (size_t i = 0; i < shots_.size(); ++i) {
            if (shots_[i].due < best || (shots_[i].due == best && shot >= 0 && shots_[i].seq < shots_[size_t(shot)].seq)) {
                best = shots_[i].due;
                shot = int(i);
            }
        }
        timers_.removeAll(nullptr);
        for (const auto& t : timers_) {
            if (t && t->isEnabled() && t->interval() > 0 && t->due() < best) {
                best = t->due();
                timer = t;
                shot = -1;
            }
        }
        if (best > end)
            break;
        now_ = now_.addMSecs(best - elapsed_);
        elapsed_ = best;
        if (timer) {
            timer->fire();
        } else if (shot >= 0) {
            Shot s = std::move(shots_[size_t(shot)]);
            shots_.erase(shots_.begin() + shot);
            if (s.context)
                s.fn();
        }
    }
    now_ = now_.addMSecs(end - elapsed_);
    elapsed_ = end;
}

void SimTimer::setInterval(int ms)
{
    interval_ = ms;
    due_ = clock_.elapsed_ + ms;
}

void SimTimer::setEnabled(bool on)
{
    if (on && !enabled_)
        due_ = clock_.elapsed_ + interval_;
    enabled_ = on;
}

void SimTimer::fire()
{
    due_ = clock_.elapsed_ + interval_;
    emit timeout();
}

// ---- system ----

bool SimSystem::folderWritable(const QString& folder)
{
    return folder == program_folder ? program_folder_writable : true;
}

bool SimSingleInstance::otherInstanceRunning(std::function<void()> onShowRequest)
{
    if (!other_running)
        show_request = std::move(onShowRequest);
    return other_running;
}

void SimApplication::end(int code)
{
    ended_ = true;
    exit_code = code;
}

// ---- ping ----

QString SimIcmp::resolve(const QString& name)
{
    static const QRegularExpression dotted(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}$"));
    if (dotted.match(name).hasMatch())
        return name;
    return addresses_.value(name.toUpper());
}

QStringList SimIcmp::resolveAll(const QStringList& names, int)
{
    QStringList out;
    for (const QString& n : names)
        out << resolve(n);
    return out;
}

std::vector<int> SimIcmp::echo(const QStringList& addresses, const QByteArray& data, int timeoutMs)
{
    static const QRegularExpression dotted(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}$"));
    last_data = data;
    std::vector<int> out;
    for (const QString& a : addresses) {
        pinged << a;
        if (!dotted.match(a).hasMatch())
            out.push_back(-1);
        else if (!unavailable_reason.isEmpty())
            out.push_back(11050);
        else
            out.push_back(statuses_.value(a, 11010));
    }
    if (delay_ms > 0)
        QThread::msleep(std::min(delay_ms, timeoutMs));
    return out;
}

void SimIcmp::addComputer(const QString& name, const QString& address, int status)
{
    addresses_.insert(name.toUpper(), address);
    statuses_.insert(address, status);
}

void SimIcmp::setStatus(const QString& nameOrAddress, int status)
{
    const QString address = addresses_.value(nameOrAddress.toUpper(), nameOrAddress);
    statuses_.insert(address, status);
}

// ---- work ----

void SimWorker::run(QObject* context, std::function<std::function<void()>()> job)
{
    ++jobs;
    QPointer<QObject> guard(context);
    auto done = job();
    auto apply = [guard, done = std::move(done)] {
        if (guard && done)
            done();
    };
    if (hold)
        held_.push_back(std::move(apply));
    else
        apply();
}

void SimWorker::release()
{
    hold = false;
    while (!held_.empty()) {
        auto next = std::move(held_.front());
        held_.pop_front();
        next();
    }
}

void SimNetConnections::add(QObject* context, const QString& server, const QString& user,
                            const QString& password, std::function<void(int)> done)
{
    added << server;
    last_user = user;
    last_password = password;
    if (context && done)
        done(result);
}

// ---- bundle ----

SimPlatform::SimPlatform() = default;

Platform SimPlatform::platform()
{
    Platform p;
    p.files = &files;
    p.boxes = &boxes;
    p.clock = &clock;
    p.system = &system;
    p.instance = &instance;
    p.app = &app;
    p.icmp = &icmp;
    p.worker = &worker;
    p.net = &net;
    p.services = &services;
    p.tray = &tray;
    p.sound = &sound;
    p.chooser = &chooser;
    p.opener = &opener;
    p.beeper = &beeper;
    p.tcp = &tcp;
    p.secrets = &secrets;
    p.profilemail = &profilemail;
    p.messenger = &messenger;
    p.filedialogs = &filedialogs;
    p.serverkinds = &serverkinds;
    p.serverkindsSlot = &serverkinds;
    return p;
}

} // namespace velmora::platform::sim
