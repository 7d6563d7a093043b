#pragma once
// The texts and icons of service states and start types. Every window and log line that shows a
// state uses these texts, and several places compare them as text ("Running", "Stopped").
#include <QString>
#include <optional>

namespace velmora::servicecontrol {

// 1 "Stopped", 2 "Being Started", 3 "In process of being stopped", 4 "Running",
// 5 "In process of being Continued", 6 "In process of being Paused", 7 "Paused".
// Any other number has no text: the caller keeps what it held.
std::optional<QString> stateText(qint32 state);

// The small icon of a service list item for a state text: 1 "Running", 2 "Stopped",
// 4 "Being Started", 5 "In process of being stopped", 6 "Paused"; 0 (no icon set) for any other.
int stateIcon(const QString& stateText);

// 2 "Automatic", 3 "Manual", 4 "Disabled"; any other number has no text.
std::optional<QString> startTypeText(qint32 startType);

} // namespace velmora::servicecontrol
