#pragma once
// What a connection asks of the user while it logs on: a user name and password when the server
// takes neither a key nor the agent, whether to trust a server's host key seen for the first
// time, and the news that a server's host key has changed (the connection is refused then).
//
// Questions come one at a time, on the user-interface thread; an answer may come later, from the
// event loop (a dialog that is open while the program goes on), but it must come once.
#include <QString>
#include <functional>
#include <optional>

namespace velmora::platform {

class CredentialsPrompt {
public:
    struct Credentials {
        QString user;
        QString password;
    };
    struct HostKey {
        QString server;
        QString type;        // "ED25519", "ECDSA", "RSA"...
        QString fingerprint; // "SHA256:..."
        QString details;     // what ssh said about it, for the curious
    };

    virtual ~CredentialsPrompt() = default;
    // What a user name and password are asked for.
    enum class Logon {
        Ssh,     // an ssh connection to a Linux server
        Windows, // the service manager of a Windows server
    };
    // Asks for the user name and password to log on to server with; user is the name tried so
    // far, refused says that the last answer was not accepted. answer(nullopt): cancelled.
    virtual void askCredentials(Logon logon, const QString& server, const QString& user, bool refused,
                                std::function<void(std::optional<Credentials>)> answer) = 0;
    // Asks whether a host key nobody has confirmed yet may be trusted from now on.
    virtual void askTrust(const HostKey& key, std::function<void(bool trust)> answer) = 0;
    // Tells that server showed a key other than the one recorded for it, so the connection was
    // refused; key is the one it showed.
    virtual void hostKeyChanged(const HostKey& key) = 0;
};

} // namespace velmora::platform
