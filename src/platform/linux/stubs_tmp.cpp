// Placeholders until the real backends land.
#include "platform/linux/computerchooser.h"

namespace velmora::platform {
QString KnownComputersChooser::choose(QWidget*, const QString&) { return {}; }
QStringList knownComputers() { return {}; }
} // namespace velmora::platform
