#pragma once
#include "platform/textfiles.h"

#include <mutex>
#include <thread>
#include <unordered_map>

namespace velmora::platform {

// Text files on the local file system (see textfiles.h for the rules).
class DiskTextFiles : public TextFiles {
public:
    bool exists(const QString& path) override;
    bool create(const QString& path) override;
    std::optional<QStringList> readLines(const QString& path, bool includeUnterminated = false) override;
    std::optional<QString> readAll(const QString& path) override;
    int lineCount(const QString& path) override;
    bool writeLines(const QString& path, const QStringList& lines) override;
    bool appendLines(const QString& path, const QStringList& lines) override;
    qint64 size(const QString& path) override;
    bool remove(const QString& path) override;
    QString resolve(const QString& path) override;
    int removeLeftoverCopies(const QString& folder) override;
    QString folderProblem(const QString& folder) override;
    FileError lastFailure() const override;

    // The Windows error code and the system's words for a native error number.
    static FileError errorFor(int errnum);

protected:
    // Writes all of bytes to the open file fd; 0 when done, else the error number of the
    // failed write (some bytes may have been written by then). The simulated platform replaces
    // it to let the disk fill up part-way.
    virtual int writeBytes(int fd, const QByteArray& bytes);
    // Keeps errnum (0: none) as the calling thread's last failure; true when errnum is 0.
    bool report(int errnum);

private:
    int replaceFile(const QString& target, const QByteArray& bytes);
    int appendFile(const QString& target, const QStringList& lines);

    mutable std::mutex failuresMutex_;
    std::unordered_map<std::thread::id, FileError> lastFailures_;
};

} // namespace velmora::platform
