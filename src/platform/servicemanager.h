#pragma once
// The service manager of a computer: open the manager, open a service, enumerate services,
// query a service's status and configuration, enumerate the services that depend on it, start
// it and stop it. The calls follow the classic service-control calls one for one, so that the
// windows can keep their open → query → close sequences and show the classic error codes.
//
// Every call BLOCKS until the manager has answered or its time-out has passed, and every call
// may be made from any thread, several at once: the windows run them through Worker so that the
// user-interface thread never waits. Calls to the same computer are serialized by the backend;
// calls to different computers run side by side.
//
// Computers: an empty name or this computer's own name is the local computer. Any other name
// is a remote computer reached through the authenticated connection that NetConnections opens
// for it.
//
// Handles are plain values: they hold no resource, so nothing leaks when one is dropped, and
// close() merely marks them closed (any later call on them answers 6). Passing a handle whose
// open failed is allowed and answers 6, as the classic calls do with a null handle.
//
// Each call lists the codes it returns; any call may also return 1726 for a failure of the
// manager that has no code of its own.
#include <QString>
#include <QStringList>
#include <vector>

namespace velmora::platform {

// The error codes the calls return (the classic system error numbers).
namespace svcerror {
inline constexpr int ok = 0;
inline constexpr int accessDenied = 5;              // no right, or no authenticated connection yet
inline constexpr int invalidHandle = 6;             // the handle's open failed or it is closed
inline constexpr int moreData = 234;                // the classic size query found records
inline constexpr int ioPending = 997;               // a start or stop job is still running
inline constexpr int dependentServicesRunning = 1051;
inline constexpr int invalidServiceControl = 1052;  // the service refuses to be stopped by hand
inline constexpr int requestTimeout = 1053;         // the manager or the job did not answer in time
inline constexpr int alreadyRunning = 1056;
inline constexpr int serviceDisabled = 1058;
inline constexpr int noSuchService = 1060;
inline constexpr int cannotAcceptControl = 1061;    // the manager refused the job for another reason
inline constexpr int notActive = 1062;
inline constexpr int startFailed = 1064;            // the service failed while starting or stopping
inline constexpr int dependencyFailed = 1068;
inline constexpr int unavailable = 1722;            // the computer or its manager cannot be reached
inline constexpr int callFailed = 1726;             // any other failure of a call
} // namespace svcerror

// Service states 1 to 7, as the classic status record counts them.
namespace svcstate {
inline constexpr int stopped = 1;
inline constexpr int startPending = 2;
inline constexpr int stopPending = 3;
inline constexpr int running = 4;
inline constexpr int continuePending = 5;
inline constexpr int pausePending = 6;
inline constexpr int paused = 7;
} // namespace svcstate

// Start types: 2 automatic, 3 manual (on demand), 4 disabled.
namespace svcstart {
inline constexpr int automatic = 2;
inline constexpr int manual = 3;
inline constexpr int disabled = 4;
} // namespace svcstart

// State filters of the enumerations: 1 services that are not stopped (pending states
// included), 2 stopped services, 3 all.
namespace svcfilter {
inline constexpr int active = 1;
inline constexpr int inactive = 2;
inline constexpr int all = 3;
} // namespace svcfilter

struct ScmHandle {
    QString computer; // as given to openManager
    int error = svcerror::invalidHandle;
    bool valid() const { return error == svcerror::ok; }
};

struct ServiceHandle {
    QString computer;
    QString name;     // the key name as the manager knows it
    int error = svcerror::invalidHandle;
    bool valid() const { return error == svcerror::ok; }
};

// One record of an enumeration.
struct ServiceEntry {
    QString name;        // key name
    QString displayName; // never empty: the key name when the service has no display name
    int state = 0;       // 1 to 7
};

struct ServiceConfig {
    int startType = 0;   // 2, 3 or 4
    QString account;     // the account the service runs under
    QString binaryPath;  // the program with its arguments
    QString displayName;
};

struct StatusResult {
    int error = svcerror::ok;
    int state = 0;       // 1 to 7 when error is 0
};

struct ConfigResult {
    int error = svcerror::ok;
    ServiceConfig config;
};

// What opening the manager, opening a service and querying its status found: each step's code
// (0 when it worked or did not run) and the state.
struct ServiceCheck {
    int scmError = svcerror::ok;
    int serviceError = svcerror::ok;
    int statusError = svcerror::ok;
    int state = 0;
    bool failed() const { return scmError != svcerror::ok || serviceError != svcerror::ok || statusError != svcerror::ok; }
};

struct EnumResult {
    int error = svcerror::ok;
    std::vector<ServiceEntry> services;
    // What the classic size query (a first call without a buffer) reports: 234 when there is at
    // least one record, 0 when the call succeeded with none, otherwise the error.
    int sizeQueryCode() const
    {
        return error != svcerror::ok ? error : services.empty() ? svcerror::ok : svcerror::moreData;
    }
};

class ServiceManager {
public:
    virtual ~ServiceManager() = default;

