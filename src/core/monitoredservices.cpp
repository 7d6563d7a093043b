#include "core/monitoredservices.h"

#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "platform/textfiles.h"

namespace velmora::core {

MonitoredServices::MonitoredServices(platform::TextFiles& files, const DataFiles& folder, QString programFile,
                                     QObject* parent)
    : QObject(parent), files_(files), folder_(folder), programFile_(std::move(programFile))
{
}

QString MonitoredServices::reservedFile(const QString& server) const { return reservedFileFor(server, programFile_); }

QStringList MonitoredServices::refusedServers() const
{
    QStringList out;
    const auto lines = files_.readLines(folder_.file(files::computers), true);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        if (!reservedFile(line).isEmpty() && !out.contains(line))
            out << line;
    }
    return out;
}

WriteResult MonitoredServices::refused(const QString& server) const
{
    return WriteResult::failed(folder_.file(server), QStringLiteral("the name is that of Velmora's own file \"%1\"")
                                                  .arg(reservedFile(server)));
}

QStringList MonitoredServices::servers() const
{
    QStringList out = readMonitoredServers(files_, folder_.file(files::computers));
    out.removeIf([this](const QString& name) { return !reservedFile(name).isEmpty(); });
    return out;
}

QStringList MonitoredServices::storedServers() const
{
    QStringList out;
    const auto lines = files_.readLines(folder_.file(files::computers), true);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        if (!line.trimmed().isEmpty() && reservedFile(line).isEmpty())
            out << line;
    }
    return out;
}

bool MonitoredServices::contains(const QString& server) const { return storedServers().contains(server); }

std::vector<MonitoredService> MonitoredServices::records(const QString& server) const
{
    if (!reservedFile(server).isEmpty())
        return {};
    return readMonitoredServices(files_, folder_.file(server));
}

WriteResult MonitoredServices::save(const QString& server, const std::vector<MonitoredService>& records)
{
    if (!reservedFile(server).isEmpty())
        return refused(server);
    if (WriteResult r = writeServerFile(server, records); !r)
        return r;
    return setMonitored(server, !records.empty());
}

WriteResult MonitoredServices::writeServerFile(const QString& server, const std::vector<MonitoredService>& records)
{
    const QString path = folder_.file(server);
    QStringList out;
    for (const MonitoredService& e : records)
        out << recordLineText(e);
    if (files_.exists(path)) {
        const auto lines = files_.readLines(path, false);
        if (!lines) // never replace properties that could not be read
            return WriteResult::failed(path, QStringLiteral("the file could not be read"));
        const qsizetype start = lines->indexOf(QStringLiteral("[Properties:]"));
        if (start >= 0)
            out << lines->mid(start);
        else
            out << emptyPropertiesTemplate();
    } else {
        out << emptyPropertiesTemplate(); // the block the properties editor expects
    }
    return writeFile(files_, path, out);
}

WriteResult MonitoredServices::setMonitored(const QString& server, bool monitored)
{
    QStringList servers = storedServers();
    const bool listed = servers.contains(server);
    if (listed == monitored) {
        // Still written, so a file that lost its last line end gets it back.
        if (!files_.exists(folder_.file(files::computers)) && !monitored)
            return {};
        return writeFile(files_, folder_.file(files::computers), servers);
    }
    if (monitored)
        servers << server;
    else
        servers.removeAll(server);
    if (WriteResult r = writeFile(files_, folder_.file(files::computers), servers); !r)
        return r;
    emit monitoredChanged(server, monitored);
    return {};
}

WriteResult MonitoredServices::remove(const QString& server)
{
    QStringList servers = storedServers();
    const qsizetype at = servers.indexOf(server);
    if (at < 0)
        return {};
    servers.removeAt(at);
    // "Computers" first: when it cannot be written, the server stays monitored with its file.
    if (WriteResult r = writeFile(files_, folder_.file(files::computers), servers); !r)
        return r;
    removeFile(server);
    emit monitoredChanged(server, false);
    return {};
}

bool MonitoredServices::removeFile(const QString& server)
{
    const QString path = folder_.file(server);
    if (!reservedFile(server).isEmpty() || !files_.exists(path))
        return false;
    return files_.remove(path);
}

bool MonitoredServices::ensureFile(const QString& server)
{
    if (!reservedFile(server).isEmpty())
        return false;
    const QString path = folder_.file(server);
    return files_.exists(path) || files_.create(path);
}

std::optional<ServerProperties> MonitoredServices::properties(const QString& server) const
{
    if (!reservedFile(server).isEmpty())
        return std::nullopt;
    const QString path = folder_.file(server);
    if (!files_.exists(path))
        return ServerProperties{};
    // Counting reader: a last line without a line end is not part of the file here.
    const auto lines = files_.readLines(path, false);
    if (!lines)
        return std::nullopt;
    return parseProperties(*lines);
}

WriteResult MonitoredServices::saveProperties(const QString& server, const ServerProperties& props)
{
    if (!reservedFile(server).isEmpty())
        return refused(server);
    return writeFile(files_, folder_.file(server), propertiesFileLines(props));
}

} // namespace velmora::core
