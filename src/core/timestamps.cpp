#include "core/timestamps.h"

namespace velmora::core {

QString dateText(const QDate& date)
{
    // Digits only, so the C locale writes them the same on every system.
    return date.toString(QStringLiteral("dd.MM.yyyy"));
}

} // namespace velmora::core
