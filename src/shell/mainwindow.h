#pragma once
// The main window Form1: the server list, the service list of the current server, the details
// of the selected service and the commands. It owns the shared run state and all timers.
//
// Controls are public members named as on the form, because other windows and modules read and
// write them directly (the check cycle reads the server icons, the alert window presses
// Command9, and so on). Tests find them by objectName.
#include "core/runstate.h"
#include "platform/platform.h"

#include <QMainWindow>
#include <functional>

class QAction;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace velmora::monitoring { class CheckCycle; class Reachability; class SetupWindow; }
namespace velmora::servicecontrol { class ServiceControl; }
namespace velmora::joblog { class LogAndAlerts; }
namespace velmora::actions { class ActionDispatcher; class Mailing; }

namespace velmora::shell {

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(const platform::Platform& platform, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The start-up sequence; the window shows itself part way through.
    void load();

    core::RunState state;

    // ---- controls ----
    QGroupBox *Frame1 = nullptr, *Frame2 = nullptr;
    QTreeWidget *ListView2 = nullptr; // servers
    QTreeWidget *ListView1 = nullptr; // services of the current server
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr, *Label5 = nullptr,
           *Label6 = nullptr, *Label7 = nullptr, *Label8 = nullptr, *Label9 = nullptr, *Label10 = nullptr,
           *Label11 = nullptr, *Label13 = nullptr;
    QListWidget *List1 = nullptr, *List2 = nullptr, *List3 = nullptr, *List4 = nullptr;
    QLineEdit *Text1 = nullptr, *Text2 = nullptr, *Text3 = nullptr, *Text4 = nullptr, *Text5 = nullptr,
              *Text6 = nullptr, *Text7 = nullptr, *Text8 = nullptr, *Text9 = nullptr;
    QComboBox* Combo1 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr,
                *Command5 = nullptr, *Command6 = nullptr, *Command7 = nullptr, *Command8 = nullptr,
                *Command9 = nullptr, *Command10 = nullptr, *Command11 = nullptr, *Command12 = nullptr,
                *Command13 = nullptr, *Command14 = nullptr;
    platform::Timer *Timer1 = nullptr, *Timer2 = nullptr, *Timer5 = nullptr, *Timer6 = nullptr,
                    *Timer8 = nullptr, *Timer9 = nullptr;

    // ---- menus ----
    QMenu *mnuFile = nullptr, *mnuMenu = nullptr, *mnuWindow = nullptr, *mnulog = nullptr,
          *mnuemailoptions = nullptr, *mnuInfo = nullptr;
    QAction *mnuExit = nullptr;
    QAction *mnuChecknow = nullptr, *mnuServicemonitor = nullptr, *mnuAllservices = nullptr,
            *mnuActiveservices = nullptr, *mnureport = nullptr;
    QAction* mnuHide = nullptr;
    QAction *mnushowlogfile = nullptr, *mnudeletelogfile = nullptr;
    QAction* mnusetemailoptions = nullptr;
    QAction *mnuAbout = nullptr, *mnuhelp = nullptr;
    // pop-up menus
    QMenu *mnuPopUp = nullptr, *mnumonitor = nullptr, *mnushowmonitor = nullptr;
    QAction *mnuTrayExit = nullptr, *mnuTrayinfo = nullptr, *mnuTrayMaximize = nullptr,
            *mnutrayChecknow = nullptr, *trymnushowreport = nullptr, *traymnuresetalert = nullptr;
    QAction *mnumonitorservice = nullptr, *mnustopservice = nullptr, *mnustartservice = nullptr;
    QAction *mnushowall = nullptr, *mnushowactive = nullptr, *mnumonwin = nullptr, *mnuaddserver = nullptr,
            *mnuremoveserver = nullptr, *mnumaintenance = nullptr, *mnuoutmaintenance = nullptr,
            *mnuproperties = nullptr;

    // ---- server list items ----
    // The small icon of a server item: 7 not monitored and reachable, 8 not monitored and
    // unreachable, 9 monitored and reachable, 10 monitored and unreachable.
    static int serverIcon(const QTreeWidgetItem* item);
    void setServerIcon(QTreeWidgetItem* item, int icon);
    QTreeWidgetItem* findServer(const QString& name) const;
    QTreeWidgetItem* addServer(const QString& name, int icon);
    // Whether the server's reachability is still being checked for the first time.
    static bool serverPending(const QTreeWidgetItem* item);
    // A server in maintenance is shown dimmed and skipped by the timed scan; never stored.
    static bool serverInMaintenance(const QTreeWidgetItem* item);
    void setServerMaintenance(QTreeWidgetItem* item, bool on);
    // The state icon of a service item (0 when none).
    static int serviceIcon(const QTreeWidgetItem* item);
    void setServiceIcon(QTreeWidgetItem* item, int icon);

    // ---- operations ----
    bool writecomputerlist();
    bool writesettings();
    void readsettings();
    // Pings every server of the list and updates the icons in list order.
    void repingServers();
    // Pings one server and hands the result (also left in state.pingresult) to done.
    void pingserver(const QString& name, std::function<void(bool reachable)> done);
    void validate(const QString& server, std::function<void()> done = {});
    void unvalidate(const QString& computername);

    // The ways out.
    void queryUnload();   // close box, system menu, session end
    void exitProgram();   // Command4
    void menuExit();      // mnuExit
    void trayExit();      // mnuTrayExit

    // Selection flows.
    void selectServer();
    void selectService();
    // Shows the details and dependents of the service whose key name is in Text3.
    void showServiceDetails();
    void showServices(bool all); // Command2 / Command6

    // Sets the service side back to empty.
    void clearServiceSide();

    // The monitor: the scheduler tick, the timed scan and the immediate check.
    monitoring::CheckCycle* checkcycle = nullptr;
    // The service side: listing, details, start and stop.
    servicecontrol::ServiceControl* services = nullptr;
    // The job log, the alert window Form4 and the alert signal (Timer6).
    joblog::LogAndAlerts* logandalerts = nullptr;
    // Alert mail, network messages, the e-mail options and the two test-mail windows.
    actions::Mailing* mailing = nullptr;
    // Runs the action list of a failed monitored service.
    actions::ActionDispatcher* dispatcher = nullptr;
    // Form2, the monitoring setup window, created on first use.
    monitoring::SetupWindow* setupWindow();

    // Extension points filled by other modules; each is optional.
    std::function<void()> onCheckMailProfile;           // start-up check of the mail profile
    std::function<void(const QString& interval)> onIntervalRead; // start-up: show the interval in the setup dialog
    std::function<void(const QString& interval)> onCheckInterval; // start-up: compute the next scan and run it
    std::function<void()> onLocalComputerNameRead;      // start-up: empties the alert window's Text1

signals:
    // The first reachability check of the start-up list has been applied.
    void serverListReady();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildControls();
    void buildMenus();
    void connectControls();
    void activateSteps();
    void startupAfterPause();
    void browseComputer();
    void addLocalComputer();
    void serverListMousePress(Qt::MouseButton button, const QPoint& globalPos);
    void serviceListMousePress(Qt::MouseButton button, const QPoint& globalPos);
    void endProgram();
    void storeWindowPosition(bool onlyPositive);

    platform::Platform p_;
    monitoring::Reachability* reach_ = nullptr;
    monitoring::SetupWindow* setupWindow_ = nullptr;
    bool repingRunning_ = false;
    QString selecteditem_;
    int selectedindex_ = -1;
};

} // namespace velmora::shell
