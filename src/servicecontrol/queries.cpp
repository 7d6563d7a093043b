#include "servicecontrol/queries.h"

namespace velmora::servicecontrol {

using platform::ServiceManager;
namespace svcerror = platform::svcerror;

ServiceQuery openAndQuery(ServiceManager& sm, const QString& computer, const QString& service,
                          const std::function<void(const platform::ServiceHandle&)>& then, bool queryStatus,
                          bool goOnWithoutManager)
{
    ServiceQuery q;
    auto scm = sm.openManager(computer);
    q.scmError = scm.error;
    if (!scm.valid() && !goOnWithoutManager)
        return q;
    auto svc = sm.openService(scm, service);
    q.serviceError = svc.error;
    if (svc.valid()) {
        if (queryStatus) {
            const auto st = sm.queryStatus(svc);
            q.statusError = st.error;
            q.state = st.state;
        }
        if (q.statusError == svcerror::ok && then)
            then(svc);
        ServiceManager::close(svc);
    }
    ServiceManager::close(scm);
    return q;
}

DetailQuery queryDetails(ServiceManager& sm, const QString& computer, const QString& service)
{
    DetailQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(sm, computer, service, [&](const platform::ServiceHandle& svc) {
        const auto cfg = sm.queryConfig(svc);
        q.configError = cfg.error;
        q.config = cfg.config;
    });
    return q;
}

DependentsQuery queryDependents(ServiceManager& sm, const QString& computer, const QString& service, int filter)
{
    DependentsQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(
        sm, computer, service,
        [&](const platform::ServiceHandle& svc) {
            const auto r = sm.enumerateDependents(svc, filter);
            q.sizeCode = r.sizeQueryCode();
            q.dependents = r.services;
        },
        false);
    return q;
}

ControlQuery control(ServiceManager& sm, const QString& computer, const QString& service, bool start)
{
    ControlQuery q;
    static_cast<ServiceQuery&>(q) = openAndQuery(
        sm, computer, service,
        [&](const platform::ServiceHandle& svc) { q.controlError = start ? sm.start(svc) : sm.stop(svc); }, true,
        true);
    return q;
}

Listing queryListing(ServiceManager& sm, const QString& computer, int filter)
{
    Listing l;
    auto scm = sm.openManager(computer);
    l.openError = scm.error;
    if (scm.valid()) {
        const auto r = sm.enumerateServices(scm, filter);
        l.sizeCode = r.sizeQueryCode();
        l.services = r.services;
        if (l.sizeCode == svcerror::moreData) {
            const bool statesGiven = sm.enumerationHasStates(computer);
            l.details.reserve(l.services.size());
            for (const auto& s : l.services) {
                if (statesGiven) {
                    DetailQuery d;
                    d.state = s.state;
                    l.details.push_back(d);
                } else {
                    l.details.push_back(queryDetails(sm, computer, s.name.left(kNameLength)));
                }
            }
        }
        ServiceManager::close(scm);
    }
    return l;
}

} // namespace velmora::servicecontrol
