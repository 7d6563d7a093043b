#include "servicecontrol/servicecontrol.h"

#include "core/runstate.h"
#include "core/serverlist.h"
#include "platform/formcontrols.h"
#include "platform/icons.h"
#include "servicecontrol/connections.h"
#include "servicecontrol/servicelisting.h"
#include "servicecontrol/servicepanel.h"
#include "servicecontrol/statetext.h"

#include <QApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::servicecontrol {

using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;
using platform::named;
namespace svcerror = platform::svcerror;

namespace {

const QString kOpenManagerFailed = QStringLiteral("Open Service Manager failed.   Error  ");
const QString kOpenServiceFailed = QStringLiteral("Open Service failed.   Error  ");
const QString kQueryStatusFailed = QStringLiteral("Query Service Status failed.   Error  ");
const QString kControlFailed = QStringLiteral("Control Service failed.   Error  ");
const QString kListFailed = QStringLiteral("Can not list Services on selected Server,  open Service Manager failed.   Error  ");
const QString kNoDependents = QStringLiteral("No Dependent Services Running");
constexpr int kKeyRole = Qt::UserRole + 2;

} // namespace

ServiceControl::ServiceControl(core::RunState& state, const core::ServerList& servers, ServiceListing& listing,
                               ServicePanel& panel, Connections& connections, QWidget* parent)
    : QGroupBox(parent), state_(state), servers_(servers), listing_(listing), panel_(panel),
      connections_(connections)
{
    setObjectName(QStringLiteral("Frame2"));
    buildControls();

    Timer1 = state_.platform.clock->createTimer(this, QStringLiteral("Timer1"), 1000);
    connect(Timer1, &platform::Timer::timeout, this, &ServiceControl::timer1Tick);

    // Another server or service is no longer the one Timer1 follows.
    connect(&panel_, &ServicePanel::computerChanged, this, [this] {
        Timer1->setEnabled(false);
        enableCommands();
    });
    connect(&panel_, &ServicePanel::serviceChanged, this, [this] {
        Timer1->setEnabled(false);
        enableCommands();
    });
    connect(&panel_, &ServicePanel::stateChanged, this, &ServiceControl::enableCommands);
    connect(&panel_, &ServicePanel::detailsChanged, this, &ServiceControl::showDetails);
    connect(&panel_, &ServicePanel::dependentsChanged, this, &ServiceControl::showDependents);
    enableCommands();

    connect(&listing_, &ServiceListing::reset, this, &ServiceControl::fillFromListing);
    connect(&listing_, &ServiceListing::iconChanged, this, [this](int row) {
        if (QTreeWidgetItem* item = ListView1->topLevelItem(row))
            platform::setItemIcon(item, listing_.at(row).icon);
    });

    connect(ListView1, &QTreeWidget::itemClicked, this, [this] { selectService(); });
    // The arrow keys make another service the current one, as a click does.
    connect(ListView1, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* current) {
        if (current && ListView1->hasFocus() && !QApplication::mouseButtons())
            selectService();
    });
    connect(List2, &QListWidget::itemClicked, this, [this] {
        QListWidgetItem* item = List2->currentItem();
        if (!item || item->text() == kNoDependents)
            return;
        const size_t row = size_t(List2->row(item));
        const int listed = listing_.indexOfDisplay(item->text());
        if (listed >= 0)
            ListView1->setCurrentItem(ListView1->topLevelItem(listed));
        if (row < panel_.dependents().size())
            panel_.setService(panel_.dependents()[row].name);
        servicedetails(panel_.service());
        List2->setToolTip(item->text());
    });
    connect(Command2, &QPushButton::clicked, this, [this] { showServices(true); });
    connect(Command6, &QPushButton::clicked, this, [this] { showServices(false); });
    connect(Command1, &QPushButton::clicked, this, &ServiceControl::startCommand);
    connect(mnustartservice, &QAction::triggered, this, &ServiceControl::startCommand);
    connect(Command5, &QPushButton::clicked, this, &ServiceControl::stopCommand);
    connect(mnustopservice, &QAction::triggered, this, &ServiceControl::stopCommand);
    connect(Command7, &QPushButton::clicked, this, &ServiceControl::monitorRequested);
    connect(mnumonitorservice, &QAction::triggered, this, &ServiceControl::monitorServiceRequested);
}

