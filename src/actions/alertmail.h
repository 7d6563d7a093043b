#pragma once
// The text of the alert mail that both mail transports send for a failed service: subject and
// body in the profile-mail form and in the SMTP form. The five result texts are taken as they
// stand when the mail is built, so a mail in the last action slot carries the results of every
// action before it, and one in an earlier slot the results left by earlier runs.
#include "actions/actionresults.h"

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QStringList>

namespace velmora::actions {

class AlertMail {
public:
    struct Results {
        QString restart, program, alert, netsend, sound;
    };

    // date and time are the texts the mail shows (the system's short date and its time);
    // journal, the failed unit's last journal lines, follow the body on lines of their own.
    AlertMail(QString server, QString service, QString state, QString date, QString time, Results results,
              QStringList journal = {});

    // The mail of failure (with its journal lines) with the five result texts as they stand,
    // dated at.
    static AlertMail of(const core::Failure& failure, const ActionResults& results, const QDateTime& at,
                        const QLocale& locale = QLocale::system());

    // Profile mail: "Service Status", two blanks, server, two blanks, service, two blanks, state.
    QString profileSubject() const;
    // Profile mail: five CR LF lines and an empty one, then the five results on lines of their
    // own, the last one without a line end.
    QString profileBody() const;
    // SMTP: "Service Status", one blank, server, one blank, service, one blank, state.
    QString smtpSubject() const;
    // SMTP: one line, the results each after two blanks.
    QString smtpBody() const;

    const QString& server() const { return server_; }
    const QString& service() const { return service_; }
    const QString& state() const { return state_; }

private:
    // An empty line and the journal lines after the body, nothing without any.
    QString journalPart() const;

    QString server_, service_, state_, date_, time_;
    Results results_;
    QStringList journal_;
};

} // namespace velmora::actions
