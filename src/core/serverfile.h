#pragma once
// The per-server file: monitored-service records, then the "[Properties:]" block.
#include <QString>
#include <QStringList>
#include <array>
#include <optional>
#include <vector>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

struct MonitoredService {
    QString displayname;
    QString servicename;
    std::array<QString, 5> actions;
    bool operator==(const MonitoredService&) const = default;
};

struct ServerProperties {
    QString alias, ipaddress, role, location;
    QString responsibles, staffactions, remarks; // lines joined by CR LF
    QStringList recordlines;                      // every line before "[Properties:]", as it stands
    bool operator==(const ServerProperties&) const = default;
};

// A record line is "display;service;a1;a2;a3;a4;a5;". A line before "[Properties:]" is a record
// only when its last character is ";"; the fields are the texts between successive semicolons
// (missing fields are empty, fields after the seventh are ignored).
std::optional<MonitoredService> parseRecordLine(const QString& line);
QString recordLineText(const MonitoredService& service);

// The 16 lines of the empty properties block, from "[Properties:]" to "[EOF]".
QStringList emptyPropertiesTemplate();

// The records of a per-server file (lines before "[Properties:]" that end in ";").
std::vector<MonitoredService> readMonitoredServices(platform::TextFiles& files, const QString& path);

ServerProperties parseProperties(const QStringList& lines);
QStringList propertiesFileLines(const ServerProperties& props);

// Tidies a per-server file when it exists: drops empty lines before "[Properties:]" and appends
// the empty properties block when the file has none. Returns false when it could not rewrite it.
bool lookInFile(platform::TextFiles& files, const QString& path);

} // namespace velmora::core
