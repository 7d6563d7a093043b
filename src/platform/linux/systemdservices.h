#pragma once
// Services as systemd units, over D-Bus with sd-bus, the library systemctl itself uses.
//
// The local computer is the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set). A remote computer is
// reached as `systemctl -H` reaches it: sd-bus runs ssh, which runs systemd-stdio-bridge on the
// far side; ssh goes through the control connection that SshConnections opened for the server,
// so no new login happens per call. One connection per computer is kept for the whole run.
#include "platform/servicemanager.h"

#include <QString>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace velmora::platform {

class SystemdServices : public ServiceManager {
public:
    struct Options {
        // Each D-Bus call.
        int callTimeoutMs = 10000;
        // Connecting, logging in through ssh included.
        int connectTimeoutMs = 15000;
        // The local bus; empty: $DBUS_SYSTEM_BUS_ADDRESS, else the standard system bus socket.
        QString localAddress;
        // This computer's name; empty: the host name.
        QString localName;
        // The ssh control socket of a server (SshConnections::controlPath); without it no remote
        // computer is reached. Called from any thread.
        std::function<QString(const QString& server)> controlPath;
        QString sshProgram = QStringLiteral("ssh");
        QString remoteBridge = QStringLiteral("systemd-stdio-bridge");
    };

    SystemdServices();
    explicit SystemdServices(Options options);
    ~SystemdServices() override;

    ScmHandle openManager(const QString& computer) override;
    ServiceHandle openService(const ScmHandle& scm, const QString& service) override;
    EnumResult enumerateServices(const ScmHandle& scm, int stateFilter) override;
    StatusResult queryStatus(const ServiceHandle& service) override;
    ConfigResult queryConfig(const ServiceHandle& service) override;
    EnumResult enumerateDependents(const ServiceHandle& service, int stateFilter) override;
    int start(const ServiceHandle& service) override;
    int stop(const ServiceHandle& service) override;
    int jobResult(const ServiceHandle& service) override;
    // The checks of one computer go out together on its one connection: the load and active
    // states of all the units in one call, then the freezer state of each one that runs.
    std::vector<ServiceCheck> checkServices(const QString& computer, const QStringList& services) override;
    // The unit list gives the states, the freezer state read along for the units that run.
    bool enumerationHasStates(const QString& computer) const override;
    void disconnect(const QString& computer) override;

    // The unit name for a service name: a name without a unit type suffix gets ".service".
    static QString unitName(const QString& service);

    struct Connection;
    // A start or stop job that systemd queued for a unit.
    struct PendingJob {
        std::string path;
        std::string unit;
        bool starting = true;
    };

private:
    std::shared_ptr<Connection> connection(const QString& computer);
    QString key(const QString& computer) const;
    // The control socket of a remote computer's ssh connection; empty when there is none (any
    // more): then its manager is out of reach for us.
    QString sshSocket(const QString& computer) const;
    int connect(Connection& c, const QString& computer);
    int ensureConnected(Connection& c, const QString& computer);

    Options options_;
    QString hostName_;
    // Set when the backend goes away: calls still running give up within a tenth of a second,
    // and the destructor waits for them.
    std::atomic<bool> stopping_{false};
    std::atomic<int> running_{0};
    std::mutex mutex_;
    std::map<QString, std::shared_ptr<Connection>> connections_;
};

} // namespace velmora::platform
