#include "actions/mailing.h"

#include "actions/alertmail.h"
#include "actions/dispatcher.h"
#include "actions/emailoptionsdialog.h"
#include "actions/netsend.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"
#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "joblog/joblog.h"

#include <QWidget>

namespace velmora::actions {

using platform::MsgIcon;

Mailing::Mailing(core::RunState& state, QWidget* windowParent, QObject* parent)
    : QObject(parent), state_(state), windowParent_(windowParent)
{
    smtpText = [this] {
        const AlertMail m = AlertMail::fromState(state_, state_.platform.clock->now());
        return MailText{m.smtpSubject(), m.smtpBody()};
    };
    mapiText = [this] {
        const AlertMail m = AlertMail::fromState(state_, state_.platform.clock->now());
        return MailText{m.profileSubject(), m.profileBody()};
    };
}

Mailing::~Mailing()
{
    delete form7_.data();
    delete form8_.data();
    delete dialog_.data();
}

QString Mailing::folder()
{
    if (datafolder) {
        const QString f = datafolder();
        if (!f.isEmpty())
            state_.datafolder = f;
    }
    return state_.datafolder;
}

QString Mailing::file(const QString& name) { return core::dataFile(folder(), name); }

std::optional<QString> Mailing::firstLine(const QString& name)
{
    const auto lines = state_.platform.files->readLines(file(name), true);
    if (!lines)
        return std::nullopt;
    return lines->isEmpty() ? QString() : lines->first();
}

bool Mailing::log(const QString& line)
{
    if (appendjobline)
        return appendjobline(line);
    const core::FixedDataFolder data(folder());
    return joblog::JobLog(state_.platform, data).appendjobline(line);
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

void Mailing::sendemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done)
{
    form7()->sendemail(emailaddress, text, std::move(done));
}

void Mailing::subemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done)
{
    // Without a profile file there is nothing to send with: the dispatch of this service ends,
    // with a line that says so.
    const QString path = file(core::files::mailprofile);
    if (!state_.platform.files->exists(path)) {
        log(notSentLine(trimBlanks(emailaddress), QStringLiteral("the mail profile file is missing")));
        if (done)
            done(false);
        return;
    }
    state_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
    state_.platform.profilemail->send(this, state_.mailprofile, emailaddress, text.subject, text.body,
                                      [this, emailaddress, done](const platform::MailResult& r) {
                                          if (r.ok())
                                              log(QStringLiteral("Email sent to: ") + emailaddress);
                                          else
                                              log(QStringLiteral("Error on sending Email: ") + r.description);
                                          if (done)
                                              done(true);
                                      });
}

void Mailing::netsend(const QString& recipient, bool test, std::function<void(bool)> done)
{
    const QString to = trimBlanks(recipient);
    const QString message = netsendMessage(state_.currentserver, state_.currentservice, state_.currentstate);
    state_.platform.messenger->send(this, to, message, [this, to, test, done](int code) {
        const QString line = netsendResultLine(code, to);
        const bool logged = log(line);
        state_.netsendresult = line;
        if (test)
            state_.platform.boxes->show(line, MsgIcon::Information);
        if (done)
            done(logged);
    });
}

void Mailing::connectTo(ActionDispatcher& dispatcher)
{
    dispatcher.sendemail = [this](QString& address, ActionDispatcher::Continue cont) {
        address = trimBlanks(address);
        if (mailSwitchedOff()) {
            cont(log(notSentLine(address, kMailOff)));
            return;
        }
        const MailText text = smtpText ? smtpText() : MailText{};
        // The SMTP transport handles its own failures: the dispatch always goes on.
        sendemail(address, text, [cont](bool) { cont(true); });
    };
    dispatcher.subemail = [this](QString& address, ActionDispatcher::Continue cont) {
        if (mailSwitchedOff()) {
            cont(log(notSentLine(trimBlanks(address), kMailOff)));
            return;
        }
        const MailText text = mapiText ? mapiText() : MailText{};
        subemail(address, text, [cont](bool goesOn) { cont(goesOn); });
    };
    dispatcher.netsend = [this](QString& recipient, bool test, ActionDispatcher::Continue cont) {
        recipient = trimBlanks(recipient);
        netsend(recipient, test, [cont](bool logged) { cont(logged); });
    };
}

