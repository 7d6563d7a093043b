#include "shell/mainwindow.h"

#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/serverfile.h"
#include "core/serverlist.h"
#include "core/serverlistfile.h"
#include "core/timestamps.h"
#include "core/writeresult.h"
#include "joblog/joblog.h"
#include "platform/formcontrols.h"
#include "platform/errorreasons.h"
#include "platform/icons.h"
#include "servicecontrol/connections.h"
#include "servicecontrol/servicecontrol.h"
#include "shell/addserverdialog.h"
#include "shell/maintenancedialog.h"
#include "shell/propertieswindow.h"
#include "shell/startup.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::menuItem;
using platform::menuSeparator;
using platform::MsgIcon;
using platform::named;
using platform::kTwipsPerPixel;

namespace {

const QString kCaption = QStringLiteral(" Velmora  Version 3.0     ");

} // namespace

MainWindow::MainWindow(core::RunState& runState, core::ServerList& servers, core::MonitoredServices& monitored,
                       servicecontrol::ServiceControl* serviceSide, servicecontrol::Connections& connections,
                       QWidget* parent)
    : QMainWindow(parent), state(runState), services(serviceSide), p_(runState.platform), servers_(servers),
      monitored_(monitored), connections_(connections), reach_(*p_.icmp, *p_.worker),
      startup_(p_, runState, monitored, connections)
{
    setObjectName(QStringLiteral("Form1"));
    setWindowIcon(platform::programIcon());
    buildControls();
    buildMenus();
    buildServerManagementMenus();
    connectControls();
    connectModels();
    connectStartup();

    Timer5 = p_.clock->createTimer(this, QStringLiteral("Timer5"), 0);
    // Connected before the scheduler's own handler, so a maintenance that has ended is over
    // before the scan of the same tick looks at it.
    connect(Timer5, &platform::Timer::timeout, this, &MainWindow::endDueMaintenance);
    Timer6 = p_.clock->createTimer(this, QStringLiteral("Timer6"), 250);
    Timer8 = p_.clock->createTimer(this, QStringLiteral("Timer8"), 200);
    Timer9 = p_.clock->createTimer(this, QStringLiteral("Timer9"), 60000);
    // All timers run from the moment the window exists; start-up switches some of them off.
    for (platform::Timer* t : {services->Timer1, Timer5, Timer6, Timer8, Timer9})
        t->setEnabled(true);
    connect(Timer9, &platform::Timer::timeout, this, &MainWindow::repingServers);
    // Logout, system shutdown and a termination signal close the window like its close box,
    // but nobody is there to answer a box.
    p_.app->onSessionEnd([this] { sessionEnd(); });
}

MainWindow::~MainWindow() = default;

// ---------------------------------------------------------------------------------------------
// Controls

void MainWindow::buildControls()
{
    setWindowTitle(QStringLiteral("Form1"));
    auto* central = new QWidget;
    auto* top = new QVBoxLayout(central);

    // The server side.
    Frame1 = named(new QGroupBox, "Frame1");
    auto* left = new QVBoxLayout(Frame1);
    Label2 = named(new QLabel(QStringLiteral("Servers list:")), "Label2");
    ListView2 = platform::iconList("ListView2", QStringLiteral("Servers:"), 2200);
    ListView2->viewport()->installEventFilter(this);
    Command13 = named(new QPushButton(QStringLiteral("&Add Server...")), "Command13");
    Command14 = named(new QPushButton(QStringLiteral("&Remove Server")), "Command14");
    Command3 = named(new QPushButton(QStringLiteral("&Browse...")), "Command3");
    Command10 = named(new QPushButton(QStringLiteral("&Local ")), "Command10");
    left->addWidget(Label2);
    left->addWidget(ListView2, 1);
    auto* serverButtons = new QGridLayout;
    serverButtons->addWidget(Command13, 0, 0);
    serverButtons->addWidget(Command14, 0, 1);
    serverButtons->addWidget(Command3, 1, 0);
    serverButtons->addWidget(Command10, 1, 1);
    left->addLayout(serverButtons);

    auto* sides = new QHBoxLayout;
    sides->addWidget(Frame1, 0);
    sides->addWidget(services, 1);
    top->addLayout(sides, 1);

    // The command row.
    auto* commands = new QHBoxLayout;
    Command9 = named(new QPushButton(QStringLiteral("&Check Services Now...")), "Command9");
    Command8 = named(new QPushButton(QStringLiteral("Show Rep&ort...")), "Command8");
    Command12 = named(new QPushButton(QStringLiteral("Reset &Alert")), "Command12");
    Command11 = named(new QPushButton(QStringLiteral("Show in &Tray only")), "Command11");
    Command4 = named(new QPushButton(QStringLiteral("&Exit Program")), "Command4");
    Label10 = named(new QLabel(QStringLiteral("Processing command please wait .....")), "Label10");
    Label10->setStyleSheet(QStringLiteral("color: #b00000; font-weight: bold;"));
    Label10->hide();
    Label9 = named(new QLabel, "Label9");
    Label11 = named(new QLabel, "Label11");
    for (QPushButton* b : {Command9, Command8, Command12, Command11})
        commands->addWidget(b);
    commands->addWidget(Label9);
    commands->addWidget(Label10, 1);
    commands->addWidget(Label11);
    commands->addWidget(Command4);
    top->addLayout(commands);

    // Hidden fields: the current server, the data folder and the monitored servers. A
    // connection's user name and password are never kept in a widget: the connection layer
    // holds them for the run, the secret store beyond it.
    Text1 = named(new QLineEdit(central), "Text1");
    Text7 = named(new QLineEdit(central), "Text7");
    Combo1 = named(new QComboBox(central), "Combo1");
    for (QWidget* w : std::initializer_list<QWidget*>{Text1, Text7, Combo1})
        w->hide();

    setCentralWidget(central);
    resize(900, 560);
}

