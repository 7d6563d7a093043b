#pragma once
// The server list: every server the user keeps, in list order, with what is known of it. The
// main window's server list shows it; the check cycle, the monitoring setup and the service side
// read and change it here, never through the list control.
//
// A name is listed once, spelled exactly (the list keeps names in upper case). Looking a server
// up by name takes constant time, so large lists stay fast.
#include "core/serverlistfile.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <vector>

namespace velmora::core {

// The small icon of a server: 7 not monitored and reachable, 8 not monitored and unreachable,
// 9 monitored and reachable, 10 monitored and unreachable.
int serverIcon(bool monitored, bool reachable);

struct ServerEntry {
    QString name;
    bool monitored = false;
    bool reachable = true;
    // Skipped by the timed scan and shown dimmed; never stored.
    bool maintenance = false;
    // When the maintenance ends by itself; invalid when it lasts until switched off.
    QDateTime maintenanceEnd;
    // Its first reachability check is still running.
    bool pending = false;
    // What the last ping of this server found ("0   [ ip success ]", "11010   [ ip req timed out ]")
    // and the address the name resolved to; empty until it has been pinged.
    QString pingresult;
    QString pingaddress;
    // The error code of the last command of the user that failed at this server's service
    // manager, and when; 0 when none has failed since its services were last listed.
    int managererror = 0;
    QDateTime managererrorTime;

    int icon() const { return serverIcon(monitored, reachable); }
};

class ServerList : public QObject {
    Q_OBJECT
public:
    explicit ServerList(QObject* parent = nullptr);

    int count() const { return int(entries_.size()); }
    bool isEmpty() const { return entries_.empty(); }
    const ServerEntry& at(int row) const { return entries_[size_t(row)]; }
    // The row of the server, -1 when it is not listed.
    int indexOf(const QString& name) const;
    bool contains(const QString& name) const { return indexOf(name) >= 0; }
    // The entry, or null when the server is not listed.
    const ServerEntry* find(const QString& name) const;
    QStringList names() const;
    // The lines of "Computerlist" for the list as it stands.
    std::vector<ServerListLine> lines() const;

    // Appends a server; a name already listed is not added twice (returns its row).
    int add(const QString& name, bool monitored, bool pending = false);
    // Replaces the whole list (start-up); every entry starts pending.
    void reset(const std::vector<ServerListLine>& lines);
    void remove(const QString& name);

    // Sets monitored and reachable from an icon number 7 to 10.
    void setIcon(const QString& name, int icon);
    void setMonitored(const QString& name, bool monitored);
    void setReachable(const QString& name, bool reachable);
    // Switches maintenance on (until end, when end is valid) or off.
    void setMaintenance(const QString& name, bool on, const QDateTime& end = {});
    // Ends every maintenance whose end has come by now; returns the servers, in list order.
    QStringList endDueMaintenance(const QDateTime& now);
    // Stores a ping's result and address and ends the pending state; reachable follows only when
    // updateReachable is set.
    void setPing(const QString& name, const QString& result, const QString& address, bool updateReachable);
    // Stores what the server's service manager answered a command of the user: an error code,
    // or 0 for a listing that went well.
    void setManagerError(const QString& name, int code, const QDateTime& when);

signals:
    void serverAdded(int row);
    void serverRemoved(int row, const QString& name);
    void serverChanged(int row);
    void listReset();

private:
    ServerEntry* entry(const QString& name);
    void changed(const QString& name);
    void reindex();

    std::vector<ServerEntry> entries_;
    QHash<QString, int> rows_;
};

} // namespace velmora::core
