#pragma once
// Simulated profile mail and network messages: record what the program sends and answer with
// scripted results. Completions are immediate unless held.
#include "platform/netmessenger.h"
#include "platform/profilemail.h"

#include <QList>
#include <QPointer>
#include <QStringList>
#include <functional>

namespace velmora::platform::sim {

// Completions that run at once, or wait for release() while hold is set.
class HeldCompletions {
public:
    // Runs done(result) on the context's thread, unless the context is gone by then.
    template <typename Result>
    void complete(QObject* context, std::function<void(Result)> done, Result result)
    {
        QPointer<QObject> guard(context);
        auto finish = [guard, done = std::move(done), result] {
            if (guard)
                done(result);
        };
        if (hold)
            held_.append(finish);
        else
            finish();
    }
    // Completes the held ones, oldest first.
    void release()
    {
        const auto pending = held_;
        held_.clear();
        for (const auto& f : pending)
            f();
    }
    int pending() const { return int(held_.size()); }

    bool hold = false; // keep completions until release()

private:
    QList<std::function<void()>> held_;
};

class SimProfileMail : public ProfileMail, public HeldCompletions {
public:
    struct Mail {
        QString profile, recipient, subject, body;
    };
    MailResult logon(const QString& profile) override
    {
        ++logons;
        if (!installed)
            return {mailerror::noMailClient, QStringLiteral("No mail client is installed.")};
        if (!profiles.contains(profile))
            return {mailerror::logonFailed, QStringLiteral("The profile %1 does not exist.").arg(profile)};
        return {};
    }
    void send(QObject* context, const QString& profile, const QString& recipient, const QString& subject,
              const QString& body, std::function<void(MailResult)> done) override
    {
        MailResult r = logon(profile);
        if (r.ok() && !recipient.contains(QLatin1Char('@')))
            r = {mailerror::recipientUnresolved, QStringLiteral("The recipient could not be resolved.")};
        if (r.ok() && !send_result.ok())
            r = send_result;
        if (r.ok())
            sent.append({profile, recipient, subject, body});
        complete(context, std::move(done), r);
    }

    QStringList profiles;     // the profiles a logon finds
    bool installed = true;    // false: no mail client at all
    MailResult send_result;   // what a send answers after a good logon and recipient
    QList<Mail> sent;
    int logons = 0;
};

class SimNetMessenger : public NetMessenger, public HeldCompletions {
public:
    struct Message {
        QString recipient, text;
    };
    void send(QObject* context, const QString& recipient, const QString& text,
              std::function<void(int)> done) override
    {
        sent.append({recipient, text});
        complete(context, std::move(done), result);
    }

    int result = 0;      // the code every send answers
    QList<Message> sent;
};

} // namespace velmora::platform::sim
