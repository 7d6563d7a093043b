// What the benchmarks on Debian's own systemd share: a fleet of units for the user manager of
// tests/support/realsystemd.h, the manager's own CPU time, and systemctl timed against it.
#pragma once

#include "../../tests/support/realsystemd.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QStringList>

#include <cstdio>
#include <functional>
#include <sys/types.h>

namespace velmora::bench {

inline QString fleetUnit(int i) { return QStringLiteral("bench-unit-%1.service").arg(i, 4, 10, QLatin1Char('0')); }

// n services, each with a description of its own, every other one started (and so running).
inline QString startFleet(testsupport::RealSystemd& manager, int n)
{
    QMap<QString, QString> units;
    QStringList started = {QStringLiteral("start")};
    for (int i = 0; i < n; ++i) {
        units.insert(fleetUnit(i), testsupport::unit::running(QStringLiteral("Benchmark unit number %1").arg(i)));
        if (i % 2 == 0)
            started << fleetUnit(i);
    }
    if (const QString error = manager.start(units); !error.isEmpty())
        return error;
    QString output;
    return manager.systemctl(started, &output) == 0 ? QString() : QStringLiteral("systemctl start: ") + output;
}

// The CPU time a process has used so far, in nanoseconds (all its threads), -1 when unknown.
inline qint64 cpuNs(pid_t pid)
{
    qint64 sum = -1;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile f(tasks.filePath(task + QStringLiteral("/schedstat")));
        if (f.open(QIODevice::ReadOnly))
            sum = std::max<qint64>(sum, 0) + f.readAll().split(' ').value(0).toLongLong();
    }
    return sum;
}

// One `systemctl --user` run against the manager: its wall time in ms and the manager's CPU
// time it cost in ns; ms is negative when it failed (why says why). systemctl runs as on a
// booted machine (a mount namespace with /run/systemd/system), so that it asks the manager
// rather than reading unit files itself; only its own run is timed.
struct SystemctlRun {
    double ms = -1;
    qint64 managerCpuNs = 0;
};
inline SystemctlRun timeSystemctl(const testsupport::RealSystemd& manager, const QStringList& args, QString& why)
{
    QProcess p;
    p.setProcessEnvironment(manager.environment(false));
    const qint64 cpu = cpuNs(manager.managerPid());
    // is-active ends with 3 when a unit is not active; only a failure to run counts.
    p.start(QStringLiteral("unshare"),
            QStringList{QStringLiteral("-m"), QStringLiteral("sh"), QStringLiteral("-c"),
                        QStringLiteral("mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/system || exit 1; "
                                       "s=$(date +%s%N); systemctl --user --no-pager \"$@\" >/dev/null; r=$?; "
                                       "e=$(date +%s%N); echo $((e - s)); [ $r = 1 ] && exit 1; exit 0"),
                        QStringLiteral("sh")}
                + args);
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        why = QString::fromUtf8(p.readAllStandardError()).trimmed();
        return {};
    }
    return {p.readAllStandardOutput().trimmed().toDouble() / 1e6, cpuNs(manager.managerPid()) - cpu};
}

// A figure of one size: `name_size: value`.
inline void printFigure(const char* name, int size, double value, const char* format = "%.1f")
{
    std::printf("%s_%d: ", name, size);
    std::printf(format, value);
    std::printf("\n");
    std::fflush(stdout);
}

// Runs measure for 300, then 1,000 units, and prints the load average: the exit status of a
// benchmark on the real manager.
inline int measureEachSize(const std::function<bool(int units)>& measure)
{
    if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty()) {
        std::printf("error: %s\n", qPrintable(missing));
        return 1;
    }
    bool ok = true;
    for (int units : {300, 1000})
        ok = measure(units) && ok;
    std::printf("load_average: %s\n", qPrintable(loadAverage()));
    return ok ? 0 : 1;
}

} // namespace velmora::bench
