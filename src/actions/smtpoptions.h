#pragma once
// The settings of the SMTP dialogue for servers that need a name, encryption or login, kept in
// "SMTPOptions" in the data folder beside "SMTPServer" (whose three lines stay as they are).
// One "key=value" line each: modern (0 or 1), user, tls (starttls, tls or none),
// acceptcertificate (0 or 1) and fingerprint (SHA-256 hex of the accepted certificate). The
// password is never in the file: it lives in the desktop's secret store under
// smtpPasswordKey().
#include "actions/smtpclient.h"
#include "core/writeresult.h"

#include "core/datafolder.h"

#include <QString>

namespace velmora::platform { class TextFiles; }

namespace velmora::actions {

struct SmtpOptions {
    bool on = false;
    QString user;
    SmtpTls tls = SmtpTls::StartTls;
    bool acceptCertificate = false;
    QByteArray fingerprint;
    bool operator==(const SmtpOptions&) const = default;
};

inline const QString kSmtpOptionsFile = core::files::smtpoptions;

// The options of path; a missing or unreadable file reads as off.
SmtpOptions readSmtpOptions(platform::TextFiles& files, const QString& path);
core::WriteResult writeSmtpOptions(platform::TextFiles& files, const QString& path, const SmtpOptions& options);

// The secret store's key of the password of user on server.
QString smtpPasswordKey(const QString& server, const QString& user);

// The settings for one send: everything but the password.
SmtpSecurity securityFor(const SmtpOptions& options, const QString& heloName);

} // namespace velmora::actions
