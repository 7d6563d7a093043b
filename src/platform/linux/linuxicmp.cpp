#include "platform/linux/linuxicmp.h"

#include <QFile>
#include <QRandomGenerator>

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/errqueue.h>
#include <linux/icmp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <resolv.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace velmora::platform {

namespace {

constexpr int StatusSuccess = 0;
constexpr int StatusBadAddress = -1;
constexpr int StatusNetUnreachable = 11002;
constexpr int StatusHostUnreachable = 11003;
constexpr int StatusProtocolUnreachable = 11004;
constexpr int StatusPortUnreachable = 11005;
constexpr int StatusTimedOut = 11010;
constexpr int StatusTtlExpired = 11013;
constexpr int StatusGeneralFailure = 11050;

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

// Identifiers of raw-socket calls: distinct per call so that concurrent calls in this process
// (each with its own socket, but every raw socket sees every ICMP packet) ignore each other's
// replies, and random so that other programs' pings are unlikely to share them.
std::atomic<uint16_t> nextIdentifier{uint16_t(QRandomGenerator::global()->generate())};

class EchoSession {
public:
    EchoSession(const QStringList& addresses, const QByteArray& data, LinuxIcmp::SocketKind kind)
        : data_(data), replies_(size_t(addresses.size())), targets_(size_t(addresses.size())),
          waiting_(size_t(addresses.size()), false)
    {
        for (size_t i = 0; i < targets_.size(); ++i) {
            const QByteArray text = addresses[qsizetype(i)].toLatin1();
            in_addr a{};
            if (text.isEmpty() || inet_pton(AF_INET, text.constData(), &a) != 1) {
                replies_[i].status = StatusBadAddress;
                continue;
            }
            targets_[i] = a;
            toSend_.push_back(i);
        }
        if (toSend_.empty())
            return;
        openSocket(kind);
        if (fd_ < 0) {
            // Without any ICMP socket nothing can be asked, and nobody counts as answering.
            for (size_t i : toSend_)
                replies_[i].status = StatusGeneralFailure;
            toSend_.clear();
        }
    }
    ~EchoSession()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }

    std::vector<LinuxIcmp::Reply> run(int timeoutMs)
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
    void openSocket(LinuxIcmp::SocketKind kind)
    {
        if (kind == LinuxIcmp::SocketKind::Automatic) {
            fd_ = ::socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_ICMP);
            if (fd_ >= 0) {
                raw_ = true;
                // Let through only what answers an echo: the kernel then keeps our own requests
                // on loopback and all other ICMP traffic out of the receive queue.
                icmp_filter filter{};
                filter.data = ~((1u << TypeEchoReply) | (1u << TypeDestUnreachable) | (1u << TypeTimeExceeded));
                ::setsockopt(fd_, SOL_RAW, ICMP_FILTER, &filter, sizeof filter);
                identifierBase_ = nextIdentifier.fetch_add(
                    uint16_t(1 + targets_.size() / SequenceSpan), std::memory_order_relaxed);
            }
        }
        if (fd_ < 0) {
            fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_ICMP);
            if (fd_ < 0)
                return;
            // Unreachable and time-exceeded answers reach a datagram socket only through its
            // error queue.
            const int on = 1;
            ::setsockopt(fd_, SOL_IP, IP_RECVERR, &on, sizeof on);
        }
        // Room for a thousand replies arriving together, larger than the default when allowed.
        const int size = 4 * 1024 * 1024;
        if (::setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
            ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }

    // Sends the requests from position next on; false when the socket cannot take more now.
    bool sendFrom(size_t& next)
    {
        std::vector<uint8_t> packet(8 + size_t(data_.size()));
        if (!data_.isEmpty())
            std::memcpy(packet.data() + 8, data_.constData(), size_t(data_.size()));
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

    void settle(size_t index, int status, QByteArray data = {})
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
                settle(*index, StatusSuccess,
                       QByteArray(reinterpret_cast<const char*>(icmp + 8), qsizetype(icmpLen - 8)));
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
            settle(*index, StatusSuccess, QByteArray(reinterpret_cast<const char*>(icmp + 8), qsizetype(n - 8)));
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

    QByteArray data_;
    std::vector<LinuxIcmp::Reply> replies_;
    std::vector<in_addr> targets_;
    std::vector<bool> waiting_;
    std::vector<size_t> toSend_; // positions of the valid addresses, in order
    size_t outstanding_ = 0;
    int fd_ = -1;
    bool raw_ = false;
    uint16_t identifierBase_ = 0;
};

} // namespace

namespace {

constexpr size_t lookupThreadStep = 64;
constexpr auto lookupGrowthPeriod = std::chrono::milliseconds(10);

// One batch of lookups, shared by the threads that work on it and the caller, which may stop
// waiting for it before the threads are done.
struct LookupBatch {
    std::vector<QByteArray> names;
    std::vector<size_t> pending; // positions of the names that need a name server
    std::chrono::steady_clock::time_point deadline;
    std::mutex mutex;
    std::condition_variable finished;
    QStringList addresses;
    size_t next = 0;      // the next position in pending to take
    size_t remaining = 0; // lookups not yet answered
};

QString lookUp(const QByteArray& name)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM; // one entry per address instead of one per socket type
    addrinfo* result = nullptr;
    if (::getaddrinfo(name.constData(), nullptr, &hints, &result) != 0 || !result)
        return {};
    char text[INET_ADDRSTRLEN] = {};
    const auto* a = reinterpret_cast<const sockaddr_in*>(result->ai_addr);
    ::inet_ntop(AF_INET, &a->sin_addr, text, sizeof text);
    ::freeaddrinfo(result);
    return QString::fromLatin1(text);
}

