#include "core/datafolder.h"

#include "platform/system.h"

#include <QDir>

namespace velmora::core {

QString chooseDataFolder(platform::SystemInfo& system)
{
    // cleanPath drops a trailing separator, except for the root folder itself.
    const QString program = QDir::cleanPath(system.programFolder());
    if (!program.isEmpty() && system.folderWritable(program))
        return program;
    const QString user = QDir::cleanPath(system.userDataFolder());
    QDir().mkpath(user);
    return user;
}

QString dataFile(const QString& dataFolder, const QString& name)
{
    // The root folder already ends with the separator.
    if (dataFolder.endsWith(QLatin1Char('/')))
        return dataFolder + name;
    return dataFolder + QLatin1Char('/') + name;
}

} // namespace velmora::core