void ServiceControl::buildControls()
{
    auto* grid = new QGridLayout(this);
    Label1 = named(new QLabel(QStringLiteral("Services:")), "Label1");
    ListView1 = platform::iconList("ListView1", QStringLiteral("Services:"), 3900);
    ListView1->viewport()->installEventFilter(this);
    grid->addWidget(Label1, 0, 0, 1, 2);
    grid->addWidget(ListView1, 1, 0, 1, 2);
    auto* listButtons = new QHBoxLayout;
    Command2 = named(new QPushButton(QStringLiteral("Show all Services")), "Command2");
    Command6 = named(new QPushButton(QStringLiteral("Show active Services")), "Command6");
    listButtons->addWidget(Command2);
    listButtons->addWidget(Command6);
    grid->addLayout(listButtons, 2, 0, 1, 2);

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
    grid->addLayout(details, 0, 2, 2, 1, Qt::AlignTop);

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
    grid->setColumnStretch(0, 3);
    grid->setColumnStretch(2, 2);

    mnumonitor = named(new QMenu(QStringLiteral("Monitor"), this), "mnumonitor");
    mnumonitorservice = platform::menuItem(mnumonitor, "mnumonitorservice", QStringLiteral("Monitor Service"));
    platform::menuSeparator(mnumonitor, "s15");
    mnustopservice = platform::menuItem(mnumonitor, "mnustopservice", QStringLiteral("Stop Service"));
    platform::menuSeparator(mnumonitor, "s14");
    mnustartservice = platform::menuItem(mnumonitor, "mnustartservice", QStringLiteral("Start Service"));
}

void ServiceControl::fillFromListing() { showRows(listing_.rows()); }

void ServiceControl::showRows(const std::vector<ListedService>& rows)
{
    const QSignalBlocker blockList(ListView1);
    ListView1->clear();
    for (const ListedService& s : rows) {
        auto* item = new QTreeWidgetItem(ListView1, {s.display});
        item->setData(0, kKeyRole, s.key);
        platform::setItemIcon(item, s.icon);
    }
}

void ServiceControl::showDetails()
{
    Text3->setText(panel_.service());
    Text4->setText(panel_.state());
    Text5->setText(panel_.startType());
    Text2->setText(panel_.binaryPath());
    Text6->setText(panel_.account());
    // Long values (a program with its arguments) show their beginning, not their end.
    for (QLineEdit* t : {Text2, Text3, Text4, Text5, Text6})
        t->setCursorPosition(0);
}

void ServiceControl::showDependents()
{
    List2->clear();
    if (panel_.noneRunning())
        List2->addItem(kNoDependents);
    for (const Dependent& d : panel_.dependents())
        List2->addItem(d.display);
}

void ServiceControl::enableCommands()
{
    const QString& state = panel_.state();
    std::optional<bool> startOn, stopOn;
    if (state == QStringLiteral("Running") || state == QStringLiteral("Paused")) {
        startOn = false;
        stopOn = true;
    } else if (state == QStringLiteral("Stopped")) {
        startOn = true;
        stopOn = false;
    }
    if (panel_.computer().isEmpty() || panel_.service().isEmpty()) {
        startOn = false;
        stopOn = false;
    }
    if (startOn) {
        Command1->setEnabled(*startOn);
        mnustartservice->setEnabled(*startOn);
    }
    if (stopOn) {
        Command5->setEnabled(*stopOn);
        mnustopservice->setEnabled(*stopOn);
    }
}

void ServiceControl::box(const QString& text, int code)
{
    emit managerAnswered(selectedcomputer, code);
    state_.platform.boxes->show(text + QString::number(code), MsgIcon::None);
}

void ServiceControl::runJob(std::function<std::function<void()>()> job)
{
    ++busy_;
    state_.platform.worker->run(this, [job = std::move(job), this]() -> std::function<void()> {
        auto apply = job();
        return [this, apply = std::move(apply)] {
            --busy_;
            apply();
        };
    });
}

void ServiceControl::setComputer(const QString& name)
{
    panel_.setComputer(name);
    Timer1->setEnabled(false);
}

QString ServiceControl::computer() const { return panel_.computer(); }

// ---- selection ----

void ServiceControl::clearServiceSide()
{
    listing_.clear();
    clearShownServices();
}

void ServiceControl::clearShownServices()
{
    showRows({});
    Label1->setText(QStringLiteral("Services:"));
    panel_.clearDependents();
    panel_.clearService();
}

