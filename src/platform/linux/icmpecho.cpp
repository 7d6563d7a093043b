#include "platform/linux/icmpecho.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/errqueue.h>
#include <linux/icmp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>

namespace velmora::platform::icmpecho {

namespace {

constexpr int StatusNetUnreachable = 11002;
constexpr int StatusHostUnreachable = 11003;
constexpr int StatusProtocolUnreachable = 11004;
constexpr int StatusPortUnreachable = 11005;
constexpr int StatusTtlExpired = 11013;

constexpr uint8_t TypeEchoReply = 0;
constexpr uint8_t TypeDestUnreachable = 3;
constexpr uint8_t TypeEchoRequest = 8;
constexpr uint8_t TypeTimeExceeded = 11;

// One request per address may be outstanding; the sequence number holds the low 16 bits of the
// address's index and, on a raw socket, the identifier the high bits on top of a base.
constexpr size_t SequenceSpan = 0x10000;

int statusForUnreachableCode(int code)
{
    switch (code) {
    case 0: case 6: case 9: case 11: return StatusNetUnreachable;
    case 2: return StatusProtocolUnreachable;
    case 3: return StatusPortUnreachable;
    default: return StatusHostUnreachable; // 1, 7, 10, 12 and the other "cannot reach it" codes
    }
}

int statusForIcmpError(int type, int code)
{
    return type == TypeTimeExceeded ? StatusTtlExpired : statusForUnreachableCode(code);
}

int statusForErrno(int err)
{
    switch (err) {
    case ENETUNREACH: return StatusNetUnreachable;
    case EHOSTUNREACH: return StatusHostUnreachable;
    default: return StatusGeneralFailure;
    }
}

uint16_t internetChecksum(const uint8_t* p, size_t len)
{
    uint32_t sum = 0;
    for (; len > 1; p += 2, len -= 2)
        sum += uint32_t(p[0]) << 8 | p[1];
    if (len)
        sum += uint32_t(p[0]) << 8;
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return uint16_t(~sum);
}

uint16_t read16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }

uint16_t randomIdentifier()
{
    uint16_t value = 0;
    if (::getrandom(&value, sizeof value, GRND_NONBLOCK) != sizeof value)
        value = uint16_t(::getpid());
    return value;
}

// Identifiers of raw-socket calls: distinct per call so that concurrent calls in this process
// (each with its own socket, but every raw socket sees every ICMP packet) ignore each other's
// replies, and random so that other programs' pings are unlikely to share them.
std::atomic<uint16_t> nextIdentifier{randomIdentifier()};

class EchoSession {
public:
    EchoSession(int fd, bool raw, const std::vector<std::string>& addresses, const std::string& data)
        : data_(data), replies_(addresses.size()), targets_(addresses.size()), waiting_(addresses.size(), false),
          fd_(fd), raw_(raw)
    {
        for (size_t i = 0; i < targets_.size(); ++i) {
            in_addr a{};
            if (addresses[i].empty() || inet_pton(AF_INET, addresses[i].c_str(), &a) != 1) {
                replies_[i].status = StatusBadAddress;
                continue;
            }
            targets_[i] = a;
            toSend_.push_back(i);
        }
        if (fd_ < 0) {
            // Without a socket nothing can be asked, and nobody counts as answering.
            for (size_t i : toSend_)
                replies_[i].status = StatusGeneralFailure;
            toSend_.clear();
        }
        if (raw_)
            identifierBase_ = nextIdentifier.fetch_add(uint16_t(1 + targets_.size() / SequenceSpan),
                                                       std::memory_order_relaxed);
    }

