// The instant report with 10,000 rows: five report scans of 200 servers with 10 monitored
// services each add the rows (queries on worker threads, files, timers and the list real),
// then the list is sorted by each of its seven columns and exported to a text file. Prints the
// time the rows took to arrive, the seven sorts together, the export from the save dialog to the
// written file, and the longest stall of the event loop in all of it.
#include "platform/linux/linuxplatform.h"
#include "platform/sim/simplatform.h"
#include "report/reportwindow.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>

using namespace velmora;
using bench::writeLines;

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    constexpr int servers = 200, perServer = 10, scans = 5, rowsWanted = servers * perServer * scans;

    platform::LinuxPlatform real;
    platform::sim::SimPlatform sim;
    sim.system.program_folder = dir.path();
    QStringList names;
    for (int i = 0; i < servers; ++i) {
        const QString name = QStringLiteral("SRV%1").arg(i, 3, 10, QLatin1Char('0'));
        names << name;
        sim.icmp.addComputer(name, QStringLiteral("10.0.%1.1").arg(i), 0);
        QStringList records;
        for (int k = 0; k < perServer; ++k) {
            const QString svc = QStringLiteral("svc%1.service").arg(k);
            records << QStringLiteral("Service %1;%2;Alert;Restart Service;;;;").arg(k).arg(svc);
            // Every third service is down, so the rows mix green and red.
            sim.services.addService(name, {.name = svc, .state = (i + k) % 3 ? platform::svcstate::running
                                                                               : platform::svcstate::stopped});
        }
        writeLines(dir.filePath(name), records);
    }
    bench::writeMonitoredFleet(dir.path(), names);

    platform::Platform p = sim.platform();
    p.clock = real.platform().clock;
    p.worker = real.platform().worker;
    shell::Program program(p);

    QElapsedTimer clock;
    qint64 maxStall = 0, lastTick = 0, addedMs = -1, sortMs = -1, exportMs = -1;
    bool measuring = false;
    report::ReportWindow* r = nullptr;
    QTimer probe;
    probe.setInterval(2);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed();
        if (measuring)
            maxStall = std::max(maxStall, now - lastTick);
        lastTick = now;
    });

    int scansDone = 0;
    auto sortAndExport = [&] {
        QElapsedTimer t;
        t.start();
        for (int column = 0; column < report::kColumnCount; ++column) {
            r->columnClick(column);
            QCoreApplication::processEvents(); // let the list draw between sorts
        }
        sortMs = t.elapsed();
        sim.filedialogs.scriptSave(dir.filePath("report.txt"));
        t.restart();
        r->exportreport([&, t](report::ExportResult) {
            exportMs = t.elapsed();
            measuring = false;
            app.exit(0); // quit() would ask the report whether to save first
        });
    };
    std::function<void()> nextScan = [&] {
        if (r->rows().count() >= rowsWanted) {
            addedMs = clock.elapsed();
            QTimer::singleShot(0, &app, sortAndExport);
            return;
        }
        r->cycle().checkservices(240);
    };

    QTimer::singleShot(200, &app, [&] {
        // The start-up scan is over: open the report (its loading runs the first scan) from a
        // quiet event loop and time from there.
        clock.restart();
        lastTick = 0;
        measuring = true;
        program.showReport();
        r = program.reportWindow();
        QObject::connect(&r->cycle(), &report::ReportCycle::busy, &app, [&](bool on) {
            if (!on && ++scansDone <= scans)
                QTimer::singleShot(0, &app, nextScan);
        });
    });
    clock.start();
    probe.start();
    program.load();
    QTimer::singleShot(120000, &app, [&] { app.exit(0); });
    app.exec();

    std::printf("rows: %d\n", r ? r->rows().count() : -1);
    std::printf("rows_added_ms: %lld\n", static_cast<long long>(addedMs));
    std::printf("sort_ms: %lld\n", static_cast<long long>(sortMs));
    std::printf("export_ms: %lld\n", static_cast<long long>(exportMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(maxStall));
    std::fflush(stdout);
    program.window->menuExit();
    return 0;
}
