#pragma once
// What the tests of the Windows service backend share: the backend's options against a peer on
// this machine, the names of listed services, and the network namespace their SMB peer runs in.
#include "actions/mailservers.h"
#include "platform/linux/windowsservices.h"

#include <QProcess>
#include <QStringList>
#include <memory>
#include <unistd.h>
#include <vector>

namespace velmora::test {

// The backend with the helper script of this source tree, ten seconds for each step, and the
// given logon.
inline platform::WindowsServices::Options windowsOptions(
    std::function<std::optional<platform::WindowsServices::Logon>(const QString&)> logon)
{
    platform::WindowsServices::Options o;
    o.helper = qEnvironmentVariable("VELMORA_SOURCE_DIR") + QStringLiteral("/src/platform/linux/velmora-svcctl.py");
    o.callTimeoutMs = 10000;
    o.connectTimeoutMs = 10000;
    o.logon = std::move(logon);
    return o;
}

inline QStringList namesOf(const std::vector<platform::ServiceEntry>& services)
{
    QStringList out;
    for (const auto& s : services)
        out << s.name;
    return out;
}

// For a whole test: moves it into a network namespace of its own and starts an SMB peer (named
// in `what`) on port 445 there. skipReason says why the peer cannot run here, or is empty.
template <typename Peer>
struct PeerInNamespace {
    std::unique_ptr<NetNamespace> ns;
    std::unique_ptr<Peer> peer;
    QString skipReason;

    void start(const QString& what, const QString& user, const QString& password)
    {
        if (geteuid() != 0)
            skipReason = what + QStringLiteral(" in a network namespace of its own needs root");
        else if (QProcess::execute(QStringLiteral("/usr/bin/python3"), {"-c", "import samba.dcerpc.svcctl"}) != 0)
            skipReason = QStringLiteral("python3-samba is not installed");
        else if (!(ns = std::make_unique<NetNamespace>())->active())
            skipReason = QStringLiteral("no network namespace could be made");
        else
            (peer = std::make_unique<Peer>())->start(user, password, &skipReason);
    }
};

} // namespace velmora::test
