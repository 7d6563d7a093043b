#include "core/writeresult.h"

#include "platform/textfiles.h"

#include <QStringList>

namespace velmora::core {

WriteResult writeFile(platform::TextFiles& files, const QString& path, const QStringList& lines)
{
    if (files.writeLines(path, lines))
        return {};
    const QString reason = files.lastError();
    return WriteResult::failed(path, reason.isEmpty() ? QStringLiteral("the file could not be written") : reason);
}

QString writeFailedText(const WriteResult& result)
{
    return QStringLiteral("Could not save \"%1\": %2.\nThe file was left as it was; nothing you entered is lost.")
        .arg(result.path, result.reason);
}

} // namespace velmora::core
