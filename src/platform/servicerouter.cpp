#include "platform/servicerouter.h"

namespace velmora::platform {

ServiceRouter::ServiceRouter(ServiceManager& standard, ServiceManager& windows,
                             std::function<bool(const QString&)> isWindows)
    : standard_(standard), windows_(windows), isWindows_(std::move(isWindows))
{
}

ServiceManager& ServiceRouter::pick(const QString& computer) const
{
    return !computer.isEmpty() && isWindows_ && isWindows_(computer) ? windows_ : standard_;
}

ScmHandle ServiceRouter::openManager(const QString& computer) { return pick(computer).openManager(computer); }
ServiceHandle ServiceRouter::openService(const ScmHandle& scm, const QString& service)
{
    return pick(scm.computer).openService(scm, service);
}
EnumResult ServiceRouter::enumerateServices(const ScmHandle& scm, int stateFilter)
{
    return pick(scm.computer).enumerateServices(scm, stateFilter);
}
StatusResult ServiceRouter::queryStatus(const ServiceHandle& service)
{
    return pick(service.computer).queryStatus(service);
}
ConfigResult ServiceRouter::queryConfig(const ServiceHandle& service)
{
    return pick(service.computer).queryConfig(service);
}
EnumResult ServiceRouter::enumerateDependents(const ServiceHandle& service, int stateFilter)
{
    return pick(service.computer).enumerateDependents(service, stateFilter);
}
int ServiceRouter::start(const ServiceHandle& service) { return pick(service.computer).start(service); }
int ServiceRouter::stop(const ServiceHandle& service) { return pick(service.computer).stop(service); }
int ServiceRouter::jobResult(const ServiceHandle& service) { return pick(service.computer).jobResult(service); }
std::vector<ServiceCheck> ServiceRouter::checkServices(const QString& computer, const QStringList& services)
{
    return pick(computer).checkServices(computer, services);
}
bool ServiceRouter::enumerationHasStates(const QString& computer) const
{
    return pick(computer).enumerationHasStates(computer);
}

void ServiceRouter::disconnect(const QString& computer)
{
    // A server whose type changed may still have a connection on the other side.
    standard_.disconnect(computer);
    windows_.disconnect(computer);
}

} // namespace velmora::platform
