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
    // The credentials a new connection uses (empty: the login user, keys or the agent).
    void setCredentials(const QString& user, const QString& password);

    // Opens a connection to server and shows the outcome in a box; then done.
    void validate(const QString& server, std::function<void()> done = {});
    // Closes the connection to computername, and the service manager's connection through it.
    void unvalidate(const QString& computername);

private:
    platform::NetConnections& net_;
    platform::ServiceManager& services_;
    platform::MessageBoxes& boxes_;
    QString localcomputer_, user_, password_;
};

} // namespace velmora::servicecontrol
