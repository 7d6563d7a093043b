#include "shell/mainwindow.h"

#include "core/datafolder.h"
#include "core/serverfile.h"
#include "core/serverlistfile.h"
#include "actions/dispatcher.h"
#include "monitoring/checkcycle.h"
#include "monitoring/reachability.h"
#include "monitoring/setupwindow.h"
#include "servicecontrol/servicecontrol.h"
#include "shell/icons.h"
#include "shell/joblogwiring.h"
#include "shell/mailwiring.h"
#include "shell/monitorwiring.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;

namespace {

constexpr int IconRole = Qt::UserRole + 1;
constexpr int PendingRole = Qt::UserRole + 2;
constexpr int MaintenanceRole = Qt::UserRole + 3;

// Window positions are stored in twips, as the settings file always has; 15 twips a pixel.
constexpr int kTwipsPerPixel = 15;

const QString kCaption = QStringLiteral(" Velmora  Version 3.0     ");

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

QAction* action(QMenu* menu, const char* name, const QString& caption)
{
    QAction* a = menu->addAction(caption);
    a->setObjectName(QString::fromLatin1(name));
    return a;
}

void separator(QMenu* menu, const char* name)
{
    menu->addSeparator()->setObjectName(QString::fromLatin1(name));
}

QTreeWidget* listView(const char* name, const QString& column, int widthTwips)
{
    auto* view = named(new QTreeWidget, name);
    view->setColumnCount(1);
    view->setHeaderLabels({column});
    view->setRootIsDecorated(false);
    view->setUniformRowHeights(true);
    view->setIconSize(QSize(20, 20));
    view->setColumnWidth(0, widthTwips / kTwipsPerPixel);
    view->header()->setStretchLastSection(true);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    return view;
}

} // namespace

