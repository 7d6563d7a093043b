// What several benchmarks share: figures and their medians, the program's data folder, the
// child process that runs the program once, and a network of silent addresses.
#pragma once

#include "platform/system.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace velmora::bench {

// The longest time the event loop stood still, probed every 2 ms against clock. start() takes
// all the time since the clock started as the first stall, so that a start-up that ran before
// the event loop (load()) counts whole.
class StallProbe {
public:
    explicit StallProbe(const QElapsedTimer& clock) : clock_(clock)
    {
        timer_.setInterval(2);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            const qint64 now = clock_.elapsed();
            max_ = std::max(max_, now - last_);
            last_ = now;
        });
    }
    void start()
    {
        max_ = last_ = clock_.elapsed();
        timer_.start();
    }
    void stop() { timer_.stop(); }
    qint64 max() const { return max_; }

private:
    const QElapsedTimer& clock_;
    QTimer timer_;
    qint64 max_ = 0, last_ = 0;
};

// The middle value (the upper one of an even count), or -1 when there is none.
inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? -1 : v[v.size() / 2];
}

// This process's resident memory in MB, or -1 when /proc does not tell.
inline double residentMb()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return -1;
}

// The one-, five- and fifteen-minute load averages, "?" when unknown.
inline QString loadAverage()
{
    QFile f(QStringLiteral("/proc/loadavg"));
    return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()).section(' ', 0, 2) : QString("?");
}

// Writes a data file the way the program does: one line after another, each ended by CR LF.
inline void writeLines(const QString& path, const QStringList& lines)
{
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    for (const QString& l : lines)
        f.write(l.toUtf8() + "\r\n");
}

// The files of a fleet whose servers are all monitored: "Computers", "Computerlist" and an
// interval long enough that only the scans a benchmark starts itself run.
inline void writeMonitoredFleet(const QString& folder, const QStringList& servers)
{
    QStringList list;
    for (const QString& s : servers)
        list << s + QStringLiteral("\tmonitored");
    writeLines(folder + QStringLiteral("/Computers"), servers);
    writeLines(folder + QStringLiteral("/Computerlist"), list);
    writeLines(folder + QStringLiteral("/Interval"), {QStringLiteral("240")});
}

// The `name: value` lines of a run's output whose value is a number.
inline QMap<QString, double> figuresOf(const QByteArray& output)
{
    QMap<QString, double> out;
    for (const QByteArray& line : output.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        bool ok = false;
        const double value = line.mid(colon + 1).trimmed().toDouble(&ok);
        if (colon > 0 && ok)
            out.insert(QString::fromLatin1(line.left(colon)), value);
    }
    return out;
}

// Starts this benchmark again as `--run <folder>`, offscreen: one start of the program.
inline void startRun(QProcess& child, const QString& folder)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--run"), folder});
}

// The real system facts, except that the data lives in the benchmark's own folder.
class FolderSystem : public platform::SystemInfo {
public:
    FolderSystem(platform::SystemInfo& real, QString folder) : real_(real), folder_(std::move(folder)) {}
    int platformId() override { return real_.platformId(); }
    QString computerName() override { return real_.computerName(); }
    QString fullyQualifiedName() override { return real_.fullyQualifiedName(); }
    QString programFolder() override { return folder_; }
    QString programFileName() override { return QStringLiteral("velmora"); }
    bool folderWritable(const QString& folder) override { return real_.folderWritable(folder); }
    QString userDataFolder() override { return folder_; }

private:
    platform::SystemInfo& real_;
    QString folder_;
};

// The program under measurement is the only copy, whatever else runs on this machine.
class OnlyCopy : public platform::SingleInstance {
public:
    bool otherInstanceRunning(std::function<void()>) override { return false; }
    void activateOther() override {}
};

