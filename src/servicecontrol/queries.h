#pragma once
// The blocking calls of the service side, for worker threads: open the manager and a service,
// query, and close again, each step's error code kept for the message the caller shows.
#include "platform/servicemanager.h"

#include <QString>
#include <functional>
#include <vector>

namespace velmora::servicecontrol {

// Names and texts pass through fixed buffers in the classic service calls; longer ones are cut.
inline constexpr int kNameLength = 125;
inline constexpr int kTextLength = 255;

// What opening a service and querying its status found: each step's error code (0 when it
// worked or did not run) and the state.
using ServiceQuery = platform::ServiceCheck;

// Opens the manager of computer and the service, queries the status (unless queryStatus is
// false) and, when every step worked, runs then on the open service; closes both. A manager that
// cannot be opened ends the steps, unless goOnWithoutManager: then the service open runs all the
// same and fails on its own, as starting and stopping report both failures.
ServiceQuery openAndQuery(platform::ServiceManager& services, const QString& computer, const QString& service,
                          const std::function<void(const platform::ServiceHandle&)>& then = {},
                          bool queryStatus = true, bool goOnWithoutManager = false);

struct DetailQuery : ServiceQuery {
    int configError = 0;
    platform::ServiceConfig config;
};
DetailQuery queryDetails(platform::ServiceManager& services, const QString& computer, const QString& service);

struct DependentsQuery : ServiceQuery {
    int sizeCode = 0;
    std::vector<platform::ServiceEntry> dependents;
};
DependentsQuery queryDependents(platform::ServiceManager& services, const QString& computer, const QString& service,
                                int filter);

struct ControlQuery : ServiceQuery {
    int controlError = 0;
};
// Starts (start true) or stops the service.
ControlQuery control(platform::ServiceManager& services, const QString& computer, const QString& service, bool start);

// A whole listing: the manager's open, the enumeration's size code, the services and, when the
// enumeration worked, the details of each (only their states when the enumeration gives them as
// they are: the listing shows nothing of a service's configuration).
struct Listing {
    int openError = 0;
    int sizeCode = 0;
    std::vector<platform::ServiceEntry> services;
    std::vector<DetailQuery> details;
};
Listing queryListing(platform::ServiceManager& services, const QString& computer, int filter);

} // namespace velmora::servicecontrol
