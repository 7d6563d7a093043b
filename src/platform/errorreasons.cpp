#include "platform/errorreasons.h"

#include "platform/servicemanager.h"

namespace velmora::platform {

QString serviceErrorReason(int code)
{
    switch (code) {
    case svcerror::accessDenied:
        return QStringLiteral("refused: polkit did not allow it, or the user on the server lacks the rights "
                              "(a Windows server: its logon lacks them)");
    case svcerror::invalidHandle:
        return QStringLiteral("an earlier step of the same command failed");
    case svcerror::dependentServicesRunning:
        return QStringLiteral("running units depend on it: stop them first, in the order the dependents list shows");
    case svcerror::invalidServiceControl:
        return QStringLiteral("the unit may not be stopped by hand (RefuseManualStop=)");
    case svcerror::requestTimeout:
        return QStringLiteral("systemd did not answer in time, or the start or stop job timed out");
    case svcerror::alreadyRunning:
        return QStringLiteral("the unit is running or starting already");
    case svcerror::serviceDisabled:
        return QStringLiteral("the unit is masked, or may only be started by another unit (RefuseManualStart=)");
    case svcerror::noSuchService:
        return QStringLiteral("systemd has no unit of that name there");
    case svcerror::cannotAcceptControl:
        return QStringLiteral("systemd refused the job (another job of the unit conflicts, or the unit cannot do it)");
    case svcerror::notActive:
        return QStringLiteral("the unit is not running");
    case svcerror::startFailed:
        return QStringLiteral("the unit failed while starting or stopping (its journal says why)");
    case svcerror::dependencyFailed:
        return QStringLiteral("a unit it needs failed to start");
    case svcerror::unavailable:
        return QStringLiteral("the system bus or systemd cannot be reached (no systemd runs there, as in a "
                              "container or chroot), or the ssh connection to the server failed");
    case svcerror::callFailed:
        return QStringLiteral("systemd answered with an error of another kind");
    }
    return {};
}

QString pingStatusReason(int status)
{
    switch (status) {
    case -1:
        return QStringLiteral("the name does not resolve to an IPv4 address (/etc/hosts, the name server)");
    case 11002:
        return QStringLiteral("no route leads to the server's network");
    case 11003:
        return QStringLiteral("nothing on the server's network answers for its address");
    case 11004:
    case 11005:
        return QStringLiteral("the server or a router refused the echo request");
    case 11010:
        return QStringLiteral("no reply within 500 ms: the server is off, or a firewall drops pings");
    case 11013:
        return QStringLiteral("the request expired on the way (a routing loop)");
    case 11050:
        return QStringLiteral("the request could not be sent, or this program may not ping (the message at "
                              "start-up says why)");
    }
    return {};
}

} // namespace velmora::platform
