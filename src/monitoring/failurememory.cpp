#include "monitoring/failurememory.h"

#include <algorithm>

namespace velmora::monitoring {

namespace {
const QChar kTab = QLatin1Char('\t');
const QChar kKeyGap = QLatin1Char('\n');
} // namespace

QString FailureMemory::key(const QString& server, const QString& service)
{
    return server.toUpper() + kKeyGap + service.toLower();
}

void FailureMemory::beginScan()
{
    ++scan_;
    if (!failures_.isEmpty() || !down_.isEmpty())
        changed_ = true;
}

FailureMemory::Decision FailureMemory::failed(const QString& server, const QString& service, const QDateTime& at,
                                              bool restarts)
{
    Decision d;
    if (options_.serverDown && isDown(server)) {
        d.run = Runs::Nothing;
        return d;
    }
    if (!options_.once && !options_.restartGuard())
        return d;
    Open& f = failures_[key(server, service)];
    const bool fresh = !f.since.isValid();
    if (fresh) {
        f.since = at;
        f.alertedScan = scan_;
        changed_ = true;
    } else if (options_.once) {
        d.run = Runs::Nothing;
        if (!f.acknowledged && options_.remindScans > 0 && scan_ - f.alertedScan >= options_.remindScans) {
            d.run = Runs::Reminder;
            f.alertedScan = scan_;
            changed_ = true;
        }
    }
    if (options_.restartGuard() && restarts && d.run == Runs::All) {
        // Only the restarts of the last restartScans scans count.
        const int oldest = scan_ - options_.restartScans;
        std::erase_if(f.restarts, [oldest](int s) { return s <= oldest; });
        if (f.restartsStopped) {
            d.restarts = Restarts::Stopped;
        } else if (int(f.restarts.size()) >= options_.restartLimit) {
            f.restartsStopped = true;
            d.restarts = Restarts::JustStopped;
        }
        if (!f.restartsStopped)
            f.restarts.push_back(scan_);
        changed_ = true;
    }
    return d;
}

std::optional<QDateTime> FailureMemory::running(const QString& server, const QString& service)
{
    const auto it = failures_.find(key(server, service));
    if (it == failures_.end())
        return std::nullopt;
    const QDateTime since = it->since;
    failures_.erase(it);
    changed_ = true;
    return options_.once ? std::optional<QDateTime>(since) : std::nullopt;
}

bool FailureMemory::acknowledge(const QString& server, const QString& service)
{
    const auto it = failures_.find(key(server, service));
    if (it == failures_.end() || !it->since.isValid())
        return false;
    if (!it->acknowledged)
        changed_ = true;
    it->acknowledged = true;
    return true;
}

bool FailureMemory::serverDown(const QString& server, const QDateTime& at)
{
    if (!options_.serverDown || down_.contains(server.toUpper()))
        return false;
    down_.insert(server.toUpper(), at);
    changed_ = true;
    return true;
}

std::optional<QDateTime> FailureMemory::serverUp(const QString& server)
{
    const auto it = down_.find(server.toUpper());
    if (it == down_.end())
        return std::nullopt;
    const QDateTime since = *it;
    down_.erase(it);
    changed_ = true;
    return since;
}

bool FailureMemory::isDown(const QString& server) const { return down_.contains(server.toUpper()); }

QStringList FailureMemory::stateLines() const
{
    QStringList lines{QStringLiteral("Scan") + kTab + QString::number(scan_)};
    for (auto it = down_.begin(); it != down_.end(); ++it)
        lines << QStringLiteral("Down") + kTab + it.key() + kTab + it->toString(Qt::ISODateWithMs);
    for (auto it = failures_.begin(); it != failures_.end(); ++it) {
        QStringList restarts;
        for (int s : it->restarts)
            restarts << QString::number(s);
        const QStringList names = it.key().split(kKeyGap);
        lines << QStringList{QStringLiteral("Failure"), names.value(0), names.value(1),
                             it->since.toString(Qt::ISODateWithMs), QString::number(it->alertedScan),
                             QString::number(int(it->acknowledged)), QString::number(int(it->restartsStopped)),
                             restarts.join(QLatin1Char(','))}
                     .join(kTab);
    }
    std::sort(lines.begin() + 1, lines.end());
    return lines;
}

bool FailureMemory::restore(const QStringList& lines)
{
    int scan = -1;
    QHash<QString, Open> failures;
    QHash<QString, QDateTime> down;
    const auto number = [](const QString& text, int& out) {
        bool ok = false;
        out = text.toInt(&ok);
        return ok && out >= 0;
    };
    for (const QString& line : lines) {
        const QStringList f = line.split(kTab);
        if (f.value(0) == QLatin1String("Scan") && f.size() == 2) {
            if (!number(f[1], scan))
                return false;
        } else if (f.value(0) == QLatin1String("Down") && f.size() == 3) {
            const QDateTime since = QDateTime::fromString(f[2], Qt::ISODateWithMs);
            if (f[1].isEmpty() || !since.isValid())
                return false;
            down.insert(f[1].toUpper(), since);
        } else if (f.value(0) == QLatin1String("Failure") && f.size() == 8) {
            Open o;
            o.since = QDateTime::fromString(f[3], Qt::ISODateWithMs);
            int ack = 0, stopped = 0;
            if (f[1].isEmpty() || f[2].isEmpty() || !o.since.isValid() || !number(f[4], o.alertedScan) ||
                !number(f[5], ack) || !number(f[6], stopped) || ack > 1 || stopped > 1)
                return false;
            o.acknowledged = ack;
            o.restartsStopped = stopped;
            for (const QString& s : f[7].split(QLatin1Char(','), Qt::SkipEmptyParts)) {
                int n = 0;
                if (!number(s, n))
                    return false;
                o.restarts.push_back(n);
            }
            failures.insert(key(f[1], f[2]), o);
        } else if (!line.isEmpty()) {
            return false;
        }
    }
    if (scan < 0)
        return false;
    scan_ = scan;
    failures_ = std::move(failures);
    down_ = std::move(down);
    changed_ = false;
    return true;
}

QString FailureMemory::durationText(qint64 seconds)
{
    seconds = std::max<qint64>(seconds, 0);
    if (seconds < 60)
        return QString::number(seconds) + QStringLiteral(" s");
    const qint64 minutes = seconds / 60;
    if (minutes < 60)
        return QString::number(minutes) + QStringLiteral(" min");
    return QString::number(minutes / 60) + QStringLiteral(" h ") + QString::number(minutes % 60) +
           QStringLiteral(" min");
}

} // namespace velmora::monitoring
