#pragma once
// A service manager that hands each call to one of two others by the computer it is for: the
// Windows servers' manager for the servers isWindows names, the standard one (systemd) for every
// other computer, the local one included.
#include "platform/servicemanager.h"

#include <functional>

namespace velmora::platform {

class ServiceRouter : public ServiceManager {
public:
    ServiceRouter(ServiceManager& standard, ServiceManager& windows, std::function<bool(const QString&)> isWindows);

    ScmHandle openManager(const QString& computer) override;
    ServiceHandle openService(const ScmHandle& scm, const QString& service) override;
    EnumResult enumerateServices(const ScmHandle& scm, int stateFilter) override;
    StatusResult queryStatus(const ServiceHandle& service) override;
    ConfigResult queryConfig(const ServiceHandle& service) override;
    EnumResult enumerateDependents(const ServiceHandle& service, int stateFilter) override;
    int start(const ServiceHandle& service) override;
    int stop(const ServiceHandle& service) override;
    int jobResult(const ServiceHandle& service) override;
    std::vector<ServiceCheck> checkServices(const QString& computer, const QStringList& services) override;
    bool enumerationHasStates(const QString& computer) const override;
    void disconnect(const QString& computer) override;

private:
    ServiceManager& pick(const QString& computer) const;

    ServiceManager& standard_;
    ServiceManager& windows_;
    std::function<bool(const QString&)> isWindows_;
};

} // namespace velmora::platform