void* lookUpBatch(void* arg)
{
    std::unique_ptr<std::shared_ptr<LookupBatch>> owner(static_cast<std::shared_ptr<LookupBatch>*>(arg));
    LookupBatch& batch = **owner;
    // The resolver's settings belong to this thread: one second for each name server, one try,
    // instead of the usual five seconds twice.
    if (::res_init() == 0) {
        _res.retrans = 1;
        _res.retry = 1;
    }
    for (;;) {
        size_t index;
        {
            std::lock_guard lock(batch.mutex);
            if (batch.next == batch.pending.size() || std::chrono::steady_clock::now() >= batch.deadline)
                return nullptr;
            index = batch.pending[batch.next++];
        }
        const QString address = lookUp(batch.names[index]);
        std::lock_guard lock(batch.mutex);
        batch.addresses[qsizetype(index)] = address;
        if (--batch.remaining == 0)
            batch.finished.notify_all();
    }
}

// Starts a detached thread with a small stack working on batch; false when none could start.
bool startLookupThread(const std::shared_ptr<LookupBatch>& batch)
{
    pthread_attr_t attr;
    if (::pthread_attr_init(&attr) != 0)
        return false;
    ::pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    ::pthread_attr_setstacksize(&attr, 512 * 1024);
    auto* arg = new std::shared_ptr<LookupBatch>(batch);
    pthread_t thread;
    const bool started = ::pthread_create(&thread, &attr, lookUpBatch, arg) == 0;
    ::pthread_attr_destroy(&attr);
    if (!started)
        delete arg;
    return started;
}

} // namespace

QString LinuxIcmp::resolve(const QString& name)
{
    return resolveAll({name}, resolveTimeoutMs).value(0);
}

QStringList LinuxIcmp::resolveAll(const QStringList& names, int timeoutMs)
{
    auto batch = std::make_shared<LookupBatch>();
    batch->deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    batch->addresses.resize(names.size());
    batch->names.resize(size_t(names.size()));
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QByteArray text = names[i].toLocal8Bit();
        in_addr a{};
        if (text.isEmpty())
            continue;
        if (inet_pton(AF_INET, text.constData(), &a) == 1) {
            batch->addresses[i] = names[i]; // a dotted address needs no name server
            continue;
        }
        batch->names[size_t(i)] = text;
        batch->pending.push_back(size_t(i));
    }
    if (batch->pending.empty())
        return batch->addresses;
    batch->remaining = batch->pending.size();
    // A few threads start; while names still wait for one (the threads there are stuck on slow
    // names), more join, so that the answers of quick names are never held up for long.
    size_t threads = 0;
    std::unique_lock lock(batch->mutex);
    for (;;) {
        const size_t waiting = batch->pending.size() - batch->next;
        const size_t more = std::min({waiting, lookupThreadStep, size_t(maxLookupThreads) - threads});
        lock.unlock();
        for (size_t k = 0; k < more && startLookupThread(batch); ++k)
            ++threads;
        lock.lock();
        if (threads == 0)
            return QStringList(names.size(), QString()); // no thread at all: nothing resolves
        const auto wake = std::min(batch->deadline, std::chrono::steady_clock::now() + lookupGrowthPeriod);
        if (batch->finished.wait_until(lock, wake, [&] { return batch->remaining == 0; }))
            break;
        if (std::chrono::steady_clock::now() >= batch->deadline)
            break;
    }
    // Lookups still under way are left to finish on their own; their answers go nowhere.
    batch->next = batch->pending.size();
    return batch->addresses;
}

QString LinuxIcmp::unavailableReason()
{
    int rawError = EPERM;
    if (kind_ == SocketKind::Automatic) {
        const int fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
        if (fd >= 0) {
            ::close(fd);
            return {};
        }
        rawError = errno;
    }
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (fd >= 0) {
        ::close(fd);
        return {};
    }
    const int datagramError = errno;
    QString range;
    QFile rangeFile(QStringLiteral("/proc/sys/net/ipv4/ping_group_range"));
    if (rangeFile.open(QIODevice::ReadOnly))
        range = QString::fromLatin1(rangeFile.readAll()).simplified();
    char exe[4096] = {};
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    const QString program = n > 0 ? QString::fromLocal8Bit(exe, n) : QStringLiteral("<program>");
    return QStringLiteral(
               "Servers cannot be pinged: this user may open neither a raw ICMP socket (%1; it needs "
               "the capability cap_net_raw) nor a datagram ICMP socket (%2; the user's group %3 "
               "is not in net.ipv4.ping_group_range \"%4\"). Every server is shown as not "
               "answering. To allow pinging, give the program the capability as root: "
               "setcap cap_net_raw+ep %5 - or let the user's group ping: "
               "sysctl -w net.ipv4.ping_group_range=\"%6 %6\" (in /etc/sysctl.d to keep it).")
        .arg(QString::fromLocal8Bit(std::strerror(rawError)), QString::fromLocal8Bit(std::strerror(datagramError)),
             QString::number(::getgid()), range, program, QString::number(::getgid()));
}

std::vector<LinuxIcmp::Reply> LinuxIcmp::echoReplies(const QStringList& addresses, const QByteArray& data,
                                                     int timeoutMs)
{
    EchoSession session(addresses, data, kind_);
    return session.run(timeoutMs);
}

std::vector<int> LinuxIcmp::echo(const QStringList& addresses, const QByteArray& data, int timeoutMs)
{
    std::vector<int> statuses;
    statuses.reserve(size_t(addresses.size()));
    for (const Reply& r : echoReplies(addresses, data, timeoutMs))
        statuses.push_back(r.status);
    return statuses;
}

} // namespace velmora::platform
