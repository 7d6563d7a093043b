#pragma once
// What the check cycle needs of the alert actions: run the action list of a failed service.
#include "core/serverfile.h"

#include <QString>
#include <functional>

namespace velmora::actions {

class ActionRunner {
public:
    virtual ~ActionRunner() = default;
    // Runs the five action slots of record for server; done runs on the user-interface thread
    // when they have all finished (possibly inside the call). The run state's currentserver,
    // currentservice and currentstate describe the failure while they run.
    virtual void runactions(const QString& server, const core::MonitoredService& record, std::function<void()> done) = 0;
};

} // namespace velmora::actions
