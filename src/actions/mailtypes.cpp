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

} // namespace velmora::actions
