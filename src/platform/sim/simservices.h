#pragma once
// A simulated fleet of computers with services, for tests of the service windows.
//
// Each computer holds services with a state, a start type, an account, a program and the
// services it depends on. Starting and stopping pass through the pending state for the time the
// service takes, measured on the simulated clock, so a test sees "Being Started" until it
// advances the clock. A computer can refuse access until it has been validated (a connection
// added through SimNetConnections), be unreachable, and any call can be made to fail.
#include "platform/servicemanager.h"

#include <QDateTime>
#include <QStringList>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace velmora::platform::sim {

class SimClock;
class SimSystem;
class SimNetConnections;

class SimServices : public ServiceManager {
public:
    struct Service {
        QString name;                  // key name
        QString displayName;           // empty: the key name
        int state = svcstate::stopped;
        int startType = svcstart::manual;
        QString account = QStringLiteral("LocalSystem");
        QString binaryPath;
        QStringList dependsOn;         // key names of the services this one needs
        int startMs = 0;               // time spent start-pending
        int stopMs = 0;                // time spent stop-pending
        int startError = 0;            // start() answers this instead of starting
        int jobError = 0;              // the start is accepted, then fails with this code after
                                       // startMs: the service is stopped again
        bool denied = false;           // opening this service answers 5
    };

    enum class Call { OpenManager, OpenService, Enumerate, QueryStatus, QueryConfig, EnumerateDependents, Start, Stop };

    SimServices(SimClock& clock, SimSystem& system, SimNetConnections& net);

    // A computer with no services; the local computer exists from the start.
    void addComputer(const QString& computer);
    // Another name of a computer ("127.0.0.1" for this one): calls under it reach the same services.
    void addAlias(const QString& alias, const QString& computer);
    // Adds (or replaces) a service; the computer is added when missing.
    void addService(const QString& computer, const Service& service);
    void removeService(const QString& computer, const QString& name);
    // The service as it stands now (pending transitions that are due are settled first).
    std::optional<Service> service(const QString& computer, const QString& name);
    // Sets the state at once, dropping a pending transition (a service that stops by itself).
    void setState(const QString& computer, const QString& name, int state);
    // An unreachable computer answers 1722 to every call.
    void setReachable(const QString& computer, bool reachable);
    // Such a computer answers 5 to openManager until a connection to it has been added.
    void setNeedsValidation(const QString& computer, bool needs);
    // Every call of kind `call` (on the computer and service given; empty: any) answers `code`
    // from now on, `times` times (-1: until clearFailures()).
    void failOn(Call call, int code, const QString& computer = {}, const QString& service = {}, int times = -1);
    void clearFailures();

    // Every call made, as "call computer service" ("start ADMINPC spooler"), in order.
    QStringList calls() const;

    ScmHandle openManager(const QString& computer) override;
    ServiceHandle openService(const ScmHandle& scm, const QString& service) override;
    EnumResult enumerateServices(const ScmHandle& scm, int stateFilter) override;
    StatusResult queryStatus(const ServiceHandle& service) override;
    ConfigResult queryConfig(const ServiceHandle& service) override;
    EnumResult enumerateDependents(const ServiceHandle& service, int stateFilter) override;
    int start(const ServiceHandle& service) override;
    int stop(const ServiceHandle& service) override;
    int jobResult(const ServiceHandle& service) override;
    void disconnect(const QString& computer) override;

private:
    struct Pending {
        int target = 0;
        QDateTime due;
        int error = 0; // how the job ends
    };
    struct Entry {
        Service service;
        std::optional<Pending> pending;
        std::optional<int> jobEnded; // the end of the last job, until jobResult reports it
    };
    struct Computer {
        std::map<QString, Entry> services; // by upper-case key name
        bool reachable = true;
        bool needsValidation = false;
    };
    struct Failure {
        Call call;
        int code;
        QString computer, service;
        int times;
    };

    QString computerKey(const QString& computer) const;
    Computer* findComputer(const QString& computer);
    Entry* findService(const QString& computer, const QString& name);
    void settle();
    // The common checks of a start or stop: the service, or null with the refusal in code.
    Entry* controlled(const ServiceHandle& service, Call call, const char* name, int& code);
    int injected(Call call, const QString& computer, const QString& service);
    void log(const char* call, const QString& computer, const QString& service = {});
    int checkComputer(const QString& computer);
    bool validated(const QString& computer) const;
    std::vector<std::pair<const Entry*, int>> dependentsOf(Computer& c, const QString& name);
    void beginTransition(Entry& e, int pendingState, int target, int ms, int error = 0);

    SimClock& clock_;
    SimSystem& system_;
    SimNetConnections& net_;
    mutable std::recursive_mutex mutex_;
    std::map<QString, Computer> computers_; // by upper-case name; "" is the local computer
    std::map<QString, QString> aliases_;     // upper-case alias -> the computer's key
    std::vector<Failure> failures_;
    QStringList calls_;
};

} // namespace velmora::platform::sim
