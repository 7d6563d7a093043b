#include "core/monitoredservices.h"

#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "platform/textfiles.h"

namespace velmora::core {

MonitoredServices::MonitoredServices(platform::TextFiles& files, std::function<QString(const QString&)> file,
                                     QObject* parent)
    : QObject(parent), files_(files), file_(std::move(file))
{
}

QStringList MonitoredServices::servers() const { return readMonitoredServers(files_, file_(files::computers)); }

QStringList MonitoredServices::storedServers() const
{
    QStringList out;
    const auto lines = files_.readLines(file_(files::computers), true);
    if (!lines)
        return out;
    for (const QString& line : *lines) {
        if (!line.trimmed().isEmpty())
            out << line;
    }
    return out;
}

bool MonitoredServices::contains(const QString& server) const { return storedServers().contains(server); }

std::vector<MonitoredService> MonitoredServices::records(const QString& server) const
{
    return readMonitoredServices(files_, file_(server));
}

WriteResult MonitoredServices::save(const QString& server, const std::vector<MonitoredService>& records)
{
    if (WriteResult r = writeServerFile(server, records); !r)
        return r;
    return setMonitored(server, !records.empty());
}

WriteResult MonitoredServices::writeServerFile(const QString& server, const std::vector<MonitoredService>& records)
{
    const QString path = file_(server);
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
        if (!files_.exists(file_(files::computers)) && !monitored)
            return {};
        return writeFile(files_, file_(files::computers), servers);
    }
    if (monitored)
        servers << server;
    else
        servers.removeAll(server);
    if (WriteResult r = writeFile(files_, file_(files::computers), servers); !r)
        return r;
    emit monitoredChanged(server, monitored);
    return {};
}

} // namespace velmora::core