    std::vector<Reply> run(int timeoutMs)
    {
        if (fd_ < 0)
            return std::move(replies_);
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
        size_t next = 0;
        for (;;) {
            const bool blocked = !sendFrom(next);
            drain();
            if (next == toSend_.size() && outstanding_ == 0)
                break;
            const auto now = Clock::now();
            if (now >= deadline)
                break;
            int waitMs = int(std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count());
            // A full send queue frees up without telling poll() on every path (ENOBUFS), so
            // look again soon.
            if (blocked)
                waitMs = std::min(waitMs, 2);
            pollfd p{fd_, short(POLLIN | (blocked ? POLLOUT : 0)), 0};
            ::poll(&p, 1, waitMs);
        }
        for (size_t k = next; k < toSend_.size(); ++k)
            replies_[toSend_[k]].status = StatusGeneralFailure; // never left this machine
        for (size_t i = 0; i < waiting_.size(); ++i)
            if (waiting_[i])
                replies_[i].status = StatusTimedOut;
        return std::move(replies_);
    }

private:
    // Sends the requests from position next on; false when the socket cannot take more now.
    bool sendFrom(size_t& next)
    {
        std::vector<uint8_t> packet(8 + data_.size());
        if (!data_.empty())
            std::memcpy(packet.data() + 8, data_.data(), data_.size());
        while (next < toSend_.size()) {
            const size_t index = toSend_[next];
            const uint16_t identifier = uint16_t(identifierBase_ + index / SequenceSpan);
            const uint16_t sequence = uint16_t(index % SequenceSpan);
            packet[0] = TypeEchoRequest;
            packet[1] = 0;
            packet[2] = packet[3] = 0;
            packet[4] = uint8_t(identifier >> 8);
            packet[5] = uint8_t(identifier);
            packet[6] = uint8_t(sequence >> 8);
            packet[7] = uint8_t(sequence);
            const uint16_t sum = internetChecksum(packet.data(), packet.size());
            packet[2] = uint8_t(sum >> 8);
            packet[3] = uint8_t(sum);
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_addr = targets_[index];
            // A datagram socket hands a pending asynchronous error (an earlier request's
            // unreachable answer, which is also read from the error queue) to the next send:
            // one retry gives this request its own result.
            int err = 0;
            for (int attempt = 0; attempt < 2;) {
                const ssize_t r = ::sendto(fd_, packet.data(), packet.size(), MSG_NOSIGNAL,
                                           reinterpret_cast<const sockaddr*>(&to), sizeof to);
                err = r < 0 ? errno : 0;
                if (err == EINTR)
                    continue;
                if (err == 0 || err == EAGAIN || err == EWOULDBLOCK || err == ENOBUFS)
                    break;
                ++attempt;
            }
            if (err == EAGAIN || err == EWOULDBLOCK || err == ENOBUFS)
                return false;
            if (err != 0) {
                replies_[index].status = statusForErrno(err);
            } else {
                waiting_[index] = true;
                ++outstanding_;
            }
            ++next;
        }
        return true;
    }

    // Reads every answer that has arrived so far.
    void drain()
    {
        uint8_t buf[65536];
        for (;;) {
            const ssize_t n = ::recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                break;
            }
            if (raw_)
                takeRawPacket(buf, size_t(n));
            else
                takeDatagram(buf, size_t(n));
        }
        if (!raw_)
            drainErrorQueue();
    }

    // The position of the address an (identifier, sequence) pair belongs to, if still waiting.
    std::optional<size_t> waitingIndex(uint16_t identifier, uint16_t sequence, bool checkIdentifier) const
    {
        if (checkIdentifier) {
            const size_t block = uint16_t(identifier - identifierBase_);
            const size_t index = block * SequenceSpan + sequence;
            if (index < waiting_.size() && waiting_[index])
                return index;
            return std::nullopt;
        }
        // The kernel picks a datagram socket's identifier itself, and only this socket's
        // answers reach it: the sequence alone decides.
        for (size_t index = sequence; index < waiting_.size(); index += SequenceSpan)
            if (waiting_[index])
                return index;
        return std::nullopt;
    }

    void settle(size_t index, int status, std::string data = {})
    {
        waiting_[index] = false;
        --outstanding_;
        replies_[index].status = status;
        replies_[index].data = std::move(data);
    }

