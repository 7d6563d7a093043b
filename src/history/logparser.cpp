#include "history/logparser.h"

#include "core/datafolder.h"
#include "joblog/joblog.h"

#include <QDateTime>
#include <QFile>
#include <QLocale>
#include <QStringDecoder>
#include <cstring>

namespace velmora::history {

namespace {

constexpr qsizetype kChunk = 4 << 20;
constexpr qsizetype kLongestLine = 64 << 10;
constexpr qsizetype kSignature = 64;
constexpr int kMaxSkippedLines = 5;
constexpr int kMaxStates = 6, kMaxActions = 12;
// Gaps shorter than this (two lines of one scan, a line written when maintenance ended) say
// nothing about the interval.
constexpr qint64 kShortestInterval = 30;
constexpr qint64 kUnixEpochJulianDay = 2440588;

std::string_view view(const char* p, qsizetype n) { return {p, size_t(n)}; }

// UTF-8, or Windows-1252 where the bytes are not UTF-8 (as the text files are read).
QString decode(std::string_view bytes)
{
    const auto size = qsizetype(bytes.size());
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return uchar(c) < 0x80; }))
        return QString::fromLatin1(bytes.data(), size);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8.decode(QByteArrayView(bytes.data(), size));
    if (!utf8.hasError())
        return text;
    QStringDecoder windows("windows-1252", QStringDecoder::Flag::Stateless);
    return windows.isValid() ? QString(windows.decode(QByteArrayView(bytes.data(), size)))
                             : QString::fromLatin1(bytes.data(), size);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads a run of digits at text[pos...]; false when there is none or it is too long.
bool number(std::string_view text, size_t& pos, int maxDigits, int& value)
{
    const size_t start = pos;
    value = 0;
    while (pos < text.size() && isDigit(text[pos]) && int(pos - start) < maxDigits)
        value = value * 10 + (text[pos++] - '0');
    return pos > start && (pos >= text.size() || !isDigit(text[pos]));
}

// "16.11.2026 " at the start of a line: the shape of a timestamp, read or not.
bool looksStamped(std::string_view line)
{
    size_t pos = 0;
    int v = 0;
    return number(line, pos, 2, v) && pos < line.size() && line[pos] == '.';
}

// The letters of an AM/PM text, lower case, as UTF-8 ("p.m." is "pm").
QByteArray letters(const QString& text)
{
    QString out;
    for (QChar c : text)
        if (c.isLetter())
            out += c.toLower();
    return out.toUtf8();
}

const QString kServerAnswering = QStringLiteral("Server not answering");

} // namespace

LogParser::LogParser(qint64 defaultInterval) : defaultInterval_(std::max<qint64>(defaultInterval, 60))
{
    const QLocale system = QLocale::system();
    am_ = letters(system.amText());
    pm_ = letters(system.pmText());
}

void LogParser::reset()
{
    h_ = History();
    services_.clear();
    servers_.clear();
    states_.clear();
    parse_.clear();
    serverParse_.clear();
    stateTexts_.clear();
    actionTarget_ = -1;
    offset_ = 0;
    head_.clear();
    tail_.clear();
    pendingTail_ = -1;
    tailTaken_ = false;
    discarding_ = false;
}

