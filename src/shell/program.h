#pragma once
// The program as a whole: builds every module once, hands each its collaborators, and connects
// what one module tells to what another does. Nothing else builds modules or wires them.
#include "core/monitoredservices.h"
#include "core/runstate.h"
#include "core/schedule.h"
#include "core/serverlist.h"
#include "core/servertypes.h"
#include "platform/platform.h"
#include "servicecontrol/connections.h"
#include "servicecontrol/servicelisting.h"
#include "servicecontrol/servicepanel.h"

#include <QPointer>
#include <memory>

namespace velmora::actions { class ActionDispatcher; class AlertMailer; class Mailing; }
namespace velmora::history { class AvailabilityWindow; class LogHistory; }
namespace velmora::joblog { class LogAndAlerts; }
namespace velmora::monitoring { class AlertKeeper; class AlertOptionsDialog; class CheckCycle; class SetupWindow; }
namespace velmora::report { class ReportWindow; }
namespace velmora::servicecontrol { class ServiceControl; }

namespace velmora::shell {

class InfoCommands;
class JournalWindow;
class MainWindow;
class TrayControl;

class Program {
public:
    explicit Program(const platform::Platform& platform);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The start-up sequence of the main window.
    void load();

    core::RunState state;
    // The check interval: the setup window sets it, the check cycle goes by it.
    core::Schedule schedule;
    core::ServerList servers;
    core::MonitoredServices monitored;
    // Which servers are Windows servers ("ServerTypes"); installed into the platform's slot, which
    // the service and connection backends route by.
    core::ServerTypes serverTypes;
    servicecontrol::ServiceListing listing;
    // The selected service with its state, details and running dependents.
    servicecontrol::ServicePanel panel;
    servicecontrol::Connections connections;

    // Owned by the main window (its children) from here on.
    servicecontrol::ServiceControl* services = nullptr;
    std::unique_ptr<MainWindow> window;
    joblog::LogAndAlerts* logandalerts = nullptr;
    actions::AlertMailer* mailer = nullptr;
    actions::ActionDispatcher* dispatcher = nullptr;
    actions::Mailing* mailing = nullptr;
    // What a failure runs, from its history under the alert options.
    monitoring::AlertKeeper* keeper = nullptr;
    monitoring::CheckCycle* checkcycle = nullptr;
    TrayControl* tray = nullptr;
    InfoCommands* info = nullptr;

    // Form2, the monitoring setup window, created on first use.
    monitoring::SetupWindow* setupWindow();
    // Form9, the instant report, loaded on first use and again after its close box unloaded it.
    report::ReportWindow* reportWindow();
    // The report window when it is loaded, else null.
    report::ReportWindow* loadedReportWindow() const;
    // "Show Report": shows the report window, loading it first when needed.
    void showReport();
    // Form12, the availability window, with the job log's history it reads; both built on first use.
    history::AvailabilityWindow* availabilityWindow();
    // "Availability...": the window over all services, or on one service of the report.
    void showAvailability(const QString& server = {}, const QString& service = {});

private:
    void connectJobLog();
    void connectMonitoring();
    void connectMailing();
    void connectTray();
    void connectInfo();
    void connectServerManagement();
    void connectReport();
    void connectAvailability();
    void connectAlertOptions();
    // The alert options took effect: the menus show what they use.
    void alertOptionsChanged();
    void showJournal(const QString& server, const QString& service);

    monitoring::SetupWindow* setupWindow_ = nullptr;
    monitoring::AlertOptionsDialog* alertOptions_ = nullptr;
    JournalWindow* journal_ = nullptr;
    QPointer<report::ReportWindow> report_;
    history::LogHistory* history_ = nullptr;
    history::AvailabilityWindow* availability_ = nullptr;
};

} // namespace velmora::shell
