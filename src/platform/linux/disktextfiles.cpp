#include "platform/linux/disktextfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

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

} // namespace

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

bool DiskTextFiles::create(const QString& path)
{
    QFile f(resolve(path));
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate);
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

bool DiskTextFiles::writeLines(const QString& path, const QStringList& lines)
{
    QSaveFile f(resolve(path));
    if (!f.open(QIODevice::WriteOnly))
        return false;
    const QByteArray bytes = joinTextLines(lines);
    if (f.write(bytes) != bytes.size()) {
        f.cancelWriting();
        return false;
    }
    return f.commit();
}

bool DiskTextFiles::appendLines(const QString& path, const QStringList& lines)
{
    QFile f(resolve(path));
    // Unbuffered, so the lines go to the file in one write and a reader never sees half a line.
    if (!f.open(QIODevice::Append | QIODevice::Unbuffered))
        return false;
    const QByteArray bytes = joinTextLines(lines);
    return f.write(bytes) == bytes.size();
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
