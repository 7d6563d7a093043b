#include "shell/mailwiring.h"

#include "actions/mailing.h"
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "shell/mainwindow.h"

#include <QAction>
#include <QLineEdit>

namespace velmora::shell {

actions::Mailing* connectMailing(MainWindow& window)
{
    auto* mailing = new actions::Mailing(window.state, &window, &window);
    MainWindow* w = &window;
    mailing->datafolder = [w] { return w->Text7 ? w->Text7->text() : QString(); };
    mailing->appendjobline = [w, mailing](const QString& line) {
        if (w->logandalerts)
            return w->logandalerts->joblog().appendjobline(line);
        return joblog::JobLog(w->state.platform, [mailing] { return mailing->folder(); }).appendjobline(line);
    };
    mailing->alertBusy = [w](bool busy) {
        if (!w->logandalerts)
            return;
        if (QWidget* alert = w->logandalerts->loadedAlertwindow()) {
            if (busy)
                alert->setCursor(Qt::WaitCursor);
            else
                alert->unsetCursor();
        }
    };
    QObject::connect(window.mnusetemailoptions, &QAction::triggered, mailing, &actions::Mailing::showOptions);
    window.onCheckMailProfile = [mailing] { mailing->checkmailprofile(); };
    return mailing;
}

} // namespace velmora::shell
