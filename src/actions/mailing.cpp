#include "actions/mailing.h"

#include "actions/alertmailer.h"
#include "actions/emailoptionsdialog.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"

#include <QWidget>

namespace velmora::actions {

Mailing::Mailing(core::RunState& state, AlertMailer& mailer, const ActionResults& results, QWidget* windowParent,
                 QObject* parent)
    : QObject(parent), state_(state), mailer_(mailer), results_(results), windowParent_(windowParent)
{
}

Mailing::~Mailing()
{
    delete form7_.data();
    delete form8_.data();
    delete dialog_.data();
}

SmtpMailWindow* Mailing::form7()
{
    if (!form7_)
        form7_ = new SmtpMailWindow(*this, windowParent_);
    return form7_;
}

ProfileMailWindow* Mailing::form8()
{
    if (!form8_)
        form8_ = new ProfileMailWindow(*this, windowParent_);
    return form8_;
}

EmailOptionsDialog* Mailing::dialog()
{
    if (!dialog_)
        dialog_ = new EmailOptionsDialog(*this, windowParent_);
    return dialog_;
}

void Mailing::showOptions()
{
    EmailOptionsDialog* d = dialog();
    d->show();
    d->raise();
    d->activateWindow();
}

} // namespace velmora::actions
