#include "core/schedule.h"

#include "core/serverlistfile.h"
#include "platform/textfiles.h"

namespace velmora::core {

int leadingNumber(const QString& text)
{
    const QString t = text.trimmed();
    qsizetype n = 0;
    if (n < t.size() && (t[n] == QLatin1Char('-') || t[n] == QLatin1Char('+')))
        ++n;
    while (n < t.size() && t[n].isDigit())
        ++n;
    bool ok = false;
    const int value = t.left(n).toInt(&ok);
    return ok ? value : 0;
}

void Schedule::setText(const QString& minutes)
{
    text_ = minutes;
    emit changed(text_);
}

void Schedule::read(platform::TextFiles& files, const QString& path) { setText(readIntervalText(files, path)); }

WriteResult Schedule::save(platform::TextFiles& files, const QString& path) const
{
    return writeFile(files, path, {text_});
}

} // namespace velmora::core
