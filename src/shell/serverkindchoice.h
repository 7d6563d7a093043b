#pragma once
// The user's choice of a server's kind: a Windows server, whose services are reached through the
// Windows service manager, or a systemd server (every server not chosen otherwise). The Add Server
// dialog and the Server Properties window offer it; both store it the same way here.
#include <QString>

namespace velmora::platform {
struct Platform;
class ServerKinds;
class NetConnections;
class ServiceManager;
class MessageBoxes;
} // namespace velmora::platform

namespace velmora::shell {

class ServerKindChoice {
public:
    explicit ServerKindChoice(const platform::Platform& p);

    // False where the platform knows only systemd servers; the choice is then not offered.
    bool available() const { return kinds_ != nullptr; }
    bool isWindows(const QString& server) const;
    // Stores the kind of server. When it changes, the server's connection and service manager
    // connection are closed, as they were made for the other kind; the next use connects anew.
    // A choice that could not be stored is told in a box, and false returned.
    bool choose(const QString& server, bool windows);

private:
    platform::ServerKinds* kinds_;
    platform::NetConnections* net_;
    platform::ServiceManager* services_;
    platform::MessageBoxes* boxes_;
};

} // namespace velmora::shell
