// The availability window on a month of job log: 1,000 services (100 servers with 10 each)
// checked every 30 minutes for 31 days, about 1.5 million lines and 100 MB, with outages and
// their action lines, servers in maintenance, servers that do not answer, a five-hour stretch in
// which the program did not run, and a few damaged lines. Prints:
//   parse_ms        the first full read (worker thread, until the history is handed over)
//   append_ms       reading 1,000 appended lines (one more scan), median of five
//   open_window_ms  from "Availability..." in the Log menu of the running program until the window
//                   lists every service (its first read included)
//   max_stall_ms    the longest stall of the event loop while the window opens, reads, follows
//                   appends, scrolls through all rows at each period and zooms
//   rss_mb          resident memory at the end
//
//   bench_history --write FOLDER [SERVERS]   writes such a log (and "Computers", "Computerlist",
//                                             "Interval") into FOLDER and ends: a data folder to
//                                             look at the window with.
#include "history/availabilitymodels.h"
#include "history/availabilitywindow.h"
#include "history/loghistory.h"
#include "joblog/joblog.h"
#include "platform/linux/linuxplatform.h"
#include "platform/sim/simplatform.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"

#include <QApplication>
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>
#include <cstdio>

using namespace velmora;

namespace {

constexpr qint64 kInterval = 1800;
constexpr int kPerServer = 10;

const char* const kServices[kPerServer] = {"nginx.service", "postgresql@15-main.service", "ssh.service",
                                           "cron.service", "rsyslog.service", "docker.service",
                                           "redis-server.service", "smbd.service", "postfix@-.service",
                                           "chrony.service"};

// Writes the job log of `scans` timed scans of `servers` servers the way the program writes it,
// the last scan at `last`.
class LogWriter {
public:
    LogWriter(QFile& out, int servers) : out_(out), servers_(servers), rng_(42)
    {
        static const char* const sites[] = {"FRA", "LON", "NYC", "SIN"};
        static const char* const roles[] = {"WEB", "DB", "APP", "MAIL", "FILE"};
        for (int i = 0; i < servers; ++i)
            names_ << QStringLiteral("%1-%2-%3.EXAMPLE.NET").arg(sites[i % 4]).arg(roles[i / 4 % 5]).arg(i, 3, 10, QLatin1Char('0'));
        down_.assign(size_t(servers * kPerServer), 0);
        maintenance_.assign(size_t(servers), 0);
        silent_.assign(size_t(servers), 0);
    }
    const QStringList& names() const { return names_; }

    // One timed scan at `at`: a server line for a server in maintenance or silent, else a check
    // line for each service and the action lines of each one down.
    void scan(qint64 at, bool events = true)
    {
        for (int s = 0; s < servers_; ++s) {
            const qint64 t = at + s / 10;
            if (events && maintenance_[size_t(s)] == 0 && rng_.bounded(2000) == 0)
                maintenance_[size_t(s)] = 2 + int(rng_.bounded(10));
            if (events && silent_[size_t(s)] == 0 && rng_.bounded(1500) == 0)
                silent_[size_t(s)] = 1 + int(rng_.bounded(6));
            if (maintenance_[size_t(s)] > 0) {
                --maintenance_[size_t(s)];
                write(joblog::serverLineText(when(t), names_[s], joblog::kServerInMaintenance));
                continue;
            }
            if (silent_[size_t(s)] > 0) {
                --silent_[size_t(s)];
                write(joblog::serverLineText(when(t), names_[s], joblog::kServerNotReachable));
                continue;
            }
            for (int k = 0; k < kPerServer; ++k) {
                int& down = down_[size_t(s * kPerServer + k)];
                if (events && down == 0 && rng_.bounded(700) == 0)
                    down = 1 + int(rng_.bounded(8));
                const QString service = QString::fromLatin1(kServices[k]);
                if (down == 0) {
                    write(joblog::checkLineText(when(t), names_[s], service, QStringLiteral("Running")));
                    continue;
                }
                --down;
                const bool missing = k == 7 && s % 9 == 0;
                write(joblog::checkLineText(when(t), names_[s], service,
                                            missing ? QStringLiteral("Open Service failed.   Error  1060")
                                                    : QStringLiteral("Stopped")));
                if (!missing) {
                    write(QStringLiteral("Alert activated"));
                    write(QStringLiteral("Attemp to restart service : ") + service + QStringLiteral(" Successfull"));
                    write(QStringLiteral("Email sent to ops@example.org"));
                }
            }
        }
    }
    void write(const QString& line) { out_.write(line.toUtf8() + "\r\n"); }

private:
    QDateTime when(qint64 t) const { return QDateTime::fromSecsSinceEpoch(t); }