const QString Mailing::kNoSecretStore = QStringLiteral(
    "No secret store is running on this desktop, so the SMTP password can neither be kept nor read.\n"
    "Start the desktop's keyring (GNOME Keyring or KWallet) and enter the password again.");

SmtpOptions Mailing::smtpOptions() { return readSmtpOptions(*state_.platform.files, file(kSmtpOptionsFile)); }

core::WriteResult Mailing::saveSmtpOptions(const SmtpOptions& options)
{
    return writeSmtpOptions(*state_.platform.files, file(kSmtpOptionsFile), options);
}

void Mailing::smtpSecurity(const QString& server,
                           std::function<void(const SmtpSecurity&, const QString& failure)> done)
{
    const SmtpOptions options = smtpOptions();
    const QString name = state_.platform.system ? state_.platform.system->fullyQualifiedName() : QString();
    SmtpSecurity security = securityFor(options, name.isEmpty() ? QStringLiteral("localhost") : name);
    if (!security.on || security.user.isEmpty()) {
        done(security, {});
        return;
    }
    platform::SecretStore* store = state_.platform.secrets;
    if (!store) {
        done(security, passwordNotReadText(security.user, platform::SecretStore::Status::NoStore));
        return;
    }
    // A read never waits on an unlock prompt and ends within a few seconds, so a scan that
    // sends this mail goes on with its other actions and services whatever the store does.
    store->read(this, smtpPasswordKey(server, security.user), [security, done](const platform::SecretStore::Result& r) mutable {
        if (r.ok())
            security.password = r.secret;
        done(security, r.ok() ? QString() : passwordNotReadText(security.user, r.status, r.text));
    });
}

QString Mailing::passwordNotReadText(const QString& user, platform::SecretStore::Status status, const QString& text)
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

void Mailing::rememberRefusedCertificate(const QString& server, const QByteArray& fingerprint)
{
    refusedServer_ = server.trimmed();
    refusedFingerprint_ = fingerprint;
}

QByteArray Mailing::refusedCertificate(const QString& server) const
{
    return server.trimmed().compare(refusedServer_, Qt::CaseInsensitive) == 0 ? refusedFingerprint_ : QByteArray();
}

void Mailing::rememberCertificate(const QByteArray& fingerprint)
{
    refusedFingerprint_.clear();
    SmtpOptions options = smtpOptions();
    if (!options.acceptCertificate)
        return;
    options.fingerprint = fingerprint;
    saveSmtpOptions(options);
}

bool Mailing::mailSwitchedOff()
{
    platform::TextFiles& files = *state_.platform.files;
    return !files.exists(file(core::files::mailprofile)) && !files.exists(file(core::files::smtpserver));
}

QString Mailing::notSentLine(const QString& address, const QString& why)
{
    return QStringLiteral("Email to ") + address + QStringLiteral(" not sent: ") + why;
}

void Mailing::checkmailprofile()
{
    if (!state_.platform.files->exists(file(core::files::mailprofile)))
        return;
    state_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
    state_.usesmtp = false;
    const platform::MailResult r = state_.platform.profilemail->logon(state_.mailprofile);
    // Only the mail system's own errors are shown; no mail client at all passes silently.
    if (r.number < 0)
        state_.platform.boxes->show(QStringLiteral("Error : ") + r.description + QStringLiteral("\n\r\n\r"),
                                    MsgIcon::Critical);
}

void Mailing::refreschmailsettings()
{
    platform::TextFiles& files = *state_.platform.files;
    if (files.exists(file(core::files::mailprofile))) {
        state_.mailprofile = firstLine(core::files::mailprofile).value_or(QString());
        state_.usesmtp = false;
    }
    if (files.exists(file(core::files::smtpserver))) {
        const core::SmtpSettings smtp = core::readSmtpSettings(files, file(core::files::smtpserver));
        state_.smtpserver = smtp.server;
        state_.smtpport = smtp.port;
        state_.smtpsender = smtp.sender;
        state_.usesmtp = true;
    }
}

} // namespace velmora::actions
