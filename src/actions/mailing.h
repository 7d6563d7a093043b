#pragma once
// The mail and network message transports of the alert actions, and their windows: the SMTP
// test window Form7 (which also carries the SMTP client of the alert mail), the profile test
// window Form8 and the e-mail options Dialog. The main window owns one instance for the run.
//
// Every send is asynchronous and reports its end through a callback, so that a caller running
// several actions in order (the action dispatcher) starts the next only when the previous one
// has written its job-log line and result text.
#include "actions/mailtypes.h"
#include "actions/smtpoptions.h"
#include "core/runstate.h"

#include <QObject>
#include <QPointer>

class QWidget;

namespace velmora::actions {

class SmtpMailWindow;
class ProfileMailWindow;
class EmailOptionsDialog;
class ActionDispatcher;

class Mailing : public QObject {
    Q_OBJECT
public:
    // windowParent owns the windows (they are top-level windows of their own).
    Mailing(core::RunState& state, QWidget* windowParent, QObject* parent = nullptr);
    ~Mailing() override;

    core::RunState& state() { return state_; }

    // ---- hooks; each may be left empty ----
    // Writes one job-log line and says whether it was written. Default: the job log of the data
    // folder.
    std::function<bool(const QString&)> appendjobline;
    // Refreshes the data folder from the main window's field and returns it (default: the
    // run state's data folder as it is).
    std::function<QString()> datafolder;
    // The alert mail texts the test windows show. Default: the alert mail of the run state as
    // it stands, dated now.
    MailTextSource smtpText, mapiText;
    // The e-mail options' Cancel also hides the alert setup window (setupAlertHideRequested).
    void requestSetupAlertHidden() { emit setupAlertHideRequested(); }
    // An alert mail goes out (true) or is done (false): alertBusyChanged.
    void setAlertBusy(bool busy) { emit alertBusyChanged(busy); }

    // The windows, loaded on first use and then kept (hidden when not shown).
    SmtpMailWindow* form7();
    ProfileMailWindow* form8();
    EmailOptionsDialog* dialog();
    // "Set Email Options": shows the options dialog.
    void showOptions();

    // ---- transports ----
    // The alert mail over SMTP to the configured server and port (sendemail). emailaddress is
    // trimmed of blanks here; callers that keep the address store trimBlanks() of it. done(true)
    // when the whole dialogue succeeded; done(false) at once when a mail is being sent already.
    void sendemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done);
    // The alert mail through the mail profile (subemail); emailaddress is used as received.
    // done(true): the dispatch goes on (the outcome is in the job log); done(false): there is
    // no mail profile file, nothing was logged, and the dispatch of this service ends.
    void subemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done);
    // The network message (netsend): sends to recipient without its surrounding blanks, logs the
    // result line and keeps it in netsendresult; with test set also shows it in a box.
    // done(logged): whether the result line reached the job log.
    void netsend(const QString& recipient, bool test, std::function<void(bool logged)> done = {});

    // Plugs the transports into the action dispatcher: the alert mail (text built from the run
    // state when it is sent) over SMTP or the mail profile, and the network message. The SMTP
    // mail and the message trim the dispatcher's shared variable in place.
    void connectTo(ActionDispatcher& dispatcher);

    // Start-up: reads the mail profile, switches to profile mail and tries a logon.
    void checkmailprofile();
    // Reloads the shared mail settings from "MailProfile" and "SMTPServer".
    void refreschmailsettings();

    // The data folder after refreshing it, and a file in it.
    QString folder();
    QString file(const QString& name);
    // The first line of a data-folder file (also without a line end), or nothing when the
    // file cannot be read.
    std::optional<QString> firstLine(const QString& name);
    // Appends an action line to the job log; false when it could not be written.
    bool log(const QString& line);

    // ---- the SMTP dialogue for servers that need a name, encryption or login ----
    // The options as "SMTPOptions" holds them now (off when the file is missing).
    SmtpOptions smtpOptions();
    core::WriteResult saveSmtpOptions(const SmtpOptions& options);
    // The settings of one send to server: the stored options, this computer's name and, when a
    // user is set, the password from the secret store. done(security, failure) runs once;
    // failure is empty when security can be used, else it says why not (passwordNotReadText).
    void smtpSecurity(const QString& server, std::function<void(const SmtpSecurity&, const QString& failure)> done);
    // Why the password of user could not be read: no store, locked, no answer in time, no
    // entry, or the store's own words (text).
    static QString passwordNotReadText(const QString& user, platform::SecretStore::Status status,
                                       const QString& text = {});
    // Keeps fingerprint as the accepted certificate of the stored options.
    void rememberCertificate(const QByteArray& fingerprint);
    // The certificate server showed when a send refused it (in this run), offered by the
    // options dialog for acceptance; empty when none was refused since the last acceptance.
    void rememberRefusedCertificate(const QString& server, const QByteArray& fingerprint);
    QByteArray refusedCertificate(const QString& server) const;

    // The message shown when no secret store runs on this desktop.
    static const QString kNoSecretStore;

    // ---- alert mail that cannot go out ----
    // Whether e-mail is switched off: neither "MailProfile" nor "SMTPServer" is stored.
    bool mailSwitchedOff();
    // The job-log line of an alert mail that was not sent, and why.
    static QString notSentLine(const QString& address, const QString& why);
    static inline const QString kMailOff =
        QStringLiteral("the Email function is switched off (Email Options, Set Email Options)");

signals:
    void setupAlertHideRequested();
    // Hourglass (true) and normal pointer (false) on the alert window while an alert mail goes out.
    void alertBusyChanged(bool busy);

private:
    core::RunState& state_;
    QWidget* windowParent_;
    QPointer<SmtpMailWindow> form7_;
    QPointer<ProfileMailWindow> form8_;
    QPointer<EmailOptionsDialog> dialog_;
    QString refusedServer_;
    QByteArray refusedFingerprint_;
};

} // namespace velmora::actions
