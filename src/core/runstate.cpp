#include "core/runstate.h"
#include "core/datafolder.h"

namespace velmora::core {

QString RunState::file(const QString& name) const { return dataFile(datafolder, name); }

} // namespace velmora::core