bool LogParser::read(const QString& path, const std::atomic<bool>* cancel)
{
    h_.reread = false;
    h_.lastReadBytes = 0;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (offset_ > 0)
            reset();
        h_.logExists = false;
        return true;
    }
    const qint64 size = f.size();
    bool startOver = size < offset_;
    if (!startOver && offset_ > 0) {
        startOver = f.read(head_.size()) != head_;
        if (!startOver && f.seek(offset_ - tail_.size()))
            startOver = f.read(tail_.size()) != tail_;
    }
    if (startOver) {
        reset();
        h_.reread = true;
    }
    h_.logExists = true;
    if (!f.seek(offset_))
        return true;

    QByteArray buffer;
    qsizetype carry = 0;
    bool skipLineEnd = tailTaken_;
    while (true) {
        if (cancel && cancel->load())
            return false;
        buffer.resize(carry + kChunk);
        const qint64 got = f.read(buffer.data() + carry, kChunk);
        if (got <= 0)
            break;
        h_.lastReadBytes += got;
        qsizetype size = carry + qsizetype(got);
        qsizetype from = 0;
        if (skipLineEnd) {
            // A last line taken without its line end gets one when the program appends again.
            skipLineEnd = false;
            tailTaken_ = false;
            if (buffer[0] == '\r')
                ++from;
            if (from < size && buffer[from] == '\n')
                ++from;
            offset_ += from;
        }
        if (discarding_) {
            const char* nl = static_cast<const char*>(std::memchr(buffer.constData() + from, '\n', size_t(size - from)));
            const qsizetype end = nl ? nl - buffer.constData() + 1 : size;
            discarding_ = !nl;
            offset_ += end - from;
            from = end;
        }
        const qsizetype used = from + parseLines(buffer.constData() + from, size - from);
        offset_ += used - from;
        carry = size - used;
        if (carry > kLongestLine) {
            ++h_.lines;
            skip();
            offset_ += carry;
            carry = 0;
            discarding_ = true;
        }
        std::memmove(buffer.data(), buffer.constData() + used, size_t(carry));
    }
    if (carry > 0 && buffer[carry - 1] == '\r') {
        // The last line ends in a CR: whole, unless an LF follows later, which is then passed over.
        parseCrLines(buffer.constData(), carry - 1);
        offset_ += carry;
        tailTaken_ = true;
        pendingTail_ = -1;
    } else if (carry > 0) {
        if (carry == pendingTail_) {
            // The same unterminated last line as the read before: it is finished as it is.
            parseLine(buffer.constData(), carry);
            offset_ += carry;
            tailTaken_ = true;
            pendingTail_ = -1;
        } else {
            pendingTail_ = carry;
        }
    } else {
        pendingTail_ = -1;
    }
    h_.bytes = offset_;
    if (head_.size() < kSignature && offset_ > head_.size() && f.seek(0))
        head_ = f.read(std::min(offset_, kSignature));
    const qint64 tailSize = std::min(offset_, kSignature);
    if (f.seek(offset_ - tailSize))
        tail_ = f.read(tailSize);
    return true;
}

qsizetype LogParser::parseLines(const char* data, qsizetype size)
{
    qsizetype start = 0;
    while (start < size) {
        const char* nl = static_cast<const char*>(std::memchr(data + start, '\n', size_t(size - start)));
        if (!nl) {
            // A log with lone CRs for line ends: the lines up to the last CR that is surely not
            // the first half of a CR LF.
            qsizetype cr = size - 2;
            while (cr >= start && data[cr] != '\r')
                --cr;
            if (cr >= start) {
                parseCrLines(data + start, cr - start);
                start = cr + 1;
            }
            break;
        }
        const qsizetype end = nl - data;
        qsizetype n = end - start;
        if (n > 0 && data[start + n - 1] == '\r')
            --n;
        parseCrLines(data + start, n);
        start = end + 1;
    }
    return start;
}

void LogParser::parseCrLines(const char* data, qsizetype size)
{
    // Lines of a hand-edited log may end in a lone CR.
    qsizetype s = 0;
    while (const char* cr = static_cast<const char*>(std::memchr(data + s, '\r', size_t(size - s)))) {
        parseLine(data + s, cr - data - s);
        s = cr - data + 1;
    }
    parseLine(data + s, size - s);
}

void LogParser::skip()
{
    ++h_.skipped;
    if (h_.skippedLines.size() < kMaxSkippedLines)
        h_.skippedLines << h_.lines;
}

bool LogParser::parseDate(std::string_view text, qint64& julianDay)
{
    if (text == lastDate_) {
        julianDay = lastDay_;
        return true;
    }
    size_t pos = 0;
    int d = 0, m = 0, y = 0;
    if (!number(text, pos, 2, d) || pos >= text.size() || text[pos++] != '.' || !number(text, pos, 2, m) ||
        pos >= text.size() || text[pos++] != '.' || !number(text, pos, 4, y) || pos != text.size())
        return false;
    const QDate date(y, m, d);
    if (!date.isValid() || y < 1970)
        return false;
    lastDate_ = text;
    lastDay_ = julianDay = date.toJulianDay();
    return true;
}

