#pragma once
// Profile mail through msmtp accounts.
#include "platform/profilemail.h"

#include <QStringList>

namespace velmora::platform {

class MsmtpMail : public ProfileMail {
public:
    MailResult logon(const QString& profile) override;
    void send(QObject* context, const QString& profile, const QString& recipient, const QString& subject,
              const QString& body, std::function<void(MailResult)> done) override;

    // The msmtp program: a name looked up on PATH, or a path.
    QString program = QStringLiteral("msmtp");
    // A configuration file to use instead of the user's own (~/.msmtprc, else
    // $XDG_CONFIG_HOME/msmtp/config) and the system's (/etc/msmtprc).
    QString config;
    // How long one send may take before msmtp is stopped and the send counts as failed.
    int timeout_ms = 120000;

    // The account names a configuration text defines, in file order.
    static QStringList accountsIn(const QString& configText);
    // The message handed to msmtp: headers (the subject encoded when it is not plain ASCII)
    // and the body with LF line ends.
    static QByteArray messageText(const QString& recipient, const QString& subject, const QString& body);
    // Whether text is a single mail address that msmtp can deliver to (local@domain).
    static bool usableAddress(const QString& address);

private:
    QStringList configFiles() const;
    QString executable() const;
};

} // namespace velmora::platform
