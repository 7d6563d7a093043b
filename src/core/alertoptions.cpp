#include "core/alertoptions.h"

#include "core/settings.h"
#include "platform/textfiles.h"

#include <optional>

namespace velmora::core {

namespace {

std::optional<int> count(const QString& text)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    return ok && value >= 0 && value <= 100000 ? std::optional<int>(value) : std::nullopt;
}

// Sets the option named name from text; false when the name is unknown or the value bad.
bool setOption(AlertOptions& o, const QString& name, const QString& text)
{
    const auto flag = [&](bool& field) {
        const auto value = parseBool(text);
        if (value)
            field = *value;
        return value.has_value();
    };
    const auto number = [&](int& field) {
        const auto value = count(text);
        if (value)
            field = *value;
        return value.has_value();
    };
    if (name == QLatin1String("Once"))
        return flag(o.once);
    if (name == QLatin1String("RemindScans"))
        return number(o.remindScans);
    if (name == QLatin1String("ServerDown"))
        return flag(o.serverDown);
    if (name == QLatin1String("ServerDownMail")) {
        o.serverDownMail = text.trimmed();
        return true;
    }
    if (name == QLatin1String("RestartLimit"))
        return number(o.restartLimit);
    if (name == QLatin1String("RestartScans"))
        return number(o.restartScans);
    if (name == QLatin1String("Journal"))
        return flag(o.journal);
    if (name == QLatin1String("Notify"))
        return flag(o.notify);
    return false;
}

} // namespace

QStringList alertOptionLines(const AlertOptions& o)
{
    return {QStringLiteral("Once=") + boolText(o.once),
            QStringLiteral("RemindScans=") + QString::number(o.remindScans),
            QStringLiteral("ServerDown=") + boolText(o.serverDown),
            QStringLiteral("ServerDownMail=") + o.serverDownMail,
            QStringLiteral("RestartLimit=") + QString::number(o.restartLimit),
            QStringLiteral("RestartScans=") + QString::number(o.restartScans),
            QStringLiteral("Journal=") + boolText(o.journal),
            QStringLiteral("Notify=") + boolText(o.notify)};
}

AlertOptionsRead readAlertOptions(platform::TextFiles& files, const QString& path)
{
    if (!files.exists(path))
        return {};
    const auto lines = files.readLines(path, true);
    if (!lines)
        return {{}, QStringLiteral("The alert options cannot be read from ") + path +
                        QStringLiteral("; every alert option is off until they are saved again.")};
    AlertOptions options;
    for (qsizetype n = 0; n < lines->size(); ++n) {
        const QString& line = lines->at(n);
        if (line.trimmed().isEmpty())
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq < 0 || !setOption(options, line.left(eq).trimmed(), line.mid(eq + 1)))
            return {{}, QStringLiteral("The alert options in ") + path + QStringLiteral(" are damaged (line ") +
                            QString::number(n + 1) + QStringLiteral(": \"") + line +
                            QStringLiteral("\"); every alert option is off until they are saved again.")};
    }
    return {options, {}};
}

bool writeAlertOptions(platform::TextFiles& files, const QString& path, const AlertOptions& options)
{
    return files.writeLines(path, alertOptionLines(options));
}

} // namespace velmora::core
