#pragma once
// Which servers are Windows servers, whose services and logons go through the Windows service
// manager instead of systemd and ssh. The user says it once per server; every other server is a
// systemd server. May be used from any thread.
#include <QString>

namespace velmora::platform {

class ServerKinds {
public:
    virtual ~ServerKinds() = default;
    virtual bool isWindows(const QString& server) = 0;
    // False when the choice could not be saved.
    virtual bool setWindows(const QString& server, bool windows) = 0;
};

} // namespace velmora::platform
