// Placeholders until the real backends land.
#include "platform/linux/computerchooser.h"
#include "platform/linux/linuxicmp.h"
#include "platform/linux/sshconnections.h"

namespace velmora::platform {
QString LinuxIcmp::resolve(const QString&) { return {}; }
std::vector<int> LinuxIcmp::echo(const QStringList& a, const QByteArray&, int) { return std::vector<int>(size_t(a.size()), 11050); }
void SshConnections::add(QObject*, const QString&, const QString&, const QString&, std::function<void(int)> done) { if (done) done(2); }
void SshConnections::cancel(const QString&) {}
QString SshConnections::controlPath(const QString&) { return {}; }
QString KnownComputersChooser::choose(QWidget*, const QString&) { return {}; }
QStringList knownComputers() { return {}; }
} // namespace velmora::platform