void MainWindow::buildMenus()
{
    QMenuBar* bar = menuBar();
    mnuFile = named(bar->addMenu(QStringLiteral("   &File   ")), "mnuFile");
    mnuExit = menuItem(mnuFile, "mnuExit", QStringLiteral("Exit"));

    mnuMenu = named(bar->addMenu(QStringLiteral("Ser&vices")), "mnuMenu");
    mnuChecknow = menuItem(mnuMenu, "mnuChecknow", QStringLiteral("Check Services Now"));
    menuSeparator(mnuMenu, "line1");
    mnuServicemonitor = menuItem(mnuMenu, "mnuServicemonitor", QStringLiteral("Service Monitor"));
    menuSeparator(mnuMenu, "line2");
    mnuAllservices = menuItem(mnuMenu, "mnuAllservices", QStringLiteral("Show all Services"));
    menuSeparator(mnuMenu, "s18");
    mnuActiveservices = menuItem(mnuMenu, "mnuActiveservices", QStringLiteral("Show active Services"));
    menuSeparator(mnuMenu, "line3");
    mnureport = menuItem(mnuMenu, "mnureport", QStringLiteral("Show Report"));
    menuSeparator(mnuMenu, "linealertoptions");
    mnualertoptions = menuItem(mnuMenu, "mnualertoptions", QStringLiteral("Alert Options..."));

    mnuWindow = named(bar->addMenu(QStringLiteral(" &Window ")), "mnuWindow");
    mnuHide = menuItem(mnuWindow, "mnuHide", QStringLiteral("Show in Tray only"));

    mnulog = named(bar->addMenu(QStringLiteral("   &Log   ")), "mnulog");
    mnushowlogfile = menuItem(mnulog, "mnushowlogfile", QStringLiteral("Show Logfile"));
    menuSeparator(mnulog, "d1");
    mnudeletelogfile = menuItem(mnulog, "mnudeletelogfile", QStringLiteral("Delele Logfile"));
    menuSeparator(mnulog, "d2");
    mnuavailability = menuItem(mnulog, "mnuavailability", QStringLiteral("Availability..."));

    mnuemailoptions = named(bar->addMenu(QStringLiteral("&Email Options")), "mnuemailoptions");
    mnusetemailoptions = menuItem(mnuemailoptions, "mnusetemailoptions", QStringLiteral("Set Email Options"));

    mnuInfo = named(bar->addMenu(QStringLiteral("    I&nfo    ")), "mnuInfo");
    mnuAbout = menuItem(mnuInfo, "mnuAbout", QStringLiteral("About"));
    menuSeparator(mnuInfo, "s24");
    mnuhelp = menuItem(mnuInfo, "mnuhelp", QStringLiteral("Help..."));

    // Pop-up menus, not on the menu bar.
    mnuPopUp = named(new QMenu(QStringLiteral("&Traymenu"), this), "mnuPopUp");
    mnuTrayExit = menuItem(mnuPopUp, "mnuTrayExit", QStringLiteral("Exit"));
    menuSeparator(mnuPopUp, "linetray1");
    mnuTrayinfo = menuItem(mnuPopUp, "mnuTrayinfo", QStringLiteral("Info"));
    menuSeparator(mnuPopUp, "linetray2");
    mnuTrayMaximize = menuItem(mnuPopUp, "mnuTrayMaximize", QStringLiteral("Maximize"));
    menuSeparator(mnuPopUp, "linetray3");
    mnutrayChecknow = menuItem(mnuPopUp, "mnutrayChecknow", QStringLiteral("Check Services Now"));
    menuSeparator(mnuPopUp, "s33");
    trymnushowreport = menuItem(mnuPopUp, "trymnushowreport", QStringLiteral("Show Report"));
    menuSeparator(mnuPopUp, "s34");
    traymnuresetalert = menuItem(mnuPopUp, "traymnuresetalert", QStringLiteral("Reset Alert"));

    mnushowmonitor = named(new QMenu(QStringLiteral("Service Monitor"), this), "mnushowmonitor");
    mnushowall = menuItem(mnushowmonitor, "mnushowall", QStringLiteral("Show all Services"));
    menuSeparator(mnushowmonitor, "s11");
    mnushowactive = menuItem(mnushowmonitor, "mnushowactive", QStringLiteral("Show active Services"));
    menuSeparator(mnushowmonitor, "s12");
    mnumonwin = menuItem(mnushowmonitor, "mnumonwin", QStringLiteral("Monitor Services on this Server..."));
    mnuaddserver = menuItem(mnushowmonitor, "mnuaddserver", QStringLiteral("Add Server..."));
    menuSeparator(mnushowmonitor, "s13");
    mnuremoveserver = menuItem(mnushowmonitor, "mnuremoveserver", QStringLiteral("Remove Server"));
    menuSeparator(mnushowmonitor, "s16");
    mnumaintenance = menuItem(mnushowmonitor, "mnumaintenance", QStringLiteral("Stop Alerting for this server"));
    menuSeparator(mnushowmonitor, "s17");
    mnuoutmaintenance = menuItem(mnushowmonitor, "mnuoutmaintenance", QStringLiteral("Start Alerting for this Server"));
    menuSeparator(mnushowmonitor, "s23");
    mnuproperties = menuItem(mnushowmonitor, "mnuproperties", QStringLiteral("Properties..."));
}

