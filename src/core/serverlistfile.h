#pragma once
// "Computerlist" (every server of the server list with its monitored marker), "Computers" (the
// monitored servers) and "Interval".
#include <QString>
#include <QStringList>
#include <vector>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

struct ServerListLine {
    QString name;
    bool monitored = false;
    bool operator==(const ServerListLine&) const = default;
};

// A line is a monitored entry when its last nine characters are exactly "monitored"; the name is
// then the text before the first TAB (without a TAB: the text before the word, trimmed). Any
// other line is a server name as it stands.
ServerListLine parseServerListLine(const QString& line);
QString serverListLineText(const ServerListLine& entry);

// Reads "Computerlist"; a missing or unreadable file gives an empty list. A last line without
// a line end is read too; lines that name no server (blank) are skipped.
std::vector<ServerListLine> readServerList(platform::TextFiles& files, const QString& path);
// The largest server list the program takes: every server is listed, pinged at start-up and
// re-pinged every minute, so a list beyond these is a mistake (a wrong file, a runaway script)
// rather than servers anybody watches.
inline constexpr int kMaxServers = 20000;
inline constexpr qint64 kMaxServerListBytes = 2 * 1024 * 1024;

struct ServerListRead {
    std::vector<ServerListLine> lines;
    QString refused; // when the file is beyond the limits: the message that says so; else empty
};
// readServerList() within the limits: a larger file is not read (its size is looked at first,
// so that no part of a huge file is loaded) and a file with more servers is not taken; either
// way the lines are empty and refused says why.
ServerListRead readServerListWithin(platform::TextFiles& files, const QString& path);

bool writeServerList(platform::TextFiles& files, const QString& path, const std::vector<ServerListLine>& entries);

// Reads "Computers": one server name a line; missing gives an empty list. Only lines with a
// line end count; blank lines are skipped.
QStringList readMonitoredServers(platform::TextFiles& files, const QString& path);

// The first line of "Interval" (also when it has no line end), or an empty text.
QString readIntervalText(platform::TextFiles& files, const QString& path);

struct SmtpSettings {
    QString server;
    int port = 0;
    QString sender;
};
// The three lines of "SMTPServer"; a port that is not a number from 0 to 65535 reads as 0.
SmtpSettings readSmtpSettings(platform::TextFiles& files, const QString& path);

} // namespace velmora::core