void ServiceControl::showServices(bool all)
{
    panel_.clearDependents();
    if (servers_.isEmpty()) {
        state_.platform.boxes->show(QStringLiteral("No servers listet, please add servers to be monitored"),
                                    MsgIcon::Information);
        return;
    }
    Timer1->setEnabled(false);
    const core::ServerEntry* entry = servers_.find(panel_.computer());
    if (entry && !entry->reachable) {
        state_.platform.boxes->show(QStringLiteral("Selected Server is not available, can not show Services !"),
                                    MsgIcon::Information);
        clearServiceSide();
        return;
    }
    Label1->setText((all ? QStringLiteral("All Registered Services on : ") : QStringLiteral("Active Services on : ")) +
                    panel_.computer());
    getServiceInfo(all ? 3 : 1);
}

void ServiceControl::selectService()
{
    if (ListView1->topLevelItemCount() > 0 && !detailsfailed) {
        if (QTreeWidgetItem* item = ListView1->currentItem()) {
            panel_.setService(item->data(0, kKeyRole).toString());
            showServiceDetails();
            ListView1->setToolTip(item->text(0));
        }
    }
    detailsfailed = false;
}

bool ServiceControl::selectListedService(const QString& service)
{
    int row = listing_.indexOfKey(service);
    if (row < 0) {
        for (int i = 0; i < listing_.count() && row < 0; ++i) {
            if (listing_.at(i).display.compare(service, Qt::CaseInsensitive) == 0)
                row = i;
        }
    }
    QTreeWidgetItem* item = row >= 0 ? ListView1->topLevelItem(row) : nullptr;
    if (!item)
        return false;
    ListView1->setCurrentItem(item);
    ListView1->scrollToItem(item);
    selectService();
    return true;
}

void ServiceControl::showServiceDetails()
{
    servicedetails(panel_.service(), [this] { depservices(1); });
}

bool ServiceControl::eventFilter(QObject* watched, QEvent* e)
{
    if (watched == ListView1->viewport() && e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView1->itemAt(me->position().toPoint()))
                ListView1->setCurrentItem(item);
            listRightButton(me->globalPosition().toPoint());
            return true;
        }
    }
    return QGroupBox::eventFilter(watched, e);
}

void ServiceControl::listRightButton(const QPoint& globalPos)
{
    selectService();
    if (ListView1->topLevelItemCount() == 0) {
        mnumonitorservice->setEnabled(false);
        mnumonitor->popup(globalPos);
    } else if (!ListView1->currentItem()) {
        state_.platform.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
    } else {
        mnumonitorservice->setEnabled(true);
        mnumonitor->popup(globalPos);
    }
}

// ---- details ----

void ServiceControl::applyDetails(const DetailQuery& q, bool selected)
{
    auto& boxes = *state_.platform.boxes;
    if (q.scmError != svcerror::ok) {
        box(kOpenManagerFailed, q.scmError);
        detailsfailed = true;
        return;
    }
    if (q.serviceError != svcerror::ok) {
        box(kOpenServiceFailed, q.serviceError);
        return;
    }
    if (q.statusError != svcerror::ok) {
        box(QStringLiteral("Query Service failed.   Error  "), q.statusError);
        return;
    }
    const QString text = stateText(q.state).value_or(QString());
    if (selected)
        panel_.setState(text);
    detailstate = text;
    if (q.configError != svcerror::ok) {
        // The size query and the query itself both fail, and each says so.
        const QString msg = QStringLiteral("Query Service Configuration failed.   Error  ") + QString::number(q.configError);
        emit managerAnswered(selectedcomputer, q.configError);
        boxes.show(msg, MsgIcon::None);
        boxes.show(msg, MsgIcon::None);
        return;
    }
    if (!selected)
        return;
    if (const auto start = startTypeText(q.config.startType))
        panel_.setStartType(*start);
    panel_.setConfig(q.config.binaryPath.left(kTextLength), q.config.account.left(kTextLength));
}

void ServiceControl::servicedetails(const QString& service, std::function<void()> done)
{
    detailsfailed = false;
    selectedcomputer = panel_.computer();
    const QString computer = selectedcomputer;
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, service, done = std::move(done)]() -> std::function<void()> {
        const DetailQuery q = queryDetails(*sm, computer, service);
        return [this, q, done] {
            applyDetails(q);
            if (done)
                done();
        };
    });
}

// ---- listing ----

