#include "platform/linux/disktextfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <algorithm>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <climits>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

// The characters of the Windows-1252 bytes 0x80 to 0x9F; the five bytes the code page leaves
// unassigned stand for the C1 control character of the same number.
constexpr char16_t cp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// The Windows-1252 byte of c, or -1 when it has none.
int cp1252Byte(char16_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return c;
    for (int i = 0; i < 32; ++i)
        if (cp1252High[i] == c)
            return 0x80 + i;
    return -1;
}

bool validUtf8(const QByteArray& bytes)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
    const qsizetype n = bytes.size();
    for (qsizetype i = 0; i < n;) {
        // Plain ASCII, by far the most common text, eight bytes at a time.
        if (i + 8 <= n) {
            uint64_t word;
            std::memcpy(&word, p + i, 8);
            if ((word & 0x8080808080808080ull) == 0) {
                i += 8;
                continue;
            }
        }
        const unsigned char c = p[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        int more;
        char32_t cp;
        if (c >= 0xC2 && c <= 0xDF) { more = 1; cp = c & 0x1F; }
        else if (c >= 0xE0 && c <= 0xEF) { more = 2; cp = c & 0x0F; }
        else if (c >= 0xF0 && c <= 0xF4) { more = 3; cp = c & 0x07; }
        else return false;
        if (i + more >= n)
            return false;
        for (int k = 1; k <= more; ++k) {
            if ((p[i + k] & 0xC0) != 0x80)
                return false;
            cp = cp << 6 | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and values beyond U+10FFFF are not UTF-8.
        if ((more == 2 && cp < 0x800) || (more == 3 && (cp < 0x10000 || cp > 0x10FFFF))
            || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += more + 1;
    }
    return true;
}

} // namespace

TextEncoding encodingOf(const QByteArray& bytes)
{
    return validUtf8(bytes) ? TextEncoding::Utf8 : TextEncoding::Windows1252;
}

QString decodeText(const QByteArray& bytes, TextEncoding encoding)
{
    if (encoding == TextEncoding::Utf8)
        return QString::fromUtf8(bytes);
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (const char b : bytes) {
        const auto u = static_cast<unsigned char>(b);
        *out++ = QChar(u >= 0x80 && u < 0xA0 ? cp1252High[u - 0x80] : char16_t(u));
    }
    return text;
}

std::optional<QByteArray> encodeText(const QString& text, TextEncoding encoding)
{
    if (encoding == TextEncoding::Utf8)
        return text.toUtf8();
    QByteArray bytes(text.size(), Qt::Uninitialized);
    char* out = bytes.data();
    for (const QChar c : text) {
        const int b = cp1252Byte(c.unicode());
        if (b < 0)
            return std::nullopt;
        *out++ = char(b);
    }
    return bytes;
}

QStringList splitTextLines(const QByteArray& bytes, bool includeUnterminated)
{
    const TextEncoding encoding = encodingOf(bytes);
    QStringList lines;
    qsizetype start = 0;
    const qsizetype n = bytes.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char c = bytes[i];
        if (c == '\n' || c == '\r') {
            lines << decodeText(bytes.mid(start, i - start), encoding);
            if (c == '\r' && i + 1 < n && bytes[i + 1] == '\n')
                ++i;
            start = i + 1;
        }
    }
    if (includeUnterminated && start < n)
        lines << decodeText(bytes.mid(start), encoding);
    return lines;
}

std::optional<QByteArray> joinTextLines(const QStringList& lines, TextEncoding encoding)
{
    QByteArray out;
    for (const QString& l : lines) {
        auto bytes = encodeText(l, encoding);
        if (!bytes)
            return std::nullopt;
        out += *bytes;
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

// The mark of a temporary copy: hidden, ".velmora-tmp-" and six random letters or digits.
const QString kCopyMark = QStringLiteral(".velmora-tmp-");

QByteArray temporaryName(const QByteArray& name)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QByteArray suffix(6, 'x');
    for (char& c : suffix)
        c = alphabet[QRandomGenerator::global()->bounded(int(sizeof alphabet - 1))];
    return '.' + name + kCopyMark.toLatin1() + suffix;
}

// The error number of a write refused because a link on its way belongs to another user.
constexpr int kForeignLink = -1000;

// Whether a file or link of owner may steer this program's writes: its own, or root's.
bool trustedOwner(uid_t owner)
{
    return owner == ::geteuid() || owner == 0;
}

// The file path names once the links on it that this user (or root) made are followed; path
// itself when it is no link (or does not exist yet). A link of another user stops it: empty,
// with kForeignLink in err; so does a chain of links without end (ELOOP).
QByteArray followOwnLinks(const QByteArray& path, int& err)
{
    QByteArray at = path;
    for (int depth = 0; depth < 40; ++depth) {
        struct stat st {};
        if (::lstat(at.constData(), &st) != 0 || !S_ISLNK(st.st_mode))
            return at;
        if (!trustedOwner(st.st_uid)) {
            err = kForeignLink;
            return {};
        }
        char buffer[PATH_MAX];
        const ssize_t n = ::readlink(at.constData(), buffer, sizeof buffer - 1);
        if (n < 0) {
            err = errno;
            return {};
        }
        const QByteArray target(buffer, n);
        at = target.startsWith('/') ? target : at.left(at.lastIndexOf('/') + 1) + target;
    }
    err = ELOOP;
    return {};
}

QString ownerName(uid_t uid)
{
    if (const passwd* pw = ::getpwuid(uid))
        return QString::fromLocal8Bit(pw->pw_name);
    return QStringLiteral("number %1").arg(uid);
}

} // namespace

