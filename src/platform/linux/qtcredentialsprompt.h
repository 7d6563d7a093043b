#pragma once
#include "platform/credentialsprompt.h"

namespace velmora::platform {

// The credentials prompt as dialogs of the desktop: a log-on dialog with user name and
// password, a question box with the host key's fingerprint, a warning box for a changed host
// key. Each is application-modal but does not block the caller: the answer comes from the event
// loop when the user has closed it.
class QtCredentialsPrompt : public CredentialsPrompt {
public:
    void askCredentials(Logon logon, const QString& server, const QString& user, bool refused,
                        std::function<void(std::optional<Credentials>)> answer) override;
    void askTrust(const HostKey& key, std::function<void(bool trust)> answer) override;
    void hostKeyChanged(const HostKey& key) override;
};

} // namespace velmora::platform
