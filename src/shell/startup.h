#pragma once
// The start-up of the program, in its order: the data folder, the settings, the checks that may
// end the run (an unsafe folder, another copy), the server list and the monitored servers with
// their files tidied, the mail settings and the default files; a second later the interval and
// the first scan. It holds no window: what the main window shows or does at each step it is told
// through a signal, in the order of the steps.
#include "core/serverlistfile.h"
#include "platform/platform.h"

#include <QObject>
#include <QPoint>
#include <QStringList>
#include <optional>
#include <vector>

namespace velmora::core { struct RunState; class MonitoredServices; }
namespace velmora::servicecontrol { class Connections; }

namespace velmora::shell {

class Startup : public QObject {
    Q_OBJECT
public:
    Startup(const platform::Platform& platform, core::RunState& state, core::MonitoredServices& monitored,
            servicecontrol::Connections& connections, QObject* parent = nullptr);

    // Runs the steps up to the second's pause; the rest follows on the platform clock.
    void run();

signals:
    // The run begins: the window is busy and its commands wait for the first scan.
    void begun();
    void dataFolderChosen(const QString& folder);
    // The run cannot go on (the user has been told why): the program ends.
    void refused();
    // The system is one the program runs on: the window takes its caption.
    void accepted();
    void localComputerNameRead(const QString& name);
    // Another copy asks this one to come to the front.
    void showRequested();
    // The window shows, at the frame position stored (in pixels) when one is known.
    void windowDue(const std::optional<QPoint>& frame);
    // A server passed over: its file would be one of the program's own.
    void serverNameRefused(const QString& server, const QString& file);
    void monitoredServersRead();
    // The server list to show (refused names left out); keepFile when the file is beyond the
    // limits and must not be written in this run.
    void serverListRead(const std::vector<core::ServerListLine>& lines, bool keepFile);
    void mailProfileCheckDue();
    void pingUnavailable(const QString& why);
    // After the pause: the interval read, the first scan, the scheduler.
    void intervalRead(const QString& interval);
    void scanDue(const QString& interval);
    void schedulerDue();

private:
    void afterPause();
    void announceRefused(const QString& name);
    std::vector<core::ServerListLine> safeLines(const std::vector<core::ServerListLine>& lines);

    platform::Platform p_;
    core::RunState& state_;
    core::MonitoredServices& monitored_;
    servicecontrol::Connections& connections_;
    QStringList refused_;
};

} // namespace velmora::shell
