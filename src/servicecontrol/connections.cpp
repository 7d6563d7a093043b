#include "servicecontrol/connections.h"

#include "platform/messageboxes.h"
#include "platform/netconnections.h"
#include "platform/servicemanager.h"

namespace velmora::servicecontrol {

using platform::MsgIcon;

Connections::Connections(platform::NetConnections& net, platform::ServiceManager& services,
                         platform::MessageBoxes& boxes, QObject* parent)
    : QObject(parent), net_(net), services_(services), boxes_(boxes)
{
}

void Connections::validate(const QString& server, std::function<void()> done)
{
    net_.add(this, server, {}, {}, [this, server, done](int code) {
        if (code != 0) {
            boxes_.show(QStringLiteral("ERROR: ") + QString::number(code) + QStringLiteral("   Connection to Server:  ") +
                            server + QStringLiteral("  Failed!        "),
                        MsgIcon::Exclamation);
        } else {
            boxes_.show(QStringLiteral("Net Connection to  ") + server + QStringLiteral("  Successful!        "),
                        MsgIcon::Information);
        }
        if (done)
            done();
    });
}

void Connections::unvalidate(const QString& computername)
{
    // Computer names are the same name whatever their case: the list keeps them in upper case,
    // the system reports its own in lower case.
    if (computername.compare(localcomputer_, Qt::CaseInsensitive) == 0)
        return;
    net_.cancel(computername);
    // The service manager's connection ran through the closed one; the next call connects anew.
    services_.disconnect(computername);
}

} // namespace velmora::servicecontrol