    QFile& out_;
    int servers_;
    QRandomGenerator rng_;
    QStringList names_;
    std::vector<int> down_, maintenance_, silent_;
};

// A month of scans ending at `last`, with the program not running for five hours in the middle
// and a few damaged lines; returns the writer for more scans.
std::unique_ptr<LogWriter> writeMonth(QFile& out, int servers, qint64 last)
{
    auto writer = std::make_unique<LogWriter>(out, servers);
    const int scans = 31 * 48;
    for (int i = 0; i < scans; ++i) {
        if (i >= 700 && i < 710)
            continue; // the program was not running
        writer->scan(last - qint64(scans - 1 - i) * kInterval);
        if (i == 300)
            writer->write(QStringLiteral("16.11.20"));
        if (i == 900)
            writer->write(QStringLiteral("a note typed in by hand"));
    }
    return writer;
}

void writeDataFolder(const QString& folder, int servers, qint64 last)
{
    QDir().mkpath(folder);
    QFile log(QDir(folder).filePath(QStringLiteral("Jobs.log")));
    log.open(QIODevice::WriteOnly | QIODevice::Truncate);
    const auto writer = writeMonth(log, servers, last);
    QStringList list;
    for (const QString& n : writer->names())
        list << n + QStringLiteral("\tmonitored");
    bench::writeLines(QDir(folder).filePath(QStringLiteral("Computerlist")), list);
    bench::writeLines(QDir(folder).filePath(QStringLiteral("Interval")), {QStringLiteral("30")});
}

// Runs the event loop until done() holds or ms have passed.
bool waitFor(const std::function<bool()>& done, int ms = 60000)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    return done();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    if (args.size() >= 3 && args[1] == QLatin1String("--write")) {
        writeDataFolder(args[2], args.size() > 3 ? args[3].toInt() : 100, now - 600);
        return 0;
    }

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Jobs.log"));
    QFile log(path);
    log.open(QIODevice::WriteOnly | QIODevice::Truncate);
    // The log ends a few scans before now, so that the appended scans are not in the future.
    const qint64 last = now - 6 * kInterval;
    const auto writer = writeMonth(log, 100, last);
    log.flush();
    std::printf("log_mb: %.1f\n", double(log.size()) / 1e6);
    std::fflush(stdout);

    platform::LinuxPlatform real;
    platform::sim::SimPlatform sim;
    platform::Platform p = sim.platform();
    p.clock = real.platform().clock;
    p.worker = real.platform().worker;

    QElapsedTimer clock;
    clock.start();
    bench::StallProbe probe(clock);
    qint64 parseMs = -1, openMs = -1;
    std::vector<double> appends;
    {
        const core::FixedDataFolder folder(dir.path());
        joblog::JobLog jobs(p, folder);
        history::LogHistory h(*p.worker, *p.clock, jobs);
        int updates = 0;
        QObject::connect(&h, &history::LogHistory::updated, [&] { ++updates; });
        QElapsedTimer t;
        t.start();
        h.refresh();
        waitFor([&] { return updates == 1; });
        parseMs = t.elapsed();
        std::printf("lines: %lld\nskipped: %lld\nservices: %zu\n", static_cast<long long>(h.history().lines),
                    static_cast<long long>(h.history().skipped), h.history().services.size());
        for (int i = 1; i <= 5; ++i) {
            writer->scan(last + i * kInterval, false);
            log.flush();
            t.restart();
            h.refresh();
            waitFor([&] { return updates == 1 + i; });
            appends.push_back(double(t.nsecsElapsed()) / 1e6);
        }
    }

    // The program, its main window up, opens the window from its Log menu; the log is its own.
    sim.system.program_folder = dir.path();
    shell::Program program(p);
    program.load();
    waitFor([&] { return false; }, 300); // the start-up settles
    clock.restart();
    probe.start();
    QElapsedTimer t;
    t.start();
    program.window->mnuavailability->trigger();
    history::AvailabilityWindow& w = *program.window->findChild<history::AvailabilityWindow*>("Form12");
    waitFor([&] { return w.ListView1->model()->rowCount() == 1000; });
    QCoreApplication::processEvents();
    openMs = t.elapsed();
    // Follows two more scans, then scrolls through every row at each period and zooms in.
    for (int i = 6; i <= 7; ++i) {
        writer->scan(last + i * kInterval, false);
        log.flush();
        const QString before = w.Label1->text(); // it counts the lines
        w.logChanged();
        waitFor([&] { return w.Label1->text() != before; });
    }
    for (int period = 0; period < 4; ++period) {
        w.Combo1->setCurrentIndex(period);
        QCoreApplication::processEvents();
        QScrollBar* rows = w.ListView1->verticalScrollBar();
        for (int v = rows->minimum(); v <= rows->maximum(); v += std::max(1, rows->pageStep())) {
            rows->setValue(v);
            QCoreApplication::processEvents();
        }
    }
    for (int i = 0; i < 8; ++i) {
        w.zoom(0.5, w.span().from + w.span().length() / 3);
        QCoreApplication::processEvents();
    }
    w.ListView1->sortByColumn(history::ServicesModel::ServerColumn, Qt::AscendingOrder);
    QCoreApplication::processEvents();
    probe.stop();

    std::printf("parse_ms: %lld\n", static_cast<long long>(parseMs));
    std::printf("append_ms: %.1f\n", bench::median(appends));
    std::printf("open_window_ms: %lld\n", static_cast<long long>(openMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(probe.max()));
    std::printf("rss_mb: %.1f\n", bench::residentMb());
    std::printf("load_average: %s\n", qPrintable(bench::loadAverage()));
    return 0;
}
