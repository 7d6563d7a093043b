#include "core/datafolder.h"

#include "platform/system.h"
#include "platform/textfiles.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace velmora::core {

namespace {

// A build folder (CMake's, with its CMakeCache.txt) is deleted with everything in it by a clean
// rebuild: a program run from one keeps its data in the per-user folder, as an installed copy does.
bool isBuildFolder(const QString& folder)
{
    return QDir(folder).exists(QStringLiteral("CMakeCache.txt"));
}

} // namespace

QString chooseDataFolder(platform::SystemInfo& system)
{
    // cleanPath drops a trailing separator, except for the root folder itself.
    const QString program = QDir::cleanPath(system.programFolder());
    if (!program.isEmpty() && system.folderWritable(program) && !isBuildFolder(program))
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
    if (isBuildFolder(program))
        return QStringLiteral("The build folder \"%1\" holds a server list of an earlier version of Velmora. A clean "
                              "rebuild deletes that folder, so Velmora keeps its data in \"%2\" now: the servers and "
                              "settings stored in \"%1\" are not shown.\n\n"
                              "Move Velmora's files (Computerlist, Computers, Settings, Interval, SMTPServer, "
                              "Jobs.log and the file of each server) to \"%2\", and start Velmora again.")
            .arg(program, chosen);
    return QStringLiteral("The folder \"%1\" holds Velmora's server list but cannot be written, so Velmora keeps "
                          "its data in \"%2\" for now: the servers and settings stored in \"%1\" are not shown.\n\n"
                          "Make \"%1\" writable for your user, or copy its files to \"%2\", and start Velmora again.")
        .arg(program, chosen);
}

QString unsafeFolderText(const QString& folder, const QString& why)
{
    return QStringLiteral("Velmora does not keep its files in \"%1\": %2. Whoever else may write there could "
                          "put links in it that make Velmora overwrite other files.\n\n"
                          "Make the folder yours and writable by you alone (for example: chmod go-w \"%1\"), "
                          "then start Velmora again.")
        .arg(folder, why);
}

namespace {

// A server name as a file name of the data folder: "/" and NUL (which would reach into another
// folder or cut the path short) and "%" itself are written out as "%2F", "%00" and "%25", so
// that no two names share a file ("A/B" is "A%2FB", "A%2FB" is "A%252FB").
QString escapedFileName(const QString& name)
{
    QString safe = name;
    safe.replace(QLatin1Char('%'), QStringLiteral("%25"));
    safe.replace(QLatin1Char('/'), QStringLiteral("%2F"));
    safe.replace(QChar(0), QStringLiteral("%00"));
    return safe;
}

QString inFolder(const QString& dataFolder, const QString& name)
{
    // The root folder already ends with the separator.
    if (dataFolder.endsWith(QLatin1Char('/')))
        return dataFolder + name;
    return dataFolder + QLatin1Char('/') + name;
}

} // namespace

QString dataFile(const QString& dataFolder, const QString& name)
{
    return inFolder(dataFolder, escapedFileName(name));
}

int moveEarlierServerFiles(platform::TextFiles& files, const QString& dataFolder, const QStringList& servers)
{
    QSet<QString> taken;
    for (const QString& server : servers)
        taken.insert(escapedFileName(server).toLower());
    int moved = 0;
    for (const QString& server : servers) {
        // Earlier versions wrote "%" out only in names that held "/" or NUL too.
        if (!server.contains(QLatin1Char('%')) || server.contains(QLatin1Char('/')) || server.contains(QChar(0)))
            continue;
        const QString now = dataFile(dataFolder, server);
        const QString before = inFolder(dataFolder, server);
        if (files.exists(now) || !files.exists(before))
            continue;
        const auto lines = files.readLines(before, true);
        if (!lines || !files.writeLines(now, *lines))
            continue;
        ++moved;
        // The old file is the file of another listed server under today's names too (both
        // servers read it before): that server keeps it.
        if (!taken.contains(QFileInfo(files.resolve(before)).fileName().toLower()))
            files.remove(before);
    }
    return moved;
}

QString reservedFileFor(const QString& server, const QString& programFile)
{
    if (server == QStringLiteral(".") || server == QStringLiteral(".."))
        return server;
    const QString kept[] = {files::computerlist, files::computers, files::interval, files::smtpserver,
                            files::mailprofile,  files::settings,  files::jobslog,  files::autoexport,
                            files::help,         files::servertypes, files::smtpoptions, files::svcctlhelper,
                            files::alertoptions, files::alertstate};
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