void MainWindow::connectControls()
{
    connect(ListView2, &QTreeWidget::itemClicked, this, [this] { selectServer(); });
    // The arrow keys make another server the current one, as a click does.
    connect(ListView2, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* current) {
        if (current && ListView2->hasFocus() && !QApplication::mouseButtons())
            selectServer();
    });
    connect(ListView2, &QTreeWidget::itemDoubleClicked, this, [this] {
        selectServer();
        services->showServices(true);
    });

    // Text1 shows the current server.
    connect(&services->panel(), &servicecontrol::ServicePanel::computerChanged, this, [this](const QString& name) {
        Text1->setText(name);
    });
    connect(Combo1, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0)
            setCurrentServer(Combo1->currentText());
    });
    connect(services, &servicecontrol::ServiceControl::listingStarted, this, [this] { setCursor(Qt::WaitCursor); });
    connect(services, &servicecontrol::ServiceControl::listingFinished, this, [this] { unsetCursor(); });
    connect(services, &servicecontrol::ServiceControl::processing, Label10, &QLabel::setVisible);
    auto openSetup = [this] { emit monitorSetupRequested(selectedServer()); };
    connect(services, &servicecontrol::ServiceControl::monitorRequested, this, openSetup);
    connect(mnuServicemonitor, &QAction::triggered, this, openSetup);
    connect(mnumonwin, &QAction::triggered, this, openSetup);

    connect(mnuAllservices, &QAction::triggered, services->Command2, &QPushButton::click);
    connect(mnushowall, &QAction::triggered, services->Command2, &QPushButton::click);
    connect(mnuActiveservices, &QAction::triggered, services->Command6, &QPushButton::click);
    connect(mnushowactive, &QAction::triggered, services->Command6, &QPushButton::click);
    connect(mnuaddserver, &QAction::triggered, Command13, &QPushButton::click);
    connect(mnuremoveserver, &QAction::triggered, Command14, &QPushButton::click);
    connect(mnuChecknow, &QAction::triggered, Command9, &QPushButton::click);
    connect(mnutrayChecknow, &QAction::triggered, Command9, &QPushButton::click);
    connect(Command3, &QPushButton::clicked, this, &MainWindow::browseComputer);
    connect(Command10, &QPushButton::clicked, this, &MainWindow::addLocalComputer);
    connectServerManagement();

    connect(Command4, &QPushButton::clicked, this, &MainWindow::exitProgram);
    connect(mnuExit, &QAction::triggered, this, &MainWindow::menuExit);
    connect(mnuTrayExit, &QAction::triggered, this, &MainWindow::trayExit);
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
        // Ended by the session or the system rather than by one of the program's own ways out.
        if (p_.app->ended())
            return;
        p_.sound->stop();
        writecomputerlist();
        p_.tray->remove();
        endProgram();
    });
}

