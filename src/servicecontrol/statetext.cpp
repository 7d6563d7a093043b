#include "servicecontrol/statetext.h"

namespace velmora::servicecontrol {

std::optional<QString> stateText(qint32 state)
{
    switch (state) {
    case 1: return QStringLiteral("Stopped");
    case 2: return QStringLiteral("Being Started");
    case 3: return QStringLiteral("In process of being stopped");
    case 4: return QStringLiteral("Running");
    case 5: return QStringLiteral("In process of being Continued");
    case 6: return QStringLiteral("In process of being Paused");
    case 7: return QStringLiteral("Paused");
    default: return std::nullopt;
    }
}

int stateIcon(const QString& text)
{
    if (text == QLatin1String("Running"))
        return 1;
    if (text == QLatin1String("Stopped"))
        return 2;
    if (text == QLatin1String("Being Started"))
        return 4;
    if (text == QLatin1String("In process of being stopped"))
        return 5;
    if (text == QLatin1String("Paused"))
        return 6;
    return 0;
}

std::optional<QString> startTypeText(qint32 startType)
{
    switch (startType) {
    case 2: return QStringLiteral("Automatic");
    case 3: return QStringLiteral("Manual");
    case 4: return QStringLiteral("Disabled");
    default: return std::nullopt;
    }
}

} // namespace velmora::servicecontrol