MainWindow::MainWindow(const platform::Platform& platform, QWidget* parent)
    : QMainWindow(parent), p_(platform)
{
    setObjectName(QStringLiteral("Form1"));
    state.platform = platform;
    setWindowIcon(programIcon());
    buildControls();
    buildMenus();
    connectControls();
    reach_ = new monitoring::Reachability(*p_.icmp, *p_.worker, this);

    Timer1 = p_.clock->createTimer(this, QStringLiteral("Timer1"), 1000);
    Timer2 = p_.clock->createTimer(this, QStringLiteral("Timer2"), 100);
    Timer5 = p_.clock->createTimer(this, QStringLiteral("Timer5"), 0);
    Timer6 = p_.clock->createTimer(this, QStringLiteral("Timer6"), 250);
    Timer8 = p_.clock->createTimer(this, QStringLiteral("Timer8"), 200);
    Timer9 = p_.clock->createTimer(this, QStringLiteral("Timer9"), 60000);
    // All timers run from the moment the window exists; start-up switches some of them off.
    for (platform::Timer* t : {Timer1, Timer2, Timer5, Timer6, Timer8, Timer9})
        t->setEnabled(true);
    connect(Timer9, &platform::Timer::timeout, this, &MainWindow::repingServers);

    services = new servicecontrol::ServiceControl(*this);
    connect(Timer1, &platform::Timer::timeout, services, &servicecontrol::ServiceControl::timer1Tick);
    connect(Timer2, &platform::Timer::timeout, services, &servicecontrol::ServiceControl::timer2Tick);
    connect(Command1, &QPushButton::clicked, services, &servicecontrol::ServiceControl::startCommand);
    connect(mnustartservice, &QAction::triggered, services, &servicecontrol::ServiceControl::startCommand);
    connect(Command5, &QPushButton::clicked, services, &servicecontrol::ServiceControl::stopCommand);
    connect(mnustopservice, &QAction::triggered, services, &servicecontrol::ServiceControl::stopCommand);

    logandalerts = connectJobLog(*this);
    mailing = connectMailing(*this);
    dispatcher = connectMonitoring(*this);

    checkcycle = new monitoring::CheckCycle(*this, *logandalerts);
    checkcycle->runactions = [this](const QString& server, const core::MonitoredService& record, const QString&,
                                    std::function<void()> done) { dispatcher->runactions(server, record, std::move(done)); };
    // The scheduler reads the interval from the setup window, where it is shown and changed.
    checkcycle->intervalCaption = [this] { return setupWindow()->Label5->text(); };
    onCheckInterval = [this](const QString&) { checkcycle->checkintervall(setupWindow()->Label5->text()); };
    connect(Timer5, &platform::Timer::timeout, checkcycle, &monitoring::CheckCycle::timer5Tick);
    connect(Command9, &QPushButton::clicked, checkcycle, &monitoring::CheckCycle::checkNow);
    connect(mnuChecknow, &QAction::triggered, Command9, &QPushButton::click);
    connect(mnutrayChecknow, &QAction::triggered, Command9, &QPushButton::click);
    // Logout and system shutdown close the window like its close box.
    p_.app->onSessionEnd([this] {
        if (!p_.app->ended())
            queryUnload();
    });
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
    ListView2 = listView("ListView2", QStringLiteral("Servers:"), 2200);
    ListView2->setMinimumWidth(2200 / kTwipsPerPixel + 24);
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

    // The service side.
    Frame2 = named(new QGroupBox, "Frame2");
    auto* right = new QGridLayout(Frame2);
    Label1 = named(new QLabel(QStringLiteral("Services:")), "Label1");
    ListView1 = listView("ListView1", QStringLiteral("Services:"), 3900);
    ListView1->setMinimumWidth(3900 / kTwipsPerPixel + 24);
    ListView1->viewport()->installEventFilter(this);
    right->addWidget(Label1, 0, 0, 1, 2);
    right->addWidget(ListView1, 1, 0, 1, 2);
    auto* listButtons = new QHBoxLayout;
    Command2 = named(new QPushButton(QStringLiteral("Show all Services")), "Command2");
    Command6 = named(new QPushButton(QStringLiteral("Show active Services")), "Command6");
    listButtons->addWidget(Command2);
    listButtons->addWidget(Command6);
    right->addLayout(listButtons, 2, 0, 1, 2);

    auto* details = new QGridLayout;
    auto detail = [&](int row, QLabel*& label, const char* labelName, const QString& caption, QLineEdit*& text,
                      const char* textName) {
        label = named(new QLabel(caption), labelName);
        text = named(new QLineEdit, textName);
        text->setReadOnly(true);
        details->addWidget(label, row, 0);
        details->addWidget(text, row, 1);
    };
    detail(0, Label5, "Label5", QStringLiteral("Service Name :"), Text3, "Text3");
    detail(1, Label6, "Label6", QStringLiteral("Service State :"), Text4, "Text4");
    detail(2, Label7, "Label7", QStringLiteral("Start Type :"), Text5, "Text5");
    detail(3, Label8, "Label8", QStringLiteral("Start Account :"), Text6, "Text6");
    detail(4, Label4, "Label4", QStringLiteral("Associated File :"), Text2, "Text2");
    right->addLayout(details, 0, 2, 2, 1, Qt::AlignTop);

    auto* deps = new QVBoxLayout;
    Label3 = named(new QLabel(QStringLiteral("Dependent Services running :")), "Label3");
    List2 = named(new QListWidget, "List2");
    Label13 = named(new QLabel(QStringLiteral("Dependent Services Running : Stop Order : Top -> Down")), "Label13");
    deps->addWidget(Label3);
    deps->addWidget(List2, 1);
    deps->addWidget(Label13);
    auto* controlButtons = new QHBoxLayout;
    Command1 = named(new QPushButton(QStringLiteral("Start Service")), "Command1");
    Command5 = named(new QPushButton(QStringLiteral("Stop Service")), "Command5");
    Command7 = named(new QPushButton(QStringLiteral("Service &Monitor...")), "Command7");
    controlButtons->addWidget(Command1);
    controlButtons->addWidget(Command5);
    controlButtons->addWidget(Command7);
    deps->addLayout(controlButtons);
    details->addLayout(deps, 5, 0, 1, 2);
    details->setRowStretch(5, 1);
    right->setColumnStretch(0, 3);
    right->setColumnStretch(2, 2);

    auto* sides = new QHBoxLayout;
    sides->addWidget(Frame1, 0);
    sides->addWidget(Frame2, 1);
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

    // Hidden fields and lists that carry data for the visible ones.
    List1 = named(new QListWidget(central), "List1");
    List3 = named(new QListWidget(central), "List3");
    List4 = named(new QListWidget(central), "List4");
    Text1 = named(new QLineEdit(central), "Text1");
    Text7 = named(new QLineEdit(central), "Text7");
    Text8 = named(new QLineEdit(central), "Text8");
    Text9 = named(new QLineEdit(central), "Text9");
    Combo1 = named(new QComboBox(central), "Combo1");
    for (QWidget* w : std::initializer_list<QWidget*>{List1, List3, List4, Text1, Text7, Text8, Text9, Combo1})
        w->hide();

    setCentralWidget(central);
    resize(900, 560);
}

