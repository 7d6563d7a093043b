// Placeholders until the real backends land.
#include "platform/linux/computerchooser.h"
#include "platform/linux/sshconnections.h"

namespace velmora::platform {
void SshConnections::add(QObject*, const QString&, const QString&, const QString&, std::function<void(int)> done) { if (done) done(2); }
void SshConnections::cancel(const QString&) {}
QString SshConnections::controlPath(const QString&) { return {}; }
QString KnownComputersChooser::choose(QWidget*, const QString&) { return {}; }
QStringList knownComputers() { return {}; }
} // namespace velmora::platform
