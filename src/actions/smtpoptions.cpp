#include "actions/smtpoptions.h"

#include "platform/textfiles.h"

namespace velmora::actions {

namespace {

QString tlsName(SmtpTls tls)
{
    switch (tls) {
    case SmtpTls::Implicit: return QStringLiteral("tls");
    case SmtpTls::None: return QStringLiteral("none");
    case SmtpTls::StartTls: break;
    }
    return QStringLiteral("starttls");
}

} // namespace

SmtpOptions readSmtpOptions(platform::TextFiles& files, const QString& path)
{
    SmtpOptions o;
    const auto lines = files.readLines(path, true);
    if (!lines)
        return o;
    for (const QString& line : *lines) {
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq < 0)
            continue;
        const QString key = line.left(eq).trimmed().toLower();
        const QString value = line.mid(eq + 1);
        if (key == QLatin1String("modern"))
            o.on = value.trimmed() == QLatin1String("1");
        else if (key == QLatin1String("user"))
            o.user = value;
        else if (key == QLatin1String("tls"))
            o.tls = value.trimmed() == QLatin1String("tls")    ? SmtpTls::Implicit
                    : value.trimmed() == QLatin1String("none") ? SmtpTls::None
                                                               : SmtpTls::StartTls;
        else if (key == QLatin1String("acceptcertificate"))
            o.acceptCertificate = value.trimmed() == QLatin1String("1");
        else if (key == QLatin1String("fingerprint"))
            o.fingerprint = value.trimmed().toLatin1().toLower();
    }
    return o;
}

core::WriteResult writeSmtpOptions(platform::TextFiles& files, const QString& path, const SmtpOptions& o)
{
    return core::writeFile(files, path, {
                                      QStringLiteral("modern=") + (o.on ? QLatin1Char('1') : QLatin1Char('0')),
                                      QStringLiteral("user=") + o.user,
                                      QStringLiteral("tls=") + tlsName(o.tls),
                                      QStringLiteral("acceptcertificate=")
                                          + (o.acceptCertificate ? QLatin1Char('1') : QLatin1Char('0')),
                                      QStringLiteral("fingerprint=") + QString::fromLatin1(o.fingerprint),
                                  });
}

QString smtpPasswordKey(const QString& server, const QString& user)
{
    return QStringLiteral("smtp:") + user + QLatin1Char('@') + server.trimmed().toLower();
}

SmtpSecurity securityFor(const SmtpOptions& o, const QString& heloName)
{
    SmtpSecurity s;
    s.on = o.on;
    s.heloName = heloName;
    s.tls = o.tls;
    s.user = o.user;
    s.acceptedFingerprint = o.acceptCertificate ? o.fingerprint : QByteArray();
    s.acceptNextCertificate = o.acceptCertificate && o.fingerprint.isEmpty();
    return s;
}

} // namespace velmora::actions