void MainWindow::buildMenus()
{
    QMenuBar* bar = menuBar();
    mnuFile = named(bar->addMenu(QStringLiteral("   &File   ")), "mnuFile");
    mnuExit = action(mnuFile, "mnuExit", QStringLiteral("Exit"));

    mnuMenu = named(bar->addMenu(QStringLiteral("Ser&vices")), "mnuMenu");
    mnuChecknow = action(mnuMenu, "mnuChecknow", QStringLiteral("Check Services Now"));
    separator(mnuMenu, "line1");
    mnuServicemonitor = action(mnuMenu, "mnuServicemonitor", QStringLiteral("Service Monitor"));
    separator(mnuMenu, "line2");
    mnuAllservices = action(mnuMenu, "mnuAllservices", QStringLiteral("Show all Services"));
    separator(mnuMenu, "s18");
    mnuActiveservices = action(mnuMenu, "mnuActiveservices", QStringLiteral("Show active Services"));
    separator(mnuMenu, "line3");
    mnureport = action(mnuMenu, "mnureport", QStringLiteral("Show Report"));

    mnuWindow = named(bar->addMenu(QStringLiteral(" &Window ")), "mnuWindow");
    mnuHide = action(mnuWindow, "mnuHide", QStringLiteral("Show in Tray only"));

    mnulog = named(bar->addMenu(QStringLiteral("   &Log   ")), "mnulog");
    mnushowlogfile = action(mnulog, "mnushowlogfile", QStringLiteral("Show Logfile"));
    separator(mnulog, "d1");
    mnudeletelogfile = action(mnulog, "mnudeletelogfile", QStringLiteral("Delele Logfile"));

    mnuemailoptions = named(bar->addMenu(QStringLiteral("&Email Options")), "mnuemailoptions");
    mnusetemailoptions = action(mnuemailoptions, "mnusetemailoptions", QStringLiteral("Set Email Options"));

    mnuInfo = named(bar->addMenu(QStringLiteral("    I&nfo    ")), "mnuInfo");
    mnuAbout = action(mnuInfo, "mnuAbout", QStringLiteral("About"));
    separator(mnuInfo, "s24");
    mnuhelp = action(mnuInfo, "mnuhelp", QStringLiteral("Help..."));

    // Pop-up menus, not on the menu bar.
    mnuPopUp = named(new QMenu(QStringLiteral("&Traymenu"), this), "mnuPopUp");
    mnuTrayExit = action(mnuPopUp, "mnuTrayExit", QStringLiteral("Exit"));
    separator(mnuPopUp, "linetray1");
    mnuTrayinfo = action(mnuPopUp, "mnuTrayinfo", QStringLiteral("Info"));
    separator(mnuPopUp, "linetray2");
    mnuTrayMaximize = action(mnuPopUp, "mnuTrayMaximize", QStringLiteral("Maximize"));
    separator(mnuPopUp, "linetray3");
    mnutrayChecknow = action(mnuPopUp, "mnutrayChecknow", QStringLiteral("Check Services Now"));
    separator(mnuPopUp, "s33");
    trymnushowreport = action(mnuPopUp, "trymnushowreport", QStringLiteral("Show Report"));
    separator(mnuPopUp, "s34");
    traymnuresetalert = action(mnuPopUp, "traymnuresetalert", QStringLiteral("Reset Alert"));

    mnumonitor = named(new QMenu(QStringLiteral("Monitor"), this), "mnumonitor");
    mnumonitorservice = action(mnumonitor, "mnumonitorservice", QStringLiteral("Monitor Service"));
    separator(mnumonitor, "s15");
    mnustopservice = action(mnumonitor, "mnustopservice", QStringLiteral("Stop Service"));
    separator(mnumonitor, "s14");
    mnustartservice = action(mnumonitor, "mnustartservice", QStringLiteral("Start Service"));

    mnushowmonitor = named(new QMenu(QStringLiteral("Service Monitor"), this), "mnushowmonitor");
    mnushowall = action(mnushowmonitor, "mnushowall", QStringLiteral("Show all Services"));
    separator(mnushowmonitor, "s11");
    mnushowactive = action(mnushowmonitor, "mnushowactive", QStringLiteral("Show active Services"));
    separator(mnushowmonitor, "s12");
    mnumonwin = action(mnushowmonitor, "mnumonwin", QStringLiteral("Monitor Services on this Server..."));
    mnuaddserver = action(mnushowmonitor, "mnuaddserver", QStringLiteral("Add Server..."));
    separator(mnushowmonitor, "s13");
    mnuremoveserver = action(mnushowmonitor, "mnuremoveserver", QStringLiteral("Remove Server"));
    separator(mnushowmonitor, "s16");
    mnumaintenance = action(mnushowmonitor, "mnumaintenance", QStringLiteral("Stop Alerting for this server"));
    separator(mnushowmonitor, "s17");
    mnuoutmaintenance = action(mnushowmonitor, "mnuoutmaintenance", QStringLiteral("Start Alerting for this Server"));
    separator(mnushowmonitor, "s23");
    mnuproperties = action(mnushowmonitor, "mnuproperties", QStringLiteral("Properties..."));
}

