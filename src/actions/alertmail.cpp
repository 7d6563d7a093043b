#include "actions/alertmail.h"

#include "core/timestamps.h"
#include "joblog/joblog.h"

namespace velmora::actions {

namespace {
const QString crlf = QStringLiteral("\r\n");
}

AlertMail::AlertMail(QString server, QString service, QString state, QString date, QString time, Results results,
                     QStringList journal)
    : server_(std::move(server)), service_(std::move(service)), state_(std::move(state)), date_(std::move(date)),
      time_(std::move(time)), results_(std::move(results)), journal_(std::move(journal))
{
}

QString AlertMail::journalPart() const
{
    return journal_.isEmpty() ? QString() : crlf + crlf + journal_.join(crlf);
}

AlertMail AlertMail::of(const core::Failure& failure, const ActionResults& r, const QDateTime& at,
                        const QLocale& locale)
{
    return AlertMail(failure.server, failure.service(), failure.state, core::dateText(at), joblog::timeText(at, locale),
                     {r.restart, r.program, r.alert, r.netsend, r.sound}, failure.journal);
}

QString AlertMail::profileSubject() const
{
    return QStringLiteral("Service Status  ") + server_ + QStringLiteral("  ") + service_ + QStringLiteral("  ") +
           state_;
}

QString AlertMail::profileBody() const
{
    return QStringLiteral("Velmora has noticed that") + crlf + QStringLiteral("on: ") + date_ +
           QStringLiteral("  at: ") + time_ + crlf + QStringLiteral("the Service:  ") + service_ + crlf +
           QStringLiteral("on Computer: ") + server_ + QStringLiteral(" is ") + state_ + QStringLiteral(".") + crlf +
           crlf + results_.restart + crlf + results_.program + crlf + results_.alert + crlf + results_.netsend + crlf +
           results_.sound + journalPart();
}

QString AlertMail::smtpSubject() const
{
    return QStringLiteral("Service Status ") + server_ + QLatin1Char(' ') + service_ + QLatin1Char(' ') + state_;
}

QString AlertMail::smtpBody() const
{
    const QString two = QStringLiteral("  ");
    return QStringLiteral("Velmora has noticed that on: ") + date_ + QStringLiteral("  at: ") + time_ +
           QStringLiteral("   the Service:  ") + service_ + QStringLiteral("  on Computer: ") + server_ +
           QStringLiteral(" is ") + state_ + two + results_.restart + two + results_.program + two + results_.alert +
           two + results_.netsend + two + results_.sound + journalPart();
}

} // namespace velmora::actions
