#pragma once
#include "platform/icmp.h"

namespace velmora::platform {

// ICMP echo through a raw socket, or an unprivileged datagram ICMP socket where raw sockets
// are not allowed.
class LinuxIcmp : public Icmp {
public:
    QString resolve(const QString& name) override;
    std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) override;
};

} // namespace velmora::platform
