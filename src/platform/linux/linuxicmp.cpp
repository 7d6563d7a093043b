#include "platform/linux/linuxicmp.h"

#include "platform/linux/icmpecho.h"

#include <QFile>
#include <QFileInfo>

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <resolv.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace velmora::platform {

namespace {

constexpr int StatusGeneralFailure = icmpecho::StatusGeneralFailure;

bool dottedAddress(const QString& text)
{
    const QByteArray latin = text.toLatin1();
    in_addr a{};
    return !latin.isEmpty() && inet_pton(AF_INET, latin.constData(), &a) == 1;
}

using Clock = std::chrono::steady_clock;

// One run of the ping helper: started with an empty environment and nothing open but a socket
// that is its standard input and output; ended (and reaped) with the object.
class HelperRun {
public:
    explicit HelperRun(const QString& program)
    {
        int pair[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
            return;
        const QByteArray path = QFile::encodeName(program);
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attr;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, pair[1], 0);
        ::posix_spawn_file_actions_adddup2(&actions, pair[1], 1);
        ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);
        ::posix_spawnattr_init(&attr);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attr, &none);
        ::posix_spawnattr_setsigdefault(&attr, &all);
        ::posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        char* argv[] = {const_cast<char*>(path.constData()), nullptr};
        char* envp[] = {nullptr};
        if (::posix_spawn(&pid_, path.constData(), &actions, &attr, argv, envp) != 0)
            pid_ = -1;
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attr);
        ::close(pair[1]);
        if (pid_ > 0) {
            fd_ = pair[0];
            ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
        } else {
            ::close(pair[0]);
        }
    }
    ~HelperRun()
    {
        if (fd_ >= 0)
            ::close(fd_);
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    bool started() const { return fd_ >= 0; }

    bool send(const QByteArray& bytes, Clock::time_point deadline)
    {
        qsizetype sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = ::send(fd_, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n > 0) {
                sent += n;
                continue;
            }
            if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
                return false;
            if (!wait(POLLOUT, deadline))
                return false;
        }
        return true;
    }

    // The next line, without its end; false when the helper ended or deadline passed first.
    bool readLine(QByteArray& line, Clock::time_point deadline)
    {
        for (;;) {
            const qsizetype end = buffer_.indexOf('\n', scanned_);
            if (end >= 0) {
                line = buffer_.mid(scanned_, end - scanned_);
                scanned_ = end + 1;
                if (scanned_ > 65536) {
                    buffer_.remove(0, scanned_);
                    scanned_ = 0;
                }
                return true;
            }
            char chunk[65536];
            const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
            if (n > 0) {
                buffer_.append(chunk, n);
                continue;
            }
            if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
                return false;
            if (!wait(POLLIN, deadline))
                return false;
        }
    }

private:
    bool wait(short events, Clock::time_point deadline)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return false;
        pollfd p{fd_, events, 0};
        return ::poll(&p, 1, int(left)) >= 0;
    }

    pid_t pid_ = -1;
    int fd_ = -1;
    QByteArray buffer_;
    qsizetype scanned_ = 0;
};

// Why the helper cannot ping (its first line), or an empty text when it is ready.
QString helperProblem(HelperRun& run, Clock::time_point deadline, const QString& program)
{
    QByteArray line;
    if (!run.started())
        return QStringLiteral("the ping helper %1 could not be started (%2)")
            .arg(program, QFile::exists(program) ? QStringLiteral("not executable") : QStringLiteral("missing"));
    if (!run.readLine(line, deadline))
        return QStringLiteral("the ping helper %1 did not start properly").arg(program);
    if (line == "ready")
        return {};
    if (line.startsWith("unavailable "))
        return QStringLiteral("the ping helper %1 may not open a raw ICMP socket either (%2; it needs the "
                              "capability cap_net_raw)")
            .arg(program, QString::fromLocal8Bit(std::strerror(line.mid(12).toInt())));
    return QStringLiteral("the ping helper %1 did not start properly").arg(program);
}

std::vector<LinuxIcmp::Reply> echoThroughHelper(const QString& program, const QStringList& addresses,
                                                const QByteArray& data, int timeoutMs)
{
    std::vector<LinuxIcmp::Reply> replies(size_t(addresses.size()));
    QByteArray request;
    std::vector<size_t> asked; // positions of the addresses sent to the helper
    for (qsizetype i = 0; i < addresses.size(); ++i) {
        if (!dottedAddress(addresses[i])) {
            replies[size_t(i)].status = icmpecho::StatusBadAddress;
            continue;
        }
        asked.push_back(size_t(i));
        request += addresses[i].toLatin1() + '\n';
    }
    if (asked.empty())
        return replies;
    for (size_t i : asked)
        replies[i].status = StatusGeneralFailure; // until the helper says otherwise
    timeoutMs = std::clamp(timeoutMs, 0, 60000);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs + LinuxIcmp::helperGraceMs);
    HelperRun run(program);
    if (!helperProblem(run, deadline, program).isEmpty())
        return replies;
    request.prepend(QByteArray::number(qulonglong(asked.size())) + ' ' + QByteArray::number(timeoutMs) + ' '
                    + data.toHex() + '\n');
    if (!run.send(request, deadline))
        return replies;
    QByteArray line;
    for (size_t i : asked) {
        if (!run.readLine(line, deadline))
            break;
        const qsizetype space = line.indexOf(' ');
        bool ok = false;
        const int status = line.left(space < 0 ? line.size() : space).toInt(&ok);
        if (!ok)
            break;
        replies[i].status = status;
        if (space >= 0)
            replies[i].data = QByteArray::fromHex(line.mid(space + 1));
    }
    return replies;
}

