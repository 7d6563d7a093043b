#pragma once
// Text-file service: every stored file of the data folder goes through this interface.
//
// Rules every backend keeps:
// - No file is held open between calls: each call opens, does its work and closes.
// - Text is UTF-8, except in files whose bytes are not valid UTF-8 (text carried over from
//   Windows, say): these are read as Windows-1252, its five unassigned bytes 0x81, 0x8D, 0x8F,
//   0x90 and 0x9D standing for U+0081 and so on, so that every byte reads as a character of
//   its own and writes back as the same byte. The encoding a write uses is decided from the
//   bytes the file holds at that moment:
//     writeLines()  the old file is not valid UTF-8: Windows-1252, unless a line holds a
//                   character that Windows-1252 cannot write; then the whole file is written as
//                   UTF-8 (nothing is lost either way). Otherwise (valid, empty or no file): UTF-8.
//     appendLines() the last 64 KiB of the file (from its first line start on) are not valid
//                   UTF-8: Windows-1252, a character it cannot write becoming "?" as in any
//                   single-byte text; otherwise UTF-8. The old bytes are never rewritten.
//   So a file read and written back unchanged keeps every byte.
// - Lines are written with CR LF. On reading, a line ends with CR LF, LF or a
//   lone CR (hand-edited files); a last line without any terminator is not part of readLines()
//   unless includeUnterminated is set, so counting readers never see it.
// - File names are matched without regard to case: "Jobs.log" finds "jobs.log". A file that
//   does not exist yet is created with the spelling given.
// - writeLines() replaces a whole file by writing a temporary file beside it, syncing it and
//   renaming it over the old one. Every write, the sync and the close are checked: when any of
//   them fails (a full disk, say) the temporary file is removed and the old file stays whole.
//   A crash in the middle leaves the old file whole too.
// - appendLines() writes its lines in one write; when that fails part-way the file is cut back
//   to its old length, so a failed append leaves no half line behind.
// - A symbolic link is followed when it belongs to this user (or to root): the file it points to
//   is the one read, replaced or appended to, and the link stays. A link of another user is
//   never written through: the write fails with code 5.
// - Nothing throws. Failures come back as false, std::nullopt or -1; after a failed create(),
//   writeLines(), appendLines() or remove() lastFailure() says why.
#include <QString>
#include <QStringList>
#include <optional>

namespace velmora::platform {

// Why a call failed, for a message that names the file and the reason.
struct FileError {
    // The Windows error code of the failure:
    //   3 ERROR_PATH_NOT_FOUND       the folder does not exist (or a part of it is no folder)
    //   4 ERROR_TOO_MANY_OPEN_FILES  5 ERROR_ACCESS_DENIED        19 ERROR_WRITE_PROTECT (read-only file system)
    //   29 ERROR_WRITE_FAULT (input/output error)                 32 ERROR_SHARING_VIOLATION (busy)
    //   87 ERROR_INVALID_PARAMETER   112 ERROR_DISK_FULL          206 ERROR_FILENAME_EXCED_RANGE
    //   223 ERROR_FILE_TOO_LARGE     1295 ERROR_DISK_QUOTA_EXCEEDED
    //   31 ERROR_GEN_FAILURE         anything else
    int code = 0;
    // The system's own words for it, e.g. "No space left on device".
    QString reason;
};

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
    // Replaces the file with the given lines, each followed by CR LF. On failure the old file is
    // unchanged.
    virtual bool writeLines(const QString& path, const QStringList& lines) = 0;
    // Appends the given lines, each followed by CR LF, in one write; creates the file when missing.
    // A file whose last line has no line end gets CR LF first, so the new lines start on lines
    // of their own.
    // On failure the file keeps its old content.
    virtual bool appendLines(const QString& path, const QStringList& lines) = 0;
    // Size in bytes, -1 when the file does not exist.
    virtual qint64 size(const QString& path) = 0;
    virtual bool remove(const QString& path) = 0;
    // The path under which the file exists (its real spelling), or the path as given.
    virtual QString resolve(const QString& path) = 0;
    // Why the last create(), writeLines(), appendLines() or remove() that failed on the calling
    // thread failed; code 0 and no words when none failed or the backend cannot tell. Each thread
    // has its own, so a worker's failure never answers for the user-interface thread.
    virtual FileError lastFailure() const { return {}; }
    // The words of lastFailure(), e.g. "No space left on device".
    QString lastError() const { return lastFailure().reason; }
    // Removes the temporary copies that writeLines() left in folder when the program was killed
    // between writing a copy and renaming it: regular files of this user named
    // ".<name>.velmora-tmp-XXXXXX", a name no user gives a file. Nothing else is touched (copies
    // that earlier versions named "<name>.XXXXXX" cannot be told from a user's own files and are
    // left alone). Meant for start-up, once this copy knows it is the only one, before anything
    // writes. Returns how many were removed, -1 when folder cannot be listed.
    virtual int removeLeftoverCopies(const QString& folder) = 0;
    // Why folder is no place for the program's files, or empty when it is one: another user
    // owns it or may write into it (a group or everybody may), so that user could put links
    // there that make the program write over other files.
    virtual QString folderProblem(const QString& folder) = 0;
};

enum class TextEncoding { Utf8, Windows1252 };
// Utf8 when bytes are valid UTF-8 (plain ASCII and no bytes at all included), else Windows1252.
TextEncoding encodingOf(const QByteArray& bytes);
QString decodeText(const QByteArray& bytes, TextEncoding encoding);
// The bytes of text in encoding; std::nullopt when Windows-1252 cannot write one of its
// characters.
std::optional<QByteArray> encodeText(const QString& text, TextEncoding encoding);

// Splits raw file bytes into lines by the reading rules above, in the encoding encodingOf()
// finds for them.
QStringList splitTextLines(const QByteArray& bytes, bool includeUnterminated);
// The lines, each followed by CR LF, in encoding; std::nullopt as encodeText().
std::optional<QByteArray> joinTextLines(const QStringList& lines, TextEncoding encoding = TextEncoding::Utf8);

} // namespace velmora::platform
