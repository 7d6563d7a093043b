#pragma once
#include "platform/icmp.h"

namespace velmora::platform {

// ICMP echo through a raw socket, or an unprivileged datagram ICMP socket where raw sockets
// are not allowed.
class LinuxIcmp : public Icmp {
public:
    enum class SocketKind {
        Automatic, // raw socket, falling back to the datagram socket
        Datagram,  // only the unprivileged datagram socket (net.ipv4.ping_group_range)
    };
    // The status of one address and, when a reply came, the data it echoed.
    struct Reply {
        int status = 11010;
        QByteArray data;
    };

    explicit LinuxIcmp(SocketKind kind = SocketKind::Automatic) : kind_(kind) {}

    QString resolve(const QString& name) override;
    std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) override;
    // echo() with the echoed data of every reply.
    std::vector<Reply> echoReplies(const QStringList& addresses, const QByteArray& data, int timeoutMs);

private:
    SocketKind kind_;
};

} // namespace velmora::platform
