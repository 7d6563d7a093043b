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

QString dataFolderMovedText(platform::SystemInfo& system, const QString& chosen, bool programFolderHasData)
{
    const QString program = QDir::cleanPath(system.programFolder());
    if (program.isEmpty() || program == chosen || !programFolderHasData)
        return {};
    return QStringLiteral("The folder \"%1\" holds Velmora's server list but cannot be written, so Velmora keeps "
                          "its data in \"%2\" for now: the servers and settings stored in \"%1\" are not shown.\n\n"
                          "Make \"%1\" writable for your user, or copy its files to \"%2\", and start Velmora again.")
        .arg(program, chosen);
}

QString dataFile(const QString& dataFolder, const QString& name)
{
    // A server name is also a file name. One with a separator or a NUL in it (typed in, or read
    // from a damaged list) must not reach into another folder or cut the path short, so those
    // characters are written out instead.
    QString safe = name;
    if (safe.contains(QLatin1Char('/')) || safe.contains(QChar(0))) {
        safe.replace(QLatin1Char('%'), QStringLiteral("%25"));
        safe.replace(QLatin1Char('/'), QStringLiteral("%2F"));
        safe.replace(QChar(0), QStringLiteral("%00"));
    }
    // The root folder already ends with the separator.
    if (dataFolder.endsWith(QLatin1Char('/')))
        return dataFolder + safe;
    return dataFolder + QLatin1Char('/') + safe;
}

QString reservedFileFor(const QString& server, const QString& programFile)
{
    if (server == QStringLiteral(".") || server == QStringLiteral(".."))
        return server;
    const QString kept[] = {files::computerlist, files::computers, files::interval, files::smtpserver,
                            files::mailprofile,  files::settings,  files::jobslog,  files::autoexport,
                            files::help,         files::servertypes, files::smtpoptions, files::svcctlhelper};
    for (const QString& file : kept) {
        if (server.compare(file, Qt::CaseInsensitive) == 0)
            return file;
    }
    if (!programFile.isEmpty() && server.compare(programFile, Qt::CaseInsensitive) == 0)
        return programFile;
    return {};
}

QString reservedNameText(const QString& server, const QString& file)
{
    return QStringLiteral("Invalid Servername !\n\n\"%1\" cannot be used for a server: its file would be \"%2\", "
                          "a file of Velmora itself in its data folder.")
        .arg(server, file);
}

QString reservedNameLogText(const QString& file)
{
    return QStringLiteral("Server skipped: its name is that of Velmora's own file \"%1\"").arg(file);
}

} // namespace velmora::core