void ServiceControl::getServiceInfo(int filter)
{
    listfailed = false;
    emit listingStarted();
    selectedcomputer = panel_.computer();
    const QString computer = selectedcomputer;
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, filter]() -> std::function<void()> {
        auto scm = sm->openManager(computer);
        const int error = scm.error;
        platform::ServiceManager::close(scm);
        return [this, error, filter] {
            if (error == svcerror::accessDenied) {
                // Ask for an authenticated connection, then try once more.
                connections_.validate(selectedcomputer, [this, filter] { listAfterOpen(filter); });
                return;
            }
            // The open is tried a second time whatever the first answer was.
            listAfterOpen(filter);
        };
    });
}

void ServiceControl::listAfterOpen(int filter)
{
    const QString computer = selectedcomputer;
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, filter]() -> std::function<void()> {
        Listing l = queryListing(*sm, computer, filter);
        return [this, l = std::move(l)] { applyListing(l); };
    });
}

void ServiceControl::applyListing(const Listing& l)
{
    emit managerAnswered(selectedcomputer, l.openError != svcerror::ok                ? l.openError
                                           : l.sizeCode != svcerror::moreData ? l.sizeCode
                                                                              : svcerror::ok);
    if (l.openError != svcerror::ok) {
        state_.platform.boxes->show(kListFailed + QString::number(l.openError), MsgIcon::Critical);
        clearServiceSide();
        listfailed = true;
        emit listingFinished();
        return;
    }
    if (l.sizeCode != svcerror::moreData) {
        state_.platform.boxes->show(kListFailed + QString::number(l.sizeCode), MsgIcon::Critical);
        listfailed = true;
        emit listingFinished();
        return;
    }
    std::vector<ListedService> rows;
    rows.reserve(l.services.size());
    for (size_t i = 0; i < l.services.size(); ++i) {
        const auto& s = l.services[i];
        const QString key = s.name.left(kNameLength);
        applyDetails(l.details[i], false);
        rows.push_back({key, s.displayName.left(kNameLength), stateIcon(detailstate)});
    }
    listing_.setRows(std::move(rows));
    panel_.clearService();
    emit listingFinished();
}

// ---- dependents ----

void ServiceControl::depservices(int filter, std::function<void()> done)
{
    if (detailsfailed) {
        if (done)
            done();
        return;
    }
    const QString computer = selectedcomputer;
    const QString service = panel_.service().trimmed();
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, service, filter, done = std::move(done)]() -> std::function<void()> {
        const DependentsQuery q = queryDependents(*sm, computer, service, filter);
        return [this, q, done] {
            if (q.scmError != svcerror::ok) {
                box(kOpenManagerFailed, q.scmError);
            } else if (q.serviceError != svcerror::ok) {
                box(kOpenServiceFailed, q.serviceError);
            } else if (q.sizeCode == svcerror::ok) {
                panel_.setNoneRunning();
            } else if (q.sizeCode == svcerror::moreData) {
                std::vector<Dependent> running;
                for (const auto& d : q.dependents) {
                    running.push_back({d.name.left(kNameLength), d.displayName.left(kNameLength)});
                }
                panel_.setDependents(std::move(running));
            }
            if (done)
                done();
        };
    });
}

// ---- start and stop ----

void ServiceControl::startCommand()
{
    emit processing(true);
    const auto follow = followWhenUnchanged(Command::Start);
    servstart(follow);
}

void ServiceControl::stopCommand()
{
    emit processing(true);
    const MsgAnswer answer = state_.platform.boxes->show(
        QStringLiteral("Are you sure you want to stop the  ") + panel_.service() + QStringLiteral("  Service ") +
            QStringLiteral(" on Computer  ") + panel_.computer() + QStringLiteral(" ?        "),
        MsgIcon::Question, MsgButtons::YesNo);
    if (answer == MsgAnswer::Yes)
        servstop(panel_.service(), followWhenUnchanged(Command::Stop));
    else
        emit processing(false);
}

std::function<void()> ServiceControl::followWhenUnchanged(Command command)
{
    // The request runs off the user-interface thread. A service selected meanwhile is what a
    // one-thing-at-a-time program would have seen after switching Timer1 on, and that
    // selection switches it off again: so Timer1 follows only a service still selected.
    const QString service = panel_.service();
    QTreeWidgetItem* const item = ListView1->currentItem();
    return [this, command, service, item] {
        if (panel_.service() != service || ListView1->currentItem() != item)
            return;
        following_ = command;
        Timer1->setEnabled(true);
    };
}

