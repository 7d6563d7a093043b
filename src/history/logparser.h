#pragma once
// Reads "Jobs.log" into a History: the whole file the first time, then only what was appended
// since. A log that shrank (emptied by "Delele Logfile") or whose first or last read bytes
// changed (replaced by another file) is read again from its start.
//
// A line is a check line (date, blank, time, TAB, server, TAB, service, TAB, result), a server
// line (date, blank, time, TAB, server, TAB, message) or an action line (no timestamp), which
// belongs to the failed check line above it. Everything else is skipped and counted: a line
// whose timestamp does not read, a server line with a message the program does not write, a
// line without timestamp that no failed check line precedes, an empty line. Dates are
// "16.11.2026"; times are hours, minutes and seconds in any separator, with an optional AM/PM
// marker. Text is UTF-8, or Windows-1252 where its bytes are not UTF-8. A last line without line
// end is taken only once it stood unchanged over two reads, so a line being written is never
// read half; a "line" longer than any the program writes (binary garbage) is skipped as it comes,
// never held in memory.
#include "history/availability.h"

#include <QByteArray>
#include <QString>
#include <algorithm>
#include <atomic>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velmora::history {

class LogParser {
public:
    // defaultInterval: the seconds between checks assumed for a service until two of its
    // checks tell (the monitoring interval).
    explicit LogParser(qint64 defaultInterval = 1800);

    void setDefaultInterval(qint64 seconds) { defaultInterval_ = std::max<qint64>(seconds, 60); }
    // Reads what the file holds beyond what was read before, or all of it again when it was
    // emptied or replaced; a missing file is an empty history. Stops early, keeping what it
    // has, when cancel becomes true; returns false then.
    bool read(const QString& path, const std::atomic<bool>* cancel = nullptr);
    // The history read so far, with the uptimes seen at now.
    History snapshot(qint64 now) const;
    const History& history() const { return h_; }

private:
    struct ServiceParse {
        qint64 lastCheck = -1;         // server lines count, the end of maintenance does not
        qint64 delta1 = 0, delta2 = 0; // the last two gaps between checks, newest first
    };
    struct ServerParse {
        QString name;
        std::vector<int> services;
        int bare = -1; // the row that carries its server lines while none of its services is known
    };
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };
    using Index = std::unordered_map<std::string, int, Hash, std::equal_to<>>;

    void reset();
    // Parses the complete lines in [data, data + size); returns the bytes it consumed.
    qsizetype parseLines(const char* data, qsizetype size);
    // Parses [data, data + size) as lines ended by lone CRs, the last one ended by the end.
    void parseCrLines(const char* data, qsizetype size);
    void parseLine(const char* p, qsizetype n);
    void skip();
    bool parseDate(std::string_view text, qint64& julianDay);
    bool parseTime(std::string_view text, int& seconds) const;
    qint64 toUtc(qint64 julianDay, int seconds);
    int serviceIndex(std::string_view server, std::string_view service);
    int serverIndex(std::string_view server);
    void observe(int service, qint64 t, Avail state, const QString& seen, bool check);
    void serverLine(std::string_view server, qint64 t, std::string_view message);
    void actionLine(std::string_view text);
    const QString& internState(std::string_view text);

    History h_;
    qint64 defaultInterval_;
    Index services_, servers_, states_;
    std::vector<ServiceParse> parse_;
    std::vector<ServerParse> serverParse_;
    std::vector<QString> stateTexts_;
    int actionTarget_ = -1; // the service whose failed check line came last, -1 after any other
    // Where the read stands: bytes consumed, the file's first bytes and the bytes before offset_
    // (to notice a replaced file), and the length of an unterminated last line seen last time.
    qint64 offset_ = 0;
    QByteArray head_, tail_;
    qint64 pendingTail_ = -1;
    bool tailTaken_ = false;
    bool discarding_ = false; // in a line too long to be one the program wrote
    // The last date read and the last hour's offset from UTC: consecutive lines share them.
    std::string lastDate_;
    qint64 lastDay_ = 0;
    qint64 lastHour_ = -1, lastOffset_ = 0;
    QByteArray am_, pm_;
};

} // namespace velmora::history
