// Ten thousand servers against a hostile network: "Computerlist" holds 5,000 addresses that
// answer (loopback, 127.2.x.y), 2,500 silent addresses (a peer network namespace behind a veth
// pair that ignores echo requests) and 2,500 names that never resolve (a name server of the
// benchmark's own that reads every question and never answers). The benchmark moves itself into
// network and mount namespaces of its own first, binds a private /etc/resolv.conf there that
// points at its silent name server, and so sees only the addresses and names it made.
// Each run starts the program afresh (a child process with the real Linux backends, offscreen,
// its data folder a private one), the way the program's own main() does.
//
//   window_shown_ms      from building the program to its window showing
//   icons_set_ms         from building the program to every server that can be pinged (the
//                        addresses, answering or silent) having its icon
//   icons_all_ms         ... to every server having its icon, the unresolvable names included
//   start_max_stall_ms   the longest time the event loop stood still from the window showing
//                        until every icon was set
//   reping_max_stall_ms  the longest time the event loop stood still while Timer9 re-pinged the
//                        whole list (Timer9 set to 2.5 s, three re-pings)
//   close_to_exit_ms     from closing the window (with a re-ping waiting on the silent name
//                        server) to the end of the process
//   rss_mb               resident memory after the re-pings
// Each figure is the median of several runs. Needs root (namespaces, veth, a bind mount).
#include "platform/linux/linuxplatform.h"
#include "support/benchsupport.h"
#include "shell/mainwindow.h"
#include "shell/program.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

using namespace velmora;
using namespace velmora::bench;

namespace {

constexpr int kServers = 10000, kRuns = 3, kReping = 2500, kRepings = 3;

// Row i of the list: every second one answers, the others alternate between silent and unknown.
enum class Kind { Answering, Silent, Unknown };
Kind kindOf(int i) { return i % 2 == 0 ? Kind::Answering : (i % 4 == 1 ? Kind::Silent : Kind::Unknown); }
QString serverName(int i)
{
    switch (kindOf(i)) {
    case Kind::Answering:
        return QStringLiteral("127.2.%1.%2").arg(i / 500).arg(i % 500 / 2 + 1);
    case Kind::Silent:
        return QStringLiteral("10.250.%1.%2").arg(1 + i / 1000).arg(i % 1000 / 4 + 1);
    case Kind::Unknown:
        break;
    }
    return QStringLiteral("NX%1.VELMORA.TEST").arg(i, 5, 10, QLatin1Char('0'));
}

double monotonicMs()
{
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

// The longest time the event loop stood still while it runs.
class StallProbe {
public:
    StallProbe()
    {
        timer_.setInterval(2);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            const qint64 now = clock_.elapsed();
            max_ = std::max(max_, now - last_);
            last_ = now;
        });
        clock_.start();
    }
    void start()
    {
        max_ = 0;
        last_ = clock_.elapsed();
        timer_.start();
    }
    qint64 stop()
    {
        timer_.stop();
        return max_;
    }

private:
    QTimer timer_;
    QElapsedTimer clock_;
    qint64 max_ = 0, last_ = 0;
};

// One start of the program on the data folder; prints its figures, then closes the window and
// ends the way the program does.
int runProgram(int argc, char** argv, const QString& folder)
{
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    platform::LinuxPlatform real;
    platform::Platform p = real.platform();
    FolderSystem system(*p.system, folder);
    OnlyCopy only;
    p.system = &system;
    p.instance = &only;

    QElapsedTimer clock;
    qint64 shownMs = -1, iconsMs = -1, allMs = -1, startStall = -1, repingStall = -1;
    StallProbe probe;
    int ticks = 0;

    clock.start();
    shell::Program program(p);
    shell::MainWindow& window = *program.window;

    // Every server that can be pinged counts once it leaves the pending state.
    std::vector<char> counted(kServers, 0);
    int waiting = 0;
    for (int i = 0; i < kServers; ++i)
        waiting += kindOf(i) != Kind::Unknown;
    QObject::connect(&program.servers, &core::ServerList::serverChanged, &app, [&](int row) {
        if (row < 0 || row >= kServers || counted[size_t(row)] || program.servers.at(row).pending)
            return;
        counted[size_t(row)] = 1;
        if (kindOf(row) != Kind::Unknown && --waiting == 0)
            iconsMs = clock.elapsed();
    });

    struct ShowWatch : QObject {
        std::function<void()> shown;
        bool eventFilter(QObject*, QEvent* e) override
        {
            if (e->type() == QEvent::Show && shown) {
                shown();
                shown = nullptr;
            }
            return false;
        }
    } watch;
    watch.shown = [&] {
        shownMs = clock.elapsed();
        probe.start();
    };
    window.installEventFilter(&watch);

    QObject::connect(&window, &shell::MainWindow::serverListReady, &app, [&] {
        if (allMs >= 0)
            return;
        allMs = clock.elapsed();
        startStall = probe.stop();
        // Timer9 now re-pings the list every 2.5 s; the stalls are those of the re-pings and of
        // applying their results.
        QObject::connect(window.Timer9, &platform::Timer::timeout, &app, [&] {
            if (++ticks == 1)
                probe.start();
            if (ticks <= kRepings)
                return;
            // The last re-ping is under way and waits on the silent name server: close now.
            repingStall = probe.stop();
            std::printf("window_shown_ms: %lld\n", static_cast<long long>(shownMs));
            std::printf("icons_set_ms: %lld\n", static_cast<long long>(iconsMs));
            std::printf("icons_all_ms: %lld\n", static_cast<long long>(allMs));
            std::printf("start_max_stall_ms: %lld\n", static_cast<long long>(startStall));
            std::printf("reping_max_stall_ms: %lld\n", static_cast<long long>(repingStall));
            std::printf("rss_mb: %.1f\n", residentMb());
            QTimer::singleShot(200, &app, [&] {
                std::printf("close_at_ms: %.3f\n", monotonicMs());
                std::fflush(stdout);
                window.close();
            });
        });
        window.Timer9->setInterval(kReping);
        window.Timer9->setEnabled(true);
    });
    program.load();
    if (p.app->ended()) {
        std::printf("error: the program ended during start-up\n");
        return 1;
    }
    QTimer::singleShot(120000, &app, [&] {
        std::printf("error: the run did not end within two minutes\n");
        platform::endProcessNow(1);
    });
    platform::endProcessNow(app.exec());
}