    // Connects to the manager of a computer (reusing the connection of an earlier call).
    // 0, 5 (remote computer without an authenticated connection, or refused), 1722 (not
    // reachable, or no service manager there), 1053.
    virtual ScmHandle openManager(const QString& computer) = 0;

    // A service by key name; a name without a unit type suffix means the ".service" unit.
    // 0, 5, 6, 1060, 1722, 1053.
    virtual ServiceHandle openService(const ScmHandle& scm, const QString& service) = 0;

    // The services of the computer in the filter (svcfilter), sorted by key name without regard
    // to case, each with its current state. 0, 5, 6, 1722, 1053.
    virtual EnumResult enumerateServices(const ScmHandle& scm, int stateFilter) = 0;

    // 0, 5, 6, 1060, 1722, 1053.
    virtual StatusResult queryStatus(const ServiceHandle& service) = 0;

    // 0, 5, 6, 1060, 1722, 1053.
    virtual ConfigResult queryConfig(const ServiceHandle& service) = 0;

    // The services that depend on this one, directly or through others, in the filter
    // (svcfilter), in the order in which they must be stopped: every service comes before the
    // services it depends on. 0, 5, 6, 1060, 1722, 1053.
    virtual EnumResult enumerateDependents(const ServiceHandle& service, int stateFilter) = 0;

    // Asks the manager to start the service and its dependencies and returns as soon as the
    // request is accepted: the service is then start-pending until it runs or fails, which the
    // status queries show and jobResult tells.
    // 0, 5, 6, 1056 (not stopped), 1058 (disabled), 1060, 1064, 1061, 1722, 1053 (no answer).
    virtual int start(const ServiceHandle& service) = 0;

    // Asks the manager to stop the service and returns as soon as the request is accepted.
    // Refused with 1051 while services that depend on it run (they are what
    // enumerateDependents returns); nothing is stopped for the caller.
    // 0, 5, 6, 1051, 1052, 1060, 1062 (not running), 1064, 1061, 1722, 1053.
    virtual int stop(const ServiceHandle& service) = 0;

    // How the last start or stop that this program asked for on the service ended: 997 while it
    // still runs; 0 when it ended well, when none was asked for, or once its end has been
    // reported; else the failure, reported once: 1064 (it failed), 1068 (a dependency failed),
    // 1053 (it timed out), 1061, and 5, 1722, 1053 for the query itself.
    virtual int jobResult(const ServiceHandle& service)
    {
        (void)service;
        return svcerror::ok;
    }

    // Checks services of one computer: for each, in order, what openManager, openService and
    // queryStatus find (a step that fails ends that service's steps), as the default does one
    // service after the other. A backend may send the queries together; the results still come
    // in the order of services. Blocks until all are answered.
    virtual std::vector<ServiceCheck> checkServices(const QString& computer, const QStringList& services);

    // Whether the states enumerateServices gives for the computer are those a status query of
    // each service finds at that moment: a listing then shows them as they are, and reads the
    // configuration of a service only when it is shown. Otherwise a listing queries the details
    // of every service it lists.
    virtual bool enumerationHasStates(const QString& computer) const
    {
        (void)computer;
        return false;
    }

    // Drops the cached connection to a remote computer (after its authenticated connection was
    // closed); the next openManager connects anew. The local computer (an empty name or this
    // computer's own name, in any case) keeps its connection.
    virtual void disconnect(const QString& computer) = 0;

    static void close(ServiceHandle& service) { service.error = svcerror::invalidHandle; }
    static void close(ScmHandle& scm) { scm.error = svcerror::invalidHandle; }
};

} // namespace velmora::platform