void MainWindow::connectModels()
{
    connect(&servers_, &core::ServerList::listReset, this, &MainWindow::rebuildServerItems);
    connect(&servers_, &core::ServerList::serverAdded, this, [this](int row) {
        auto* item = new QTreeWidgetItem;
        ListView2->insertTopLevelItem(row, item);
        showServerItem(item, row);
    });
    connect(&servers_, &core::ServerList::serverRemoved, this, [this](int row) { delete ListView2->takeTopLevelItem(row); });
    connect(&servers_, &core::ServerList::serverChanged, this, [this](int row) {
        if (QTreeWidgetItem* item = ListView2->topLevelItem(row))
            showServerItem(item, row);
    });
    connect(&monitored_, &core::MonitoredServices::monitoredChanged, this, &MainWindow::showMonitoredServers);
}

void MainWindow::rebuildServerItems()
{
    ListView2->clear();
    QList<QTreeWidgetItem*> items;
    items.reserve(servers_.count());
    for (int row = 0; row < servers_.count(); ++row) {
        auto* item = new QTreeWidgetItem;
        showServerItem(item, row);
        items << item;
    }
    ListView2->addTopLevelItems(items);
}

void MainWindow::showServerItem(QTreeWidgetItem* item, int row)
{
    const core::ServerEntry& e = servers_.at(row);
    item->setText(0, e.name);
    platform::setItemIcon(item, e.icon());
    if (e.pending)
        item->setIcon(0, platform::pendingServerIcon(e.monitored));
    // A server in maintenance is shown dimmed.
    item->setForeground(0, e.maintenance ? ListView2->palette().brush(QPalette::Disabled, QPalette::Text)
                                         : ListView2->palette().brush(QPalette::Active, QPalette::Text));
    // Why the icon is what it is: the last ping's result and the address it went to, with what
    // the result means here; then the last error of its service manager, which the message box
    // showed as a bare number.
    QStringList tip;
    if (!e.pingresult.isEmpty()) {
        tip << (e.pingaddress.isEmpty() ? e.pingresult : e.pingaddress + QStringLiteral("   ") + e.pingresult);
        const QString why = platform::pingStatusReason(e.pingresult.section(QLatin1Char(' '), 0, 0).toInt());
        if (!why.isEmpty())
            tip << why;
    }
    if (e.managererror != 0) {
        const QString why = platform::serviceErrorReason(e.managererror);
        tip << QStringLiteral("Service manager, %1 %2: Error %3%4")
                   .arg(core::dateText(e.managererrorTime), joblog::timeText(e.managererrorTime))
                   .arg(e.managererror)
                   .arg(why.isEmpty() ? QString() : QStringLiteral(" - ") + why);
    }
    if (e.maintenance && e.maintenanceEnd.isValid())
        tip << QStringLiteral("Alerting stops until ") + core::dateText(e.maintenanceEnd) + QLatin1Char(' ') +
                   joblog::timeText(e.maintenanceEnd);
    item->setToolTip(0, tip.join(QLatin1Char('\n')));
}

void MainWindow::showMonitoredServers()
{
    const QSignalBlocker block(Combo1);
    const QString current = Combo1->currentText();
    Combo1->clear();
    Combo1->addItems(monitored_.servers());
    Combo1->setCurrentIndex(std::max(0, Combo1->findText(current)));
}

// ---------------------------------------------------------------------------------------------
// Start-up

void MainWindow::load() { startup_.run(); }

void MainWindow::connectStartup()
{
    Startup* s = &startup_;
    connect(s, &Startup::begun, this, [this] {
        services->Timer1->setEnabled(false);
        setCursor(Qt::WaitCursor); // the first scan sets it back
        Command9->setEnabled(false);
        mnuChecknow->setEnabled(false);
        Timer6->setEnabled(false);
    });
    connect(s, &Startup::dataFolderChosen, Text7, &QLineEdit::setText);
    connect(s, &Startup::refused, this, &MainWindow::endProgram);
    connect(s, &Startup::accepted, this, [this] {
        services->Timer1->setEnabled(false);
        setWindowTitle(kCaption);
    });
    connect(s, &Startup::localComputerNameRead, this, [this](const QString& name) {
        setCurrentServer(name);
        services->panel().clearService();
        emit localComputerNameRead();
    });
    connect(s, &Startup::showRequested, this, [this] {
        showNormal();
        raise();
        activateWindow();
    });
    connect(s, &Startup::windowDue, this, [this](const std::optional<QPoint>& frame) {
        show();
        if (frame)
            platform::placeFrame(this, *frame);
    });
    connect(s, &Startup::serverNameRefused, this, &MainWindow::serverNameRefused);
    connect(s, &Startup::monitoredServersRead, this, &MainWindow::showMonitoredServers);
    connect(s, &Startup::serverListRead, this, &MainWindow::showStartServers);
    connect(s, &Startup::mailProfileCheckDue, this, &MainWindow::mailProfileCheckDue);
    connect(s, &Startup::pingUnavailable, this, &MainWindow::pingUnavailable);
    connect(s, &Startup::intervalRead, this, &MainWindow::intervalRead);
    connect(s, &Startup::scanDue, this, &MainWindow::scanDue);
    connect(s, &Startup::schedulerDue, this, [this] {
        Timer5->setInterval(1000);
        Timer5->setEnabled(true);
    });
}

