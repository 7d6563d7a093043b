#pragma once
// Simulated credentials prompt: answers from a script and records every question.
#include "platform/credentialsprompt.h"

#include <QStringList>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace velmora::platform::sim {

class SimCredentialsPrompt : public CredentialsPrompt {
public:
    // The answers, used up in order; a question with none left is cancelled (credentials) or
    // answered "no" (trust).
    std::deque<std::optional<Credentials>> credentials;
    std::deque<bool> trust;
    // While hold is set, questions wait in held until answerHeld().
    bool hold = false;
    std::vector<std::function<void()>> held;

    // What was asked, in order: "credentials SERVER USER" (+ " refused"), "trust SERVER TYPE
    // FINGERPRINT", "changed SERVER TYPE FINGERPRINT".
    QStringList asked;
    std::vector<HostKey> keys; // the host keys of the trust and changed entries, in order

    void askCredentials(Logon, const QString& server, const QString& user, bool refused,
                        std::function<void(std::optional<Credentials>)> answer) override
    {
        asked << QStringLiteral("credentials %1 %2%3").arg(server, user, refused ? QStringLiteral(" refused") : QString());
        std::optional<Credentials> given;
        if (!credentials.empty()) {
            given = credentials.front();
            credentials.pop_front();
        }
        reply([answer = std::move(answer), given] { answer(given); });
    }
    void askTrust(const HostKey& key, std::function<void(bool)> answer) override
    {
        asked << QStringLiteral("trust %1 %2 %3").arg(key.server, key.type, key.fingerprint);
        keys.push_back(key);
        bool yes = false;
        if (!trust.empty()) {
            yes = trust.front();
            trust.pop_front();
        }
        reply([answer = std::move(answer), yes] { answer(yes); });
    }
    void hostKeyChanged(const HostKey& key) override
    {
        asked << QStringLiteral("changed %1 %2 %3").arg(key.server, key.type, key.fingerprint);
        keys.push_back(key);
    }

    // Gives the held answers, in the order they were asked.
    void answerHeld()
    {
        auto answers = std::move(held);
        held.clear();
        for (auto& a : answers)
            a();
    }

private:
    void reply(std::function<void()> a)
    {
        if (hold)
            held.push_back(std::move(a));
        else
            a();
    }
};

} // namespace velmora::platform::sim
