#pragma once
// Which servers are Windows servers, whose services and logons go through the Windows service
// manager instead of systemd and ssh. The user says it once per server; every other server is a
// systemd server. May be used from any thread.
#include <QString>

#include <atomic>

namespace velmora::platform {

class ServerKinds {
public:
    virtual ~ServerKinds() = default;
    virtual bool isWindows(const QString& server) = 0;
    // False when the choice could not be saved.
    virtual bool setWindows(const QString& server, bool windows) = 0;
};

// What the backends route by. The choice is kept with the program's data (its data folder is
// known only once the program has started), so the program installs the implementation here;
// until then, and after it is taken away, every server is a systemd server.
class ServerKindsSlot : public ServerKinds {
public:
    void install(ServerKinds* kinds) { kinds_.store(kinds); }
    bool isWindows(const QString& server) override
    {
        ServerKinds* k = kinds_.load();
        return k && k->isWindows(server);
    }
    bool setWindows(const QString& server, bool windows) override
    {
        ServerKinds* k = kinds_.load();
        return k && k->setWindows(server, windows);
    }

private:
    std::atomic<ServerKinds*> kinds_{nullptr};
};

} // namespace velmora::platform
