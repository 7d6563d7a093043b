#pragma once
// The service side of the main window (its frame Frame2): the services of the current server,
// the details of the selected one, its running dependents in stop order, and the commands that
// list, start, stop and follow it (Timer1). The fields, the dependents and the commands' enabled
// state show a ServicePanel.
//
// Every call to a service manager runs on a worker thread; what it found is then applied on the
// user-interface thread step by step, message boxes included, in the order a one-call-at-a-time
// run would have shown them. The listing lives in a ServiceListing that other windows show too.
#include "servicecontrol/queries.h"
#include "servicecontrol/servicepanel.h"

#include <QGroupBox>
#include <QString>
#include <functional>
#include <vector>

class QAction;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPushButton;
class QTreeWidget;

namespace velmora::core { struct RunState; class ServerList; }
namespace velmora::platform { class Timer; }

namespace velmora::servicecontrol {

class Connections;
class ServiceListing;
struct ListedService;

class ServiceControl : public QGroupBox {
    Q_OBJECT
public:
    ServiceControl(core::RunState& state, const core::ServerList& servers, ServiceListing& listing,
                   ServicePanel& panel, Connections& connections, QWidget* parent = nullptr);

    // ---- controls, named as on the form ----
    QLabel *Label1 = nullptr, *Label3 = nullptr, *Label4 = nullptr, *Label5 = nullptr, *Label6 = nullptr,
           *Label7 = nullptr, *Label8 = nullptr, *Label13 = nullptr;
    QTreeWidget* ListView1 = nullptr; // services of the current server
    QListWidget* List2 = nullptr;     // running dependents (display names)
    QLineEdit *Text2 = nullptr, *Text3 = nullptr, *Text4 = nullptr, *Text5 = nullptr, *Text6 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command5 = nullptr, *Command6 = nullptr,
                *Command7 = nullptr;
    platform::Timer* Timer1 = nullptr;
    // The service list's pop-up menu.
    QMenu* mnumonitor = nullptr;
    QAction *mnumonitorservice = nullptr, *mnustopservice = nullptr, *mnustartservice = nullptr;

    // The current server (the main window's Text1). Switches Timer1 off.
    void setComputer(const QString& name);
    QString computer() const;
    ServicePanel& panel() { return panel_; }

    // Command2 / Command6: lists all or the active services of the current server.
    void showServices(bool all);
    // Sets the service side back to empty, the listing with it (the monitoring setup window's
    // service list too).
    void clearServiceSide();
    // Empties this window's service side only: the listing stays, so the monitoring setup
    // window keeps the services of the server it edits.
    void clearShownServices();
    // A click on a service: its details and dependents.
    void selectService();
    // Selects the listed service with this key name (or, failing that, display name) and shows it
    // as a click would. Returns false when it is not listed.
    bool selectListedService(const QString& service);

    // Lists the services of the current server: filter 1 active ones, 3 all.
    void getServiceInfo(int filter);
    // Shows the details of a service (key name) of the current server; then runs done.
    void servicedetails(const QString& service, std::function<void()> done = {});
    // Lists the running dependents of the selected service.
    void depservices(int filter, std::function<void()> done = {});
    void startCommand();
    void stopCommand();
    void timer1Tick();

    // Shared results, as the other windows read them.
    bool listfailed = false;
    bool detailsfailed = false;
    QString detailstate;
    QString selectedcomputer;

    // Whether a listing or command is still waiting for a service manager.
    bool busy() const { return busy_ > 0; }

signals:
    void listingStarted();
    void listingFinished();
    // "Processing command please wait ....." is shown (true) or hidden (false).
    void processing(bool on);
    // Command7 and the service menu's "Monitor Service".
    void monitorRequested();
    void monitorServiceRequested();
    // The service manager of computer failed a command of the user with code (its message box
    // is shown next), or listed its services (code 0).
    void managerAnswered(const QString& computer, int code);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The command whose job Timer1 follows, until its end has been seen.
    enum class Command { None, Start, Stop };

    void buildControls();
    // Start and Stop follow the selected service's state.
    void enableCommands();
    void showDetails();
    void showDependents();
    std::function<void()> followWhenUnchanged(Command command);
    void applyTick(const ServiceQuery& q, int job, const QString& service);
    void fillFromListing();
    // Fills ListView1 with rows (none: empties it).
    void showRows(const std::vector<ListedService>& rows);
    void showServiceDetails();
    // Shows what a details query found: its failures in boxes, and for the selected service its
    // state and details.
    void applyDetails(const DetailQuery& q, bool selected = true);
    void listAfterOpen(int filter);
    void applyListing(const Listing& l);
    void servstart(std::function<void()> done);
    void servstop(const QString& service, std::function<void()> done);
    void box(const QString& text, int code);
    void runJob(std::function<std::function<void()>()> job);
    void listRightButton(const QPoint& globalPos);

    core::RunState& state_;
    const core::ServerList& servers_;
    ServiceListing& listing_;
    ServicePanel& panel_;
    Connections& connections_;
    int busy_ = 0;
    bool tickRunning_ = false;
    Command following_ = Command::None;
};

} // namespace velmora::servicecontrol
