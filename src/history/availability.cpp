#include "history/availability.h"

#include <QDateTime>
#include <algorithm>

namespace velmora::history {

QString availName(Avail a)
{
    switch (a) {
    case Avail::Running: return QStringLiteral("Running");
    case Avail::Failed: return QStringLiteral("Failed");
    case Avail::NotAnswering: return QStringLiteral("Server not answering");
    case Avail::Maintenance: return QStringLiteral("Maintenance");
    case Avail::NotChecked: break;
    }
    return QStringLiteral("Not checked");
}

namespace {

// How late a check may come and still carry the state of the one before.
qint64 tolerance(qint64 interval)
{
    return interval + std::max<qint64>(interval / 2, 120);
}

} // namespace

qint64 ServiceHistory::knownUntil(qint64 now) const
{
    if (now - last <= tolerance(interval))
        return std::max(now, last);
    return last + interval;
}

qsizetype ServiceHistory::runAt(qint64 t) const
{
    auto it = std::upper_bound(runs.begin(), runs.end(), t, [](qint64 v, const Run& r) { return v < r.start; });
    return qsizetype(it - runs.begin()) - 1;
}

Avail ServiceHistory::stateAt(qint64 t, qint64 now) const
{
    const qsizetype i = runAt(t);
    if (i < 0 || (i == runs.size() - 1 && t >= knownUntil(now)))
        return Avail::NotChecked;
    return runs[i].state;
}

double ServiceHistory::uptime(qint64 from, qint64 to, qint64 now) const
{
    qint64 running = 0, checked = 0;
    const qint64 until = knownUntil(now);
    for (qsizetype i = std::max<qsizetype>(runAt(from), 0); i < runs.size(); ++i) {
        const qint64 s = std::max(runs[i].start, from);
        const qint64 e = std::min(i + 1 < runs.size() ? runs[i + 1].start : until, to);
        if (s >= to)
            break;
        if (e <= s)
            continue;
        if (runs[i].state == Avail::Running)
            running += e - s;
        if (runs[i].state == Avail::Running || isDown(runs[i].state))
            checked += e - s;
    }
    return checked > 0 ? double(running) / double(checked) : -1;
}

OutageSpan outageSpan(const ServiceHistory& s, const Outage& o, qint64 now)
{
    OutageSpan span;
    span.lasting = o.end < 0;
    span.end = span.lasting ? std::max(s.knownUntil(now), o.start) : o.end;
    span.unchecked = o.unchecked;
    span.down = std::max<qint64>(0, span.end - o.start - o.unchecked);
    return span;
}

QString durationText(qint64 seconds)
{
    const auto two = [](qint64 n) { return QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0')); };
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(seconds);
    if (seconds < 3600)
        return QStringLiteral("%1 min").arg(seconds / 60);
    if (seconds < kDay)
        return QStringLiteral("%1 h %2 min").arg(seconds / 3600).arg(two(seconds % 3600 / 60));
    return QStringLiteral("%1 d %2 h").arg(seconds / kDay).arg(two(seconds % kDay / 3600));
}

QString actionsText(const Outage& o)
{
    QStringList parts;
    for (const auto& [text, count] : o.actions)
        parts << (count > 1 ? QStringLiteral("%1 (%2\u00d7)").arg(text).arg(count) : text);
    return parts.join(QStringLiteral("; "));
}

QString outageNote(const Outage& o)
{
    if (o.end < 0)
        return QStringLiteral("still down");
    if (o.fromLogStart)
        return QStringLiteral("down at its first check");
    return {};
}

namespace {

QString csvField(const QString& text)
{
    static const QString special = QStringLiteral(",\"\r\n");
    const bool quote = std::any_of(text.begin(), text.end(), [](QChar c) { return special.contains(c); }) ||
                       (!text.isEmpty() && (text.front().isSpace() || text.back().isSpace()));
    if (!quote)
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString localTime(qint64 t)
{
    return QDateTime::fromSecsSinceEpoch(t).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

} // namespace

QStringList outagesCsv(const History& h, const QList<OutageRef>& outages, qint64 now)
{
    QStringList lines{QStringLiteral(
        "Server,Service,Start,End,Down (s),Not checked (s),States,Actions,Note")};
    for (const OutageRef& ref : outages) {
        const ServiceHistory& s = h.services[size_t(ref.service)];
        const Outage& o = s.outages[ref.outage];
        const OutageSpan span = outageSpan(s, o, now);
        const QStringList fields{s.server,
                                 s.service,
                                 localTime(o.start),
                                 span.lasting ? QString() : localTime(span.end),
                                 QString::number(span.down),
                                 QString::number(span.unchecked),
                                 o.states.join(QStringLiteral("; ")),
                                 actionsText(o),
                                 outageNote(o)};
        QStringList quoted;
        for (const QString& f : fields)
            quoted << csvField(f);
        lines << quoted.join(QLatin1Char(','));
    }
    return lines;
}

} // namespace velmora::history
