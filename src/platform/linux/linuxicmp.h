#pragma once
#include "platform/icmp.h"

namespace velmora::platform {

// ICMP echo through the unprivileged datagram ICMP socket (net.ipv4.ping_group_range), or,
// where the system gives this user none, through velmora-ping: a small program of its own that
// alone carries cap_net_raw. This process never opens a raw socket.
class LinuxIcmp : public Icmp {
public:
    enum class SocketKind {
        Automatic, // the datagram socket, else the helper
        Datagram,  // only the datagram socket
        Helper,    // only the helper
    };
    // The status of one address and, when a reply came, the data it echoed.
    struct Reply {
        int status = 11010;
        QByteArray data;
    };
    // How much longer than a batch's time-out the helper may take (its start on a loaded
    // machine) before it is ended and its addresses count as not asked (11050).
    static constexpr int helperGraceMs = 5000;

    // helper: the helper program; empty: velmora-ping in the folder of this program's file.
    explicit LinuxIcmp(SocketKind kind = SocketKind::Automatic, const QString& helper = {});

    // This computer's own name (and "localhost") always resolves: to 127.0.0.1 when the resolver
    // does not know it, as on a machine without systemd's nss-myhostname.
    QString resolve(const QString& name) override;
    // The lookups run on threads of the call's own: 64 to begin with, and 64 more every 10 ms
    // while names wait for a thread (up to maxLookupThreads), each asking every name server for
    // one second once, whatever /etc/resolv.conf says.
    QStringList resolveAll(const QStringList& names, int timeoutMs) override;
    static constexpr int maxLookupThreads = 4096;
    std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) override;
    // Tries the datagram socket, then the helper; when neither may ping, names the two ways
    // out: a net.ipv4.ping_group_range that holds one of the user's groups, or the capability
    // cap_net_raw for the helper.
    QString unavailableReason() override;
    // echo() with the echoed data of every reply.
    std::vector<Reply> echoReplies(const QStringList& addresses, const QByteArray& data, int timeoutMs);

    const QString& helper() const { return helper_; }

private:
    SocketKind kind_;
    QString helper_;
};

} // namespace velmora::platform