void MainWindow::showStartServers(const std::vector<core::ServerListLine>& lines, bool keepFile)
{
    // Every server is listed at once and pinged in one batch; the icons follow as the answers
    // come, a large batch a slice at a time so that the window stays usable.
    servers_.reset(lines);
    keepServerListFile_ = keepFile;
    const QStringList names = servers_.names();
    repingRunning_ = true;
    reach_.pingInParts(
        names, this,
        [this, names](const std::vector<monitoring::PingAnswer>& answers) {
            if (p_.app->ended())
                return;
            for (const monitoring::PingAnswer& a : answers) {
                // A server the user removed meanwhile is gone; one already checked keeps its icon.
                const core::ServerEntry* e = servers_.find(names[a.index]);
                if (e && e->pending)
                    servers_.setPing(names[a.index], a.outcome.result, a.outcome.address, true);
            }
        },
        [this] {
            repingRunning_ = false;
            emit serverListReady();
        });
    // The first monitored server is the current one.
    if (Combo1->count() > 0)
        Combo1->setCurrentIndex(0);
    setCurrentServer(Combo1->currentText());
}

bool MainWindow::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate && !p_.app->ended())
        activateSteps();
    return QMainWindow::event(e);
}

void MainWindow::activateSteps()
{
    storeWindowPosition(true);
    Label10->hide();
    // The task bar entry and the tray icon (TrayControl).
    emit activated();
}

void MainWindow::storeWindowPosition(bool onlyPositive)
{
    const int left = frameGeometry().left() * kTwipsPerPixel;
    const int top = frameGeometry().top() * kTwipsPerPixel;
    if (!onlyPositive || left > 0)
        state.settings.mainleft = QString::number(left);
    if (!onlyPositive || top > 0)
        state.settings.maintop = QString::number(top);
}

// ---------------------------------------------------------------------------------------------
// Files

void MainWindow::readsettings()
{
    core::readSettings(*p_.files, state.file(core::files::settings), state.settings);
}

void MainWindow::showWriteFailure(const QString& path)
{
    const QString reason = p_.files->lastError();
    const QString text = core::writeFailedText(
        core::WriteResult::failed(path, reason.isEmpty() ? QStringLiteral("the file could not be written") : reason));
    if (endingSession_) {
        emit notSavedAtSessionEnd(text);
        return;
    }
    p_.boxes->show(text, MsgIcon::Critical);
}

bool MainWindow::writesettings()
{
    const QString path = state.file(core::files::settings);
    if (core::writeSettings(*p_.files, path, state.settings))
        return true;
    showWriteFailure(path);
    return false;
}

bool MainWindow::writecomputerlist()
{
    // A list not read yet (a session that ends while a start-up box is open) or refused at
    // start-up (the box said so) stays as the user left it.
    if (keepServerListFile_)
        return false;
    const std::vector<core::ServerListLine> lines = servers_.lines();
    const QString path = state.file(core::files::computerlist);
    const bool ok = core::writeServerList(*p_.files, path, lines);
    if (!ok)
        showWriteFailure(path);
    for (const auto& line : lines)
        connections_.unvalidate(line.name);
    return ok;
}

// ---------------------------------------------------------------------------------------------
// Ways out

void MainWindow::endProgram()
{
    for (platform::Timer* t : {services->Timer1, Timer5, Timer6, Timer8, Timer9})
        t->setEnabled(false);
    p_.app->end(0);
    hide();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (!p_.app->ended())
        queryUnload();
    event->accept();
}

void MainWindow::queryUnload()
{
    p_.sound->stop();
    // The service-control handles are opened and closed per operation; none is held here.
    storeWindowPosition(true);
    writecomputerlist();
    // A session that ended while a "Could not save" box was open has saved what it could and
    // ended the program already.
    if (p_.app->ended())
        return;
    writesettings();
    if (p_.app->ended())
        return;
    p_.tray->remove();
    endProgram();
}

