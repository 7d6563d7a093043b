#include "core/servertypes.h"

namespace velmora::core {

namespace {
const QString kWindows = QStringLiteral("windows");
}

ServerTypes::ServerTypes(platform::TextFiles& files, const DataFiles& folder)
    : files_(files), folder_(folder)
{
}

void ServerTypes::load()
{
    if (loaded_)
        return;
    loaded_ = true;
    const auto lines = files_.readLines(folder_.file(files::servertypes), true);
    if (!lines)
        return;
    for (const QString& line : *lines) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        const QString name = fields.value(0).trimmed();
        if (fields.size() < 2 || name.isEmpty() || fields.at(1).trimmed().toLower() != kWindows)
            continue;
        if (!windows_.contains(name.toLower()))
            names_ << name;
        windows_.insert(name.toLower());
    }
}

bool ServerTypes::isWindows(const QString& server)
{
    std::lock_guard lock(mutex_);
    load();
    return windows_.contains(server.trimmed().toLower());
}

bool ServerTypes::setWindows(const QString& server, bool windows)
{
    std::lock_guard lock(mutex_);
    load();
    const QString name = server.trimmed();
    const QString key = name.toLower();
    if (windows_.contains(key) == windows)
        return true;
    QStringList names = names_;
    if (windows)
        names << name;
    else
        names.removeIf([&](const QString& n) { return n.toLower() == key; });
    QStringList lines;
    for (const QString& n : names)
        lines << n + QLatin1Char('\t') + kWindows;
    // A choice that could not be written is not taken: the server keeps the kind it had.
    if (!files_.writeLines(folder_.file(files::servertypes), lines))
        return false;
    names_ = names;
    if (windows)
        windows_.insert(key);
    else
        windows_.remove(key);
    return true;
}

} // namespace velmora::core
