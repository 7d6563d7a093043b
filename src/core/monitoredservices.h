#pragma once
// The monitored servers and the services monitored on each: "Computers" lists the servers, each
// server's own file holds its records (display name, key name, five action slots) and then its
// properties. The files are the truth: every read goes to them, so a hand edit between two scans
// is seen by the next one; every write is checked and a failed one leaves the old file whole.
#include "core/serverfile.h"
#include "core/writeresult.h"

#include <QObject>
#include <QStringList>
#include <functional>
#include <vector>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

class MonitoredServices : public QObject {
    Q_OBJECT
public:
    // file turns a name of the data folder into its path.
    MonitoredServices(platform::TextFiles& files, std::function<QString(const QString&)> file,
                      QObject* parent = nullptr);

    // The servers a scan visits: the lines of "Computers" that end with a line end.
    QStringList servers() const;
    // Every server "Computers" names, a last line without a line end included: what a rewrite of
    // the file must keep.
    QStringList storedServers() const;
    bool contains(const QString& server) const;

    // The monitored-service records of a server.
    std::vector<MonitoredService> records(const QString& server) const;

    // Stores the records of a server, keeping its properties block as it stands (a file without
    // one gets the empty block). A server without records is taken out of "Computers", one with
    // records is added at its end.
    WriteResult save(const QString& server, const std::vector<MonitoredService>& records);

signals:
    // "Computers" gained or lost server.
    void monitoredChanged(const QString& server, bool monitored);

private:
    WriteResult writeServerFile(const QString& server, const std::vector<MonitoredService>& records);
    WriteResult setMonitored(const QString& server, bool monitored);

    platform::TextFiles& files_;
    std::function<QString(const QString&)> file_;
};

} // namespace velmora::core