void MainWindow::sessionEnd()
{
    if (p_.app->ended())
        return;
    // The close box's steps, without boxes: what can be written is written, what cannot is told
    // through notSavedAtSessionEnd, and the program ends. A box still open (the close box's
    // "Could not save", say) goes with the program.
    endingSession_ = true;
    p_.sound->stop();
    storeWindowPosition(true);
    writecomputerlist();
    writesettings();
    p_.tray->remove();
    endProgram();
}

void MainWindow::exitProgram()
{
    storeWindowPosition(false);
    writecomputerlist();
    writesettings();
    p_.sound->stop();
    p_.tray->remove();
    endProgram();
}

void MainWindow::menuExit()
{
    p_.sound->stop();
    p_.tray->remove();
    endProgram();
}

void MainWindow::trayExit()
{
    p_.tray->remove();
    endProgram();
}

// ---------------------------------------------------------------------------------------------
// Server list

int MainWindow::serverIcon(const QTreeWidgetItem* item) { return platform::itemIcon(item); }

QTreeWidgetItem* MainWindow::findServer(const QString& name) const
{
    const int row = servers_.indexOf(name);
    return row < 0 ? nullptr : ListView2->topLevelItem(row);
}

const core::ServerEntry* MainWindow::selectedEntry() const
{
    // The selected item, not the focused one: the list keeps a focused item after Ctrl+click
    // has deselected it, and has one before the user ever clicked.
    const QList<QTreeWidgetItem*> selected = ListView2->selectedItems();
    const int row = selected.isEmpty() ? -1 : ListView2->indexOfTopLevelItem(selected.first());
    return row >= 0 && row < servers_.count() ? &servers_.at(row) : nullptr;
}

QString MainWindow::selectedServer() const
{
    const core::ServerEntry* entry = selectedEntry();
    return entry ? entry->name : services->computer();
}

void MainWindow::setCurrentServer(const QString& name)
{
    // The same server again leaves the service side as it is (Timer1 goes on following).
    if (const QString upper = name.toUpper(); upper != services->computer())
        services->setComputer(upper);
}

void MainWindow::pingserver(const QString& name, std::function<void(const monitoring::PingOutcome&)> done)
{
    reach_.pingAll({name}, this, [done = std::move(done)](const std::vector<monitoring::PingOutcome>& o) {
        if (done)
            done(o.front());
    });
}

void MainWindow::repingServers()
{
    // A pass that is still waiting for answers is not started twice.
    if (repingRunning_ || p_.app->ended())
        return;
    const QStringList names = servers_.names();
    if (names.isEmpty())
        return;
    repingRunning_ = true;
    reach_.pingInParts(
        names, this,
        [this, names](const std::vector<monitoring::PingAnswer>& answers) {
            if (p_.app->ended())
                return;
            for (const monitoring::PingAnswer& a : answers) {
                // Only reachability flips; whether a server is monitored stays as it is.
                servers_.setPing(names[a.index], a.outcome.result, a.outcome.address, true);
            }
        },
        [this] { repingRunning_ = false; });
}

// ---------------------------------------------------------------------------------------------
// Selection flows

void MainWindow::selectServer()
{
    const core::ServerEntry* entry = selectedEntry();
    if (!entry)
        return;
    setCurrentServer(entry->name);
    services->clearShownServices();
}

void MainWindow::gotoService(const QString& server, const QString& service)
{
    setCurrentServer(server);
    if (QTreeWidgetItem* item = findServer(server)) {
        ListView2->setCurrentItem(item);
        ListView2->scrollToItem(item);
        selectServer();
    }
    services->showServices(true);
    if (!services->busy()) {
        services->selectListedService(service);
        return;
    }
    // The listing runs off the user-interface thread: select once it has been applied.
    auto once = std::make_shared<QMetaObject::Connection>();
    *once = connect(services, &servicecontrol::ServiceControl::listingFinished, this, [this, service, once] {
        disconnect(*once);
        services->selectListedService(service);
    });
}

void MainWindow::browseComputer()
{
    services->Timer1->setEnabled(false);
    services->clearServiceSide();

    const QString chosen = p_.chooser->choose(this, QStringLiteral("Select Computer :   "));
    if (chosen != QStringLiteral(" "))
        setCurrentServer(chosen.trimmed());
    const QString name = services->computer();
    if (name.isEmpty()) {
        p_.boxes->show(QStringLiteral("Invalid Servername !"), MsgIcon::Information);
        return;
    }
    if (servers_.contains(name)) {
        p_.boxes->show(QStringLiteral("Item already exists !"), MsgIcon::Information);
        return;
    }
    if (refusedServerName(name))
        return;
    servers_.add(name, false, true);
    // An unmonitored server is stored the same whatever its reachability, so the list is
    // written now rather than after the ping.
    writecomputerlist();
    pingserver(name, [this, name](const monitoring::PingOutcome& o) {
        const core::ServerEntry* e = servers_.find(name);
        if (e && e->pending)
            servers_.setPing(name, o.result, o.address, true);
    });
}

