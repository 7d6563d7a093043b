#include "platform/servicemanager.h"

namespace velmora::platform {

std::vector<ServiceCheck> ServiceManager::checkServices(const QString& computer, const QStringList& services)
{
    std::vector<ServiceCheck> out;
    out.reserve(size_t(services.size()));
    for (const QString& name : services) {
        ServiceCheck& check = out.emplace_back();
        ScmHandle scm = openManager(computer);
        check.scmError = scm.error;
        if (!scm.valid())
            continue;
        ServiceHandle service = openService(scm, name);
        check.serviceError = service.error;
        if (service.valid()) {
            const StatusResult status = queryStatus(service);
            check.statusError = status.error;
            check.state = status.state;
            close(service);
        }
        close(scm);
    }
    return out;
}

} // namespace velmora::platform
