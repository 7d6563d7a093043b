#pragma once
// Authenticated connections handed to one of two kinds by server: the Windows servers' logons for
// the servers isWindows names, the standard connections (ssh) for every other server.
#include "platform/netconnections.h"

#include <functional>

namespace velmora::platform {

class ConnectionRouter : public NetConnections {
public:
    ConnectionRouter(NetConnections& standard, NetConnections& windows, std::function<bool(const QString&)> isWindows)
        : standard_(standard), windows_(windows), isWindows_(std::move(isWindows))
    {
    }
    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override
    {
        NetConnections& to = isWindows_ && isWindows_(server) ? windows_ : standard_;
        to.add(context, server, user, password, std::move(done));
    }
    // A server whose type changed may still have a connection of the other kind.
    void cancel(const QString& server) override
    {
        standard_.cancel(server);
        windows_.cancel(server);
    }
    void closeAll() override
    {
        standard_.closeAll();
        windows_.closeAll();
    }

private:
    NetConnections& standard_;
    NetConnections& windows_;
    std::function<bool(const QString&)> isWindows_;
};

} // namespace velmora::platform
