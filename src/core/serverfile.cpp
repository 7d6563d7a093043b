#include "core/serverfile.h"

#include "platform/textfiles.h"

#include <QRegularExpression>

namespace velmora::core {

namespace {

const QString propertiesHeader = QStringLiteral("[Properties:]");
const QString aliasHeader = QStringLiteral("[Servername / Alias:]");
const QString addressHeader = QStringLiteral("[IP Address / Subnet:]");
const QString roleHeader = QStringLiteral("[Role / Priority:]");
const QString locationHeader = QStringLiteral("[Location / Department:]");
const QString responsiblesHeader = QStringLiteral("[Responsibles / Contact:]");
const QString staffHeader = QStringLiteral("[Action list for monitoring staff]");
const QString remarksHeader = QStringLiteral("[Remarks / Comments:]");
const QString endMarker = QStringLiteral("[EOF]");

const QString crlf = QStringLiteral("\r\n");

// Any line break a text box may hold: CR LF, LF or a lone CR.
QStringList textLines(const QString& text)
{
    static const QRegularExpression breaks(QStringLiteral("\r\n|\r|\n"));
    return text.split(breaks);
}

// A single-line field must stay one line, or the fixed layout shifts.
QString oneLine(const QString& text)
{
    return textLines(text).join(QLatin1Char(' '));
}

} // namespace

std::optional<MonitoredService> parseRecordLine(const QString& line)
{
    if (!line.endsWith(QLatin1Char(';')))
        return std::nullopt;
    QStringList fields = line.split(QLatin1Char(';'));
    fields.removeLast(); // the empty text after the last ";"
    MonitoredService s;
    auto field = [&](int i) { return i < fields.size() ? fields.at(i) : QString(); };
    s.displayname = field(0);
    s.servicename = field(1);
    for (int i = 0; i < 5; ++i)
        s.actions[size_t(i)] = field(2 + i);
    return s;
}

QString recordLineText(const MonitoredService& service)
{
    QString line = service.displayname + QLatin1Char(';') + service.servicename + QLatin1Char(';');
    for (const QString& action : service.actions)
        line += action + QLatin1Char(';');
    return line;
}

QStringList emptyPropertiesTemplate()
{
    return {propertiesHeader, aliasHeader, QString(), addressHeader, QString(), roleHeader, QString(),
            locationHeader, QString(), responsiblesHeader, QString(), staffHeader, QString(),
            remarksHeader, QString(), endMarker};
}

std::vector<MonitoredService> readMonitoredServices(platform::TextFiles& files, const QString& path)
{
    std::vector<MonitoredService> out;
    const auto lines = files.readLines(path, false);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        if (line == propertiesHeader)
            break;
        if (auto record = parseRecordLine(line))
            out.push_back(std::move(*record));
    }
    return out;
}

ServerProperties parseProperties(const QStringList& lines)
{
    ServerProperties p;
    qsizetype i = 0;
    const qsizetype n = lines.size();
    while (i < n && lines.at(i) != propertiesHeader)
        p.recordlines << lines.at(i++);
    if (i < n)
        ++i; // past "[Properties:]"

    // The block is read in its fixed order. A header that is not at its place leaves its field
    // empty, and the next header is looked for in the line after it.
    auto next = [&](QString& out) {
        if (i >= n)
            return false;
        out = lines.at(i++);
        return true;
    };
    auto headedLine = [&](const QString& header, QString& field) {
        QString line;
        if (next(line) && line == header)
            next(field);
    };
    headedLine(aliasHeader, p.alias);
    headedLine(addressHeader, p.ipaddress);
    headedLine(roleHeader, p.role);
    headedLine(locationHeader, p.location);
    {
        QString skipped; // the responsibles header, taken as it stands
        next(skipped);
    }
    auto gather = [&](const QString& until, QString& field) {
        QStringList gathered;
        QString line;
        while (next(line) && line != until)
            gathered << line;
        field = gathered.join(crlf);
    };
    gather(staffHeader, p.responsibles);
    gather(remarksHeader, p.staffactions);
    gather(endMarker, p.remarks);
    return p;
}

QStringList propertiesFileLines(const ServerProperties& props)
{
    QStringList lines = props.recordlines;
    lines << propertiesHeader;
    lines << aliasHeader << oneLine(props.alias);
    lines << addressHeader << oneLine(props.ipaddress);
    lines << roleHeader << oneLine(props.role);
    lines << locationHeader << oneLine(props.location);
    lines << responsiblesHeader << textLines(props.responsibles);
    lines << staffHeader << textLines(props.staffactions);
    lines << remarksHeader << textLines(props.remarks);
    lines << endMarker;
    return lines;
}

bool lookInFile(platform::TextFiles& files, const QString& path)
{
    if (!files.exists(path))
        return true;
    // Counting reader: a last line without a line end is not carried over.
    const auto lines = files.readLines(path, false);
    if (!lines)
        return false; // never rewrite a file that could not be read
    QStringList kept;
    bool inProperties = false;
    for (const QString& line : *lines) {
        if (line == propertiesHeader)
            inProperties = true;
        if (inProperties || !line.isEmpty())
            kept << line;
    }
    if (!inProperties)
        kept << emptyPropertiesTemplate();
    // Only a file that tidying really changes is written: an unchanged one keeps its bytes and
    // costs no write (a full disk then cannot touch it either).
    const auto all = files.readLines(path, true);
    if (all && all->size() == lines->size() && kept == *lines)
        return true;
    return files.writeLines(path, kept);
}

} // namespace velmora::core