// The network and name service the runs see, built in this process's own network and mount
// namespaces: loopback up, a veth pair to a peer namespace that holds the silent addresses, and
// /etc/resolv.conf naming a server on loopback that never answers.
class Network {
public:
    // Empty when the network stands, else why not.
    QString build(const QString& resolvConf)
    {
        if (QString why = bindResolvConf(resolvConf); !why.isEmpty())
            return why;
        if (QString why = peer_.bringLoopbackUp(); !why.isEmpty())
            return why;
        if (QString why = dns_.start(); !why.isEmpty())
            return why;
        const QString here = QStringLiteral("vsl%1").arg(::getpid()), there = QStringLiteral("vss%1").arg(::getpid());
        QByteArray batch;
        for (int i = 0; i < kServers; ++i)
            if (kindOf(i) == Kind::Silent)
                batch += "addr add " + serverName(i).toLatin1() + "/16 dev " + there.toLatin1() + '\n';
        return peer_.build(here, there, batch);
    }

    int questions() const { return dns_.questions(); }

private:
    SilentPeer peer_{QStringLiteral("velmora-scale")};
    SilentNameServer dns_;
};

int measure(int argc, char** argv)
{
    if (::geteuid() != 0) {
        std::printf("error: the scale benchmark builds namespaces, a veth pair and a bind mount, which needs root\n");
        return 1;
    }
    // Before any thread exists: every process started from here on lives in these namespaces.
    if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
        std::printf("error: no network and mount namespaces of our own: %s\n", std::strerror(errno));
        return 1;
    }
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString resolvConf = dir.filePath(QStringLiteral("resolv.conf"));
    {
        // Left to itself the resolver would wait 30 seconds for each name.
        QFile f(resolvConf);
        if (!f.open(QIODevice::WriteOnly) || f.write("nameserver 127.0.0.1\noptions timeout:30 attempts:1\n") <= 0) {
            std::printf("error: cannot write the benchmark's resolv.conf\n");
            return 1;
        }
    }
    Network network;
    if (const QString why = network.build(resolvConf); !why.isEmpty()) {
        std::printf("error: could not build the benchmark's network: %s\n", qPrintable(why));
        return 1;
    }

    QTemporaryDir data;
    {
        QFile list(data.filePath(QStringLiteral("Computerlist")));
        if (!list.open(QIODevice::WriteOnly)) {
            std::printf("error: cannot write the data folder\n");
            return 1;
        }
        for (int i = 0; i < kServers; ++i)
            list.write(serverName(i).toLatin1() + "\r\n");
    }

    QMap<QString, std::vector<double>> figures;
    for (int run = 0; run < kRuns; ++run) {
        // The program's data folder is left as the last run left it.
        QProcess child;
        startRun(child, data.path());
        const bool ended = child.waitForFinished(150000);
        const double endedAt = monotonicMs();
        const QByteArray out = child.readAllStandardOutput();
        if (!ended || child.exitCode() != 0 || !out.contains("close_at_ms")) {
            child.kill();
            std::printf("error: run %d of the program failed: %s%s\n", run + 1, out.constData(),
                        child.readAllStandardError().constData());
            return 1;
        }
        QMap<QString, double> f = figuresOf(out);
        f.insert(QStringLiteral("close_to_exit_ms"), endedAt - f.value(QStringLiteral("close_at_ms")));
        for (auto it = f.begin(); it != f.end(); ++it)
            figures[it.key()].push_back(it.value());
    }

    std::printf("servers: %d\n", kServers);
    for (const char* name : {"window_shown_ms", "icons_set_ms", "icons_all_ms", "start_max_stall_ms",
                             "reping_max_stall_ms", "close_to_exit_ms"})
        std::printf("%s: %.0f\n", name, median(figures.value(QString::fromLatin1(name))));
    std::printf("rss_mb: %.1f\n", median(figures.value(QStringLiteral("rss_mb"))));
    std::printf("name_server_questions: %d\n", network.questions());
    std::printf("load_average: %s\n", qPrintable(loadAverage()));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--run") == 0)
        return runProgram(argc, argv, QString::fromLocal8Bit(argv[2]));
    return measure(argc, argv);
}
