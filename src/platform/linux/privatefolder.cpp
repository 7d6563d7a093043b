#include "platform/linux/privatefolder.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

QString userName(uid_t uid)
{
    if (const passwd* pw = ::getpwuid(uid))
        return QString::fromLocal8Bit(pw->pw_name);
    return QStringLiteral("number %1").arg(uid);
}

} // namespace

QString privateFolderProblem(const QString& path)
{
    struct stat st {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return QStringLiteral("\"%1\" cannot be examined (%2)").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
    if (S_ISLNK(st.st_mode))
        return QStringLiteral("\"%1\" is a symbolic link").arg(path);
    if (!S_ISDIR(st.st_mode))
        return QStringLiteral("\"%1\" is not a folder").arg(path);
    if (st.st_uid != ::geteuid())
        return QStringLiteral("\"%1\" belongs to the user %2, not to you").arg(path, userName(st.st_uid));
    if ((st.st_mode & 077) != 0)
        return QStringLiteral("\"%1\" has mode %2, so other users may use it")
            .arg(path, QString::number(st.st_mode & 07777, 8).rightJustified(4, QLatin1Char('0')));
    return {};
}

PrivateFolder privateFolderIn(const QString& base, const QString& name)
{
    const QString folder = QDir::cleanPath(base + QLatin1Char('/') + name);
    if (::mkdir(QFile::encodeName(folder).constData(), 0700) != 0 && errno != EEXIST)
        return {{}, QStringLiteral("The folder \"%1\" for this program's sockets cannot be made: %2.")
                        .arg(folder, QString::fromLocal8Bit(std::strerror(errno)))};
    if (const QString why = privateFolderProblem(folder); !why.isEmpty())
        return {{}, QStringLiteral("The folder for this program's sockets is not private: %1. Another user may have "
                                   "made it to catch this program's connections. Remove it (or let the "
                                   "administrator remove it), or start the program where XDG_RUNTIME_DIR names a "
                                   "folder of your own that only you may use (mode 0700).")
                        .arg(why)};
    return {folder, {}};
}

namespace {

// Where this user's copies meet when another user holds the usual "<temp>/<name>": the first
// folder "<name>.XXXXXX" in temp, by name, that is a real folder of this user's own which nobody
// else may use. Nobody else can make such a folder, so none can be laid out as a trap. When there
// is none yet, one is made under an unpredictable name (mkdtemp); should two copies make one
// each at the same moment, both go on with the first by name and the other is removed again.
PrivateFolder sharedFolderBeside(const QString& temp, const QString& name)
{
    const auto firstOwn = [&] {
        const QStringList found = QDir(temp).entryList({name + QStringLiteral(".??????")},
                                                       QDir::Dirs | QDir::Hidden | QDir::System, QDir::Name);
        for (const QString& entry : found) {
            const QString folder = QDir(temp).filePath(entry);
            if (privateFolderProblem(folder).isEmpty())
                return folder;
        }
        return QString();
    };
    if (const QString found = firstOwn(); !found.isEmpty())
        return {found, {}};
    QByteArray made = QFile::encodeName(QDir(temp).filePath(name + QStringLiteral(".XXXXXX")));
    if (!::mkdtemp(made.data()))
        return {{}, QStringLiteral("No folder of your own can be made in \"%1\": %2.")
                        .arg(temp, QString::fromLocal8Bit(std::strerror(errno)))};
    const QString first = firstOwn();
    if (first != QFile::decodeName(made))
        ::rmdir(made.constData());
    if (first.isEmpty())
        return {{}, QStringLiteral("The folder \"%1\" was made but is not yours alone.").arg(QFile::decodeName(made))};
    return {first, {}};
}

} // namespace

PrivateFolder privateRuntimeFolder()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime) && privateFolderProblem(runtime).isEmpty())
        return privateFolderIn(runtime, QStringLiteral("velmora"));
    const QString temp = QDir::tempPath();
    const QString name = QStringLiteral("velmora-%1").arg(::geteuid());
    const PrivateFolder usual = privateFolderIn(temp, name);
    if (usual.usable())
        return usual;
    // Somebody else's folder (or link, or file) sits where this user's should be: it is left as
    // it is, and a folder nobody else can make is used instead.
    const PrivateFolder beside = sharedFolderBeside(temp, name);
    if (beside.usable())
        return beside;
    return {{}, usual.problem + QLatin1Char(' ') + beside.problem};
}

} // namespace velmora::platform
