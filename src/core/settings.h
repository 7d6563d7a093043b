#pragma once
// The settings record: the 20 lines of "Settings".
#include <QString>
#include <optional>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

struct SettingsRecord {
    bool popupalert = false;
    bool reportascending = false;
    QString reportinterval;
    QString reportsortcolumn;
    bool reporterrors = false;
    bool reportrunning = false;
    bool reportnotrunning = false;
    QString reportleft, reporttop, reportwidth, reportheight;
    QString mainleft, maintop;
    QString alertleft, alerttop;
    bool autoexport = false;
    bool autoexportoverwrite = false;
    QString autoexportcount;
    QString autoexportfile;
    QString endmarker = QStringLiteral("eof");

    // The values used when no "Settings" file exists.
    static SettingsRecord defaults(const QString& dataFolder);
};

// Fills the record from the file, or from the defaults when the file does not exist. A short
// or damaged file is read up to its first bad line; the fields after it keep the values they
// had (the caller's initial record: empty, False, "eof").
void readSettings(platform::TextFiles& files, const QString& path, SettingsRecord& record);
// Writes the 20 lines; returns false when the file could not be written.
bool writeSettings(platform::TextFiles& files, const QString& path, const SettingsRecord& record);

// "True"/"False" as the files store them. Reading also accepts any case, blanks around the
// value, "#TRUE#"/"#FALSE#", and a decimal number (0 False, any other True); anything else,
// the empty text included, is not a Boolean.
QString boolText(bool value);
std::optional<bool> parseBool(const QString& text);

} // namespace velmora::core