FileError DiskTextFiles::errorFor(int errnum)
{
    FileError e;
    if (errnum == kForeignLink)
        return {5, QStringLiteral("it is a link that belongs to another user, and Velmora never writes through such a link")};
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
    // A link of this user's own is followed, so that the file it points to is the one replaced.
    int err = 0;
    const QByteArray target = followOwnLinks(QFile::encodeName(QFileInfo(path).absoluteFilePath()), err);
    if (err != 0)
        return err;
    const QByteArray folder = target.left(target.lastIndexOf('/'));
    const QByteArray name = target.mid(target.lastIndexOf('/') + 1);
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

int DiskTextFiles::appendFile(const QString& path, const QStringList& lines)
{
    int err = 0;
    const QByteArray target = followOwnLinks(QFile::encodeName(path), err);
    if (err != 0)
        return err;
    const int fd = ::open(target.constData(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd < 0)
        return errno;
    // Other writers (another copy of the program) append under the same lock, so the end read
    // below is the end of a whole line of theirs, never the middle of one still being written.
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
    struct stat before {};
    err = ::fstat(fd, &before) == 0 ? 0 : errno;
    if (err == 0) {
        // The end of the file tells how it is written now, and whether its last line is ended.
        constexpr qint64 tailSize = 64 * 1024;
        const qint64 from = std::max<qint64>(0, before.st_size - tailSize);
        QByteArray tail(before.st_size - from, Qt::Uninitialized);
        const ssize_t got = tail.isEmpty() ? 0 : ::pread(fd, tail.data(), size_t(tail.size()), from);
        tail.resize(std::max<ssize_t>(got, 0));
        const char last = tail.isEmpty() ? '\n' : tail.back();
        if (from > 0)
            tail.remove(0, tail.indexOf('\n') + 1); // from the first whole line on
        QByteArray out;
        const TextEncoding encoding = encodingOf(tail);
        for (const QString& line : lines) {
            if (encoding == TextEncoding::Utf8) {
                out += line.toUtf8();
            } else {
                for (const QChar c : line) {
                    const int b = cp1252Byte(c.unicode());
                    out += b < 0 ? '?' : char(b);
                }
            }
            out += "\r\n";
        }
        // A last line without its line end (written by hand or by another program) gets one
        // first, so the new lines do not run on from it.
        if (last != '\n' && last != '\r')
            out.prepend("\r\n");
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

bool DiskTextFiles::report(int errnum)
{
    if (errnum == 0)
        return true;
    std::lock_guard lock(failuresMutex_);
    lastFailures_[std::this_thread::get_id()] = errorFor(errnum);
    return false;
}

FileError DiskTextFiles::lastFailure() const
{
    std::lock_guard lock(failuresMutex_);
    const auto it = lastFailures_.find(std::this_thread::get_id());
    return it == lastFailures_.end() ? FileError{} : it->second;
}

bool DiskTextFiles::create(const QString& path)
{
    int err = 0;
    const QByteArray target = followOwnLinks(QFile::encodeName(resolve(path)), err);
    if (err != 0)
        return report(err);
    const int fd = ::open(target.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd < 0)
        return report(errno);
    return report(::close(fd) == 0 ? 0 : errno);
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
    return decodeText(*bytes, encodingOf(*bytes));
}

int DiskTextFiles::lineCount(const QString& path)
{
    auto lines = readLines(path);
    return lines ? int(lines->size()) : -1;
}

bool DiskTextFiles::writeLines(const QString& path, const QStringList& lines)
{
    const QString target = resolve(path);
    // A file that is not UTF-8 stays in its single-byte encoding while it can hold the text.
    const auto old = readBytes(target);
    auto bytes = joinTextLines(lines, old ? encodingOf(*old) : TextEncoding::Utf8);
    if (!bytes)
        bytes = joinTextLines(lines, TextEncoding::Utf8);
    return report(replaceFile(target, *bytes));
}

bool DiskTextFiles::appendLines(const QString& path, const QStringList& lines)
{
    return report(appendFile(resolve(path), lines));
}

int DiskTextFiles::removeLeftoverCopies(const QString& folder)
{
    const QDir dir(folder);
    if (!dir.exists())
        return -1;
    static const QRegularExpression ours(QStringLiteral("^\\..+") + QRegularExpression::escape(kCopyMark)
                                         + QStringLiteral("[A-Za-z0-9]{6}$"));
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks);
    int removed = 0;
    for (const QString& name : names) {
        if (!ours.match(name).hasMatch())
            continue;
        const QByteArray path = QFile::encodeName(dir.filePath(name));
        struct stat st {};
        if (::lstat(path.constData(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid()
            && ::unlink(path.constData()) == 0)
            ++removed;
    }
    return removed;
}

QString DiskTextFiles::folderProblem(const QString& folder)
{
    struct stat st {};
    if (::stat(QFile::encodeName(folder).constData(), &st) != 0)
        return {};
    if (!trustedOwner(st.st_uid))
        return QStringLiteral("it belongs to the user %1").arg(ownerName(st.st_uid));
    const QString mode = QString::number(st.st_mode & 07777, 8).rightJustified(4, QLatin1Char('0'));
    if (st.st_mode & S_IWOTH)
        return QStringLiteral("every user may write into it (its mode is %1)").arg(mode);
    if (st.st_mode & S_IWGRP)
        return QStringLiteral("its group may write into it (its mode is %1)").arg(mode);
    return {};
}

qint64 DiskTextFiles::size(const QString& path)
{
    QFileInfo info(resolve(path));
    return info.isFile() ? info.size() : -1;
}

bool DiskTextFiles::remove(const QString& path)
{
    const QByteArray target = QFile::encodeName(resolve(path));
    return report(::unlink(target.constData()) == 0 ? 0 : errno);
}

} // namespace velmora::platform