void ServiceControl::servstart(std::function<void()> done)
{
    const QString computer = selectedcomputer;
    const QString service = panel_.service().trimmed();
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, service, done = std::move(done)]() -> std::function<void()> {
        const ControlQuery q = control(*sm, computer, service, true);
        return [this, q, done] {
            auto& boxes = *state_.platform.boxes;
            if (q.scmError != svcerror::ok)
                box(kOpenManagerFailed, q.scmError);
            if (q.serviceError != svcerror::ok) {
                emit managerAnswered(selectedcomputer, q.serviceError);
                boxes.show(QStringLiteral("Error - ") + QString::number(q.serviceError), MsgIcon::None, MsgButtons::Ok,
                           QStringLiteral("Service Manager"));
            } else if (q.statusError != svcerror::ok)
                box(kQueryStatusFailed, q.statusError);
            else if (q.controlError != svcerror::ok)
                box(QStringLiteral("Error - "), q.controlError);
            if (done)
                done();
        };
    });
}

void ServiceControl::servstop(const QString& service, std::function<void()> done)
{
    const QString computer = selectedcomputer;
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, service, done = std::move(done)]() -> std::function<void()> {
        const ControlQuery q = control(*sm, computer, service, false);
        return [this, q, done] {
            if (q.scmError != svcerror::ok)
                box(kOpenManagerFailed, q.scmError);
            if (q.serviceError != svcerror::ok)
                box(kOpenServiceFailed, q.serviceError);
            else if (q.statusError != svcerror::ok)
                box(kQueryStatusFailed, q.statusError);
            else if (q.controlError == svcerror::dependentServicesRunning)
                state_.platform.boxes->show(
                    QStringLiteral("Dependent Services are running ! Dependent Services must be stopped first !"),
                    MsgIcon::Exclamation);
            else if (q.controlError != svcerror::ok)
                box(kControlFailed, q.controlError);
            if (done)
                done();
        };
    });
}

// ---- timers ----

void ServiceControl::timer1Tick()
{
    // A tick still waiting for its answer, or showing a box about it, is not doubled by the
    // next one: a manager that cannot be reached gives one box at a time, not one a second.
    if (tickRunning_)
        return;
    tickRunning_ = true;
    const QString computer = selectedcomputer;
    const QString service = panel_.service();
    const bool askJob = following_ != Command::None;
    platform::ServiceManager* sm = state_.platform.services;
    runJob([this, sm, computer, service, askJob]() -> std::function<void()> {
        int job = svcerror::ok;
        const ServiceQuery q = openAndQuery(*sm, computer, service, [&](const platform::ServiceHandle& svc) {
            if (askJob)
                job = sm->jobResult(svc);
        });
        return [this, q, job, service] {
            applyTick(q, job, service);
            tickRunning_ = false;
        };
    });
}

void ServiceControl::applyTick(const ServiceQuery& q, int job, const QString& service)
{
    if (!Timer1->isEnabled())
        return; // switched off while the answer was on its way
    if (q.failed()) {
        if (q.scmError != svcerror::ok)
            box(kOpenManagerFailed, q.scmError);
        else if (q.serviceError != svcerror::ok)
            box(kOpenServiceFailed, q.serviceError);
        else
            box(kQueryStatusFailed, q.statusError);
        emit processing(false);
        return;
    }
    const QString text = stateText(q.state).value_or(QString());
    panel_.setState(text);
    // Only the row of the service that was asked about takes its icon.
    QTreeWidgetItem* item = ListView1->currentItem();
    int row = item ? ListView1->indexOfTopLevelItem(item) : -1;
    if (row >= 0 && listing_.at(row).key.trimmed() != service.trimmed())
        row = -1;
    const int icon = stateIcon(text);
    if (row >= 0 && icon > 0)
        listing_.setIcon(row, icon);
    emit processing(false);
    if (job != svcerror::ioPending && following_ != Command::None) {
        // The job has ended; a failure is told once, as the request's own failure would be.
        const Command command = following_;
        following_ = Command::None;
        if (job != svcerror::ok)
            box(command == Command::Start ? QStringLiteral("Error - ") : kControlFailed, job);
    }
    if (text == QStringLiteral("Stopped") && row >= 0) {
        // The same key name again leaves the selection unchanged, so the follow-up goes on.
        panel_.setService(listing_.at(row).key);
        servicedetails(panel_.service(), [this] { depservices(1); });
    }
}

} // namespace velmora::servicecontrol
