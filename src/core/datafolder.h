#pragma once
// The data folder and the names of its files.
#include <QString>

namespace velmora::platform {
class SystemInfo;
class TextFiles;
}

namespace velmora::core {

// The folder of the program file; when that folder cannot be written (an installed copy) or is a
// build folder (a build from source), the per-user application data folder, created on demand.
QString chooseDataFolder(platform::SystemInfo& system);

// When the data folder chosen is not the program's folder although that folder holds a server
// list (it could not be written, or it is a build folder), the message that names both folders
// and says why; otherwise empty.
QString dataFolderMovedText(platform::SystemInfo& system, const QString& chosen, bool programFolderHasData);

// The message that refuses a data folder the platform's file service found unsafe (why: another
// user owns it or may write into it).
QString unsafeFolderText(const QString& folder, const QString& why);

// Names of the stored files, relative to the data folder.
namespace files {
inline const QString computerlist = QStringLiteral("Computerlist");
inline const QString computers = QStringLiteral("Computers");
inline const QString interval = QStringLiteral("Interval");
inline const QString smtpserver = QStringLiteral("SMTPServer");
inline const QString mailprofile = QStringLiteral("MailProfile");
inline const QString settings = QStringLiteral("Settings");
inline const QString jobslog = QStringLiteral("Jobs.log");
inline const QString autoexport = QStringLiteral("AutoExport.txt");
inline const QString help = QStringLiteral("velmorahelp.chm");
// Which servers are Windows servers (see ServerTypes).
inline const QString servertypes = QStringLiteral("ServerTypes");
// The options of the mail dialogue for today's servers.
inline const QString smtpoptions = QStringLiteral("SMTPOptions");
// The alert options, and the failures still open when the program last ended.
inline const QString alertoptions = QStringLiteral("AlertOptions");
inline const QString alertstate = QStringLiteral("AlertState");
// The helper that reaches Windows service managers, beside the program.
inline const QString svcctlhelper = QStringLiteral("velmora-svcctl");
} // namespace files

// data folder + separator + name, with "%", "/" and NUL in name written out as "%25", "%2F" and
// "%00": every server name has a file of its own, inside the data folder.
QString dataFile(const QString& dataFolder, const QString& name);

// Earlier versions left "%" as it stood in a name without "/" or NUL. Each of servers whose
// file has only that earlier name gets its file under today's name (a copy when the earlier
// name is also the file of another of servers, which read it too before; otherwise the file is
// moved). Returns how many files were carried over.
int moveEarlierServerFiles(platform::TextFiles& files, const QString& dataFolder, const QStringList& servers);

// A server's own file is named as the server, in the same folder as the program's files and the
// program file itself. The stored file a server name would land on instead of a per-server file
// (its usual spelling: "Computers", the program file's name), or an empty text when the name is
// safe. Names are compared without regard to case, as the files are found; "." and ".." name
// folders, never a file of the server.
QString reservedFileFor(const QString& server, const QString& programFile);

// Where the data folder is. It is chosen at start-up, after the modules that keep their files in
// it have been built, so they ask for it each time they open a file.
class DataFiles {
public:
    virtual ~DataFiles() = default;
    virtual QString folder() const = 0;
    // folder + separator + name, as dataFile() writes it.
    QString file(const QString& name) const { return dataFile(folder(), name); }
};

// A data folder known when it is made (tools and tests).
class FixedDataFolder final : public DataFiles {
public:
    explicit FixedDataFolder(QString folder) : folder_(std::move(folder)) {}
    QString folder() const override { return folder_; }

private:
    QString folder_;
};

// Tells the user why a name cannot be used for a server (a message box text).
QString reservedNameText(const QString& server, const QString& file);
// Tells the job log why a server was passed over (a server-line message).
QString reservedNameLogText(const QString& file);

} // namespace velmora::core
