#include "actions/alertmailer.h"

#include "actions/alertmail.h"
#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "joblog/joblog.h"
#include "platform/messageboxes.h"
#include "platform/profilemail.h"
#include "platform/system.h"
#include "platform/tcpsocket.h"
#include "platform/textfiles.h"

#include <QPointer>

namespace velmora::actions {

namespace {
const QString kVelmora = QStringLiteral("Velmora");
}

AlertMailer::AlertMailer(platform::TextFiles& files, platform::SecretStore* secrets, platform::SystemInfo* system,
                         platform::Clock& clock, platform::TcpNetwork& network,
                         platform::ProfileMail& profilemail, platform::MessageBoxes& boxes, joblog::JobLog& log,
                         const QString& dataFolder, QObject* parent)
    : QObject(parent), files_(files), secrets_(secrets), system_(system), clock_(clock), profilemail_(profilemail),
      boxes_(boxes), log_(log), dataFolder_(dataFolder)
{
    // Its 16 ticks are the time a server gets to answer; they must not add up to less.
    platform::Timer* timer1 =
        clock.createTimer(this, QStringLiteral("Timer1"), 1000, platform::Precision::Precise);
    platform::TcpSocket* winsock1 = network.createSocket(this, QStringLiteral("Winsock1"));
    client_ = new SmtpClient(winsock1, timer1, clock, this);
    connect(client_, &SmtpClient::logLine, this, [this](const QString& line) {
        ++linesLogged_;
        this->log(line);
    });
    connect(client_, &SmtpClient::statusChanged, this, &AlertMailer::statusChanged);
    connect(client_, &SmtpClient::certificateAccepted, this, &AlertMailer::rememberCertificate);
    connect(client_, &SmtpClient::certificateRefused, this, &AlertMailer::rememberRefusedCertificate);
}

QString AlertMailer::file(const QString& name) const { return core::dataFile(dataFolder_, name); }

std::optional<QString> AlertMailer::firstLine(const QString& name)
{
    const auto lines = files_.readLines(file(name), true);
    if (!lines)
        return std::nullopt;
    return lines->isEmpty() ? QString() : lines->first();
}

bool AlertMailer::log(const QString& line) { return log_.appendjobline(line); }

void AlertMailer::sendalert(const core::Failure& failure, ActionResults& results, Continue cont)
{
    const bool smtp = settings_.usesmtp;
    if (smtp)
        results.mailaddress = trimBlanks(results.mailaddress);
    if (mailSwitchedOff()) {
        cont(log(notSentLine(trimBlanks(results.mailaddress), kMailOff)));
        return;
    }
    const AlertMail mail = AlertMail::of(failure, results, clock_.now());
    if (smtp)
        // The SMTP transport handles its own failures: the dispatch always goes on.
        sendemail(results.mailaddress, {mail.smtpSubject(), mail.smtpBody()}, [cont](bool) { cont(true); });
    else
        subemail(results.mailaddress, {mail.profileSubject(), mail.profileBody()}, std::move(cont));
}

void AlertMailer::dialogue(const SmtpMail& mail, bool withStatus, Continue done)
{
    connect(client_, &SmtpClient::finished, this, [done](bool ok) { done(ok); }, Qt::SingleShotConnection);
    client_->send(mail, withStatus);
}

void AlertMailer::withSecurity(const QString& server, std::function<void(const SmtpSecurity&)> send,
                               std::function<void(const QString&)> failed)
{
    preparing_ = true;
    smtpSecurity(server, [this, send, failed](const SmtpSecurity& security, const QString& failure) {
        preparing_ = false;
        if (failure.isEmpty())
            send(security);
        else
            failed(failure);
    });
}

void AlertMailer::sendemail(const QString& emailaddress, const MailText& text, Continue done)
{
    const QString address = trimBlanks(emailaddress);
    if (busy()) {
        // Nothing is sent; the job log says so, as the alert would otherwise vanish.
        log(notSentLine(address, QStringLiteral("another email is being sent")));
        done(false);
        return;
    }
    emit alertBusyChanged(true);
    SmtpMail mail{settings_.smtpserver, settings_.smtpport, kVelmora, settings_.smtpsender, address, kVelmora,
                  text.subject, text.body, {}};
    const int linesBefore = linesLogged_;
    auto finished = [this, address, done, linesBefore](bool ok) {
        if (ok)
            log(QStringLiteral("Email sent to ") + address);
        else if (linesLogged_ == linesBefore)
            // The dialogue ended on a socket that refused to send (the connection was gone or
            // still open from before) without a line of its own.
            log(SmtpClient::kFailurePrefix + QStringLiteral("the connection to ") + settings_.smtpserver +
                QStringLiteral(" was lost"));
        emit alertBusyChanged(false);
        done(ok);
    };
    withSecurity(
        settings_.smtpserver,
        [this, mail, finished](const SmtpSecurity& security) mutable {
            mail.security = security;
            dialogue(mail, false, finished);
        },
        [this, finished](const QString& failure) {
            ++linesLogged_;
            log(SmtpClient::kFailurePrefix + failure);
            finished(false);
        });
}

void AlertMailer::sendtestmail(const QString& server, int port, const QString& sendername,
                               const QString& senderaddress, const QString& recipientaddress, const QString& subject,
                               const QString& body, std::function<void(bool, const QString&)> done)
{
    if (busy()) {
        done(false, {});
        return;
    }
    SmtpMail mail{server, 25, sendername, senderaddress, recipientaddress, QStringLiteral("Brisken"), subject, body, {}};
    withSecurity(
        server,
        [this, mail, port, done](const SmtpSecurity& security) mutable {
            mail.security = security;
            // A server that needs more than the classic dialogue often listens elsewhere
            // (465, 587): the port counts then.
            if (security.on && port > 0)
                mail.port = port;
            dialogue(mail, true, [this, done](bool ok) {
                // The second dialogue says why; the classic one keeps its single text.
                const QString& error = client_->lastError();
                done(ok, ok || error.isEmpty() ? QString() : error.mid(SmtpClient::kFailurePrefix.size()));
            });
        },
        [this, done](const QString& failure) {
            log(SmtpClient::kFailurePrefix + failure);
            emit statusChanged(QString());
            done(false, failure);
        });
}

void AlertMailer::subemail(const QString& emailaddress, const MailText& text, Continue done)
{
    // Without a profile file there is nothing to send with: the dispatch of this service ends,
    // with a line that says so.
    if (!files_.exists(file(core::files::mailprofile))) {
        log(notSentLine(trimBlanks(emailaddress), QStringLiteral("the mail profile file is missing")));
        done(false);
        return;
    }
    settings_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
    profilemail_.send(this, settings_.mailprofile, emailaddress, text.subject, text.body,
                      [this, emailaddress, done](const platform::MailResult& r) {
                          if (r.ok())
                              log(QStringLiteral("Email sent to: ") + emailaddress);
                          else
                              log(QStringLiteral("Error on sending Email: ") + r.description);
                          done(true);
                      });
}

const QString AlertMailer::kNoSecretStore = QStringLiteral(
    "No secret store is running on this desktop, so the SMTP password can neither be kept nor read.\n"
    "Start the desktop's keyring (GNOME Keyring or KWallet) and enter the password again.");

SmtpOptions AlertMailer::smtpOptions() { return readSmtpOptions(files_, file(kSmtpOptionsFile)); }

core::WriteResult AlertMailer::saveSmtpOptions(const SmtpOptions& options)
{
    return writeSmtpOptions(files_, file(kSmtpOptionsFile), options);
}

void AlertMailer::smtpSecurity(const QString& server,
                               std::function<void(const SmtpSecurity&, const QString& failure)> done)
{
    const SmtpOptions options = smtpOptions();
    const QString name = system_ ? system_->fullyQualifiedName() : QString();
    SmtpSecurity security = securityFor(options, name.isEmpty() ? QStringLiteral("localhost") : name);
    if (!security.on || security.user.isEmpty()) {
        done(security, {});
        return;
    }
    if (!secrets_) {
        done(security, passwordNotReadText(security.user, platform::SecretStore::Status::NoStore));
        return;
    }
    // A read never waits on an unlock prompt and ends within a few seconds, so a scan that
    // sends this mail goes on with its other actions and services whatever the store does.
    secrets_->read(this, smtpPasswordKey(server, security.user),
                   [security, done](const platform::SecretStore::Result& r) mutable {
                       if (r.ok())
                           security.password = r.secret;
                       done(security, r.ok() ? QString() : passwordNotReadText(security.user, r.status, r.text));
                   });
}

QString AlertMailer::passwordNotReadText(const QString& user, platform::SecretStore::Status status, const QString& text)
{
    using S = platform::SecretStore::Status;
    switch (status) {
    case S::Ok:
    case S::Failed:
        break;
    case S::NotFound:
        return QStringLiteral("the secret store holds no entry for the password of %1; enter it in the Email Options")
            .arg(user);
    case S::NoStore:
        return QStringLiteral("no secret store is running, so the password of %1 cannot be read").arg(user);
    case S::Locked:
        return QStringLiteral("the secret store is locked, so the password of %1 was not read; unlock the keyring "
                              "and the next alert mail reads it")
            .arg(user);
    case S::TimedOut:
        return QStringLiteral("the secret store did not answer within %1 seconds, so the password of %2 was not read")
            .arg(platform::SecretStore::readTimeoutMs / 1000)
            .arg(user);
    }
    return QStringLiteral("the secret store did not give the password of %1: %2").arg(user, text);
}

void AlertMailer::rememberRefusedCertificate(const QString& server, const QByteArray& fingerprint)
{
    refusedServer_ = server.trimmed();
    refusedFingerprint_ = fingerprint;
}

QByteArray AlertMailer::refusedCertificate(const QString& server) const
{
    return server.trimmed().compare(refusedServer_, Qt::CaseInsensitive) == 0 ? refusedFingerprint_ : QByteArray();
}

void AlertMailer::rememberCertificate(const QByteArray& fingerprint)
{
    refusedFingerprint_.clear();
    SmtpOptions options = smtpOptions();
    if (!options.acceptCertificate)
        return;
    options.fingerprint = fingerprint;
    saveSmtpOptions(options);
}

bool AlertMailer::mailSwitchedOff()
{
    return !files_.exists(file(core::files::mailprofile)) && !files_.exists(file(core::files::smtpserver));
}

QString AlertMailer::notSentLine(const QString& address, const QString& why)
{
    return QStringLiteral("Email to ") + address + QStringLiteral(" not sent: ") + why;
}

void AlertMailer::checkmailprofile()
{
    if (files_.exists(file(core::files::mailprofile))) {
        settings_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
        settings_.usesmtp = false;
        const platform::MailResult r = profilemail_.logon(settings_.mailprofile);
        // Only the mail system's own errors are shown; no mail client at all passes silently.
        if (r.number < 0)
            boxes_.show(QStringLiteral("Error : ") + r.description + QStringLiteral("\n\r\n\r"),
                        platform::MsgIcon::Critical);
    }
    readSmtpServer();
}

void AlertMailer::refreschmailsettings()
{
    if (files_.exists(file(core::files::mailprofile))) {
        settings_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
        settings_.usesmtp = false;
    }
    readSmtpServer();
}

void AlertMailer::readSmtpServer()
{
    // A stored SMTP server wins over a mail profile read just before.
    if (!files_.exists(file(core::files::smtpserver)))
        return;
    const core::SmtpSettings smtp = core::readSmtpSettings(files_, file(core::files::smtpserver));
    settings_.smtpserver = smtp.server;
    settings_.smtpport = smtp.port;
    settings_.smtpsender = smtp.sender;
    settings_.usesmtp = true;
}

} // namespace velmora::actions
