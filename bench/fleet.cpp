// Start-up against real ICMP: 1,000 servers by address in "Computerlist", 500 answering on
// loopback (127.1.x.y) and 500 silent in a peer network namespace behind a veth pair, whose
// addresses answer ARP but ignore echo requests (net.ipv4.icmp_echo_ignore_all=1). The benchmark
// moves itself into a network namespace of its own first, so it sees only the addresses it made.
// Each run starts the program afresh (a child process with the real Linux backends, offscreen,
// its data folder a private one), and beside it fping pings the same 1,000 addresses (one try,
// 500 ms time-out, as fast as it may send).
//
//   window_shown_ms  from building the program to its window showing
//   icons_set_ms     from building the program to every server having its icon
//   max_stall_ms     the longest time the event loop stood still until then
//   fping_ms         fping over the same addresses, from its start to its end
//   icons_vs_fping   icons_set_ms / fping_ms
//   timer9_cpu_ms    CPU time of the whole process per Timer9 period, each period one re-ping
//                    of the fleet (Timer9 set to 1.5 s)
//   rss_mb           resident memory after the re-pings, with a 3 MB job log in the data folder
// Each figure is the median of several runs. Needs root (network namespaces, veth).
#include "platform/linux/linuxplatform.h"
#include "support/benchsupport.h"
#include "shell/mainwindow.h"
#include "shell/program.h"

#include <QApplication>
#include <QDir>
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
#include <unistd.h>
#include <vector>

using namespace velmora;
using namespace velmora::bench;