QString programFolder()
{
    char exe[4096] = {};
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    return n > 0 ? QFileInfo(QString::fromLocal8Bit(exe, n)).absolutePath() : QString();
}

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

// Whether name is this computer's own: its host name, with or without the domain, or
// "localhost"; in any case, as server names are upper case.
bool isOwnName(const QString& name)
{
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) != 0)
        host[0] = 0;
    const QString full = QString::fromLocal8Bit(host);
    const QString plain = full.section(QLatin1Char('.'), 0, 0);
    for (const QString& own : {full, plain, QStringLiteral("localhost")}) {
        if (!own.isEmpty() && name.compare(own, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

// This computer always answers to its own name, as it does where systemd's nss-myhostname is
// among the resolver's sources: a name of its own that the resolver did not know (a container or
// a chroot whose /etc/hosts has no line for it) is the loopback address. Without it "Local"
// would turn unreachable at the first re-ping.
QStringList withOwnNameAnswered(QStringList addresses, const QStringList& names)
{
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (addresses[i].isEmpty() && !names[i].isEmpty() && isOwnName(names[i]))
            addresses[i] = QStringLiteral("127.0.0.1");
    }
    return addresses;
}

} // namespace

LinuxIcmp::LinuxIcmp(SocketKind kind, const QString& helper)
    : kind_(kind), helper_(helper.isEmpty() ? programFolder() + QStringLiteral("/velmora-ping") : helper)
{
}

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
        if (threads == 0) // no thread at all: nothing resolves
            return withOwnNameAnswered(QStringList(names.size(), QString()), names);
        const auto wake = std::min(batch->deadline, std::chrono::steady_clock::now() + lookupGrowthPeriod);
        if (batch->finished.wait_until(lock, wake, [&] { return batch->remaining == 0; }))
            break;
        if (std::chrono::steady_clock::now() >= batch->deadline)
            break;
    }
    // Lookups still under way are left to finish on their own; their answers go nowhere.
    batch->next = batch->pending.size();
    return withOwnNameAnswered(batch->addresses, names);
}

QString LinuxIcmp::unavailableReason()
{
    int datagramError = EPERM;
    if (kind_ != SocketKind::Helper) {
        const int fd = icmpecho::openSocket(false);
        if (fd >= 0) {
            ::close(fd);
            return {};
        }
        datagramError = errno;
    }
    QString helperText = QStringLiteral("no ping helper is used");
    if (kind_ != SocketKind::Datagram) {
        HelperRun run(helper_);
        helperText = helperProblem(run, Clock::now() + std::chrono::milliseconds(helperGraceMs), helper_);
        if (helperText.isEmpty())
            return {};
    }
    QString range;
    QFile rangeFile(QStringLiteral("/proc/sys/net/ipv4/ping_group_range"));
    if (rangeFile.open(QIODevice::ReadOnly))
        range = QString::fromLatin1(rangeFile.readAll()).simplified();
    const QString group = QString::number(::getgid());
    return QStringLiteral(
               "Servers cannot be pinged: this user may not open a datagram ICMP socket (%1; the user's "
               "group %2 is not in net.ipv4.ping_group_range \"%3\"), and %4. Every server is shown as "
               "not answering. To allow pinging, let the user's group ping as root: "
               "sysctl -w net.ipv4.ping_group_range=\"%2 %2\" (in /etc/sysctl.d to keep it) - or give "
               "the ping helper the capability: setcap cap_net_raw+ep %5")
        .arg(QString::fromLocal8Bit(std::strerror(datagramError)), group, range, helperText, helper_);
}

std::vector<LinuxIcmp::Reply> LinuxIcmp::echoReplies(const QStringList& addresses, const QByteArray& data,
                                                     int timeoutMs)
{
    const int fd = kind_ == SocketKind::Helper ? -1 : icmpecho::openSocket(false);
    if (fd < 0 && kind_ != SocketKind::Datagram)
        return echoThroughHelper(helper_, addresses, data, timeoutMs);
    std::vector<std::string> texts;
    texts.reserve(size_t(addresses.size()));
    for (const QString& a : addresses)
        texts.push_back(dottedAddress(a) ? a.toLatin1().toStdString() : std::string());
    std::vector<Reply> replies;
    replies.reserve(texts.size());
    for (icmpecho::Reply& r : icmpecho::echo(fd, false, texts, data.toStdString(), timeoutMs))
        replies.push_back({r.status, QByteArray::fromStdString(r.data)});
    if (fd >= 0)
        ::close(fd);
    return replies;
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