void MainWindow::addLocalComputer()
{
    const QString name = p_.system->computerName().toUpper();
    setCurrentServer(name);
    if (servers_.contains(name))
        p_.boxes->show(QStringLiteral("Item already exists !"), MsgIcon::Information);
    else if (!refusedServerName(name))
        servers_.add(name, false);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* e)
{
    if (watched == ListView2->viewport() && e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView2->itemAt(me->position().toPoint()))
                ListView2->setCurrentItem(item);
            serverListMousePress(me->button(), me->globalPosition().toPoint());
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, e);
}

void MainWindow::serverListMousePress(Qt::MouseButton button, const QPoint& globalPos)
{
    if (ListView2->topLevelItemCount() > 0)
        selectServer();
    if (button != Qt::RightButton)
        return;
    // Over an empty list only "Add Server..." is usable.
    const QList<QAction*> serverItems{mnumonwin,     mnuremoveserver,   mnushowall,
                                      mnushowactive, mnuproperties,     mnuoutmaintenance,
                                      mnumaintenance, mnumaintenancefor->menuAction()};
    if (ListView2->topLevelItemCount() == 0) {
        for (QAction* a : serverItems)
            a->setEnabled(false);
        mnushowmonitor->popup(globalPos);
    } else if (!selectedEntry()) {
        p_.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
    } else {
        for (QAction* a : serverItems)
            a->setEnabled(true);
        mnushowmonitor->popup(globalPos);
    }
}

// ---------------------------------------------------------------------------------------------
// Server management

void MainWindow::buildServerManagementMenus()
{
    // Maintenance with an end, right after "Stop Alerting for this server".
    auto* until = mnumaintenancefor = new QMenu(QStringLiteral("Stop Alerting for a while"), mnushowmonitor);
    until->setObjectName(QStringLiteral("mnumaintenancefor"));
    mnumaintenance1h = menuItem(until, "mnumaintenance1h", QStringLiteral("For 1 Hour"));
    mnumaintenance4h = menuItem(until, "mnumaintenance4h", QStringLiteral("For 4 Hours"));
    mnumaintenanceuntil = menuItem(until, "mnumaintenanceuntil", QStringLiteral("Until..."));
    QAction* after = nullptr;
    const QList<QAction*> items = mnushowmonitor->actions();
    for (qsizetype i = 0; i + 1 < items.size(); ++i) {
        if (items[i] == mnumaintenance)
            after = items[i + 1];
    }
    mnushowmonitor->insertMenu(after, until);
}

void MainWindow::connectServerManagement()
{
    connect(Command13, &QPushButton::clicked, this, &MainWindow::openAddServer);
    connect(Command14, &QPushButton::clicked, this, &MainWindow::removeServer);
    connect(mnumaintenance, &QAction::triggered, this, [this] { maintenanceOn(); });
    connect(mnumaintenance1h, &QAction::triggered, this, [this] { maintenanceOn(p_.clock->now().addSecs(3600)); });
    connect(mnumaintenance4h, &QAction::triggered, this,
            [this] { maintenanceOn(p_.clock->now().addSecs(4 * 3600)); });
    connect(mnumaintenanceuntil, &QAction::triggered, this, &MainWindow::askMaintenanceEnd);
    connect(mnuoutmaintenance, &QAction::triggered, this, &MainWindow::maintenanceOff);
    connect(mnuproperties, &QAction::triggered, this, &MainWindow::openProperties);
}

bool MainWindow::refusedServerName(const QString& name)
{
    const QString file = monitored_.reservedFile(name);
    if (file.isEmpty())
        return false;
    p_.boxes->show(core::reservedNameText(name, file), MsgIcon::Information);
    return true;
}

AddServerDialog* MainWindow::addServerDialog() const { return addDialog_; }
PropertiesWindow* MainWindow::propertiesWindow() const { return propertiesWindow_; }
MaintenanceDialog* MainWindow::maintenanceDialog() const { return maintenanceDialog_; }

void MainWindow::openAddServer()
{
    if (!addDialog_) {
        addDialog_ = new AddServerDialog(ServerKindChoice(p_), this);
        connect(addDialog_, &AddServerDialog::addRequested, this, [this](const QString& name) {
            if (addServer(name))
                addDialog_->added(name);
        });
        addDialog_->setModal(true);
    }
    addDialog_->show();
    addDialog_->raise();
    addDialog_->activateWindow();
}

