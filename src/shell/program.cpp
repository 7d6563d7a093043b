#include "shell/program.h"

#include "actions/alertmailer.h"
#include "actions/dispatcher.h"
#include "actions/mailing.h"
#include "core/datafolder.h"
#include "history/availabilitywindow.h"
#include "history/loghistory.h"
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "monitoring/alertkeeper.h"
#include "monitoring/alertoptionsdialog.h"
#include "monitoring/alertsetupwindow.h"
#include "monitoring/checkcycle.h"
#include "monitoring/setupwindow.h"
#include "report/reportwindow.h"
#include "servicecontrol/servicecontrol.h"
#include "shell/help.h"
#include "shell/journalwindow.h"
#include "shell/mainwindow.h"
#include "shell/tray.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

namespace velmora::shell {

Program::Program(const platform::Platform& platform)
    : monitored(*platform.files, state, platform.system->programFileName()),
      serverTypes(*platform.files, state),
      connections(*platform.net, *platform.services, *platform.boxes)
{
    state.platform = platform;
    if (platform.serverkindsSlot)
        platform.serverkindsSlot->install(&serverTypes);
    services = new servicecontrol::ServiceControl(state, servers, listing, panel, connections);
    QObject::connect(services, &servicecontrol::ServiceControl::managerAnswered, services,
                     [this](const QString& computer, int code) {
                         servers.setManagerError(computer, code, state.platform.clock->now());
                     });
    window = std::make_unique<MainWindow>(state, servers, monitored, services, connections);
    MainWindow* w = window.get();

    logandalerts = new joblog::LogAndAlerts(state, w->Timer6, w);
    logandalerts->setParent(w);
    joblog::JobLog& log = logandalerts->joblog();
    mailer = new actions::AlertMailer(*platform.files, platform.secrets, platform.system, *platform.clock,
                                      *platform.tcp, *platform.profilemail, *platform.boxes, log, state.datafolder, w);
    dispatcher = new actions::ActionDispatcher(platform, log, *mailer, *platform.messenger, w->Timer6, w);
    mailing = new actions::Mailing(state, *mailer, dispatcher->results(), w, w);
    keeper = new monitoring::AlertKeeper(platform, state, log, *logandalerts, *dispatcher, w);
    checkcycle = new monitoring::CheckCycle(state, schedule, servers, monitored, log, *keeper, *logandalerts, w);
    connectJobLog();
    connectMailing();
    connectMonitoring();
    connectTray();
    connectInfo();
    connectServerManagement();
    connectReport();
    connectAvailability();
    connectAlertOptions();
}

Program::~Program()
{
    if (state.platform.serverkindsSlot)
        state.platform.serverkindsSlot->install(nullptr);
}

void Program::load()
{
    window->load();
    keeper->load();
    alertOptionsChanged();
}

monitoring::SetupWindow* Program::setupWindow()
{
    if (!setupWindow_) {
        setupWindow_ = new monitoring::SetupWindow(state, schedule, servers, monitored, *services, listing,
                                                   *dispatcher, window.get());
        QObject::connect(setupWindow_, &monitoring::SetupWindow::emailOptionsRequested, mailing,
                         &actions::Mailing::showOptions);
    }
    return setupWindow_;
}

void Program::connectJobLog()
{
    MainWindow* w = window.get();
    joblog::LogAndAlerts* m = logandalerts;
    QObject::connect(w->mnushowlogfile, &QAction::triggered, m, [m] { m->joblog().showlogfile(); });
    QObject::connect(w->mnudeletelogfile, &QAction::triggered, m, [m] { m->joblog().deletelogfile(); });
    QObject::connect(w->Command12, &QPushButton::clicked, m, &joblog::LogAndAlerts::resetalert);
    QObject::connect(w->traymnuresetalert, &QAction::triggered, m, &joblog::LogAndAlerts::resetalert);
    QObject::connect(m, &joblog::LogAndAlerts::checkServicesNowRequested, w->Command9, &QPushButton::click);
    QObject::connect(m, &joblog::LogAndAlerts::gotoServiceRequested, w, &MainWindow::gotoService);
    QObject::connect(w, &MainWindow::localComputerNameRead, m, [m] {
        if (joblog::AlertWindow* f = m->loadedAlertwindow())
            f->Text1->clear();
    });
}

void Program::connectMailing()
{
    MainWindow* w = window.get();
    actions::Mailing* m = mailing;
    joblog::LogAndAlerts* alerts = logandalerts;
    // Hourglass on the alert window while an alert mail goes out.
    QObject::connect(mailer, &actions::AlertMailer::alertBusyChanged, alerts, [alerts](bool busy) {
        if (QWidget* alert = alerts->loadedAlertwindow()) {
            if (busy)
                alert->setCursor(Qt::WaitCursor);
            else
                alert->unsetCursor();
        }
    });
    QObject::connect(m, &actions::Mailing::setupAlertHideRequested, w, [this] {
        if (setupWindow_)
            setupWindow_->alertSetup()->hide();
    });
    QObject::connect(w->mnusetemailoptions, &QAction::triggered, m, &actions::Mailing::showOptions);
    QObject::connect(w, &MainWindow::mailProfileCheckDue, mailer, &actions::AlertMailer::checkmailprofile);
}

void Program::connectMonitoring()
{
    MainWindow* w = window.get();
    monitoring::CheckCycle* c = checkcycle;
    QObject::connect(w->Timer5, &platform::Timer::timeout, c, &monitoring::CheckCycle::timer5Tick);
    QObject::connect(w->Command9, &QPushButton::clicked, c, &monitoring::CheckCycle::checkNow);
    QObject::connect(c, &monitoring::CheckCycle::nextScanSet, w, [w] {
        w->unsetCursor();
        w->Command9->setEnabled(true);
        w->mnuChecknow->setEnabled(true);
    });
    // The setup window shows the interval read, and tells the user of one its spinner cannot show.
    QObject::connect(w, &MainWindow::intervalRead, w, [this](const QString& interval) {
        setupWindow();
        schedule.setText(interval);
    });
    QObject::connect(w, &MainWindow::scanDue, c, [this] { checkcycle->checkintervall(schedule.text()); });
    QObject::connect(w, &MainWindow::monitorSetupRequested, w, [this](const QString& server) {
        window->setCurrentServer(server);
        setupWindow()->openFor(services->computer());
    });
    QObject::connect(services, &servicecontrol::ServiceControl::monitorServiceRequested, w, [this] {
        const QTreeWidgetItem* chosen = services->ListView1->currentItem();
        if (!chosen)
            return;
        const QString display = chosen->text(0);
        const QString server = window->selectedServer();
        window->setCurrentServer(server);
        setupWindow()->monitorService(services->computer(), display);
    });
}

void Program::connectTray()
{
    MainWindow* w = window.get();
    tray = new TrayControl(*state.platform.tray, *state.platform.boxes, w, w->mnuPopUp, w);
    TrayControl* t = tray;
    QObject::connect(w, &MainWindow::activated, t, &TrayControl::windowActivated);
    QObject::connect(w->Command11, &QPushButton::clicked, t, &TrayControl::hideToTray);
    QObject::connect(w->mnuHide, &QAction::triggered, t, &TrayControl::hideToTray);
    QObject::connect(w->mnuTrayMaximize, &QAction::triggered, t, &TrayControl::showWindow);
    QObject::connect(w->trymnushowreport, &QAction::triggered, w->Command8, &QPushButton::click);
}

void Program::connectInfo()
{
    MainWindow* w = window.get();
    info = new InfoCommands(state.platform, w, w);
    InfoCommands* i = info;
    QObject::connect(w->mnuhelp, &QAction::triggered, i, &InfoCommands::openHelp);
    QObject::connect(w->mnuAbout, &QAction::triggered, i, &InfoCommands::showAbout);
    QObject::connect(w->mnuTrayinfo, &QAction::triggered, i, &InfoCommands::showAbout);
}

void Program::connectServerManagement()
{
    MainWindow* w = window.get();
    joblog::LogAndAlerts* m = logandalerts;
    // Start-up passes over a server whose file would be one of the program's own; the job log
    // says so once. The log may not exist yet this early in the start-up.
    QObject::connect(w, &MainWindow::serverNameRefused, m, [m](const QString& server, const QString& file) {
        m->joblog().ensurejoblog();
        m->joblog().serverline(server, core::reservedNameLogText(file));
    });
    QObject::connect(w, &MainWindow::pingUnavailable, m, [this, m](const QString& why) {
        state.platform.boxes->show(why, platform::MsgIcon::Exclamation);
        m->joblog().appendjobline(QString(why).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    });
    // At the end of a session nobody answers a box: standard error and the job log (when it
    // can still be written) say what was not saved.
    QObject::connect(w, &MainWindow::notSavedAtSessionEnd, m, [m](const QString& text) {
        const QString line = QString(text).replace(QLatin1Char('\n'), QLatin1Char(' '));
        qWarning("Velmora: %s", qPrintable(line));
        m->joblog().appendjobline(line);
    });
    QObject::connect(w, &MainWindow::maintenanceEnded, m,
                     [m](const QString& server) { m->joblog().serverline(server, joblog::kMaintenanceEnded); });
    QObject::connect(w, &MainWindow::removeWithoutSelection, w, [this] {
        if (setupWindow_)
            setupWindow_->List7->clear();
    });
}

report::ReportWindow* Program::loadedReportWindow() const { return report_.data(); }

report::ReportWindow* Program::reportWindow()
{
    if (!report_) {
        joblog::LogAndAlerts* alerts = logandalerts;
        report_ = new report::ReportWindow(state, *checkcycle, window.get());
        QObject::connect(&report_->cycle(), &report::ReportCycle::exportFailed, alerts,
                         [alerts](const QString& line) { alerts->joblog().appendjobline(line); });
        QObject::connect(report_, &report::ReportWindow::gotoServiceRequested, window.get(), &MainWindow::gotoService);
        QObject::connect(report_, &report::ReportWindow::propertiesRequested, window.get(),
                         &MainWindow::openPropertiesFor);
        QObject::connect(report_, &report::ReportWindow::availabilityRequested, window.get(),
                         [this](const QString& server, const QString& service) { showAvailability(server, service); });
        QObject::connect(report_, &report::ReportWindow::journalRequested, window.get(),
                         [this](const QString& server, const QString& service) { showJournal(server, service); });
        QObject::connect(report_, &report::ReportWindow::acknowledged, keeper, &monitoring::AlertKeeper::acknowledge);
        report_->mnujournal->setVisible(keeper->options().journal);
    }
    return report_;
}

void Program::showReport()
{
    report::ReportWindow* r = reportWindow();
    r->show();
    r->raise();
    r->activateWindow();
}

void Program::connectReport()
{
    MainWindow* w = window.get();
    QObject::connect(w->Command8, &QPushButton::clicked, w, [this] { showReport(); });
    QObject::connect(w->mnureport, &QAction::triggered, w, [this] { showReport(); });
    // "Check Services Now" holds the report's timer while it runs; a report not yet loaded is
    // loaded for it, unseen, and makes its first scan.
    QObject::connect(checkcycle, &monitoring::CheckCycle::reportPaused, w,
                     [this](bool paused) { reportWindow()->pauseTimer(paused); });
}

history::AvailabilityWindow* Program::availabilityWindow()
{
    if (!availability_) {
        history_ = new history::LogHistory(*state.platform.worker, *state.platform.clock, logandalerts->joblog(),
                                           window.get());
        availability_ = new history::AvailabilityWindow(state.platform, *history_, window.get());
    }
    return availability_;
}

void Program::showAvailability(const QString& server, const QString& service)
{
    history::AvailabilityWindow* a = availabilityWindow();
    // Until a service's own checks tell its interval, the monitoring interval is the best guess.
    if (const int minutes = schedule.minutes(); minutes > 0)
        history_->setDefaultInterval(qint64(minutes) * 60);
    if (server.isEmpty())
        a->open();
    else
        a->openOn(server, service);
}

void Program::connectAvailability()
{
    MainWindow* w = window.get();
    QObject::connect(w->mnuavailability, &QAction::triggered, w, [this] { showAvailability(); });
    // What the program writes to the log (and "Delele Logfile") shows at once in an open window.
    const auto changed = [this] {
        if (availability_)
            availability_->logChanged();
    };
    QObject::connect(checkcycle, &monitoring::CheckCycle::scanFinished, w, changed);
    QObject::connect(w->mnudeletelogfile, &QAction::triggered, w, changed);
}

void Program::connectAlertOptions()
{
    MainWindow* w = window.get();
    QObject::connect(w->mnualertoptions, &QAction::triggered, w, [this] {
        if (!alertOptions_) {
            alertOptions_ = new monitoring::AlertOptionsDialog(*state.platform.files, *state.platform.boxes,
                                                               state.file(core::files::alertoptions), window.get());
            QObject::connect(alertOptions_, &monitoring::AlertOptionsDialog::saved, keeper,
                             [this](const core::AlertOptions& options) {
                                 keeper->setOptions(options);
                                 alertOptionsChanged();
                             });
        }
        alertOptions_->load();
        alertOptions_->show();
        alertOptions_->raise();
    });
    joblog::LogAndAlerts* alerts = logandalerts;
    QObject::connect(alerts, &joblog::LogAndAlerts::journalRequested, w,
                     [this](const QString& server, const QString& service) { showJournal(server, service); });
    QObject::connect(alerts, &joblog::LogAndAlerts::acknowledgeRequested, keeper, &monitoring::AlertKeeper::acknowledge);
    if (platform::Notifier* notifier = state.platform.notifier) {
        QObject::connect(keeper, &monitoring::AlertKeeper::notice, notifier, &platform::Notifier::notify);
        // A click on a notice leads to its service in the main window.
        QObject::connect(notifier, &platform::Notifier::clicked, w, [w](const QString& server, const QString& service) {
            w->showNormal();
            w->raise();
            w->activateWindow();
            w->gotoService(server, service);
        });
    }
}

void Program::alertOptionsChanged()
{
    const core::AlertOptions& o = keeper->options();
    logandalerts->showAlertExtras(o.journal, o.once);
    if (report_)
        report_->mnujournal->setVisible(o.journal);
}

void Program::showJournal(const QString& server, const QString& service)
{
    if (!journal_)
        journal_ = new JournalWindow(state.platform.journal, *state.platform.worker, window.get());
    journal_->showFor(server, service);
}

} // namespace velmora::shell