// Silent addresses for a benchmark in a network namespace of its own: loopback up, and a veth
// pair to a peer namespace that holds the addresses, which answer ARP but ignore echo requests.
// Deleting the peer namespace at the end takes the pair with it.
class SilentPeer {
public:
    explicit SilentPeer(const QString& name) : peer_(QStringLiteral("%1-%2").arg(name).arg(::getpid())) {}
    ~SilentPeer()
    {
        if (made_)
            run(ip_, {"netns", "del", peer_});
    }
    SilentPeer(const SilentPeer&) = delete;
    SilentPeer& operator=(const SilentPeer&) = delete;

    // Finds the ip tool and brings loopback up. Empty when done, else why not.
    QString bringLoopbackUp()
    {
        ip_ = QStandardPaths::findExecutable("ip");
        if (ip_.isEmpty())
            ip_ = QStandardPaths::findExecutable("ip", {"/usr/sbin", "/sbin"});
        if (ip_.isEmpty())
            return "the ip tool (iproute2) is missing";
        return run(ip_, {"link", "set", "lo", "up"}) ? QString() : problem_;
    }

    // Builds the peer namespace and the pair (this end `here` with 10.250.0.1/16, the peer's end
    // `there`); `addresses` is an ip batch that adds the silent addresses on `there`. Empty when
    // the network stands, else why not.
    QString build(const QString& here, const QString& there, const QByteArray& addresses)
    {
        if (!run(ip_, {"netns", "add", peer_}))
            return problem_;
        made_ = true;
        const bool ok = run(ip_, {"link", "add", here, "type", "veth", "peer", "name", there, "netns", peer_})
            && run(ip_, {"addr", "add", "10.250.0.1/16", "dev", here})
            && run(ip_, {"link", "set", here, "up"})
            && run(ip_, {"-n", peer_, "link", "set", "lo", "up"})
            && run(ip_, {"-n", peer_, "link", "set", there, "up"})
            && run(ip_, {"netns", "exec", peer_, "sysctl", "-qw", "net.ipv4.icmp_echo_ignore_all=1"})
            && run(ip_, {"-n", peer_, "-batch", "-"}, addresses);
        return ok ? QString() : problem_;
    }

private:
    bool run(const QString& program, const QStringList& args, const QByteArray& input = {})
    {
        QProcess p;
        p.start(program, args);
        p.write(input);
        p.closeWriteChannel();
        if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
            problem_ = program + ' ' + args.join(' ').left(200) + ": " + QString::fromLocal8Bit(p.readAllStandardError()).trimmed();
            return false;
        }
        return true;
    }

    const QString peer_;
    QString ip_, problem_;
    bool made_ = false;
};

// Makes this process's mounts private and binds resolvConf over /etc/resolv.conf; for a
// benchmark in a mount namespace of its own. Empty when done, else why not.
inline QString bindResolvConf(const QString& resolvConf)
{
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return QStringLiteral("making mounts private: ") + std::strerror(errno);
    if (::mount(QFile::encodeName(resolvConf).constData(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) != 0)
        return QStringLiteral("bind-mounting /etc/resolv.conf: ") + std::strerror(errno);
    return {};
}

// A name server on 127.0.0.1:53 that reads every question and never answers, for a benchmark in
// a network namespace of its own whose /etc/resolv.conf names it.
class SilentNameServer {
public:
    SilentNameServer() = default;
    SilentNameServer(const SilentNameServer&) = delete;
    SilentNameServer& operator=(const SilentNameServer&) = delete;
    ~SilentNameServer()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    // Empty when it listens, else why not.
    QString start()
    {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(53);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            const QString why = QStringLiteral("the silent name server: ") + std::strerror(errno);
            if (fd >= 0)
                ::close(fd);
            return why;
        }
        thread_ = std::thread([this, fd] {
            char buf[1500];
            while (!stop_) {
                pollfd p{fd, POLLIN, 0};
                if (::poll(&p, 1, 50) > 0 && ::recv(fd, buf, sizeof buf, 0) > 0)
                    ++questions_;
            }
            ::close(fd);
        });
        return {};
    }

    int questions() const { return questions_; }

private:
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<int> questions_{0};
};

} // namespace velmora::bench
