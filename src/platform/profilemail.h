#pragma once
// Mail through a named profile of the machine's own mail system. On Linux a profile is an
// account of msmtp, the sendmail-compatible client administrators configure for scripts: the
// profile name is the account name, "logging on" means the account exists in the user's msmtp
// configuration, and a mail is handed to "msmtp --account=NAME -t".
//
// Failures come back as a number and a text, as the classic messaging session raised them:
// negative numbers are the messaging system's own errors, positive ones mean that no mail
// client could be used at all.
#include <QObject>
#include <QString>
#include <functional>

namespace velmora::platform {

struct MailResult {
    int number = 0;      // 0: success
    QString description; // the mail system's own words, one line
    bool ok() const { return number == 0; }
};

namespace mailerror {
inline constexpr int noMailClient = 429;                           // msmtp is not installed
inline constexpr int logonFailed = int(0x80040111u);              // no such profile (account)
inline constexpr int recipientUnresolved = int(0x80040700u);      // not a usable mail address
inline constexpr int callFailed = int(0x80004005u);               // the send failed
} // namespace mailerror

class ProfileMail {
public:
    virtual ~ProfileMail() = default;
    // Whether a session can be opened with profile (compared exactly, blanks included).
    virtual MailResult logon(const QString& profile) = 0;
    // Sends one plain-text mail to recipient through profile. The body's lines may end in LF
    // or CR LF. done runs once on the user-interface thread, unless context is gone by then.
    virtual void send(QObject* context, const QString& profile, const QString& recipient,
                      const QString& subject, const QString& body,
                      std::function<void(MailResult)> done) = 0;
};

} // namespace velmora::platform
