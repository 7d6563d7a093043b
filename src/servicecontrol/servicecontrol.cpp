#include "servicecontrol/servicecontrol.h"

#include "monitoring/setupwindow.h"
#include "servicecontrol/statetext.h"
#include "shell/mainwindow.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTreeWidget>

namespace velmora::servicecontrol {

using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;
using platform::ServiceManager;
namespace svcerror = platform::svcerror;

namespace {

// Names and texts pass through fixed buffers in the classic service calls; longer ones are cut.
constexpr int kNameLength = 125;
constexpr int kTextLength = 255;

const QString kOpenManagerFailed = QStringLiteral("Open Service Manager failed.   Error  ");
const QString kOpenServiceFailed = QStringLiteral("Open Service failed.   Error  ");
const QString kQueryStatusFailed = QStringLiteral("Query Service Status failed.   Error  ");
const QString kListFailed = QStringLiteral("Can not list Services on selected Server,  open Service Manager failed.   Error  ");
const QString kNoDependents = QStringLiteral("No Dependent Services Running");

struct DependentsQuery : ServiceQuery {
    int sizeCode = 0;
    std::vector<platform::ServiceEntry> dependents;
};

DependentsQuery queryDependents(ServiceManager& sm, const QString& computer, const QString& service, int filter)
{
    DependentsQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(
        sm, computer, service,
        [&](const platform::ServiceHandle& svc) {
            const auto r = sm.enumerateDependents(svc, filter);
            q.sizeCode = r.sizeQueryCode();
            q.dependents = r.services;
        },
        false);
    return q;
}

struct ControlQuery : ServiceQuery {
    int controlError = 0;
};

ControlQuery control(ServiceManager& sm, const QString& computer, const QString& service, bool start)
{
    ControlQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(
        sm, computer, service,
        [&](const platform::ServiceHandle& svc) { q.controlError = start ? sm.start(svc) : sm.stop(svc); }, true,
        true);
    return q;
}

} // namespace

ServiceQuery openAndQuery(ServiceManager& sm, const QString& computer, const QString& service,
                          const std::function<void(const platform::ServiceHandle&)>& then, bool queryStatus,
                          bool goOnWithoutManager)
{
    ServiceQuery q;
    auto scm = sm.openManager(computer);
    q.scmError = scm.error;
    if (!scm.valid() && !goOnWithoutManager)
        return q;
    auto svc = sm.openService(scm, service);
    q.serviceError = svc.error;
    if (svc.valid()) {
        if (queryStatus) {
            const auto st = sm.queryStatus(svc);
            q.statusError = st.error;
            q.state = st.state;
        }
        if (q.statusError == svcerror::ok && then)
            then(svc);
        ServiceManager::close(svc);
    }
    ServiceManager::close(scm);
    return q;
}

DetailQuery queryDetails(ServiceManager& sm, const QString& computer, const QString& service)
{
    DetailQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(sm, computer, service, [&](const platform::ServiceHandle& svc) {
        const auto cfg = sm.queryConfig(svc);
        q.configError = cfg.error;
        q.config = cfg.config;
    });
    return q;
}

ServiceControl::ServiceControl(shell::MainWindow& window)
    : QObject(&window), w_(window), services_(*window.state.platform.services)
{
}

void ServiceControl::box(const QString& text, int code)
{
    w_.state.platform.boxes->show(text + QString::number(code), MsgIcon::None);
}

void ServiceControl::runJob(std::function<std::function<void()>()> job)
{
    ++busy_;
    w_.state.platform.worker->run(this, [job = std::move(job), this]() -> std::function<void()> {
        auto apply = job();
        return [this, apply = std::move(apply)] {
            --busy_;
            apply();
        };
    });
}

// ---- details ----

void ServiceControl::applyDetails(const DetailQuery& q)
{
    auto& boxes = *w_.state.platform.boxes;
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
    w_.Text4->setText(text);
    detailstate = text;
    if (q.configError != svcerror::ok) {
        // The size query and the query itself both fail, and each says so.
        const QString msg = QStringLiteral("Query Service Configuration failed.   Error  ") + QString::number(q.configError);
        boxes.show(msg, MsgIcon::None);
        boxes.show(msg, MsgIcon::None);
        return;
    }
    if (const auto start = startTypeText(q.config.startType))
        w_.Text5->setText(*start);
    w_.Text2->setText(q.config.binaryPath.left(kTextLength));
    w_.Text6->setText(q.config.account.left(kTextLength));
}

void ServiceControl::servicedetails(const QString& service, std::function<void()> done)
{
    detailsfailed = false;
    selectedcomputer = w_.Text1->text();
    const QString computer = selectedcomputer;
    runJob([this, computer, service, done = std::move(done)]() -> std::function<void()> {
        const DetailQuery q = queryDetails(services_, computer, service);
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
    w_.setCursor(Qt::WaitCursor);
    selectedcomputer = w_.Text1->text();
    const QString computer = selectedcomputer;
    runJob([this, computer, filter]() -> std::function<void()> {
        auto scm = services_.openManager(computer);
        const int error = scm.error;
        ServiceManager::close(scm);
        return [this, error, filter] {
            if (error == svcerror::accessDenied) {
                // Ask for an authenticated connection, then try once more.
                w_.validate(selectedcomputer, [this, filter] { listAfterOpen(filter, true); });
                return;
            }
            listAfterOpen(filter, error == svcerror::ok);
        };
    });
}

void ServiceControl::listAfterOpen(int filter, bool openedFirstTime)
{
    Q_UNUSED(openedFirstTime); // the open is tried a second time whatever the first answer was
    const QString computer = selectedcomputer;
    struct Listing {
        int openError = 0;
        int sizeCode = 0;
        std::vector<platform::ServiceEntry> services;
        std::vector<DetailQuery> details;
    };
    runJob([this, computer, filter]() -> std::function<void()> {
        Listing l;
        auto scm = services_.openManager(computer);
        l.openError = scm.error;
        if (scm.valid()) {
            const auto r = services_.enumerateServices(scm, filter);
            l.sizeCode = r.sizeQueryCode();
            l.services = r.services;
            if (l.sizeCode == svcerror::moreData) {
                l.details.reserve(l.services.size());
                for (const auto& s : l.services)
                    l.details.push_back(queryDetails(services_, computer, s.name.left(kNameLength)));
            }
            ServiceManager::close(scm);
        }
        return [this, l = std::move(l)] {
            auto fail = [this](int code) {
                box(kListFailed, code);
                w_.unsetCursor();
                listfailed = true;
                emit listingFinished();
            };
            if (l.openError != svcerror::ok) {
                w_.state.platform.boxes->show(kListFailed + QString::number(l.openError), MsgIcon::Critical);
                w_.List2->clear();
                w_.ListView1->clear();
                w_.Label1->setText(QStringLiteral("Services:"));
                for (QLineEdit* t : {w_.Text2, w_.Text3, w_.Text4, w_.Text5, w_.Text6})
                    t->clear();
                w_.unsetCursor();
                listfailed = true;
                emit listingFinished();
                return;
            }
            if (l.sizeCode != svcerror::moreData) {
                Q_UNUSED(fail);
                w_.state.platform.boxes->show(kListFailed + QString::number(l.sizeCode), MsgIcon::Critical);
                w_.unsetCursor();
                listfailed = true;
                emit listingFinished();
                return;
            }
            QTreeWidget* setupList = w_.setupWindow()->ListView1;
            w_.List1->clear();
            w_.ListView1->clear();
            setupList->clear();
            w_.List3->clear();
            for (size_t i = 0; i < l.services.size(); ++i) {
                const auto& s = l.services[i];
                const QString key = s.name.left(kNameLength);
                const QString display = s.displayName.left(kNameLength);
                w_.state.currentservice = key;
                w_.List3->addItem(key);
                w_.List1->addItem(display);
                applyDetails(l.details[i]);
                const int icon = stateIcon(detailstate);
                auto* item = new QTreeWidgetItem(w_.ListView1, {display});
                w_.setServiceIcon(item, icon);
                auto* setupItem = new QTreeWidgetItem(setupList, {display});
                w_.setServiceIcon(setupItem, icon);
            }
            for (QLineEdit* t : {w_.Text2, w_.Text3, w_.Text4, w_.Text5, w_.Text6})
                t->clear();
            w_.unsetCursor();
            emit listingFinished();
        };
    });
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
    const QString service = w_.Text3->text().trimmed();
    runJob([this, computer, service, filter, done = std::move(done)]() -> std::function<void()> {
        const DependentsQuery q = queryDependents(services_, computer, service, filter);
        return [this, q, done] {
            if (q.scmError != svcerror::ok) {
                box(kOpenManagerFailed, q.scmError);
            } else if (q.serviceError != svcerror::ok) {
                box(kOpenServiceFailed, q.serviceError);
            } else if (q.sizeCode == svcerror::ok) {
                w_.List2->clear();
                w_.List2->addItem(kNoDependents);
            } else if (q.sizeCode == svcerror::moreData) {
                w_.List2->clear();
                w_.List4->clear();
                for (const auto& d : q.dependents) {
                    w_.List2->addItem(d.displayName.left(kNameLength));
                    w_.List4->addItem(d.name.left(kNameLength));
                    w_.state.currentservice = d.name;
                }
            }
            if (done)
                done();
        };
    });
}

// ---- start and stop ----

void ServiceControl::startCommand()
{
    w_.Label10->show();
    servstart([this] { w_.Timer1->setEnabled(true); });
}

void ServiceControl::stopCommand()
{
    w_.Label10->show();
    const MsgAnswer answer = w_.state.platform.boxes->show(
        QStringLiteral("Are you sure you want to stop the  ") + w_.Text3->text() + QStringLiteral("  Service ") +
            QStringLiteral(" on Computer  ") + w_.Text1->text() + QStringLiteral(" ?        "),
        MsgIcon::Question, MsgButtons::YesNo);
    if (answer == MsgAnswer::Yes)
        servstop(w_.Text3->text(), [this] { w_.Timer1->setEnabled(true); });
    else
        w_.Label10->hide();
}

void ServiceControl::servstart(std::function<void()> done)
{
    const QString computer = selectedcomputer;
    const QString service = w_.Text3->text().trimmed();
    runJob([this, computer, service, done = std::move(done)]() -> std::function<void()> {
        const ControlQuery q = control(services_, computer, service, true);
        return [this, q, done] {
            auto& boxes = *w_.state.platform.boxes;
            if (q.scmError != svcerror::ok)
                box(kOpenManagerFailed, q.scmError);
            if (q.serviceError != svcerror::ok)
                boxes.show(QStringLiteral("Error - ") + QString::number(q.serviceError), MsgIcon::None, MsgButtons::Ok,
                           QStringLiteral("Service Manager"));
            else if (q.statusError != svcerror::ok)
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
    runJob([this, computer, service, done = std::move(done)]() -> std::function<void()> {
        const ControlQuery q = control(services_, computer, service, false);
        return [this, q, done] {
            if (q.scmError != svcerror::ok)
                box(kOpenManagerFailed, q.scmError);
            if (q.serviceError != svcerror::ok)
                box(kOpenServiceFailed, q.serviceError);
            else if (q.statusError != svcerror::ok)
                box(kQueryStatusFailed, q.statusError);
            else if (q.controlError == svcerror::dependentServicesRunning)
                w_.state.platform.boxes->show(
                    QStringLiteral("Dependent Services are running ! Dependent Services must be stopped first !"),
                    MsgIcon::Exclamation);
            else if (q.controlError != svcerror::ok)
                box(QStringLiteral("Control Service failed.   Error  "), q.controlError);
            if (done)
                done();
        };
    });
}

// ---- timers ----

void ServiceControl::timer1Tick()
{
    // A tick still waiting for its answer is not doubled by the next one.
    if (tickRunning_)
        return;
    tickRunning_ = true;
    const QString computer = selectedcomputer;
    const QString service = w_.Text3->text();
    runJob([this, computer, service]() -> std::function<void()> {
        const ServiceQuery q = openAndQuery(services_, computer, service);
        return [this, q] {
            tickRunning_ = false;
            if (!w_.Timer1->isEnabled())
                return; // switched off while the answer was on its way
            if (q.scmError != svcerror::ok || q.serviceError != svcerror::ok || q.statusError != svcerror::ok) {
                if (q.scmError != svcerror::ok)
                    box(kOpenManagerFailed, q.scmError);
                else if (q.serviceError != svcerror::ok)
                    box(kOpenServiceFailed, q.serviceError);
                else
                    box(kQueryStatusFailed, q.statusError);
                w_.Label10->hide();
                return;
            }
            const QString text = stateText(q.state).value_or(QString());
            w_.Text4->setText(text);
            QTreeWidgetItem* item = w_.ListView1->currentItem();
            const int icon = stateIcon(text);
            if (item && icon > 0)
                w_.setServiceIcon(item, icon);
            w_.Label10->hide();
            if (text == QStringLiteral("Stopped") && item) {
                const int row = w_.ListView1->indexOfTopLevelItem(item);
                // The same key name again leaves Text3 unchanged, so the follow-up goes on.
                if (row >= 0 && row < w_.List3->count())
                    w_.Text3->setText(w_.List3->item(row)->text());
                servicedetails(w_.Text3->text(), [this] { depservices(1); });
            }
        };
    });
}

void ServiceControl::timer2Tick()
{
    const QString state = w_.Text4->text();
    std::optional<bool> startOn, stopOn;
    if (state == QStringLiteral("Running") || state == QStringLiteral("Paused")) {
        startOn = false;
        stopOn = true;
    } else if (state == QStringLiteral("Stopped")) {
        startOn = true;
        stopOn = false;
    }
    if (w_.Text1->text().isEmpty() || w_.Text3->text().isEmpty()) {
        startOn = false;
        stopOn = false;
    }
    if (startOn) {
        w_.Command1->setEnabled(*startOn);
        w_.mnustartservice->setEnabled(*startOn);
    }
    if (stopOn) {
        w_.Command5->setEnabled(*stopOn);
        w_.mnustopservice->setEnabled(*stopOn);
    }
}

} // namespace velmora::servicecontrol