namespace {

constexpr int kAnswering = 500, kSilent = 500, kRuns = 5, kReping = 1500, kRepings = 4;

QString answeringAddress(int i) { return QStringLiteral("127.1.%1.%2").arg(i / 250).arg(i % 250 + 1); }
QString silentAddress(int i) { return QStringLiteral("10.250.%1.%2").arg(1 + i / 250).arg(i % 250 + 1); }

double processCpuMs()
{
    timespec ts{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

// One start of the program on the data folder; prints its figures and leaves.
int runProgram(int argc, char** argv, const QString& folder)
{
    QApplication app(argc, argv);
    platform::LinuxPlatform real;
    platform::Platform p = real.platform();
    FolderSystem system(*p.system, folder);
    OnlyCopy only;
    p.system = &system;
    p.instance = &only;

    QElapsedTimer clock;
    qint64 shownMs = -1, iconsMs = -1;
    bench::StallProbe stallProbe(clock);

    clock.start();
    shell::Program program(p);
    shell::MainWindow& window = *program.window;
    std::vector<double> cpuMarks;
    bool failed = false;
    QObject::connect(&window, &shell::MainWindow::serverListReady, [&] {
        iconsMs = clock.elapsed();
        stallProbe.stop();
        // Timer9 now re-pings the fleet every 1.5 s; the CPU time between two of its ticks is
        // what one period with one re-ping costs.
        QObject::connect(window.Timer9, &platform::Timer::timeout, &app, [&] {
            cpuMarks.push_back(processCpuMs());
            if (int(cpuMarks.size()) > kRepings)
                app.quit();
        });
        window.Timer9->setInterval(kReping);
        window.Timer9->setEnabled(true);
    });
    program.load();
    if (p.app->ended()) {
        std::printf("error: the program ended during start-up\n");
        return 1;
    }
    QTimer::singleShot(0, &app, [&] { shownMs = clock.elapsed(); });
    stallProbe.start();
    QTimer::singleShot(60000, &app, [&] {
        failed = true;
        app.quit();
    });
    app.exec();

    int answering = 0, silent = 0;
    for (int i = 0; i < window.ListView2->topLevelItemCount(); ++i) {
        const int icon = shell::MainWindow::serverIcon(window.ListView2->topLevelItem(i));
        (icon == 8 || icon == 10 ? silent : answering)++;
    }
    std::vector<double> perPeriod;
    for (size_t i = 1; i < cpuMarks.size(); ++i)
        perPeriod.push_back(cpuMarks[i] - cpuMarks[i - 1]);
    std::printf("answering: %d\n", answering);
    std::printf("silent: %d\n", silent);
    std::printf("window_shown_ms: %lld\n", static_cast<long long>(shownMs));
    std::printf("icons_set_ms: %lld\n", static_cast<long long>(iconsMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(stallProbe.max()));
    std::printf("timer9_cpu_ms: %.1f\n", median(perPeriod));
    std::printf("rss_mb: %.1f\n", residentMb());
    std::fflush(stdout);
    window.menuExit();
    return failed ? 1 : 0;
}

int measure(int argc, char** argv)
{
    if (::geteuid() != 0) {
        std::printf("error: the fleet benchmark builds network namespaces and a veth pair, which needs root\n");
        return 1;
    }
    // Before any thread exists: every process started from here on lives in this namespace.
    if (::unshare(CLONE_NEWNET) != 0) {
        std::printf("error: no network namespace of our own: %s\n", std::strerror(errno));
        return 1;
    }
    QCoreApplication app(argc, argv);
    const QString fping = QStandardPaths::findExecutable("fping");
    if (fping.isEmpty()) {
        std::printf("error: fping is missing (scripts/deps test installs it)\n");
        return 1;
    }
    // The network the runs see, built in this process's own network namespace: loopback up, and
    // the silent addresses behind a veth pair. This process's namespace goes when it ends.
    SilentPeer network(QStringLiteral("velmora-fleet"));
    QString why = network.bringLoopbackUp();
    if (why.isEmpty()) {
        const QString here = QStringLiteral("vfl%1").arg(::getpid()), there = QStringLiteral("vfs%1").arg(::getpid());
        QByteArray batch;
        for (int i = 0; i < kSilent; ++i)
            batch += "addr add " + silentAddress(i).toLatin1() + "/16 dev " + there.toLatin1() + '\n';
        why = network.build(here, there, batch);
    }
    if (!why.isEmpty()) {
        std::printf("error: could not build the benchmark's network: %s\n", qPrintable(why));
        return 1;
    }

    QTemporaryDir dir;
    QStringList addresses;
    for (int i = 0; i < kAnswering + kSilent; ++i)
        addresses << (i % 2 ? silentAddress(i / 2) : answeringAddress(i / 2));
    {
        QFile list(dir.filePath(QStringLiteral("Computerlist")));
        QFile targets(dir.filePath(QStringLiteral("targets")));
        QFile log(dir.filePath(QStringLiteral("Jobs.log")));
        if (!list.open(QIODevice::WriteOnly) || !targets.open(QIODevice::WriteOnly) || !log.open(QIODevice::WriteOnly)) {
            std::printf("error: cannot write the data folder\n");
            return 1;
        }
        for (const QString& a : addresses) {
            list.write(a.toLatin1() + "\r\n");
            targets.write(a.toLatin1() + "\n");
        }
        const QByteArray line = "01.02.2024 10:00:00 : Server SRV0001 Service Spooler           Status: Running\r\n";
        for (qint64 size = 0; size < 3 * 1024 * 1024; size += line.size())
            log.write(line);
    }

    std::vector<double> fpingMs, ratio;
    QMap<QString, std::vector<double>> figures;
    for (int run = 0; run < kRuns; ++run) {
        // The program's data folder is left as the last run left it: the same list, the same log.
        QProcess child;
        startRun(child, dir.path());
        if (!child.waitForFinished(90000) || child.exitCode() != 0) {
            child.kill();
            std::printf("error: run %d of the program failed: %s%s\n", run + 1, child.readAllStandardOutput().constData(),
                        child.readAllStandardError().constData());
            return 1;
        }
        const QMap<QString, double> f = figuresOf(child.readAllStandardOutput());
        for (auto it = f.begin(); it != f.end(); ++it)
            figures[it.key()].push_back(it.value());

        // fping: one try (-r 0), 500 ms time-out (-t 500), no pause between targets (-i 0).
        QProcess p;
        QElapsedTimer t;
        t.start();
        p.start(fping, {"-q", "-r", "0", "-t", "500", "-i", "0", "-f", dir.filePath(QStringLiteral("targets"))});
        p.waitForFinished(60000);
        const double ms = double(t.nsecsElapsed()) / 1e6;
        if (p.exitStatus() != QProcess::NormalExit || p.exitCode() > 1) {
            std::printf("error: fping failed: %s\n", p.readAllStandardError().constData());
            return 1;
        }
        fpingMs.push_back(ms);
        ratio.push_back(f.value(QStringLiteral("icons_set_ms")) / ms);
    }

    std::printf("servers: %d\n", kAnswering + kSilent);
    std::printf("answering: %.0f\n", median(figures.value("answering")));
    std::printf("silent: %.0f\n", median(figures.value("silent")));
    std::printf("window_shown_ms: %.0f\n", median(figures.value("window_shown_ms")));
    std::printf("icons_set_ms: %.0f\n", median(figures.value("icons_set_ms")));
    std::printf("max_stall_ms: %.0f\n", median(figures.value("max_stall_ms")));
    std::printf("fping_ms: %.0f\n", median(fpingMs));
    std::printf("icons_vs_fping: %.2f\n", median(ratio));
    std::printf("timer9_cpu_ms: %.1f\n", median(figures.value("timer9_cpu_ms")));
    std::printf("rss_mb: %.1f\n", median(figures.value("rss_mb")));
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
