#pragma once
// Form2, "Setup services for monitoring": the services of one server, the services monitored on
// it with their five action slots, and the check interval. OK stores the per-server file, the
// list of monitored servers ("Computers") and "Interval"; Cancel drops the changes.
//
// The window is created once (on first use) and then shown and hidden; every opening reloads it
// from the files. Its service list shows the service side's listing (each row carries its key
// name), Label5 and the spinner show and set the schedule the scheduler goes by, and List3 shows
// the monitored servers.
#include "core/serverfile.h"
#include "core/writeresult.h"

#include <QDialog>
#include <functional>
#include <vector>

class QAction;
class QLabel;
class QListWidget;
class QMenu;
class QPushButton;
class QScrollBar;
class QTreeWidget;

namespace velmora::core { struct RunState; class Schedule; class ServerList; class MonitoredServices; }
namespace velmora::servicecontrol { class ServiceControl; class ServiceListing; }
namespace velmora::actions { class ActionDispatcher; }

namespace velmora::monitoring {

class AlertSetupWindow;

class SetupWindow : public QDialog {
    Q_OBJECT
public:
    // Loading: makes sure "Interval" exists (with "30"), shows it, and shows the monitored
    // servers in List3.
    SetupWindow(core::RunState& state, core::Schedule& schedule, core::ServerList& servers,
                core::MonitoredServices& monitored,
                servicecontrol::ServiceControl& services, servicecontrol::ServiceListing& listing,
                actions::ActionDispatcher& dispatcher, QWidget* parent = nullptr);
    ~SetupWindow() override;

    QTreeWidget* ListView1 = nullptr; // services of the server (display names, state icons)
    QListWidget* List1 = nullptr;     // hidden: their key names, row for row
    QListWidget* List2 = nullptr;     // monitored services (display names)
    QListWidget* List3 = nullptr;     // hidden: the servers with monitored services
    QListWidget* List7 = nullptr;     // the five action slots of the selected monitored service
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr, *Label5 = nullptr,
           *Label6 = nullptr, *Label7 = nullptr, *Label8 = nullptr;
    QScrollBar* VScroll1 = nullptr;   // the interval spinner, -240 to -1
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr,
                *Command7 = nullptr;
    QMenu* mnuadd = nullptr;
    QAction* mnuaddtomonitor = nullptr;

    // The monitored services of the server being edited, in List2's order.
    const std::vector<core::MonitoredService>& entries() const { return entries_; }
    // The server being edited (Label6).
    QString server() const;

    // The line List7 shows while more than one service is monitored and none is chosen.
    static const QString kSelectService;

    // Opens the window for server, the one selected in the main window (Command7, "Service
    // Monitor", "Monitor Services on this Server..."). The service listing runs off the
    // user-interface thread, so the window shows when it has ended; then(shown) runs then, with
    // shown false when the window was not opened (no servers, the listing failed).
    void openFor(const QString& server, std::function<void(bool shown)> then = {});
    // "Monitor Service" of the main window's service list: opens the window for server, then the
    // alert setup for the service with this display name.
    void monitorService(const QString& server, const QString& display);

    // The commands.
    void add();    // Command1 "&Add    -->", the context menu, a double-click on a service
    void remove(); // Command2
    void edit();   // Command7, a double-click on a monitored service
    void ok();     // Command3
    void cancel(); // Command4

    // Form3, the alert setup, created on first use.
    AlertSetupWindow* alertSetup();

    // For Form3's OK: a new entry at the end, or the slots of the entry at position replaced.
    void appendEntry(const QString& displayname, const QString& servicename, const QStringList& actions);
    void replaceEntry(int position, const QStringList& actions);
    // The service selected in ListView1 now: display name and key name (empty when none).
    std::pair<QString, QString> selectedService() const;

signals:
    // The alert setup asks for the e-mail options.
    void emailOptionsRequested();

protected:
    bool event(QEvent* e) override;
    bool eventFilter(QObject* watched, QEvent* e) override;

private:
    void buildControls();
    // Shows the schedule's interval in Label5, as it stands, and in the spinner. A value the
    // spinner's 1 to 240 cannot show is kept, and the user is told so once for each such text.
    void showInterval(const QString& minutes);
    void serviceClicked();
    void monitoredClicked();
    void showSlots(const core::MonitoredService& entry);
    // Whether display occurs, without regard to case, inside a monitored display name.
    bool alreadyMonitored(const QString& display) const;
    void openAlertSetupForNew(const QString& display, const QString& service);
    void loadEntries();
    void fillFromListing();
    void showMonitoredServers();
    // Shows a failed write in a box; returns whether all went well.
    bool saved(const core::WriteResult& result);

    core::RunState& state_;
    core::Schedule& schedule_;
    core::ServerList& servers_;
    core::MonitoredServices& monitored_;
    servicecontrol::ServiceControl& services_;
    servicecontrol::ServiceListing& listing_;
    actions::ActionDispatcher& dispatcher_;
    std::vector<core::MonitoredService> entries_;
    AlertSetupWindow* alertSetup_ = nullptr;
    QString toldInterval_; // the last interval text the user was told could not be shown
};

} // namespace velmora::monitoring