    void takeRawPacket(const uint8_t* p, size_t n)
    {
        if (n < 20)
            return;
        const size_t ihl = size_t(p[0] & 0x0f) * 4;
        if (n < ihl + 8)
            return;
        const uint8_t* icmp = p + ihl;
        const size_t icmpLen = n - ihl;
        const uint8_t type = icmp[0];
        if (type == TypeEchoReply) {
            if (auto index = waitingIndex(read16(icmp + 4), read16(icmp + 6), true))
                settle(*index, StatusSuccess, std::string(reinterpret_cast<const char*>(icmp + 8), icmpLen - 8));
            return;
        }
        if (type != TypeDestUnreachable && type != TypeTimeExceeded)
            return; // our own requests on loopback, and anything else
        // The error quotes the IP header and the first 8 bytes of the request it is about.
        const uint8_t* inner = icmp + 8;
        const size_t innerLen = icmpLen - 8;
        if (innerLen < 20 || inner[9] != IPPROTO_ICMP)
            return;
        const size_t innerIhl = size_t(inner[0] & 0x0f) * 4;
        if (innerLen < innerIhl + 8)
            return;
        const uint8_t* request = inner + innerIhl;
        if (request[0] != TypeEchoRequest)
            return;
        auto index = waitingIndex(read16(request + 4), read16(request + 6), true);
        if (!index || std::memcmp(inner + 16, &targets_[*index], 4) != 0)
            return;
        settle(*index, statusForIcmpError(type, icmp[1]));
    }

    void takeDatagram(const uint8_t* icmp, size_t n)
    {
        if (n < 8 || icmp[0] != TypeEchoReply)
            return;
        if (auto index = waitingIndex(0, read16(icmp + 6), false))
            settle(*index, StatusSuccess, std::string(reinterpret_cast<const char*>(icmp + 8), n - 8));
    }

    void drainErrorQueue()
    {
        for (;;) {
            uint8_t payload[512];
            alignas(cmsghdr) char control[512];
            sockaddr_in offender{};
            iovec iov{payload, sizeof payload};
            msghdr msg{};
            msg.msg_name = &offender;
            msg.msg_namelen = sizeof offender;
            msg.msg_iov = &iov;
            msg.msg_iovlen = 1;
            msg.msg_control = control;
            msg.msg_controllen = sizeof control;
            const ssize_t n = ::recvmsg(fd_, &msg, MSG_ERRQUEUE | MSG_DONTWAIT);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            // The payload is the request the error is about, from its ICMP header on.
            if (n < 8 || payload[0] != TypeEchoRequest)
                continue;
            const sock_extended_err* ee = nullptr;
            for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c))
                if (c->cmsg_level == SOL_IP && c->cmsg_type == IP_RECVERR)
                    ee = reinterpret_cast<const sock_extended_err*>(CMSG_DATA(c));
            if (!ee)
                continue;
            auto index = waitingIndex(0, read16(payload + 6), false);
            if (!index)
                continue;
            if (ee->ee_origin == SO_EE_ORIGIN_ICMP)
                settle(*index, statusForIcmpError(ee->ee_type, ee->ee_code));
            else if (ee->ee_origin == SO_EE_ORIGIN_LOCAL)
                settle(*index, statusForErrno(int(ee->ee_errno)));
        }
    }

    std::string data_;
    std::vector<Reply> replies_;
    std::vector<in_addr> targets_;
    std::vector<bool> waiting_;
    std::vector<size_t> toSend_; // positions of the valid addresses, in order
    size_t outstanding_ = 0;
    int fd_ = -1;
    bool raw_ = false;
    uint16_t identifierBase_ = 0;
};

} // namespace

int openSocket(bool raw)
{
    const int fd = ::socket(AF_INET, (raw ? SOCK_RAW : SOCK_DGRAM) | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (fd < 0)
        return -1;
    if (raw) {
        // Let through only what answers an echo: the kernel then keeps our own requests on
        // loopback and all other ICMP traffic out of the receive queue.
        icmp_filter filter{};
        filter.data = ~((1u << TypeEchoReply) | (1u << TypeDestUnreachable) | (1u << TypeTimeExceeded));
        ::setsockopt(fd, SOL_RAW, ICMP_FILTER, &filter, sizeof filter);
    } else {
        // Unreachable and time-exceeded answers reach a datagram socket only through its error
        // queue.
        const int on = 1;
        ::setsockopt(fd, SOL_IP, IP_RECVERR, &on, sizeof on);
    }
    // Room for a thousand replies arriving together, larger than the default when allowed.
    const int size = 4 * 1024 * 1024;
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    return fd;
}

std::vector<Reply> echo(int fd, bool raw, const std::vector<std::string>& addresses, const std::string& data,
                        int timeoutMs)
{
    return EchoSession(fd, raw, addresses, data).run(timeoutMs);
}

} // namespace velmora::platform::icmpecho
