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
    // The lookups run on threads of the call's own: 64 to begin with, and 64 more every 10 ms
    // while names wait for a thread (up to maxLookupThreads), each asking every name server for
    // one second once, whatever /etc/resolv.conf says.
    QStringList resolveAll(const QStringList& names, int timeoutMs) override;
    static constexpr int maxLookupThreads = 4096;
    std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) override;
    // Tries to open the sockets echo() would use; when none opens, names the two ways out: the
    // capability cap_net_raw for the program file, or a net.ipv4.ping_group_range that holds
    // one of the user's groups.
    QString unavailableReason() override;
    // echo() with the echoed data of every reply.
    std::vector<Reply> echoReplies(const QStringList& addresses, const QByteArray& data, int timeoutMs);

private:
    SocketKind kind_;
};

} // namespace velmora::platform
