#pragma once
// The data folder and the names of its files.
#include <QString>

namespace velmora::platform { class SystemInfo; }

namespace velmora::core {

// The folder of the program file; when that folder cannot be written (an installed copy), the
// per-user application data folder, created on demand.
QString chooseDataFolder(platform::SystemInfo& system);

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
} // namespace files

// data folder + separator + name.
QString dataFile(const QString& dataFolder, const QString& name);

} // namespace velmora::core
