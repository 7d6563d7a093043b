#include "shell/serverkindchoice.h"

#include "platform/platform.h"

namespace velmora::shell {

ServerKindChoice::ServerKindChoice(const platform::Platform& p)
    : kinds_(p.serverkinds), net_(p.net), services_(p.services), boxes_(p.boxes)
{
}

bool ServerKindChoice::isWindows(const QString& server) const { return kinds_ && kinds_->isWindows(server); }

bool ServerKindChoice::choose(const QString& server, bool windows)
{
    if (!kinds_)
        return !windows;
    const bool changed = kinds_->isWindows(server) != windows;
    if (!kinds_->setWindows(server, windows)) {
        if (boxes_)
            boxes_->show(QStringLiteral("Could not save the server type of %1. It remains a %2 server.")
                             .arg(server, windows ? QStringLiteral("systemd") : QStringLiteral("Windows")),
                         platform::MsgIcon::Critical);
        return false;
    }
    if (changed) {
        if (net_)
            net_->cancel(server);
        if (services_)
            services_->disconnect(server);
    }
    return true;
}

} // namespace velmora::shell
