#include "shell/monitorwiring.h"

#include "actions/dispatcher.h"
#include "actions/mailing.h"
#include "monitoring/alertsetupwindow.h"
#include "monitoring/setupwindow.h"
#include "shell/mainwindow.h"

#include <QAction>
#include <QLineEdit>
#include <QPushButton>

namespace velmora::shell {

actions::ActionDispatcher* connectMonitoring(MainWindow& window)
{
    MainWindow* w = &window;
    auto* dispatcher = new actions::ActionDispatcher(
        window.state, window.Timer6,
        [w] {
            if (w->Text7 && !w->Text7->text().isEmpty())
                w->state.datafolder = w->Text7->text();
            return w->state.datafolder;
        },
        &window);
    auto open = [w] { w->setupWindow()->openForSelectedServer(); };
    QObject::connect(window.Command7, &QPushButton::clicked, w, open);
    QObject::connect(window.mnuServicemonitor, &QAction::triggered, w, open);
    QObject::connect(window.mnumonwin, &QAction::triggered, w, open);
    QObject::connect(window.mnumonitorservice, &QAction::triggered, w,
                     [w] { w->setupWindow()->monitorSelectedService(); });
    window.onIntervalRead = [w](const QString& interval) { w->setupWindow()->showInterval(interval); };
    if (window.mailing) {
        window.mailing->connectTo(*dispatcher);
        window.mailing->hideSetupAlert = [w] { w->setupWindow()->alertSetup()->hide(); };
    }
    return dispatcher;
}

} // namespace velmora::shell
