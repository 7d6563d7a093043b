#pragma once
#include "platform/netconnections.h"
#include <QString>

namespace velmora::platform {

// Connections as ssh control masters, one socket per server in the user's runtime folder.
class SshConnections : public NetConnections {
public:
    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override;
    void cancel(const QString& server) override;
    // The control socket of a server's connection (the remote service backend connects through it).
    static QString controlPath(const QString& server);
};

} // namespace velmora::platform
