#pragma once
// The monitored servers and the services monitored on each: "Computers" lists the servers, each
// server's own file holds its records (display name, key name, five action slots) and then its
// properties. The files are the truth: every read goes to them, so a hand edit between two scans
// is seen by the next one; every write is checked and a failed one leaves the old file whole.
//
// A server whose file would be one of the program's own files ("Computers", "Settings", the
// program file, ...) is never taken for a monitored server: it is left out of every list given
// here, and its file is neither read nor written nor deleted as a server's file.
#include "core/datafolder.h"
#include "core/serverfile.h"
#include "core/writeresult.h"

#include <QObject>
#include <QStringList>
#include <optional>
#include <vector>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

class MonitoredServices : public QObject {
    Q_OBJECT
public:
    // The files are looked up in folder; programFile is the program file's name.
    MonitoredServices(platform::TextFiles& files, const DataFiles& folder,
                      QString programFile = {}, QObject* parent = nullptr);

    // The program's own file that server's file would be, or an empty text for a safe name.
    QString reservedFile(const QString& server) const;
    // The names in "Computers" that are passed over because of reservedFile(), each once.
    QStringList refusedServers() const;

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

    // Takes the server out of "Computers" (its first line) and deletes its file. A server that
    // "Computers" does not list is left alone.
    WriteResult remove(const QString& server);
    // Deletes the server's file when it exists.
    bool removeFile(const QString& server);

    // Creates the server's file empty when it is missing; false when it cannot (or the name is
    // reserved).
    bool ensureFile(const QString& server);
    // The properties of a server (all empty when it has no file); nothing for a reserved name or
    // a file that cannot be read.
    std::optional<ServerProperties> properties(const QString& server) const;
    // Replaces the server's file with the record lines and the properties block of props.
    WriteResult saveProperties(const QString& server, const ServerProperties& props);

signals:
    // "Computers" gained or lost server.
    void monitoredChanged(const QString& server, bool monitored);

private:
    WriteResult writeServerFile(const QString& server, const std::vector<MonitoredService>& records);
    WriteResult setMonitored(const QString& server, bool monitored);
    WriteResult refused(const QString& server) const;

    platform::TextFiles& files_;
    const DataFiles& folder_;
    QString programFile_;
};

} // namespace velmora::core