bool LogParser::parseTime(std::string_view text, int& seconds) const
{
    int parts[3] = {0, 0, 0};
    int count = 0;
    QByteArray marker;
    for (size_t pos = 0; pos < text.size();) {
        if (isDigit(text[pos])) {
            if (count == 3 || !number(text, pos, 2, parts[count++]))
                return false;
        } else {
            const char c = text[pos++];
            if (uchar(c) >= 0x80)
                marker += c;
            else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'z')
                marker += char(c | 0x20);
        }
    }
    if (count != 3 || parts[1] > 59 || parts[2] > 59)
        return false;
    int hour = parts[0];
    if (!marker.isEmpty()) {
        const QByteArray& m = marker;
        const bool pm = m == "pm" || m == "p" || (!pm_.isEmpty() && m == pm_);
        const bool am = m == "am" || m == "a" || (!am_.isEmpty() && m == am_);
        if ((!pm && !am) || hour < 1 || hour > 12)
            return false;
        hour = hour % 12 + (pm ? 12 : 0);
    }
    if (hour > 23)
        return false;
    seconds = hour * 3600 + parts[1] * 60 + parts[2];
    return true;
}

qint64 LogParser::toUtc(qint64 julianDay, int seconds)
{
    const qint64 local = (julianDay - kUnixEpochJulianDay) * kDay + seconds;
    const qint64 hour = local / 3600;
    if (hour != lastHour_) {
        const QDateTime at(QDate::fromJulianDay(julianDay), QTime(seconds / 3600, 0));
        lastHour_ = hour;
        lastOffset_ = at.offsetFromUtc();
    }
    return local - lastOffset_;
}

void LogParser::parseLine(const char* p, qsizetype n)
{
    ++h_.lines;
    const std::string_view line = view(p, n);
    const size_t tab1 = line.find('\t');
    const size_t blank = line.find(' ');
    qint64 day = 0;
    if (tab1 == std::string_view::npos || blank > tab1 || !parseDate(line.substr(0, blank), day)) {
        const int target = actionTarget_;
        if (line.empty() || looksStamped(line) || target < 0)
            skip();
        else
            actionLine(line);
        return;
    }
    actionTarget_ = -1;
    int seconds = 0;
    const size_t tab2 = line.find('\t', tab1 + 1);
    if (!parseTime(line.substr(blank + 1, tab1 - blank - 1), seconds) || tab2 == std::string_view::npos ||
        tab2 == tab1 + 1) {
        skip();
        return;
    }
    const qint64 t = toUtc(day, seconds);
    const std::string_view server = line.substr(tab1 + 1, tab2 - tab1 - 1);
    // A service name may itself hold a tab: the result is what follows the last one.
    const size_t last = line.rfind('\t');
    if (last == tab2) {
        serverLine(server, t, line.substr(tab2 + 1));
        return;
    }
    const std::string_view result = line.substr(last + 1);
    const int service = serviceIndex(server, line.substr(tab2 + 1, last - tab2 - 1));
    const bool running = result == "Running";
    observe(service, t, running ? Avail::Running : Avail::Failed, running ? QString() : internState(result), true);
    if (!running)
        actionTarget_ = service;
}

void LogParser::serverLine(std::string_view server, qint64 t, std::string_view message)
{
    static const QByteArray maintenance = joblog::kServerInMaintenance.toUtf8();
    static const QByteArray ended = joblog::kMaintenanceEnded.toUtf8();
    static const QByteArray unreachable = joblog::kServerNotReachable.toUtf8();
    static const QByteArray reserved = [] {
        const QString text = core::reservedNameLogText(QString());
        return text.left(text.indexOf(QLatin1Char('"'))).toUtf8();
    }();
    const auto is = [message](const QByteArray& text) { return message == view(text.constData(), text.size()); };
    Avail state = Avail::NotChecked;
    if (is(maintenance))
        state = Avail::Maintenance;
    else if (is(unreachable))
        state = Avail::NotAnswering;
    else if (!is(ended)) {
        if (!message.starts_with(view(reserved.constData(), reserved.size())))
            skip();
        return; // a server passed over for its name was never checked
    }
    ServerParse& entry = serverParse_[size_t(serverIndex(server))];
    if (entry.services.empty()) {
        if (entry.bare < 0)
            entry.bare = serviceIndex(server, {});
        observe(entry.bare, t, state, kServerAnswering, state != Avail::NotChecked);
        return;
    }
    for (int service : entry.services)
        observe(service, t, state, kServerAnswering, state != Avail::NotChecked);
}

