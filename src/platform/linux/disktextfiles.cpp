#include "platform/linux/disktextfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

QStringList splitTextLines(const QByteArray& bytes, bool includeUnterminated)
{
    QStringList lines;
    qsizetype start = 0;
    const qsizetype n = bytes.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char c = bytes[i];
        if (c == '\n' || c == '\r') {
            lines << QString::fromUtf8(bytes.constData() + start, i - start);
            if (c == '\r' && i + 1 < n && bytes[i + 1] == '\n')
                ++i;
            start = i + 1;
        }
    }
    if (includeUnterminated && start < n)
        lines << QString::fromUtf8(bytes.constData() + start, n - start);
    return lines;
}

QByteArray joinTextLines(const QStringList& lines)
{
    QByteArray out;
    for (const QString& l : lines) {
        out += l.toUtf8();
        out += "\r\n";
    }
    return out;
}

namespace {

std::optional<QByteArray> readBytes(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = f.readAll();
    if (f.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

// The name of a temporary copy of name: hidden, and recognisable by its ".velmora-tmp-" part
// followed by six random letters or digits.
QByteArray temporaryName(const QByteArray& name)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QByteArray suffix(6, 'x');
    for (char& c : suffix)
        c = alphabet[QRandomGenerator::global()->bounded(int(sizeof alphabet - 1))];
    return '.' + name + ".velmora-tmp-" + suffix;
}

bool report(int errnum, FileError* error)
{
    if (errnum != 0 && error)
        *error = DiskTextFiles::errorFor(errnum);
    return errnum == 0;
}

} // namespace

FileError DiskTextFiles::errorFor(int errnum)
{
    FileError e;
    switch (errnum) {
    case 0: return e;
    case ENOENT: case ENOTDIR: e.code = 3; break;
    case EMFILE: case ENFILE: e.code = 4; break;
    case EACCES: case EPERM: case EISDIR: e.code = 5; break;
    case EROFS: e.code = 19; break;
    case EIO: e.code = 29; break;
    case EBUSY: case ETXTBSY: e.code = 32; break;
    case EINVAL: e.code = 87; break;
    case ENOSPC: e.code = 112; break;
    case ENAMETOOLONG: e.code = 206; break;
    case EFBIG: e.code = 223; break;
    case EDQUOT: e.code = 1295; break;
    default: e.code = 31; break;
    }
    e.reason = QString::fromLocal8Bit(std::strerror(errnum));
    return e;
}

int DiskTextFiles::writeBytes(int fd, const QByteArray& bytes)
{
    const char* p = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (n == 0)
            return EIO;
        p += n;
        left -= n;
    }
    return 0;
}

int DiskTextFiles::replaceFile(const QString& path, const QByteArray& bytes)
{
    QFileInfo info(path);
    // A link is followed, so that the file it points to is the one replaced.
    if (info.isSymLink())
        info = QFileInfo(info.symLinkTarget());
    const QByteArray target = QFile::encodeName(info.absoluteFilePath());
    const QByteArray folder = QFile::encodeName(info.absolutePath());
    const QByteArray name = QFile::encodeName(info.fileName());
    struct stat old {};
    const bool replacing = ::stat(target.constData(), &old) == 0;

    QByteArray temp;
    int fd = -1;
    for (int attempt = 0; fd < 0; ++attempt) {
        temp = folder + '/' + temporaryName(name);
        fd = ::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && (errno != EEXIST || attempt == 100))
            return errno;
    }
    int err = 0;
    if (replacing)
        ::fchmod(fd, old.st_mode & 07777); // the new file keeps the old one's permissions
    err = writeBytes(fd, bytes);
    // Some file systems report a full disk only when the data is flushed: sync and close count
    // as much as the writes do.
    if (err == 0 && ::fsync(fd) != 0)
        err = errno;
    if (::close(fd) != 0 && err == 0)
        err = errno;
    if (err == 0 && ::rename(temp.constData(), target.constData()) != 0)
        err = errno;
    if (err != 0)
        ::unlink(temp.constData());
    return err;
}

