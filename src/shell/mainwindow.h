#pragma once
// The main window Form1: the server list, the service side (a panel of its own), the command row,
// the menus, and the start-up and ways out of the program.
//
// The server list shows the ServerList model and maps every selection back through it; the
// hidden fields and lists of the form (Text1, Text7, Combo1) are kept and filled from the models
// for whoever looks them up by name. Controls are public members named as on the form, so that
// tests find them; the window holds no data of its own.
#include "core/runstate.h"
#include "core/serverlistfile.h"
#include "monitoring/reachability.h"
#include "platform/platform.h"
#include "shell/startup.h"

#include <QMainWindow>
#include <QPointer>
#include <functional>

class QAction;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace velmora::core { class ServerList; class MonitoredServices; struct ServerEntry; }
namespace velmora::servicecontrol { class ServiceControl; class Connections; }

namespace velmora::shell {

class AddServerDialog;
class MaintenanceDialog;
class PropertiesWindow;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    // services is the service side, adopted into the window's layout.
    MainWindow(core::RunState& state, core::ServerList& servers, core::MonitoredServices& monitored,
               servicecontrol::ServiceControl* services, servicecontrol::Connections& connections,
               QWidget* parent = nullptr);
    ~MainWindow() override;

    // The start-up sequence (Startup); the window shows itself part way through.
    void load();

    core::RunState& state;
    servicecontrol::ServiceControl* const services;

    // ---- controls ----
    QGroupBox* Frame1 = nullptr;
    QTreeWidget* ListView2 = nullptr; // servers
    QLabel *Label2 = nullptr, *Label9 = nullptr, *Label10 = nullptr, *Label11 = nullptr;
    QLineEdit *Text1 = nullptr, *Text7 = nullptr;
    QComboBox* Combo1 = nullptr; // hidden: the monitored servers
    QPushButton *Command3 = nullptr, *Command4 = nullptr, *Command8 = nullptr, *Command9 = nullptr,
                *Command10 = nullptr, *Command11 = nullptr, *Command12 = nullptr, *Command13 = nullptr,
                *Command14 = nullptr;
    platform::Timer *Timer5 = nullptr, *Timer6 = nullptr, *Timer8 = nullptr, *Timer9 = nullptr;

    // ---- menus ----
    QMenu *mnuFile = nullptr, *mnuMenu = nullptr, *mnuWindow = nullptr, *mnulog = nullptr,
          *mnuemailoptions = nullptr, *mnuInfo = nullptr;
    QAction *mnuExit = nullptr;
    QAction *mnuChecknow = nullptr, *mnuServicemonitor = nullptr, *mnuAllservices = nullptr,
            *mnuActiveservices = nullptr, *mnureport = nullptr, *mnualertoptions = nullptr;
    QAction* mnuHide = nullptr;
    QAction *mnushowlogfile = nullptr, *mnudeletelogfile = nullptr, *mnuavailability = nullptr;
    QAction* mnusetemailoptions = nullptr;
    QAction *mnuAbout = nullptr, *mnuhelp = nullptr;
    // pop-up menus
    QMenu *mnuPopUp = nullptr, *mnushowmonitor = nullptr;
    QAction *mnuTrayExit = nullptr, *mnuTrayinfo = nullptr, *mnuTrayMaximize = nullptr,
            *mnutrayChecknow = nullptr, *trymnushowreport = nullptr, *traymnuresetalert = nullptr;
    QAction *mnushowall = nullptr, *mnushowactive = nullptr, *mnumonwin = nullptr, *mnuaddserver = nullptr,
            *mnuremoveserver = nullptr, *mnumaintenance = nullptr, *mnuoutmaintenance = nullptr,
            *mnuproperties = nullptr;
    // Maintenance that ends by itself, beside "Stop Alerting for this server".
    QMenu* mnumaintenancefor = nullptr; // "Stop Alerting for a while"
    QAction *mnumaintenance1h = nullptr, *mnumaintenance4h = nullptr, *mnumaintenanceuntil = nullptr;

    // ---- the server list as shown ----
    // The item of a server, null when it is not listed.
    QTreeWidgetItem* findServer(const QString& name) const;
    // The icon number an item shows (7 to 10; 0 for none).
    static int serverIcon(const QTreeWidgetItem* item);
    // The server selected in the list, else the current server (shown in Text1).
    QString selectedServer() const;
    // Makes name, in upper case, the server whose services the service side shows.
    void setCurrentServer(const QString& name);
    // The entry of the server selected in the list, null when none is selected.
    const core::ServerEntry* selectedEntry() const;

