#pragma once
// Authenticated connections to servers: "validate" opens one and says in a box how it went,
// "unvalidate" closes it again (never the one to this computer).
#include <QObject>
#include <QString>
#include <functional>

namespace velmora::platform { class NetConnections; class ServiceManager; class MessageBoxes; }

namespace velmora::servicecontrol {

class Connections : public QObject {
    Q_OBJECT
public:
    Connections(platform::NetConnections& net, platform::ServiceManager& services, platform::MessageBoxes& boxes,
                QObject* parent = nullptr);

    // This computer's name: its connection is never closed.
    void setLocalComputer(const QString& name) { localcomputer_ = name; }
    // Opens a connection to server (as the login user, with keys or the agent, else as the
    // connection layer asks the user) and shows the outcome in a box; then done.
    void validate(const QString& server, std::function<void()> done = {});
    // Closes the connection to computername, and the service manager's connection through it.
    void unvalidate(const QString& computername);

private:
    platform::NetConnections& net_;
    platform::ServiceManager& services_;
    platform::MessageBoxes& boxes_;
    QString localcomputer_;
};

} // namespace velmora::servicecontrol