void MainWindow::connectControls()
{
    connect(ListView2, &QTreeWidget::itemClicked, this, [this] { selectServer(); });
    connect(ListView2, &QTreeWidget::itemDoubleClicked, this, [this] {
        selectServer();
        if (setupWindow_)
            setupWindow_->List7->clear();
        showServices(true);
    });
    connect(ListView1, &QTreeWidget::itemClicked, this, [this] { selectService(); });
    connect(List2, &QListWidget::itemClicked, this, [this] {
        QListWidgetItem* item = List2->currentItem();
        if (!item || item->text() == QStringLiteral("No Dependent Services Running"))
            return;
        const int row = List2->row(item);
        const auto matches = ListView1->findItems(item->text(), Qt::MatchExactly);
        if (!matches.isEmpty())
            ListView1->setCurrentItem(matches.first());
        if (row < List4->count())
            Text3->setText(List4->item(row)->text());
        services->servicedetails(Text3->text());
        List2->setToolTip(item->text());
    });

    connect(Text1, &QLineEdit::textChanged, this, [this](const QString& text) {
        const QString upper = text.toUpper();
        if (upper != text) {
            Text1->setText(upper);
            return;
        }
        Text1->setCursorPosition(int(upper.size()));
        state.currentserver = upper;
        if (Timer1)
            Timer1->setEnabled(false);
    });
    connect(Text3, &QLineEdit::textChanged, this, [this] {
        if (Timer1)
            Timer1->setEnabled(false);
    });
    connect(Combo1, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index < 0)
            return;
        Text1->setText(Combo1->currentText());
        if (setupWindow_)
            setupWindow_->List7->clear();
    });
    // List1 is hidden; other windows select a row in it to show that service.
    connect(List1, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row < 0)
            return;
        if (row < List3->count())
            Text3->setText(List3->item(row)->text());
        showServiceDetails();
        List1->setToolTip(List1->item(row)->text());
    });

    connect(Command2, &QPushButton::clicked, this, [this] { showServices(true); });
    connect(Command6, &QPushButton::clicked, this, [this] { showServices(false); });
    connect(mnuAllservices, &QAction::triggered, Command2, &QPushButton::click);
    connect(mnushowall, &QAction::triggered, Command2, &QPushButton::click);
    connect(mnuActiveservices, &QAction::triggered, Command6, &QPushButton::click);
    connect(mnushowactive, &QAction::triggered, Command6, &QPushButton::click);
    connect(mnuaddserver, &QAction::triggered, Command13, &QPushButton::click);
    connect(mnuremoveserver, &QAction::triggered, Command14, &QPushButton::click);
    connect(Command3, &QPushButton::clicked, this, &MainWindow::browseComputer);
    connect(Command10, &QPushButton::clicked, this, &MainWindow::addLocalComputer);

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

// ---------------------------------------------------------------------------------------------
// Start-up

