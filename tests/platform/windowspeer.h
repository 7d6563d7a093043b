#pragma once
// What the tests of the Windows service backend share: the backend's options against a peer on
// this machine, the names of listed services, and the network namespace their SMB peer runs in.
#include "actions/mailservers.h"
#include "platform/linux/windowsservices.h"

#include <QProcess>
#include <QStringList>
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

// Moves the test into a network namespace of its own (kept in ns) for an SMB peer (named in
// `peer`) on port 445. Empty when done, else why the peer cannot run here.
inline QString enterPeerNamespace(const QString& peer, NetNamespace*& ns)
{
    if (geteuid() != 0)
        return peer + QStringLiteral(" in a network namespace of its own needs root");
    if (QProcess::execute(QStringLiteral("/usr/bin/python3"), {"-c", "import samba.dcerpc.svcctl"}) != 0)
        return QStringLiteral("python3-samba is not installed");
    ns = new NetNamespace;
    if (!ns->active())
        return QStringLiteral("no network namespace could be made");
    return {};
}

} // namespace velmora::test
