#include "shell/joblogwiring.h"

#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "servicecontrol/servicecontrol.h"
#include "shell/mainwindow.h"

#include <QAction>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

#include <memory>

namespace velmora::shell {

namespace {

// The row of ListView1 for a service: its key name in the hidden List3, else its display name.
QTreeWidgetItem* findListedService(MainWindow& w, const QString& service)
{
    for (int row = 0; row < w.List3->count() && row < w.ListView1->topLevelItemCount(); ++row) {
        if (w.List3->item(row)->text().compare(service, Qt::CaseInsensitive) == 0)
            return w.ListView1->topLevelItem(row);
    }
    const auto byName = w.ListView1->findItems(service, Qt::MatchFixedString);
    return byName.isEmpty() ? nullptr : byName.first();
}

void selectListedService(MainWindow& w, const QString& service)
{
    QTreeWidgetItem* item = findListedService(w, service);
    if (!item)
        return;
    w.ListView1->setCurrentItem(item);
    w.ListView1->scrollToItem(item);
    emit w.ListView1->itemClicked(item, 0); // details and dependents, as a click shows them
}

} // namespace

void gotoService(MainWindow& w, const QString& server, const QString& service)
{
    w.Text1->setText(server);
    if (QTreeWidgetItem* item = w.findServer(server)) {
        w.ListView2->setCurrentItem(item);
        w.ListView2->scrollToItem(item);
        emit w.ListView2->itemDoubleClicked(item, 0); // select it and list all its services
    } else {
        w.Command2->click(); // all services of Text1
    }
    if (!w.services || !w.services->busy()) {
        selectListedService(w, service);
        return;
    }
    // The listing runs off the user-interface thread: select once it has been applied.
    auto once = std::make_shared<QMetaObject::Connection>();
    *once = QObject::connect(w.services, &servicecontrol::ServiceControl::listingFinished, &w, [&w, service, once] {
        QObject::disconnect(*once);
        selectListedService(w, service);
    });
}

joblog::LogAndAlerts* connectJobLog(MainWindow& w)
{
    joblog::LogAndAlerts::Hooks hooks;
    hooks.datafolder = [&w] {
        const QString folder = w.Text7->text();
        return folder.isEmpty() ? w.state.datafolder : folder;
    };
    hooks.checkservicesnow = [&w] { w.Command9->click(); };
    hooks.gotoservice = [&w](const QString& server, const QString& service) { gotoService(w, server, service); };
    auto* m = new joblog::LogAndAlerts(w.state, w.Timer6, std::move(hooks), &w);
    m->setParent(&w);

    QObject::connect(w.mnushowlogfile, &QAction::triggered, m, [m] { m->joblog().showlogfile(); });
    QObject::connect(w.mnudeletelogfile, &QAction::triggered, m, [m] { m->joblog().deletelogfile(); });
    QObject::connect(w.Command12, &QPushButton::clicked, m, &joblog::LogAndAlerts::resetalert);
    QObject::connect(w.traymnuresetalert, &QAction::triggered, m, &joblog::LogAndAlerts::resetalert);
    w.onLocalComputerNameRead = [m] {
        if (joblog::AlertWindow* f = m->loadedAlertwindow())
            f->Text1->clear();
    };
    return m;
}

} // namespace velmora::shell