    // ---- operations ----
    bool writecomputerlist();
    bool writesettings();
    void readsettings();
    // Pings every server of the list and updates the icons in list order.
    void repingServers();
    // Pings one server and hands its outcome to done.
    void pingserver(const QString& name, std::function<void(const monitoring::PingOutcome&)> done);

    // The ways out.
    void queryUnload();   // close box, system menu
    void sessionEnd();    // logout, shutdown, a termination signal: as the close box, no boxes
    void exitProgram();   // Command4
    void menuExit();      // mnuExit
    void trayExit();      // mnuTrayExit

    // Server management. addServer takes a name typed or chosen (upper case) when it is
    // neither empty, nor listed, nor a name of the program's own files, and tells the user why
    // not otherwise.
    bool addServer(const QString& name);
    void removeServer();
    // Maintenance of the selected server, until end when it is valid.
    void maintenanceOn(const QDateTime& end = {});
    void maintenanceOff();
    void openProperties();
    // The Server Properties window of a server named elsewhere (the report's "Properties...").
    void openPropertiesFor(const QString& server);
    // Ends the maintenance of every server whose end has come.
    void endDueMaintenance();
    // The windows of server management while they are open, else null.
    AddServerDialog* addServerDialog() const;
    PropertiesWindow* propertiesWindow() const;
    MaintenanceDialog* maintenanceDialog() const;

    // Selection flows.
    void selectServer();
    // Shows server's service: selects the server, lists all its services, then selects and
    // shows the service ("Goto service" of the alert window).
    void gotoService(const QString& server, const QString& service);

signals:
    // Each activation of the window, after its own activate steps.
    void activated();
    // The first reachability check of the start-up list has been applied.
    void serverListReady();
    // No server can be pinged on this machine; why, and what to do, in one paragraph.
    void pingUnavailable(const QString& why);
    // Start-up steps the other modules carry out.
    void localComputerNameRead();
    void mailProfileCheckDue();
    void intervalRead(const QString& interval);
    void scanDue(const QString& interval);
    // Command7, "Service Monitor" and "Monitor Services on this Server...": the monitoring setup
    // for the selected server.
    void monitorSetupRequested(const QString& server);
    // A server read at start-up is passed over: its file would be one of the program's own.
    void serverNameRefused(const QString& server, const QString& file);
    // A maintenance given an end has ended by itself.
    void maintenanceEnded(const QString& server);
    // Remove Server was asked for with no server selected.
    void removeWithoutSelection();
    // A file could not be saved as the session ended (no box is shown then); text says which
    // and why.
    void notSavedAtSessionEnd(const QString& text);

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildControls();
    void buildMenus();
    void connectControls();
    void connectModels();
    void activateSteps();
    void connectStartup();
    // The server list read at start-up: shown, pinged, and its first monitored server made current.
    void showStartServers(const std::vector<core::ServerListLine>& lines, bool keepFile);
    void browseComputer();
    void addLocalComputer();
    void serverListMousePress(Qt::MouseButton button, const QPoint& globalPos);
    void endProgram();
    void storeWindowPosition(bool onlyPositive);
    void showServerItem(QTreeWidgetItem* item, int row);
    void rebuildServerItems();
    void showMonitoredServers();
    void showWriteFailure(const QString& path);
    void buildServerManagementMenus();
    void connectServerManagement();
    void openAddServer();
    void askMaintenanceEnd();
    bool refusedServerName(const QString& name);

    platform::Platform p_;
    core::ServerList& servers_;
    core::MonitoredServices& monitored_;
    servicecontrol::Connections& connections_;
    monitoring::Reachability reach_;
    Startup startup_;
    bool repingRunning_ = false;
    // The server list file is left as it is: not read yet, or beyond the limits at start-up.
    bool keepServerListFile_ = true;
    // The session is ending (a termination signal): no box is shown any more.
    bool endingSession_ = false;
    QPointer<AddServerDialog> addDialog_;
    QPointer<PropertiesWindow> propertiesWindow_;
    QPointer<MaintenanceDialog> maintenanceDialog_;
};

} // namespace velmora::shell
