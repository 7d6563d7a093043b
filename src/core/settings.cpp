#include "core/settings.h"

#include "core/datafolder.h"
#include "platform/textfiles.h"

#include <QFileInfo>
#include <cmath>

namespace velmora::core {

SettingsRecord SettingsRecord::defaults(const QString& dataFolder)
{
    SettingsRecord r;
    r.popupalert = true;
    r.reportascending = true;
    r.reportinterval = QStringLiteral("5");
    r.reportsortcolumn = QStringLiteral("1");
    r.reporterrors = true;
    r.reportrunning = true;
    r.reportnotrunning = true;
    r.autoexport = false;
    r.autoexportoverwrite = false;
    r.autoexportcount = QStringLiteral("1000");
    r.autoexportfile = dataFile(dataFolder, files::autoexport);
    return r;
}

QString boolText(bool value)
{
    return value ? QStringLiteral("True") : QStringLiteral("False");
}

// Accepted, with blanks around the value ignored:
// - "True"/"False" in any case (what the program writes, and hand edits like "true");
// - "#TRUE#"/"#FALSE#" (how classic BASIC's "Write #" stores Booleans in data files);
// - a decimal number: 0 is False, any other number True (hand edits like "1"/"0").
// Anything else, the empty text included, is not a Boolean.
std::optional<bool> parseBool(const QString& text)
{
    const QString t = text.trimmed();
    if (t.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0
        || t.compare(QLatin1String("#TRUE#"), Qt::CaseInsensitive) == 0)
        return true;
    if (t.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0
        || t.compare(QLatin1String("#FALSE#"), Qt::CaseInsensitive) == 0)
        return false;
    bool ok = false;
    const double number = t.toDouble(&ok); // C locale: "1.5", "-2", "1e3"
    if (ok && std::isfinite(number))
        return number != 0.0;
    return std::nullopt;
}

namespace {

// One slot of the 20-line layout: either a Boolean field or a text field.
struct Slot {
    bool SettingsRecord::*flag = nullptr;
    QString SettingsRecord::*text = nullptr;
};

const Slot layout[20] = {
    {&SettingsRecord::popupalert, nullptr},
    {&SettingsRecord::reportascending, nullptr},
    {nullptr, &SettingsRecord::reportinterval},
    {nullptr, &SettingsRecord::reportsortcolumn},
    {&SettingsRecord::reporterrors, nullptr},
    {&SettingsRecord::reportrunning, nullptr},
    {&SettingsRecord::reportnotrunning, nullptr},
    {nullptr, &SettingsRecord::reportleft},
    {nullptr, &SettingsRecord::reporttop},
    {nullptr, &SettingsRecord::reportwidth},
    {nullptr, &SettingsRecord::reportheight},
    {nullptr, &SettingsRecord::mainleft},
    {nullptr, &SettingsRecord::maintop},
    {nullptr, &SettingsRecord::alertleft},
    {nullptr, &SettingsRecord::alerttop},
    {&SettingsRecord::autoexport, nullptr},
    {&SettingsRecord::autoexportoverwrite, nullptr},
    {nullptr, &SettingsRecord::autoexportcount},
    {nullptr, &SettingsRecord::autoexportfile},
    {nullptr, &SettingsRecord::endmarker},
};

} // namespace

void readSettings(platform::TextFiles& files, const QString& path, SettingsRecord& record)
{
    if (!files.exists(path)) {
        // Only the fields that have a default change; positions and the end marker stay.
        const SettingsRecord d = SettingsRecord::defaults(QFileInfo(path).path());
        record.popupalert = d.popupalert;
        record.reportascending = d.reportascending;
        record.reportinterval = d.reportinterval;
        record.reportsortcolumn = d.reportsortcolumn;
        record.reporterrors = d.reporterrors;
        record.reportrunning = d.reportrunning;
        record.reportnotrunning = d.reportnotrunning;
        record.autoexport = d.autoexport;
        record.autoexportoverwrite = d.autoexportoverwrite;
        record.autoexportcount = d.autoexportcount;
        record.autoexportfile = d.autoexportfile;
        return;
    }
    // Read line by line as the file stands: a last line without a line end still counts.
    const auto lines = files.readLines(path, true);
    if (!lines)
        return;
    for (int i = 0; i < 20; ++i) {
        if (i >= lines->size())
            return; // short file: the rest keeps its values
        const QString& line = lines->at(i);
        const Slot& slot = layout[i];
        if (slot.flag) {
            const auto value = parseBool(line);
            if (!value)
                return; // first bad line ends the reading
            record.*slot.flag = *value;
        } else {
            record.*slot.text = line;
        }
    }
}

bool writeSettings(platform::TextFiles& files, const QString& path, const SettingsRecord& record)
{
    QStringList lines;
    for (const Slot& slot : layout)
        lines << (slot.flag ? boolText(record.*slot.flag) : record.*slot.text);
    return files.writeLines(path, lines);
}

} // namespace velmora::core