int DiskTextFiles::appendFile(const QString& path, const QByteArray& bytes)
{
    const QByteArray target = QFile::encodeName(path);
    const int fd = ::open(target.constData(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return errno;
    // Other writers (another copy of the program) append under the same lock, so the end read
    // below is the end of a whole line of theirs, never the middle of one still being written.
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
    struct stat before {};
    int err = ::fstat(fd, &before) == 0 ? 0 : errno;
    if (err == 0) {
        // A last line without its line end (written by hand or by another program) gets one
        // first, so the new lines do not run on from it.
        char last = '\n';
        if (before.st_size > 0 && ::pread(fd, &last, 1, before.st_size - 1) != 1)
            last = '\n';
        const QByteArray out = last == '\n' || last == '\r' ? bytes : "\r\n" + bytes;
        // One write, so a reader never sees half a line; when it fails part-way the file is cut
        // back to where it ended.
        err = writeBytes(fd, out);
        if (err != 0 && ::ftruncate(fd, before.st_size) != 0) {
            // Nothing more can be done: the error already says what went wrong.
        }
    }
    if (::close(fd) != 0 && err == 0)
        err = errno;
    return err;
}

QString DiskTextFiles::resolve(const QString& path)
{
    QFileInfo info(path);
    if (info.exists())
        return path;
    // The files were named on a file system that ignores case; find another spelling.
    const QDir dir = info.dir();
    const QString name = info.fileName();
    const QStringList entries = dir.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& e : entries) {
        if (e.compare(name, Qt::CaseInsensitive) == 0)
            return dir.filePath(e);
    }
    return path;
}

bool DiskTextFiles::exists(const QString& path)
{
    return QFileInfo(resolve(path)).isFile();
}

bool DiskTextFiles::create(const QString& path, FileError* error)
{
    const int fd = ::open(QFile::encodeName(resolve(path)).constData(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
        return report(errno, error);
    return report(::close(fd) == 0 ? 0 : errno, error);
}

std::optional<QStringList> DiskTextFiles::readLines(const QString& path, bool includeUnterminated)
{
    auto bytes = readBytes(resolve(path));
    if (!bytes)
        return std::nullopt;
    return splitTextLines(*bytes, includeUnterminated);
}

std::optional<QString> DiskTextFiles::readAll(const QString& path)
{
    auto bytes = readBytes(resolve(path));
    if (!bytes)
        return std::nullopt;
    return QString::fromUtf8(*bytes);
}

int DiskTextFiles::lineCount(const QString& path)
{
    auto lines = readLines(path);
    return lines ? int(lines->size()) : -1;
}

bool DiskTextFiles::writeLines(const QString& path, const QStringList& lines, FileError* error)
{
    return report(replaceFile(resolve(path), joinTextLines(lines)), error);
}

bool DiskTextFiles::appendLines(const QString& path, const QStringList& lines, FileError* error)
{
    return report(appendFile(resolve(path), joinTextLines(lines)), error);
}

int DiskTextFiles::removeLeftoverCopies(const QString& folder)
{
    const QDir dir(folder);
    if (!dir.exists())
        return -1;
    static const QRegularExpression ours(QStringLiteral("^\\..+\\.velmora-tmp-[A-Za-z0-9]{6}$"));
    static const QRegularExpression earlier(QStringLiteral("^(.+)\\.([A-Za-z]{6})$"));
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks);
    int removed = 0;
    for (const QString& name : names) {
        bool leftover = ours.match(name).hasMatch();
        if (!leftover) {
            const auto m = earlier.match(name);
            // Server names are kept in upper case, so a suffix with a lower-case letter cannot
            // be a per-server file named like a dotted name.
            leftover = m.hasMatch() && m.captured(2) != m.captured(2).toUpper()
                && QFileInfo(dir.filePath(m.captured(1))).isFile();
        }
        if (leftover && QFile::remove(dir.filePath(name)))
            ++removed;
    }
    return removed;
}

qint64 DiskTextFiles::size(const QString& path)
{
    QFileInfo info(resolve(path));
    return info.isFile() ? info.size() : -1;
}

bool DiskTextFiles::remove(const QString& path)
{
    return QFile::remove(resolve(path));
}

} // namespace velmora::platform
