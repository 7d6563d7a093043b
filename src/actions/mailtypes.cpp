#include "actions/mailtypes.h"

namespace velmora::actions {

QString trimBlanks(const QString& text)
{
    qsizetype begin = 0, end = text.size();
    while (begin < end && text.at(begin) == QLatin1Char(' '))
        ++begin;
    while (end > begin && text.at(end - 1) == QLatin1Char(' '))
        --end;
    return text.mid(begin, end - begin);
}

bool holdsLineBreak(const QString& text)
{
    for (const QChar c : text) {
        switch (c.unicode()) {
        case 0x00: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x85: case 0x2028: case 0x2029:
            return true;
        default:
            break;
        }
    }
    return false;
}

QString lineBreakRefusal(std::initializer_list<std::pair<QString, const char*>> fields)
{
    for (const auto& [text, what] : fields) {
        if (holdsLineBreak(text))
            return QStringLiteral("The %1 holds a line break, which a mail server would take for the end of it and "
                                  "the start of a command or header of its own.\n\nRemove the line break and send "
                                  "again.")
                .arg(QString::fromLatin1(what));
    }
    return {};
}

} // namespace velmora::actions
