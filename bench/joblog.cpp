// The job log on disk: how many check lines a second one-open-per-line appending reaches, and
// the cost of one append plus the log-size check once the log has grown past 3 MB (it must not
// depend on the size of the log: nothing is re-read).
#include "joblog/joblog.h"
#include "platform/sim/simplatform.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using velmora::joblog::JobLog;

namespace {

// Median time in ms of one append and size check, over many single rounds.
double appendAndSizeMs(JobLog& log, int rounds)
{
    std::vector<qint64> ns;
    ns.reserve(size_t(rounds));
    QElapsedTimer t;
    for (int i = 0; i < rounds; ++i) {
        t.start();
        log.checkline(QStringLiteral("SRV01"), QStringLiteral("Spooler"), QStringLiteral("Stopped"));
        const qint64 size = log.size();
        ns.push_back(t.nsecsElapsed());
        if (size <= 0)
            std::fprintf(stderr, "log lost\n");
    }
    std::sort(ns.begin(), ns.end());
    return double(ns[ns.size() / 2]) / 1e6;
}

} // namespace

int main()
{
    QTemporaryDir dir;
    velmora::platform::sim::SimPlatform sim;
    const velmora::core::FixedDataFolder folder(dir.path());
    JobLog log(sim.platform(), folder);
    log.ensurejoblog();

    constexpr int lines = 100000;
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < lines; ++i)
        log.checkline(QStringLiteral("SRV%1").arg(i % 50, 2, 10, QLatin1Char('0')), QStringLiteral("Spooler"),
                      QStringLiteral("Running"));
    const double seconds = double(t.nsecsElapsed()) / 1e9;

    // A fresh empty log for comparison, then the same log grown to just over 3 MB.
    QFile::remove(log.path());
    log.ensurejoblog();
    const double emptyMs = appendAndSizeMs(log, 200);
    {
        QFile f(log.path());
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        const QByteArray line("16.11.26 20:50:14\tSRV01\tSpooler\tRunning\r\n");
        QByteArray block;
        while (block.size() < 3000001)
            block += line;
        f.write(block);
    }
    const double bigMs = appendAndSizeMs(log, 200);

    std::printf("lines_per_s: %.0f\n", lines / seconds);
    std::printf("append_empty_ms: %.4f\n", emptyMs);
    std::printf("append_3mb_ms: %.4f\n", bigMs);
    std::printf("log_bytes: %lld\n", static_cast<long long>(log.size()));
    return 0;
}