void LogParser::actionLine(std::string_view text)
{
    ServiceHistory& s = h_.services[size_t(actionTarget_)];
    Outage& o = s.outages.last();
    const QString action = decode(text);
    for (auto& [known, count] : o.actions) {
        if (known == action) {
            ++count;
            return;
        }
    }
    if (o.actions.size() < kMaxActions)
        o.actions.append({action, 1});
}

const QString& LogParser::internState(std::string_view text)
{
    auto it = states_.find(text);
    if (it == states_.end()) {
        it = states_.emplace(std::string(text), int(stateTexts_.size())).first;
        stateTexts_.push_back(decode(text));
    }
    return stateTexts_[size_t(it->second)];
}

int LogParser::serverIndex(std::string_view server)
{
    auto it = servers_.find(server);
    if (it != servers_.end())
        return it->second;
    serverParse_.push_back({decode(server), {}, -1});
    return servers_.emplace(std::string(server), int(serverParse_.size() - 1)).first->second;
}

int LogParser::serviceIndex(std::string_view server, std::string_view service)
{
    std::string key;
    key.reserve(server.size() + service.size() + 1);
    key.append(server).append(1, '\t').append(service);
    auto it = services_.find(key);
    if (it != services_.end())
        return it->second;
    const int index = int(h_.services.size());
    ServerParse& entry = serverParse_[size_t(serverIndex(server))];
    ServiceHistory s;
    s.server = entry.name;
    s.service = decode(service);
    s.interval = defaultInterval_;
    h_.services.push_back(std::move(s));
    parse_.push_back({});
    if (!service.empty())
        entry.services.push_back(index);
    services_.emplace(std::move(key), index);
    return index;
}

void LogParser::observe(int index, qint64 t, Avail state, const QString& seen, bool check)
{
    ServiceHistory& s = h_.services[size_t(index)];
    const bool first = s.runs.isEmpty();
    bool outageOpen = !s.outages.isEmpty() && s.outages.constLast().end < 0;
    if (first) {
        s.first = s.last = t;
        s.runs.append({t, state});
    } else {
        t = std::max(t, s.last); // a clock set back does not run the history backwards
        const qint64 gap = t - s.last;
        if (gap > s.interval + std::max<qint64>(s.interval / 2, 120)) {
            const qint64 lost = s.last + s.interval;
            if (outageOpen)
                s.outages.last().unchecked += t - lost;
            if (s.runs.constLast().state != Avail::NotChecked)
                s.runs.append({lost, Avail::NotChecked});
        }
        ServiceParse& p = parse_[size_t(index)];
        if (check && p.lastCheck >= 0 && t - p.lastCheck >= kShortestInterval) {
            // The usual interval: the shorter of the last two gaps between checks, so that one
            // long gap (the program was not running) does not stretch it, and a new interval
            // counts from its second check on.
            p.delta2 = p.delta1;
            p.delta1 = t - p.lastCheck;
            s.interval = std::max<qint64>(60, p.delta2 > 0 ? std::min(p.delta1, p.delta2) : p.delta1);
        }
        if (s.runs.constLast().start == t) {
            s.runs.last().state = state;
            if (s.runs.size() > 1 && s.runs[s.runs.size() - 2].state == state)
                s.runs.removeLast();
        } else if (s.runs.constLast().state != state) {
            s.runs.append({t, state});
        }
        s.last = t;
    }
    if (check)
        parse_[size_t(index)].lastCheck = t;
    if (isDown(state)) {
        if (!outageOpen) {
            Outage o;
            o.start = t;
            o.fromLogStart = first;
            s.outages.append(o);
            outageOpen = true;
        }
        const QStringList& states = s.outages.constLast().states;
        if (!states.contains(seen) && states.size() < kMaxStates)
            s.outages.last().states << seen;
    } else if (outageOpen && (state == Avail::Running || state == Avail::Maintenance)) {
        s.outages.last().end = t;
    }
}

History LogParser::snapshot(qint64 now) const
{
    History h = h_;
    h.computedAt = now;
    h.uptimes.resize(h.services.size());
    for (size_t i = 0; i < h.services.size(); ++i)
        for (size_t k = 0; k < 3; ++k)
            h.uptimes[i][k] = h.services[i].uptime(now - kUptimePeriods[k], now, now);
    return h;
}

} // namespace velmora::history
