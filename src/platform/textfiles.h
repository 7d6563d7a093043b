#pragma once
// Text-file service: every stored file of the data folder goes through this interface.
//
// Rules every backend keeps:
// - No file is held open between calls: each call opens, does its work and closes.
// - Text is UTF-8. Lines are written with CR LF. On reading, a line ends with CR LF, LF or a
//   lone CR (hand-edited files); a last line without any terminator is not part of readLines()
//   unless includeUnterminated is set, so counting readers never see it.
// - File names are matched without regard to case: "Jobs.log" finds "jobs.log". A file that
//   does not exist yet is created with the spelling given.
// - writeLines() replaces a whole file by writing a temporary file beside it and renaming it
//   over the old one, so a crash in the middle leaves the old file whole.
// - Nothing throws. Failures come back as false, std::nullopt or -1.
#include <QString>
#include <QStringList>
#include <optional>

namespace velmora::platform {

class TextFiles {
public:
    virtual ~TextFiles() = default;

    virtual bool exists(const QString& path) = 0;
    // Creates the file empty, truncating an existing one.
    virtual bool create(const QString& path) = 0;
    virtual std::optional<QStringList> readLines(const QString& path, bool includeUnterminated = false) = 0;
    virtual std::optional<QString> readAll(const QString& path) = 0;
    // Number of terminated lines, -1 when the file cannot be read.
    virtual int lineCount(const QString& path) = 0;
    // Replaces the file with the given lines, each followed by CR LF.
    virtual bool writeLines(const QString& path, const QStringList& lines) = 0;
    // Appends the given lines, each followed by CR LF, in one write; creates the file when missing.
    virtual bool appendLines(const QString& path, const QStringList& lines) = 0;
    // Size in bytes, -1 when the file does not exist.
    virtual qint64 size(const QString& path) = 0;
    virtual bool remove(const QString& path) = 0;
    // The path under which the file exists (its real spelling), or the path as given.
    virtual QString resolve(const QString& path) = 0;
    // Why the last call that failed on this thread failed, in words ("No space left on device");
    // empty when the backend cannot tell.
    virtual QString lastError() const { return {}; }
};

// Splits raw file bytes into lines by the reading rules above.
QStringList splitTextLines(const QByteArray& bytes, bool includeUnterminated);
QByteArray joinTextLines(const QStringList& lines);

} // namespace velmora::platform
