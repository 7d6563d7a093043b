#include "core/serverlist.h"

namespace velmora::core {

int serverIcon(bool monitored, bool reachable)
{
    return monitored ? (reachable ? 9 : 10) : (reachable ? 7 : 8);
}

ServerList::ServerList(QObject* parent) : QObject(parent) {}

int ServerList::indexOf(const QString& name) const { return rows_.value(name, -1); }

const ServerEntry* ServerList::find(const QString& name) const
{
    const int row = indexOf(name);
    return row < 0 ? nullptr : &entries_[size_t(row)];
}

ServerEntry* ServerList::entry(const QString& name)
{
    const int row = indexOf(name);
    return row < 0 ? nullptr : &entries_[size_t(row)];
}

QStringList ServerList::names() const
{
    QStringList out;
    out.reserve(count());
    for (const ServerEntry& e : entries_)
        out << e.name;
    return out;
}

std::vector<ServerListLine> ServerList::lines() const
{
    std::vector<ServerListLine> out;
    out.reserve(entries_.size());
    for (const ServerEntry& e : entries_)
        out.push_back({e.name, e.monitored});
    return out;
}

int ServerList::add(const QString& name, bool monitored, bool pending)
{
    if (const int row = indexOf(name); row >= 0)
        return row;
    ServerEntry e;
    e.name = name;
    e.monitored = monitored;
    e.pending = pending;
    entries_.push_back(std::move(e));
    const int row = count() - 1;
    rows_.insert(name, row);
    emit serverAdded(row);
    return row;
}

void ServerList::reset(const std::vector<ServerListLine>& lines)
{
    entries_.clear();
    rows_.clear();
    entries_.reserve(lines.size());
    for (const ServerListLine& line : lines) {
        if (rows_.contains(line.name))
            continue; // a name listed twice in a hand-edited file is shown once
        ServerEntry e;
        e.name = line.name;
        e.monitored = line.monitored;
        e.pending = true;
        rows_.insert(e.name, int(entries_.size()));
        entries_.push_back(std::move(e));
    }
    emit listReset();
}

void ServerList::remove(const QString& name)
{
    const int row = indexOf(name);
    if (row < 0)
        return;
    entries_.erase(entries_.begin() + row);
    reindex();
    emit serverRemoved(row, name);
}

void ServerList::reindex()
{
    rows_.clear();
    for (size_t i = 0; i < entries_.size(); ++i)
        rows_.insert(entries_[i].name, int(i));
}

void ServerList::changed(const QString& name)
{
    if (const int row = indexOf(name); row >= 0)
        emit serverChanged(row);
}

void ServerList::setIcon(const QString& name, int icon)
{
    ServerEntry* e = entry(name);
    if (!e || icon < 7 || icon > 10)
        return;
    e->monitored = icon >= 9;
    e->reachable = icon == 7 || icon == 9;
    changed(name);
}

void ServerList::setMonitored(const QString& name, bool monitored)
{
    if (ServerEntry* e = entry(name); e && e->monitored != monitored) {
        e->monitored = monitored;
        changed(name);
    }
}

void ServerList::setReachable(const QString& name, bool reachable)
{
    if (ServerEntry* e = entry(name); e && (e->reachable != reachable || e->pending)) {
        e->reachable = reachable;
        e->pending = false;
        changed(name);
    }
}

void ServerList::setMaintenance(const QString& name, bool on, const QDateTime& end)
{
    const QDateTime until = on ? end : QDateTime();
    if (ServerEntry* e = entry(name); e && (e->maintenance != on || e->maintenanceEnd != until)) {
        e->maintenance = on;
        e->maintenanceEnd = until;
        changed(name);
    }
}

QStringList ServerList::endDueMaintenance(const QDateTime& now)
{
    QStringList ended;
    for (const ServerEntry& e : entries_) {
        if (e.maintenance && e.maintenanceEnd.isValid() && e.maintenanceEnd <= now)
            ended << e.name;
    }
    for (const QString& name : ended)
        setMaintenance(name, false);
    return ended;
}

void ServerList::setPing(const QString& name, const QString& result, const QString& address, bool updateReachable)
{
    ServerEntry* e = entry(name);
    if (!e)
        return;
    e->pingresult = result;
    e->pingaddress = address;
    e->pending = false;
    if (updateReachable)
        e->reachable = result.startsWith(QLatin1Char('0'));
    changed(name);
}

void ServerList::setManagerError(const QString& name, int code, const QDateTime& when)
{
    ServerEntry* e = entry(name);
    if (!e || (code == 0 && e->managererror == 0))
        return;
    e->managererror = code;
    e->managererrorTime = when;
    changed(name);
}

} // namespace velmora::core
