#pragma once
// ICMP echo over one socket, in plain C++ without Qt: the program uses it with the unprivileged
// datagram socket, and velmora-ping (the small helper that alone may hold cap_net_raw) with a
// raw socket. The statuses are those of Icmp::echo().
#include <string>
#include <vector>

namespace velmora::platform::icmpecho {

constexpr int StatusSuccess = 0;
constexpr int StatusBadAddress = -1;
constexpr int StatusTimedOut = 11010;
constexpr int StatusGeneralFailure = 11050;

struct Reply {
    int status = StatusTimedOut;
    std::string data; // what a reply echoed
};

// Opens a non-blocking ICMP socket: a raw one (only with cap_net_raw) or a datagram one (only
// for a group in net.ipv4.ping_group_range). -1 with errno set when the system refuses it.
int openSocket(bool raw);

// Sends one echo request carrying data to every address over fd (from openSocket(raw)) and
// waits up to timeoutMs for the answers. An address that is not a dotted IPv4 address gets
// StatusBadAddress; nothing is ever looked up by name. One reply per address, in order.
std::vector<Reply> echo(int fd, bool raw, const std::vector<std::string>& addresses, const std::string& data,
                        int timeoutMs);

} // namespace velmora::platform::icmpecho
