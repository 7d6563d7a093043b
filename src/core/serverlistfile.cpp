#include "core/serverlistfile.h"

#include "platform/textfiles.h"

#include <QLocale>

namespace velmora::core {

namespace {
const QString monitoredWord = QStringLiteral("monitored");
}

ServerListLine parseServerListLine(const QString& line)
{
    // Case counts: "DC1<TAB>Monitored" is a server of that whole name, not monitored.
    if (!line.endsWith(monitoredWord, Qt::CaseSensitive))
        return {line, false};
    const qsizetype tab = line.indexOf(QLatin1Char('\t'));
    if (tab >= 0)
        return {line.left(tab), true};
    // No TAB at all ("DC1monitored", hand-edited): the name is what precedes the word.
    return {line.chopped(monitoredWord.size()).trimmed(), true};
}

QString serverListLineText(const ServerListLine& entry)
{
    return entry.monitored ? entry.name + QLatin1Char('\t') + monitoredWord : entry.name;
}

std::vector<ServerListLine> readServerList(platform::TextFiles& files, const QString& path)
{
    std::vector<ServerListLine> out;
    // Read as the file stands: a hand-edited last line without a line end still names a server.
    const auto lines = files.readLines(path, true);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        ServerListLine entry = parseServerListLine(line);
        // A blank line names no server (it would be pinged, listed and stored as "").
        if (entry.name.trimmed().isEmpty())
            continue;
        out.push_back(std::move(entry));
    }
    return out;
}

ServerListRead readServerListWithin(platform::TextFiles& files, const QString& path)
{
    const auto refusal = [&path](const QString& what) {
        return QStringLiteral("The server list \"%1\" %2, more than Velmora takes: at most %3 servers, in a file of at "
                              "most %4 MB.\n\nThe file is left as it is and the server list stays empty for now; "
                              "monitoring goes on. Changes to the server list are not saved until the file is "
                              "trimmed and Velmora is started again.")
            .arg(path, what, QLocale(QLocale::English).toString(kMaxServers)).arg(kMaxServerListBytes / (1024 * 1024));
    };
    const qint64 bytes = files.size(path);
    if (bytes > kMaxServerListBytes)
        return {{}, refusal(QStringLiteral("is %1 MB large").arg(QString::number(double(bytes) / (1024 * 1024), 'f', 1)))};
    std::vector<ServerListLine> lines = readServerList(files, path);
    if (lines.size() > size_t(kMaxServers))
        return {{}, refusal(QStringLiteral("names %1 servers").arg(QLocale(QLocale::English).toString(qulonglong(lines.size()))))};
    return {std::move(lines), {}};
}

bool writeServerList(platform::TextFiles& files, const QString& path, const std::vector<ServerListLine>& entries)
{
    QStringList lines;
    for (const ServerListLine& e : entries)
        lines << serverListLineText(e);
    return files.writeLines(path, lines);
}

QStringList readMonitoredServers(platform::TextFiles& files, const QString& path)
{
    QStringList out;
    // Counting reader: only lines with a line end.
    const auto lines = files.readLines(path, false);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        if (!line.trimmed().isEmpty())
            out << line;
    }
    return out;
}

QString readIntervalText(platform::TextFiles& files, const QString& path)
{
    const auto lines = files.readLines(path, true);
    if (!lines || lines->isEmpty())
        return {};
    return lines->first();
}

SmtpSettings readSmtpSettings(platform::TextFiles& files, const QString& path)
{
    SmtpSettings s;
    const auto lines = files.readLines(path, true);
    if (!lines)
        return s;
    if (lines->size() > 0)
        s.server = lines->at(0);
    if (lines->size() > 1) {
        bool ok = false;
        const ushort port = lines->at(1).trimmed().toUShort(&ok);
        s.port = ok ? port : 0;
    }
    if (lines->size() > 2)
        s.sender = lines->at(2);
    return s;
}

} // namespace velmora::core