bool MainWindow::addServer(const QString& name)
{
    if (name.isEmpty()) {
        p_.boxes->show(QStringLiteral("Invalid Servername !"), MsgIcon::Information);
        return false;
    }
    if (servers_.contains(name)) {
        p_.boxes->show(QStringLiteral("Item already exists !"), MsgIcon::Information);
        return false;
    }
    if (refusedServerName(name))
        return false;
    servers_.add(name, false, true);
    // An unmonitored server is stored the same whatever its reachability, so the list is
    // written now; the icon follows the ping.
    writecomputerlist();
    pingserver(name, [this, name](const monitoring::PingOutcome& o) {
        const core::ServerEntry* e = servers_.find(name);
        if (e && e->pending)
            servers_.setPing(name, o.result, o.address, true);
    });
    return true;
}

void MainWindow::removeServer()
{
    const core::ServerEntry* selected = selectedEntry();
    if (!selected) {
        emit removeWithoutSelection();
        p_.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
        return;
    }
    const core::ServerEntry entry = *selected;
    const QString name = entry.name;
    if (entry.monitored) {
        if (p_.boxes->show(QStringLiteral("The Server to be removed is beeing monitored. Are you sure to remove the "
                                          "Server?     "),
                           MsgIcon::Question, platform::MsgButtons::OkCancel) != platform::MsgAnswer::Ok)
            return;
        // Out of "Computers" with its file, and its connection closed; a server that
        // "Computers" does not list only leaves the server list.
        if (monitored_.contains(name)) {
            if (const core::WriteResult r = monitored_.remove(name); !r) {
                p_.boxes->show(core::writeFailedText(r), MsgIcon::Critical);
                return;
            }
            connections_.unvalidate(name);
        }
        servers_.remove(name);
        services->clearShownServices();
    } else {
        if (p_.boxes->show(QStringLiteral("Are you sure to remove the Server?     "), MsgIcon::Question,
                           platform::MsgButtons::OkCancel) != platform::MsgAnswer::Ok)
            return;
        servers_.remove(name);
        services->clearShownServices();
        monitored_.removeFile(name);
    }
    // A server of the same name added later starts as a systemd server unless the user says
    // otherwise (the Add Server dialog stores its kind anew, so a line that stays is harmless).
    if (p_.serverkinds)
        p_.serverkinds->setWindows(name, false);
    // "Computerlist" follows when the program ends by a way that writes it.
}

void MainWindow::maintenanceOn(const QDateTime& end)
{
    const core::ServerEntry* selected = selectedEntry();
    if (!selected)
        return;
    const core::ServerEntry& entry = *selected;
    if (!entry.monitored) {
        p_.boxes->show(QStringLiteral("Only monitored Servers can be put in Maintenance!  "), MsgIcon::Information);
        return;
    }
    servers_.setMaintenance(entry.name, true, end);
}

void MainWindow::askMaintenanceEnd()
{
    const core::ServerEntry* selected = selectedEntry();
    if (!selected)
        return;
    const core::ServerEntry& entry = *selected;
    if (!entry.monitored) {
        p_.boxes->show(QStringLiteral("Only monitored Servers can be put in Maintenance!  "), MsgIcon::Information);
        return;
    }
    delete maintenanceDialog_;
    maintenanceDialog_ = new MaintenanceDialog(entry.name, p_.clock->now(), this);
    maintenanceDialog_->setModal(true);
    const QString name = entry.name;
    connect(maintenanceDialog_, &MaintenanceDialog::untilChosen, this, [this, name](const QDateTime& until) {
        // The server may have gone or stopped being monitored while the dialog was open.
        const core::ServerEntry* e = servers_.find(name);
        if (e && e->monitored)
            servers_.setMaintenance(name, true, until);
    });
    maintenanceDialog_->show();
}

void MainWindow::maintenanceOff()
{
    if (const core::ServerEntry* entry = selectedEntry())
        servers_.setMaintenance(entry->name, false);
}

void MainWindow::endDueMaintenance()
{
    for (const QString& name : servers_.endDueMaintenance(p_.clock->now()))
        emit maintenanceEnded(name);
}

void MainWindow::openProperties() { openPropertiesFor(selectedServer()); }

void MainWindow::openPropertiesFor(const QString& name)
{
    delete propertiesWindow_;
    propertiesWindow_ = new PropertiesWindow(monitored_, *p_.boxes, ServerKindChoice(p_), this);
    if (!propertiesWindow_->openFor(name))
        delete propertiesWindow_;
}

} // namespace velmora::shell
