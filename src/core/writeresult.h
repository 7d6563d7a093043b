#pragma once
// The outcome of storing a data file: empty when it was written, else which file failed and why.
#include <QString>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

struct WriteResult {
    QString path;   // the file that could not be written; empty when all went well
    QString reason; // why, in words

    bool ok() const { return path.isEmpty(); }
    explicit operator bool() const { return ok(); }
    static WriteResult failed(const QString& path, const QString& reason) { return {path, reason}; }
};

// Replaces a whole file with lines; a failure names the file and the reason.
WriteResult writeFile(platform::TextFiles& files, const QString& path, const QStringList& lines);

// The message that tells the user a file was not written: the file, the reason, and that the
// file as it was is still there.
QString writeFailedText(const WriteResult& result);

} // namespace velmora::core