void MainWindow::load()
{
    // 1
    state.settings.endmarker = QStringLiteral("eof");
    Timer1->setEnabled(false);
    setCursor(Qt::WaitCursor); // the next service listing sets it back
    Command9->setEnabled(false);
    mnuChecknow->setEnabled(false);
    Text7->hide();
    // 2
    state.datafolder = core::chooseDataFolder(*p_.system);
    Text7->setText(state.datafolder);
    // 3
    readsettings();
    // 4
    Timer6->setEnabled(false);
    List3->hide();
    List1->hide();
    List4->hide();
    for (QLineEdit* t : {Text2, Text3, Text4, Text5, Text6})
        t->setReadOnly(true);
    Text8->clear();
    Text8->hide();
    Text9->clear();
    Text9->hide();
    Text1->hide();
    Combo1->hide();
    // 5: the list views were set up with their columns when the window was built.
    // 6
    const int platformId = p_.system->platformId();
    const QString osName = platformId == 1   ? QStringLiteral("Windows 95/98")
                           : platformId == 2 ? QStringLiteral("Windows NT")
                                             : QStringLiteral("Unindentified");
    if (osName != QStringLiteral("Windows NT")) {
        p_.boxes->show(QStringLiteral("This Program is designed for Windows NT/2000/XP only !         "),
                       MsgIcon::Exclamation);
        p_.tray->remove();
        endProgram();
        return;
    }
    // 7
    Timer1->setEnabled(false);
    setWindowTitle(kCaption);
    // 8
    state.localcomputer = p_.system->computerName();
    Text1->setText(state.localcomputer);
    for (QLineEdit* t : {Text2, Text3, Text4, Text5, Text6})
        t->clear();
    if (onLocalComputerNameRead)
        onLocalComputerNameRead();
    // 9
    if (p_.instance->otherInstanceRunning([this] {
            // Another copy asked us to show ourselves.
            showNormal();
            raise();
            activateWindow();
        })) {
        p_.instance->activateOther();
        p_.tray->remove();
        p_.boxes->show(QStringLiteral("Only one Instance allowed !         "), MsgIcon::Critical);
        endProgram();
        return;
    }
    // 10
    bool leftOk = false;
    const int left = state.settings.mainleft.toInt(&leftOk);
    if (leftOk && left != 0)
        move(left / kTwipsPerPixel, state.settings.maintop.toInt() / kTwipsPerPixel);
    // 11
    show();
    Combo1->clear();
    // 12
    const QStringList monitored = core::readMonitoredServers(*p_.files, state.file(core::files::computers));
    {
        const QSignalBlocker block(Combo1);
        for (const QString& name : monitored) {
            core::lookInFile(*p_.files, state.file(name));
            Combo1->addItem(name);
        }
    }
    // 13
    if (p_.files->exists(state.file(core::files::computers)) && !p_.files->exists(state.file(core::files::computerlist))) {
        std::vector<core::ServerListLine> lines;
        for (int i = 0; i < Combo1->count(); ++i)
            lines.push_back({Combo1->itemText(i), true});
        core::writeServerList(*p_.files, state.file(core::files::computerlist), lines);
    }
    // 14: every server is listed at once and pinged in one batch; the icons follow in list order.
    QStringList names;
    for (const core::ServerListLine& line : core::readServerList(*p_.files, state.file(core::files::computerlist))) {
        QTreeWidgetItem* item = addServer(line.name, line.monitored ? 9 : 7);
        item->setData(0, PendingRole, true);
        item->setIcon(0, pendingServerIcon(line.monitored));
        names << line.name;
    }
    repingRunning_ = true;
    reach_->pingAll(names, [this, names](const std::vector<monitoring::PingOutcome>& outcomes) {
        for (qsizetype i = 0; i < names.size(); ++i) {
            const auto& o = outcomes[size_t(i)];
            state.pingaddress = o.address;
            state.pingresult = o.result;
            // The item at this position is the one added for this name, unless the user removed
            // servers meanwhile; then the first item with the name stands in.
            QTreeWidgetItem* item = i < ListView2->topLevelItemCount() ? ListView2->topLevelItem(int(i)) : nullptr;
            if (!item || item->text(0) != names[i])
                item = findServer(names[i]);
            if (!item || !serverPending(item))
                continue;
            item->setData(0, PendingRole, false);
            const bool mon = serverIcon(item) >= 9;
            setServerIcon(item, mon ? (o.reachable() ? 9 : 10) : (o.reachable() ? 7 : 8));
        }
        repingRunning_ = false;
        emit serverListReady();
    });
    // 15
    if (Combo1->count() > 0) {
        Combo1->setCurrentIndex(0);
        Text1->setText(Combo1->currentText());
    } else {
        Text1->setText(Combo1->currentText());
    }
    // 16
    if (onCheckMailProfile)
        onCheckMailProfile();
    // 17
    if (p_.files->exists(state.file(core::files::smtpserver))) {
        const core::SmtpSettings smtp = core::readSmtpSettings(*p_.files, state.file(core::files::smtpserver));
        state.smtpserver = smtp.server;
        state.smtpport = smtp.port;
        state.smtpsender = smtp.sender;
        // A stored SMTP server wins over a mail profile read just before.
        state.usesmtp = true;
    }
    // 18
    if (!p_.files->exists(state.file(core::files::jobslog)))
        p_.files->create(state.file(core::files::jobslog));
    // 19
    if (!p_.files->exists(state.file(core::files::interval)))
        p_.files->writeLines(state.file(core::files::interval), {QStringLiteral("30")});
    // 20: a second's pause in which the window goes on working.
    p_.clock->singleShot(1000, this, [this] { startupAfterPause(); });
}

