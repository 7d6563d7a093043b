// velmora-ping: sends ICMP echo requests for Velmora where the system gives ordinary users no
// datagram ICMP socket (net.ipv4.ping_group_range). It is the only file that carries the
// capability cap_net_raw, and it uses it for one thing: it opens one raw ICMP socket, then gives
// up every privilege (capabilities, and root's user and groups) before it reads a byte.
//
// It links no Qt, loads no plugin, looks up no name, runs no other program and reads no
// environment variable, so nothing a caller sets changes what it does with the socket.
//
// Standard output, first line: "ready", or "unavailable ERRNO" (and the program ends) when the
// raw socket is refused. Then, for every batch on standard input:
//   in:  "COUNT TIMEOUT_MS HEXDATA" and COUNT lines with one dotted IPv4 address each
//   out: COUNT lines "STATUS" or, for a reply, "0 HEXDATA" (what it echoed), in the same order
// with the statuses of Icmp::echo(). Anything malformed ends the program with status 2.
#include "platform/linux/icmpecho.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

namespace icmpecho = velmora::platform::icmpecho;

constexpr size_t maxCount = 1'000'000;
constexpr int maxTimeoutMs = 60'000;
constexpr size_t maxDataBytes = 65'000;
constexpr size_t maxLineBytes = 2 * maxDataBytes + 64;
constexpr uid_t nobody = 65534;

// Gives up everything but the socket already open: root becomes nobody, a set-user-id start
// becomes its caller, and no capability stays in any set. Returns false when one step failed.
bool dropPrivileges()
{
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return false;
    uid_t uid = ::getuid();
    gid_t gid = ::getgid();
    if (uid == 0) {
        uid = nobody;
        gid = nobody;
        if (::setgroups(0, nullptr) != 0)
            return false;
    }
    if (::setresgid(gid, gid, gid) != 0 || ::setresuid(uid, uid, uid) != 0)
        return false;
    ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    return ::syscall(SYS_capset, &header, none) == 0;
}

bool readLine(std::string& line)
{
    line.clear();
    for (int c; (c = std::getchar()) != EOF;) {
        if (c == '\n')
            return true;
        if (line.size() == maxLineBytes)
            return false;
        line.push_back(char(c));
    }
    return false;
}

bool fromHex(const char* text, std::string& out)
{
    out.clear();
    const size_t n = std::strlen(text);
    if (n % 2 != 0 || n / 2 > maxDataBytes)
        return false;
    for (size_t i = 0; i < n; i += 2) {
        char pair[3] = {text[i], text[i + 1], 0};
        char* end = nullptr;
        const long v = std::strtol(pair, &end, 16);
        if (end != pair + 2)
            return false;
        out.push_back(char(v));
    }
    return true;
}

void putHex(const std::string& data)
{
    static const char digits[] = "0123456789abcdef";
    for (unsigned char c : data) {
        std::putchar(digits[c >> 4]);
        std::putchar(digits[c & 15]);
    }
}

} // namespace

int main()
{
    const int fd = icmpecho::openSocket(true);
    const int openError = errno;
    if (!dropPrivileges())
        return 3;
    if (fd < 0) {
        std::printf("unavailable %d\n", openError);
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);

    std::string line, data;
    std::vector<std::string> addresses;
    while (readLine(line)) {
        unsigned long count = 0;
        int timeoutMs = 0;
        int consumed = 0;
        if (std::sscanf(line.c_str(), "%lu %d %n", &count, &timeoutMs, &consumed) != 2 || count > maxCount
            || timeoutMs < 0 || timeoutMs > maxTimeoutMs || !fromHex(line.c_str() + consumed, data))
            return 2;
        addresses.assign(count, {});
        for (std::string& a : addresses)
            if (!readLine(a) || a.size() > 64)
                return 2;
        for (const icmpecho::Reply& r : icmpecho::echo(fd, true, addresses, data, timeoutMs)) {
            std::printf("%d", r.status);
            if (r.status == icmpecho::StatusSuccess) {
                std::putchar(' ');
                putHex(r.data);
            }
            std::putchar('\n');
        }
        if (std::fflush(stdout) != 0)
            return 1;
    }
    return 0;
}
