#pragma once
// The mail windows: the SMTP test window Form7, the profile test window Form8 and the e-mail
// options Dialog, loaded on first use and then kept. They are views of the alert mailer: the
// test mails go out through the same mailer, its SMTP client and its sending flag, as the alert
// mail does. The alert mail itself needs none of them.
#include "actions/actionresults.h"
#include "core/runstate.h"

#include <QObject>
#include <QPointer>

class QWidget;

namespace velmora::actions {

class AlertMailer;
class SmtpMailWindow;
class ProfileMailWindow;
class EmailOptionsDialog;

class Mailing : public QObject {
    Q_OBJECT
public:
    // windowParent owns the windows (they are top-level windows of their own). results are the
    // dispatcher's: the test windows show the alert mail of the last failure.
    Mailing(core::RunState& state, AlertMailer& mailer, const ActionResults& results, QWidget* windowParent,
            QObject* parent = nullptr);
    ~Mailing() override;

    core::RunState& state() { return state_; }
    AlertMailer& mailer() { return mailer_; }
    const ActionResults& results() const { return results_; }

    // The e-mail options' Cancel also hides the alert setup window (setupAlertHideRequested).
    void requestSetupAlertHidden() { emit setupAlertHideRequested(); }

    SmtpMailWindow* form7();
    ProfileMailWindow* form8();
    EmailOptionsDialog* dialog();
    // "Set Email Options": shows the options dialog.
    void showOptions();

signals:
    void setupAlertHideRequested();

private:
    core::RunState& state_;
    AlertMailer& mailer_;
    const ActionResults& results_;
    QWidget* windowParent_;
    QPointer<SmtpMailWindow> form7_;
    QPointer<ProfileMailWindow> form8_;
    QPointer<EmailOptionsDialog> dialog_;
};

} // namespace velmora::actions
