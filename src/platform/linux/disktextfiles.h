#pragma once
#include "platform/textfiles.h"

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
};

} // namespace velmora::platform