void MainWindow::startupAfterPause()
{
    if (p_.app->ended())
        return;
    // 21
    state.checkinterval = core::readIntervalText(*p_.files, state.file(core::files::interval));
    if (onIntervalRead)
        onIntervalRead(state.checkinterval);
    // 22
    if (onCheckInterval)
        onCheckInterval(state.checkinterval);
    // 23
    Timer5->setInterval(1000);
    Timer5->setEnabled(true);
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
    state.datafolder = Text7->text();
    // The tray icon stands for the program; the task bar entry stays, since Linux desktops
    // without a notification area would otherwise leave no way back to the window.
    p_.tray->add();
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

bool MainWindow::writesettings()
{
    return core::writeSettings(*p_.files, state.file(core::files::settings), state.settings);
}

bool MainWindow::writecomputerlist()
{
    std::vector<core::ServerListLine> lines;
    for (int i = 0; i < ListView2->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = ListView2->topLevelItem(i);
        lines.push_back({item->text(0), serverIcon(item) >= 9});
    }
    const bool ok = core::writeServerList(*p_.files, state.file(core::files::computerlist), lines);
    for (const auto& line : lines)
        unvalidate(line.name);
    return ok;
}

// ---------------------------------------------------------------------------------------------
// Ways out

void MainWindow::endProgram()
{
    for (platform::Timer* t : {Timer1, Timer2, Timer5, Timer6, Timer8, Timer9})
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

int MainWindow::serverIcon(const QTreeWidgetItem* item)
{
    return item ? item->data(0, IconRole).toInt() : 0;
}

bool MainWindow::serverPending(const QTreeWidgetItem* item)
{
    return item && item->data(0, PendingRole).toBool();
}

void MainWindow::setServerIcon(QTreeWidgetItem* item, int icon)
{
    item->setData(0, IconRole, icon);
    if (serverPending(item))
        item->setIcon(0, pendingServerIcon(icon >= 9));
    else
        item->setIcon(0, imageListIcon(icon));
}

bool MainWindow::serverInMaintenance(const QTreeWidgetItem* item)
{
    return item && item->data(0, MaintenanceRole).toBool();
}

void MainWindow::setServerMaintenance(QTreeWidgetItem* item, bool on)
{
    item->setData(0, MaintenanceRole, on);
    item->setForeground(0, on ? ListView2->palette().brush(QPalette::Disabled, QPalette::Text)
                              : ListView2->palette().brush(QPalette::Active, QPalette::Text));
}

int MainWindow::serviceIcon(const QTreeWidgetItem* item)
{
    return item ? item->data(0, IconRole).toInt() : 0;
}

void MainWindow::setServiceIcon(QTreeWidgetItem* item, int icon)
{
    item->setData(0, IconRole, icon);
    item->setIcon(0, icon > 0 ? imageListIcon(icon) : QIcon());
}

QTreeWidgetItem* MainWindow::findServer(const QString& name) const
{
    for (int i = 0; i < ListView2->topLevelItemCount(); ++i) {
        if (ListView2->topLevelItem(i)->text(0) == name)
            return ListView2->topLevelItem(i);
    }
    return nullptr;
}

QTreeWidgetItem* MainWindow::addServer(const QString& name, int icon)
{
    auto* item = new QTreeWidgetItem(ListView2, {name});
    setServerIcon(item, icon);
    return item;
}

void MainWindow::pingserver(const QString& name, std::function<void(bool)> done)
{
    reach_->pingAll({name}, [this, done = std::move(done)](const std::vector<monitoring::PingOutcome>& o) {
        state.pingaddress = o.front().address;
        state.pingresult = o.front().result;
        if (done)
            done(o.front().reachable());
    });
}

void MainWindow::repingServers()
{
    // A pass that is still waiting for answers is not started twice.
    if (repingRunning_ || p_.app->ended())
        return;
    QStringList names;
    for (int i = 0; i < ListView2->topLevelItemCount(); ++i)
        names << ListView2->topLevelItem(i)->text(0);
    if (names.isEmpty())
        return;
    repingRunning_ = true;
    reach_->pingAll(names, [this, names](const std::vector<monitoring::PingOutcome>& outcomes) {
        repingRunning_ = false;
        for (qsizetype i = 0; i < names.size(); ++i) {
            const auto& o = outcomes[size_t(i)];
            state.pingaddress = o.address;
            state.pingresult = o.result;
            QTreeWidgetItem* item = findServer(names[i]);
            if (!item)
                continue;
            item->setData(0, PendingRole, false);
            const int icon = serverIcon(item);
            if (!o.reachable()) {
                if (icon == 9)
                    setServerIcon(item, 10);
                else if (icon == 7)
                    setServerIcon(item, 8);
                else
                    setServerIcon(item, icon);
            } else {
                if (icon == 10)
                    setServerIcon(item, 9);
                else if (icon == 8)
                    setServerIcon(item, 7);
                else
                    setServerIcon(item, icon);
            }
        }
    });
}

void MainWindow::validate(const QString& server, std::function<void()> done)
{
    p_.net->add(this, server, Text9->text(), Text8->text(), [this, server, done](int code) {
        if (code != 0) {
            p_.boxes->show(QStringLiteral("ERROR: ") + QString::number(code) + QStringLiteral("   Connection to Server:  ") +
                               server + QStringLiteral("  Failed!        "),
                           MsgIcon::Exclamation);
        } else {
            p_.boxes->show(QStringLiteral("Net Connection to  ") + server + QStringLiteral("  Successful!        "),
                           MsgIcon::Information);
        }
        if (done)
            done();
    });
}

void MainWindow::unvalidate(const QString& computername)
{
    if (computername == state.localcomputer)
        return;
    p_.net->cancel(computername);
    // The service manager's connection ran through the closed one; the next call connects anew.
    if (p_.services)
        p_.services->disconnect(computername);
}

// ---------------------------------------------------------------------------------------------
// Selection flows

void MainWindow::clearServiceSide()
{
    ListView1->clear();
    Label1->setText(QStringLiteral("Services:"));
    List2->clear();
    for (QLineEdit* t : {Text2, Text3, Text4, Text5, Text6})
        t->clear();
}

void MainWindow::selectServer()
{
    if (ListView2->topLevelItemCount() == 0)
        return;
    QTreeWidgetItem* item = ListView2->currentItem();
    if (!item)
        return;
    selecteditem_ = item->text(0);
    selectedindex_ = ListView2->indexOfTopLevelItem(item);
    Text1->setText(item->text(0).toUpper());
    clearServiceSide();
}

void MainWindow::selectService()
{
    if (ListView1->topLevelItemCount() > 0 && !services->detailsfailed) {
        QTreeWidgetItem* item = ListView1->currentItem();
        if (item) {
            selecteditem_ = item->text(0);
            const int row = ListView1->indexOfTopLevelItem(item);
            if (row >= 0 && row < List3->count())
                Text3->setText(List3->item(row)->text());
            showServiceDetails();
            ListView1->setToolTip(item->text(0));
        }
    }
    services->detailsfailed = false;
}

void MainWindow::showServiceDetails()
{
    services->servicedetails(Text3->text(), [this] { services->depservices(1); });
}

monitoring::SetupWindow* MainWindow::setupWindow()
{
    if (!setupWindow_)
        setupWindow_ = new monitoring::SetupWindow(*this);
    return setupWindow_;
}

void MainWindow::showServices(bool all)
{
    List2->clear();
    if (ListView2->topLevelItemCount() == 0) {
        p_.boxes->show(QStringLiteral("No servers listet, please add servers to be monitored"), MsgIcon::Information);
        return;
    }
    Timer1->setEnabled(false);
    const QTreeWidgetItem* item = findServer(Text1->text());
    if (item && (serverIcon(item) == 8 || serverIcon(item) == 10)) {
        p_.boxes->show(QStringLiteral("Selected Server is not available, can not show Services !"), MsgIcon::Information);
        clearServiceSide();
        if (setupWindow_) {
            setupWindow_->List1->clear();
            setupWindow_->ListView1->clear();
        }
        return;
    }
    Label1->setText((all ? QStringLiteral("All Registered Services on : ") : QStringLiteral("Active Services on : ")) +
                    Text1->text());
    services->getServiceInfo(all ? 3 : 1);
}

void MainWindow::browseComputer()
{
    Timer1->setEnabled(false);
    List1->clear();
    ListView1->clear();
    if (setupWindow_)
        setupWindow_->ListView1->clear();
    Label1->setText(QStringLiteral("Services:"));
    for (QLineEdit* t : {Text2, Text3, Text4, Text5, Text6})
        t->clear();

    const QString chosen = p_.chooser->choose(this, QStringLiteral("Select Computer :   "));
    if (chosen != QStringLiteral(" "))
        Text1->setText(chosen.trimmed());
    if (Text1->text().isEmpty()) {
        p_.boxes->show(QStringLiteral("Invalid Servername !"), MsgIcon::Information);
        return;
    }
    const QString name = Text1->text();
    if (findServer(name)) {
        p_.boxes->show(QStringLiteral("Item already exists !"), MsgIcon::Information);
        return;
    }
    QTreeWidgetItem* item = addServer(name, 7);
    item->setData(0, PendingRole, true);
    setServerIcon(item, 7);
    // An unmonitored server is stored the same whatever its reachability, so the list is
    // written now rather than after the ping.
    writecomputerlist();
    pingserver(name, [this, name](bool reachable) {
        if (QTreeWidgetItem* it = findServer(name); it && serverPending(it)) {
            it->setData(0, PendingRole, false);
            setServerIcon(it, reachable ? 7 : 8);
        }
    });
}

void MainWindow::addLocalComputer()
{
    const QString name = p_.system->computerName().toUpper();
    Text1->setText(name);
    state.currentserver = name;
    if (!findServer(name)) {
        addServer(name, 7);
        if (Combo1->findText(name, Qt::MatchExactly) < 0) {
            Combo1->addItem(name);
            Combo1->setCurrentIndex(Combo1->count() - 1);
        }
    } else {
        p_.boxes->show(QStringLiteral("Item already exists !"), MsgIcon::Information);
    }
}

bool MainWindow::eventFilter(QObject* watched, QEvent* e)
{
    if (e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (watched == ListView2->viewport() && me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView2->itemAt(me->position().toPoint()))
                ListView2->setCurrentItem(item);
            serverListMousePress(me->button(), me->globalPosition().toPoint());
            return true;
        }
        if (watched == ListView1->viewport() && me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView1->itemAt(me->position().toPoint()))
                ListView1->setCurrentItem(item);
            serviceListMousePress(me->button(), me->globalPosition().toPoint());
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
    const QList<QAction*> serverItems{mnumonwin, mnuremoveserver, mnushowall, mnushowactive,
                                      mnuproperties, mnuoutmaintenance, mnumaintenance};
    if (ListView2->topLevelItemCount() == 0) {
        for (QAction* a : serverItems)
            a->setEnabled(false);
        mnushowmonitor->popup(globalPos);
    } else if (!ListView2->currentItem()) {
        p_.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
    } else {
        for (QAction* a : serverItems)
            a->setEnabled(true);
        mnushowmonitor->popup(globalPos);
    }
}

void MainWindow::serviceListMousePress(Qt::MouseButton button, const QPoint& globalPos)
{
    selectService();
    if (button != Qt::RightButton)
        return;
    if (ListView1->topLevelItemCount() == 0) {
        mnumonitorservice->setEnabled(false);
        mnumonitor->popup(globalPos);
    } else if (!ListView1->currentItem()) {
        p_.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
    } else {
        mnumonitorservice->setEnabled(true);
        mnumonitor->popup(globalPos);
    }
}

} // namespace velmora::shell
