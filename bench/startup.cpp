// Start-up with 1,000 servers in "Computerlist", half of them not answering: how soon the window
// shows, how soon every server has its icon, and the longest time the event loop stood still.
// Pings go through the simulated ICMP service, which answers a whole batch after the 500 ms
// time-out as a real echo socket does; everything else (timers, worker threads, files) is real.
#include "platform/linux/linuxplatform.h"
#include "platform/sim/simplatform.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "support/benchsupport.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>
#include <cstdio>

using namespace velmora;

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    constexpr int servers = 1000;
    {
        QFile f(dir.filePath(QStringLiteral("Computerlist")));
        f.open(QIODevice::WriteOnly);
        for (int i = 0; i < servers; ++i)
            f.write(QStringLiteral("SRV%1%2\r\n").arg(i, 4, 10, QLatin1Char('0')).arg(i % 3 ? "" : "\tmonitored").toUtf8());
    }

    platform::LinuxPlatform real;
    platform::sim::SimPlatform sim;
    sim.system.program_folder = dir.path();
    for (int i = 0; i < servers; ++i)
        sim.icmp.addComputer(QStringLiteral("SRV%1").arg(i, 4, 10, QLatin1Char('0')),
                             QStringLiteral("10.%1.%2.1").arg(i / 250).arg(i % 250), i % 2 ? 11010 : 0);
    sim.icmp.delay_ms = 500;

    platform::Platform p = sim.platform();
    p.clock = real.platform().clock;
    p.worker = real.platform().worker;

    QElapsedTimer clock;
    qint64 shownMs = -1, iconsMs = -1;
    bench::StallProbe stallProbe(clock);

    clock.start();
    shell::Program program(p);
    shell::MainWindow& window = *program.window;
    QObject::connect(&window, &shell::MainWindow::serverListReady, [&] {
        iconsMs = clock.elapsed();
        QTimer::singleShot(200, &app, [&] { app.quit(); });
    });
    program.load();
    // load() returns once the window is shown and filled; the pings go on in the background.
    QTimer::singleShot(0, &app, [&] { shownMs = clock.elapsed(); });
    stallProbe.start();
    QTimer::singleShot(10000, &app, [&] { app.quit(); });
    app.exec();

    int unreachable = 0;
    for (int i = 0; i < window.ListView2->topLevelItemCount(); ++i) {
        const int icon = shell::MainWindow::serverIcon(window.ListView2->topLevelItem(i));
        unreachable += (icon == 8 || icon == 10);
    }
    std::printf("servers: %d\n", window.ListView2->topLevelItemCount());
    std::printf("unreachable: %d\n", unreachable);
    std::printf("window_shown_ms: %lld\n", static_cast<long long>(shownMs));
    std::printf("icons_set_ms: %lld\n", static_cast<long long>(iconsMs));
    std::printf("max_stall_ms: %lld\n", static_cast<long long>(stallProbe.max()));
    window.menuExit();
    return 0;
}
