#pragma once
// The alert mail of the "Send Email to:" action, over SMTP or through the mail profile, and the
// test mail of the SMTP test window: one SMTP client (its socket Winsock1 and reply timer
// Timer1) that both share, with one sending flag. It needs no window: the test windows are views
// that call it.
//
// Every send is asynchronous and ends in a completion, so that the action dispatcher starts the
// next action only when the mail has written its job-log line.
#include "actions/actionresults.h"
#include "actions/mailtypes.h"
#include "actions/smtpclient.h"
#include "actions/smtpoptions.h"
#include "platform/secretstore.h"

#include <QObject>
#include <optional>

namespace velmora::platform {
class MessageBoxes;
class ProfileMail;
class SystemInfo;
class TcpNetwork;
class TextFiles;
}
namespace velmora::joblog { class JobLog; }

namespace velmora::actions {

// The mail settings from "MailProfile" and "SMTPServer".
struct MailSettings {
    QString smtpserver;
    int smtpport = 0;
    QString smtpsender;
    QString mailprofile;
    bool usesmtp = true; // SMTP (true) or the mail profile
};

class AlertMailer : public QObject {
    Q_OBJECT
public:
    // dataFolder is the session's data folder (read at every use: it is chosen at start-up).
    // secrets and system may be null (no secret store; "localhost" as this computer's name).
    AlertMailer(platform::TextFiles& files, platform::SecretStore* secrets, platform::SystemInfo* system,
                platform::Clock& clock, platform::TcpNetwork& network, platform::ProfileMail& profilemail,
                platform::MessageBoxes& boxes, joblog::JobLog& log, const QString& dataFolder,
                QObject* parent = nullptr);

    MailSettings& settings() { return settings_; }
    SmtpClient& client() { return *client_; }
    // Whether an SMTP mail is on its way: being sent, or waiting for its password.
    bool busy() const { return preparing_ || client_->sending(); }

    // The "Send Email to:" action for failure: to results.mailaddress (trimmed in place for
    // SMTP), over SMTP or the mail profile as the settings say, with the alert mail text of
    // failure and results as they stand now. cont(false) ends the dispatch of this service: the
    // line could not be written, or there is no mail profile file.
    void sendalert(const core::Failure& failure, ActionResults& results, Continue cont);

    // The alert mail over SMTP to the configured server and port. done(true) when the whole
    // dialogue succeeded; done(false) at once, with a job-log line, while a mail is being sent.
    void sendemail(const QString& emailaddress, const MailText& text, Continue done);
    // The alert mail through the mail profile. done(true): the dispatch goes on (the outcome is
    // in the job log); done(false): there is no mail profile file, and the dispatch ends.
    void subemail(const QString& emailaddress, const MailText& text, Continue done);
    // The test mail: to server on port 25 (port, when the stored options are on), progress
    // through statusChanged(). done(ok, why): why the send failed, when it is known.
    void sendtestmail(const QString& server, int port, const QString& sendername, const QString& senderaddress,
                      const QString& recipientaddress, const QString& subject, const QString& body,
                      std::function<void(bool ok, const QString& why)> done);

    // Start-up: reads the mail profile, switches to profile mail and tries a logon (a failure of
    // the mail system is shown in a box); then a stored SMTP server wins over the profile.
    void checkmailprofile();
    // Reloads the mail settings from "MailProfile" and "SMTPServer".
    void refreschmailsettings();

    QString file(const QString& name) const;
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
    // An alert mail goes out (true) or is done (false).
    void alertBusyChanged(bool busy);
    // A progress text of the test mail (empty: cleared).
    void statusChanged(const QString& text);

private:
    // Reads the stored options (and the password) for a send to server, then runs send with
    // them; with a failure, runs failed with its text instead.
    void withSecurity(const QString& server, std::function<void(const SmtpSecurity&)> send,
                      std::function<void(const QString&)> failed);
    void readSmtpServer();
    // Sends mail with the client; done(ok) when the dialogue has ended.
    void dialogue(const SmtpMail& mail, bool withStatus, Continue done);

    platform::TextFiles& files_;
    platform::SecretStore* secrets_;
    platform::SystemInfo* system_;
    const platform::Clock& clock_;
    platform::ProfileMail& profilemail_;
    platform::MessageBoxes& boxes_;
    joblog::JobLog& log_;
    const QString& dataFolder_;
    MailSettings settings_;
    SmtpClient* client_ = nullptr;
    bool preparing_ = false;
    int linesLogged_ = 0; // job-log lines written by sends so far
    QString refusedServer_;
    QByteArray refusedFingerprint_;
};

} // namespace velmora::actions
