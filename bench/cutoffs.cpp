// How long the calls that wait on a peer which never answers take to give up, each beside its
// own limit (the figures the user waits for at most before a name, a list or an error shows):
//   browse_cutoff_ms        the computer chooser's mDNS browse that never ends (limit 300 ms)
//   silent_names_ms         300 names on a name server that never answers (limit 1,000 ms)
//   unreachable_manager_ms  a Windows service manager that takes the connection and never
//                           answers (limit 1,500 ms)
// The last two run in network and mount namespaces of the benchmark's own, with a private
// /etc/resolv.conf, and need root.
#include "platform/linux/computerchooser.h"
#include "platform/linux/linuxicmp.h"
#include "platform/linux/windowsservices.h"
#include "support/benchsupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sched.h>
#include <unistd.h>

using namespace velmora;

namespace {

template <typename F>
qint64 msOf(F&& call)
{
    QElapsedTimer t;
    t.start();
    call();
    return t.elapsed();
}

bool writeFile(const QString& path, const QByteArray& text, bool executable = false)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
        return false;
    f.close();
    return !executable || f.setPermissions(f.permissions() | QFileDevice::ExeOwner);
}

// Network and mount namespaces of our own with loopback up and resolv.conf naming a silent name
// server. Empty when they stand, else why not.
QString buildNetwork(const QString& resolvConf, bench::SilentPeer& peer, bench::SilentNameServer& dns)
{
    if (QString why = bench::bindResolvConf(resolvConf); !why.isEmpty())
        return why;
    if (QString why = peer.bringLoopbackUp(); !why.isEmpty())
        return why;
    return dns.start();
}

} // namespace

int main(int argc, char** argv)
{
    // Before any thread exists, so that the whole process lives in these namespaces.
    QString noNetwork;
    if (::geteuid() != 0)
        noNetwork = QStringLiteral("namespaces need root");
    else if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0)
        noNetwork = QStringLiteral("unshare: ") + std::strerror(errno);
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;

    platform::KnownComputerSources sources;
    sources.avahiProgram = dir.filePath(QStringLiteral("avahi-browse"));
    sources.avahiTimeoutMs = 300;
    if (!writeFile(sources.avahiProgram,
                   "#!/bin/sh\nprintf '=;eth0;IPv4;nas;_smb._tcp;local;nas.local;192.168.1.8;445;\\n'\nexec sleep 60\n", true)) {
        std::printf("error: cannot write the stand-in avahi-browse\n");
        return 1;
    }
    std::printf("browse_cutoff_ms: %lld\n", msOf([&] { platform::knownComputers(sources); }));

    const QString resolvConf = dir.filePath(QStringLiteral("resolv.conf"));
    // Left to itself the resolver would wait 30 seconds for each name.
    if (noNetwork.isEmpty() && !writeFile(resolvConf, "nameserver 127.0.0.1\noptions timeout:30 attempts:1\n"))
        noNetwork = QStringLiteral("cannot write the benchmark's resolv.conf");
    bench::SilentPeer peer(QStringLiteral("velmora-cutoffs"));
    bench::SilentNameServer dns;
    if (noNetwork.isEmpty())
        noNetwork = buildNetwork(resolvConf, peer, dns);
    if (!noNetwork.isEmpty()) {
        std::printf("error: no network of the benchmark's own: %s\n", qPrintable(noNetwork));
        return 1;
    }

    QStringList names;
    for (int i = 0; i < 300; ++i)
        names << QStringLiteral("silent%1.velmora.test").arg(i);
    platform::LinuxIcmp icmp;
    std::printf("silent_names_ms: %lld\n", msOf([&] { icmp.resolveAll(names, 1000); }));
    std::printf("name_server_questions: %d\n", dns.questions());

    QTcpServer silent;
    if (!silent.listen(QHostAddress(QStringLiteral("127.0.0.3")), 445)) {
        std::printf("error: cannot listen on 127.0.0.3:445\n");
        return 1;
    }
    platform::WindowsServices::Options o;
    o.helper = QStringLiteral(VELMORA_SOURCE_DIR "/src/platform/linux/velmora-svcctl.py");
    o.connectTimeoutMs = 1500;
    o.logon = [](const QString&) { return platform::WindowsServices::Logon{QStringLiteral("root"), QStringLiteral("x")}; };
    platform::WindowsServices windows(o);
    int error = 0;
    std::printf("unreachable_manager_ms: %lld\n",
                msOf([&] { error = windows.openManager(QStringLiteral("127.0.0.3")).error; }));
    std::printf("unreachable_manager_error: %d\n", error);
    std::printf("load_average: %s\n", qPrintable(bench::loadAverage()));
    return 0;
}
