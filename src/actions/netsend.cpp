#include "actions/netsend.h"

namespace velmora::actions {

QString netsendMessage(const QString& server, const QString& service, const QString& state)
{
    return QStringLiteral("Velmora:  On  ") + server + QStringLiteral("  the service ") + service
        + QStringLiteral(" is ") + state;
}

QString netsendResultLine(int code, const QString& recipient)
{
    if (code == 0)
        return QStringLiteral("The Net Message was successfully sent to ") + recipient + QStringLiteral(".");
    const char* reason = nullptr;
    switch (code) {
    case 2273: reason = ", user or workstation was not found."; break;
    case 2136: reason = ", general network error occurred."; break;
    case 2250: reason = ", network connection could not be found."; break;
    case 5: reason = ", access to computer denied."; break;
    case 53: reason = ", sender server name not found."; break;
    case 87: reason = ", invalid parameter(s)."; break;
    case 50: reason = ", request not supported."; break;
    case 123: reason = ", no valid character or name."; break;
    default: reason = ", unknown error occured."; break;
    }
    return QStringLiteral("Error sending Net Message to ") + recipient + QString::fromLatin1(reason);
}

} // namespace velmora::actions
