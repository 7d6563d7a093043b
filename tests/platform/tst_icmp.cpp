// Real ICMP echo: to loopback, and inside a pair of network namespaces this test builds (a
// pinging side A and a peer B that also routes, so that real unreachable and time-exceeded
// answers come back); through the datagram socket and through the ping helper, from the test
// and from processes of the user nobody without any capability; and which files may hold the
// capability to ping.
#include "platform/linux/linuxicmp.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sched.h>
#include <sys/socket.h>
#include <netinet/in.h>
#include <unistd.h>

#include <functional>
#include <thread>

using velmora::platform::LinuxIcmp;

namespace {

const QByteArray hello("HelloServer");

// The ping helper of this build.
QString builtHelper() { return qEnvironmentVariable("VELMORA_BINARY_DIR") + "/velmora-ping"; }

QString tool(const QString& name)
{
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? QStandardPaths::findExecutable(name, {"/usr/sbin", "/sbin"}) : found;
}

// What getcap says of a file: empty when it carries no capability.
QString capabilitiesOf(const QString& file)
{
    QProcess p;
    p.start(tool("getcap"), {file});
    p.waitForFinished(10000);
    return QString::fromLocal8Bit(p.readAllStandardOutput()).trimmed();
}

// Runs fn on a thread that has entered the named network namespace (a namespace is per thread
// too), so sockets fn opens live there.
bool runInNamespace(const QString& ns, const std::function<void()>& fn)
{
    bool entered = false;
    std::thread t([&] {
        const int fd = ::open(QByteArray("/run/netns/" + ns.toLatin1()).constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        const bool in = ::setns(fd, CLONE_NEWNET) == 0;
        ::close(fd);
        if (!in)
            return;
        entered = true;
        fn();
    });
    t.join();
    return entered;
}

// Runs fn on a thread of its own in a fresh network namespace (loopback up), a host name of its
// own (hostName) and a private mount namespace where /etc/hosts and /etc/resolv.conf are the given
// texts and names are looked up in files and DNS only, as on a machine without systemd's
// nss-myhostname (the resolver reads these files afresh when they change). Threads fn starts
// live there too. Empty when fn ran, else why not.
QString withOwnNameService(const QByteArray& hosts, const QByteArray& resolvConf, const std::function<void()>& fn,
                           const QByteArray& hostName = "velmora-test-host")
{
    if (::geteuid() != 0)
        return "own network and mount namespaces need root";
    QTemporaryDir dir;
    for (const auto& [name, text] : {std::pair{"hosts", hosts}, std::pair{"resolv.conf", resolvConf},
                                     std::pair{"nsswitch.conf", QByteArray("hosts: files dns\n")}}) {
        QFile f(dir.filePath(name));
        if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
            return "cannot write the test's own " + QString(name);
    }
    QString problem;
    std::thread t([&] {
        const auto fail = [&](const char* what) { problem = QString(what) + ": " + std::strerror(errno); };
        if (::unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWUTS) != 0)
            return fail("unshare");
        if (::sethostname(hostName.constData(), size_t(hostName.size())) != 0)
            return fail("sethostname");
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return fail("making mounts private");
        for (const char* name : {"hosts", "resolv.conf", "nsswitch.conf"}) {
            const QByteArray from = QFile::encodeName(dir.filePath(name));
            const QByteArray to = QByteArray("/etc/") + name;
            if (::mount(from.constData(), to.constData(), nullptr, MS_BIND, nullptr) != 0)
                return fail("bind-mounting /etc file");
        }
        const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq ifr{};
        std::strcpy(ifr.ifr_name, "lo");
        const bool up = s >= 0 && ::ioctl(s, SIOCGIFFLAGS, &ifr) == 0
            && (ifr.ifr_flags |= IFF_UP, ::ioctl(s, SIOCSIFFLAGS, &ifr) == 0);
        if (s >= 0)
            ::close(s);
        if (!up)
            return fail("bringing loopback up");
        fn();
    });
    t.join();
    return problem;
}

} // namespace

class TestIcmp : public QObject {
    Q_OBJECT
private:
    const QString nsA = QStringLiteral("velmora-icmp-a-%1").arg(::getpid());
    const QString nsB = QStringLiteral("velmora-icmp-b-%1").arg(::getpid());
    QString ipTool;
    bool namespacesMade = false;
    QString namespaceProblem;

    bool ip(const QStringList& args)
    {
        QProcess p;
        p.start(ipTool, args);
        if (!p.waitForFinished(10000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
            namespaceProblem = "ip " + args.join(' ') + ": " + QString::fromLocal8Bit(p.readAllStandardError());
            return false;
        }
        return true;
    }

    // A (10.200.0.1, also .11 and .12) --veth-- B (10.200.0.2). Through B, seen from A:
    //   10.201/16 is on B's link, where nobody answers B's neighbour lookup (host unreachable),
    //   10.202/16 ends at a "throw" route (net unreachable; the kernel allows such answers once a
    //   second per source with a small burst, so each case asks from a source of its own),
    //   10.203/16 loops between B and A until the TTL runs out,
    //   10.204/16 ends at a "blackhole" route (silence).
    // A itself has no route to 192.168.77/24 and an "unreachable" route to 192.168.78/24.
    bool makeNamespaces()
    {
        // A missing neighbour is given up after one quick ARP probe; the looping requests come
        // back to A with its own source; the unprivileged datagram socket is allowed for root in
        // A and for nobody in B.
        const QString router = "net.ipv4.ip_forward=1 net.ipv4.conf.all.send_redirects=0 net.ipv4.icmp_ratelimit=0 "
                               "net.ipv4.neigh.%1.mcast_solicit=1 net.ipv4.neigh.%1.retrans_time_ms=100 "
                               "net.ipv4.conf.%1.send_redirects=0 ";
        const QString script = QStringLiteral(
            "netns add A|netns add B|link add vA netns A type veth peer name vB netns B"
            "|-n A addr add 10.200.0.1/24 dev vA|-n A addr add 10.200.0.11/24 dev vA|-n A addr add 10.200.0.12/24 dev vA"
            "|-n B addr add 10.200.0.2/24 dev vB|-n A link set lo up|-n B link set lo up|-n A link set vA up|-n B link set vB up"
            "|netns exec A sysctl -qw %1net.ipv4.conf.vA.accept_local=1 net.ipv4.ping_group_range=0~2147483647"
            "|netns exec B sysctl -qw %2net.ipv4.ping_group_range=1~0"
            "|-n A route add 10.201.0.0/16 via 10.200.0.2|-n A route add 10.202.1.0/24 via 10.200.0.2 src 10.200.0.11"
            "|-n A route add 10.202.2.0/24 via 10.200.0.2 src 10.200.0.12|-n A route add 10.203.0.0/16 via 10.200.0.2"
            "|-n A route add 10.204.0.0/16 via 10.200.0.2|-n A route add unreachable 192.168.78.0/24"
            "|-n B route add 10.201.0.0/16 dev vB|-n B route add throw 10.202.0.0/16"
            "|-n B route add 10.203.0.0/16 via 10.200.0.1|-n B route add blackhole 10.204.0.0/16")
            .arg(router.arg("vA"), router.arg("vB"));
        const QString vethA = QStringLiteral("vmia%1").arg(::getpid()), vethB = QStringLiteral("vmib%1").arg(::getpid());
        for (const QString& command : script.split('|')) {
            QStringList args = command.split(' ');
            for (QString& arg : args)
                arg = arg == "A" ? nsA : arg == "B" ? nsB : QString(arg).replace("vA", vethA).replace("vB", vethB).replace('~', ' ');
            if (!ip(args))
                return false;
        }
        return true;
    }

    // Builds the namespaces on first use; empty when they are there, else why not.
    QString namespacesMissing()
    {
        if (::geteuid() != 0)
            return "network namespaces need root";
        if ((ipTool = tool("ip")).isEmpty())
            return "the ip tool (iproute2) is missing";
        if (!namespacesMade && (namespacesMade = true) && !makeNamespaces())
            namespaceProblem.prepend("could not build the test network: ");
        return namespaceProblem;
    }

private slots:
    void cleanupTestCase()
    {
        if (namespacesMade) {
            // Deleting a namespace takes its end of the veth pair, and with it the other end.
            ip({"netns", "del", nsA});
            ip({"netns", "del", nsB});
        }
    }

    void aSilentNameServerHoldsUpOnlyItsOwnNames()
    {
        std::vector<QStringList> answers;
        std::atomic<int> queries{0};
        const QString why = withOwnNameService(
            "127.0.0.1 localhost\n10.9.8.7 fast-one\n10.9.8.8 fast-two\n",
            // A name server of the test's own that reads every question and never answers; left
            // to itself the resolver would wait 30 seconds for each name.
            "nameserver 127.0.0.1\noptions timeout:30 attempts:1\n", [&] {
                const int dns = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                sockaddr_in a{};
                a.sin_family = AF_INET;
                a.sin_port = htons(53);
                a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
                if (dns < 0 || ::bind(dns, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
                    return;
                std::atomic<bool> stop{false};
                std::thread silent([&] {
                    char buf[1500];
                    while (!stop) {
                        pollfd p{dns, POLLIN, 0};
                        if (::poll(&p, 1, 50) > 0 && ::recv(dns, buf, sizeof buf, 0) > 0)
                            ++queries;
                    }
                });
                // More silent names than the first threads, all in front of the quick ones.
                QStringList names;
                for (int i = 0; i < 300; ++i)
                    names << QStringLiteral("silent%1.velmora.test").arg(i);
                names << "fast-one" << "10.1.2.3" << "" << "FAST-TWO" << "localhost";
                LinuxIcmp icmp(LinuxIcmp::SocketKind::Automatic, builtHelper());
                for (const QStringList& batch : {names, QStringList{"10.1.2.3", "fast-one"}})
                    answers.push_back(icmp.resolveAll(batch, 1000));
                answers.push_back({icmp.resolve("silent-single.velmora.test"), icmp.resolve("10.4.4.4")});
                stop = true;
                silent.join();
                ::close(dns);
            });
        if (!why.isEmpty())
            QSKIP(qPrintable(why));
        QCOMPARE(answers.size(), size_t(3));
        const QStringList& first = answers[0];
        QCOMPARE(first.size(), 305);
        for (int i = 0; i < 300; ++i)
            QCOMPARE(first[i], QString());
        QCOMPARE(first.mid(300), (QStringList{"10.9.8.7", "10.1.2.3", "", "10.9.8.8", "127.0.0.1"}));
        QVERIFY2(queries > 0, "the silent name server was never asked");
        QCOMPARE(answers[1], (QStringList{"10.1.2.3", "10.9.8.7"}));
        QCOMPARE(answers[2], (QStringList{"", "10.4.4.4"}));
    }

    // "Local" adds this computer by its name, upper case, and the list re-pings it every minute.
    void thisComputersOwnNameAlwaysAnswers_data()
    {
        QTest::addColumn<QByteArray>("hostName");
        QTest::addColumn<QByteArray>("hosts");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QString>("address");
        QTest::addColumn<int>("status");
        QTest::newRow("hosts without the name") << QByteArray("box1") << QByteArray("127.0.0.1 localhost\n")
                                                << "BOX1" << "127.0.0.1" << 0;
        QTest::newRow("name with a domain") << QByteArray("box1.corp.test") << QByteArray() << "BOX1" << "127.0.0.1" << 0;
        QTest::newRow("the resolver's answer first") << QByteArray("box1") << QByteArray("10.7.7.7 box1\n")
                                                     << "BOX1" << "10.7.7.7" << 11002;
        QTest::newRow("another name stays unknown") << QByteArray("box1") << QByteArray() << "BOX2" << "" << -1;
    }

    void thisComputersOwnNameAlwaysAnswers()
    {
        QFETCH(QByteArray, hostName);
        QFETCH(QByteArray, hosts);
        QFETCH(QString, asked);
        QString address;
        std::vector<int> statuses;
        // No name server listens here, so every question is refused at once, and no route leaves
        // the namespace (an address outside loopback is "net unreachable").
        const QString why = withOwnNameService(hosts, "nameserver 127.0.0.1\n", [&] {
            LinuxIcmp icmp(LinuxIcmp::SocketKind::Automatic, builtHelper());
            address = icmp.resolveAll({asked}, 1000).value(0);
            if (icmp.unavailableReason().isEmpty())
                statuses = icmp.echo({address}, hello, 300);
        }, hostName);
        if (!why.isEmpty())
            QSKIP(qPrintable(why));
        QTEST(address, "address");
        if (statuses.empty())
            QSKIP("this user may not ping here (no datagram ICMP socket, no capable ping helper)");
        QTEST(statuses.front(), "status");
    }

    void answersAndErrorsFromARealNetwork_data()
    {
        QTest::addColumn<QString>("socket");
        QTest::addColumn<int>("n"); // keeps each case's addresses apart from the other's
        QTest::newRow("helper") << "helper" << 1;
        QTest::newRow("datagram") << "datagram" << 2;
    }
    void answersAndErrorsFromARealNetwork()
    {
        QFETCH(QString, socket);
        QFETCH(int, n);
        if (const QString why = namespacesMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        const QStringList addresses{"10.200.0.2",
                                    QStringLiteral("10.201.%1.5").arg(n),
                                    QStringLiteral("10.202.%1.5").arg(n),
                                    QStringLiteral("10.203.%1.5").arg(n),
                                    "192.168.77.1",
                                    "192.168.78.1",
                                    "127.0.0.1",
                                    QStringLiteral("10.200.0.%1").arg(70 + n),
                                    QStringLiteral("10.201.%1.6").arg(n),
                                    QStringLiteral("10.204.%1.5").arg(n),
                                    "abc",
                                    "127.0.0.1"};
        std::vector<LinuxIcmp::Reply> replies;
        const auto kind = socket == "datagram" ? LinuxIcmp::SocketKind::Datagram : LinuxIcmp::SocketKind::Helper;
        QVERIFY(runInNamespace(nsA, [&] { replies = LinuxIcmp(kind, builtHelper()).echoReplies(addresses, hello, 4000); }));
        std::vector<int> statuses;
        for (const auto& r : replies)
            statuses.push_back(r.status);
        // Nobody on the own link has the eighth address: the kernel gives up the neighbour
        // lookup (host unreachable) or the time-out comes first; never a success.
        if (statuses.size() == addresses.size() && statuses[7] == 11010)
            statuses[7] = 11003;
        // The peer answers; the router says host, then net unreachable; the TTL runs out in the
        // routing loop; no route here and an unreachable route here fail the send; loopback
        // answers; a blackhole route swallows the request and the time-out ends it; a text that is
        // no dotted address holds up nothing; an address asked twice gets two answers.
        QCOMPARE(statuses, (std::vector<int>{0, 11003, 11002, 11013, 11002, 11003, 0, 11003, 11003, 11010, -1, 0}));
        QCOMPARE(replies[0].data, hello);
    }

    // Where no group may use the datagram socket and the helper is missing, even a thread with
    // every capability of root cannot ping: the program never opens a raw socket itself.
    void withoutTheDatagramSocketOrAHelperEvenRootCannotPing()
    {
        if (const QString why = namespacesMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        std::vector<int> statuses;
        QVERIFY(runInNamespace(nsB, [&] {
            statuses = LinuxIcmp(LinuxIcmp::SocketKind::Automatic, QCoreApplication::applicationDirPath() + "/no-such-velmora-ping")
                           .echo({"10.200.0.1", "127.0.0.1", "abc"}, hello, 3000);
        }));
        QCOMPARE(statuses, (std::vector<int>{11050, 11050, -1}));
    }

    void anUnprivilegedUserPingsThroughTheDatagramSocketOrTheHelper_data()
    {
        QTest::addColumn<QString>("range");
        QTest::addColumn<QString>("helper"); // none, capable (cap_net_raw)
        QTest::addColumn<QString>("expected");
        // Where it cannot, the reason says both ways to allow it.
        const QString cannot = "status 11050 -1, cannot ping: sysctl, setcap";
        QTest::newRow("range closed, no helper") << "1 0" << "none" << cannot;
        QTest::newRow("range closed, helper with cap_net_raw") << "1 0" << "capable" << "status 0 -1, can ping";
        QTest::newRow("range open, no helper") << "65534 65534" << "none" << "status 0 -1, can ping";
    }
    void anUnprivilegedUserPingsThroughTheDatagramSocketOrTheHelper()
    {
        QFETCH(QString, range);
        QFETCH(QString, helper);
        QFETCH(QString, expected);
        if (::geteuid() != 0)
            QSKIP("becoming another user needs root");
        for (const char* name : {"unshare", "setpriv", "sysctl", "setcap"})
            if (tool(name).isEmpty())
                QSKIP(qPrintable(QString(name) + " is missing"));
        // A copy of the helper that the user nobody may run, with the capability or without.
        QTemporaryDir dir;
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
                                              | QFile::ExeOther);
        const QString copy = dir.filePath("velmora-ping");
        if (helper != "none") {
            QVERIFY(QFile::copy(builtHelper(), copy));
            if (helper == "capable" && QProcess::execute(tool("setcap"), {"cap_net_raw+ep", copy}) != 0)
                QSKIP("the temporary folder keeps no file capabilities");
        }
        // The user nobody, without any capability, in a network namespace of its own whose
        // range of groups allowed to ping is set here.
        QProcess child;
        child.start("unshare", {"-n", "sh", "-c",
                                "PATH=$PATH:/usr/sbin:/sbin; ip link set lo up && sysctl -qw net.ipv4.ping_group_range=\"$1\" "
                                "&& exec setpriv --reuid=65534 --regid=65534 --clear-groups --inh-caps=-all "
                                "\"$2\" --unprivileged-ping \"$3\"",
                                "sh", range, QCoreApplication::applicationFilePath(), copy});
        QVERIFY(child.waitForFinished(20000));
        const QString out = QString::fromLocal8Bit(child.readAllStandardOutput()).trimmed();
        if (child.exitCode() != 0)
            QSKIP(qPrintable("the unprivileged run could not start: "
                             + QString::fromLocal8Bit(child.readAllStandardError())));
        QCOMPARE(out, expected);
    }

    void theHelperAnswersBatchesWithoutAnyPrivilegeLeft()
    {
        if (::geteuid() != 0)
            QSKIP("the helper opens its raw socket only for root or with cap_net_raw");
        QProcess helper;
        helper.start(builtHelper(), {});
        QVERIFY(helper.waitForStarted());
        auto line = [&] {
            while (!helper.canReadLine() && helper.waitForReadyRead(10000)) {
            }
            return helper.readLine().trimmed();
        };
        QCOMPARE(line(), QByteArray("ready"));
        // Names are never looked up: only dotted addresses are asked.
        helper.write("4 3000 " + hello.toHex() + "\n127.0.0.1\nlocalhost\n\n127.0.0.2\n");
        const QByteArray answered = "0 " + hello.toHex();
        QCOMPARE((QList<QByteArray>{line(), line(), line(), line()}), (QList<QByteArray>{answered, "-1", "-1", answered}));
        // Root became nobody, with no capability in any set; a second batch still works.
        QFile status(QStringLiteral("/proc/%1/status").arg(helper.processId()));
        QVERIFY(status.open(QIODevice::ReadOnly));
        const QString text = QString::fromLatin1(status.readAll());
        for (const char* field : {"Uid:\t65534\t65534\t65534", "Gid:\t65534\t65534\t65534", "CapInh:\t0000000000000000",
                                  "CapPrm:\t0000000000000000", "CapEff:\t0000000000000000",
                                  "CapAmb:\t0000000000000000", "NoNewPrivs:\t1"})
            QVERIFY2(text.contains(field), field);
        helper.write("1 3000 \n127.0.0.1\n");
        QCOMPARE(line(), QByteArray("0"));
        // Anything malformed ends it.
        helper.write("1 999999 \n127.0.0.1\n");
        QVERIFY(helper.waitForFinished(10000));
        QCOMPARE(helper.exitCode(), 2);
    }

    // The package's postinst, run in a root of the test's own, gives the capability to the
    // helper only.
    void onlyTheHelperCarriesTheCapabilityToPing()
    {
        if (::geteuid() != 0)
            QSKIP("setting file capabilities needs root");
        if (tool("getcap").isEmpty() || tool("setcap").isEmpty())
            QSKIP("getcap and setcap (libcap2-bin) are missing");
        const QString build = qEnvironmentVariable("VELMORA_BINARY_DIR");
        QTemporaryDir root;
        const QString folder = root.filePath("usr/lib/velmora");
        QVERIFY(QDir().mkpath(folder));
        for (const QString& name : {"velmora", "velmora-ping"})
            QVERIFY(QFile::copy(build + "/" + name, folder + "/" + name));
        // A file system that keeps no capabilities cannot show the difference.
        QVERIFY(QFile::copy(build + "/velmora-ping", root.filePath("probe")));
        if (QProcess::execute(tool("setcap"), {"cap_net_raw+ep", root.filePath("probe")}) != 0)
            QSKIP("this file system keeps no file capabilities");
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DPKG_ROOT", root.path());
        p.setProcessEnvironment(env);
        p.start("sh", {qEnvironmentVariable("VELMORA_SOURCE_DIR") + "/packaging/postinst", "configure"});
        QVERIFY(p.waitForFinished(60000));
        QVERIFY2(p.exitCode() == 0, p.readAll().right(2000).constData());
        QCOMPARE(capabilitiesOf(folder + "/velmora"), QString());
        QVERIFY(capabilitiesOf(folder + "/velmora-ping").contains("cap_net_raw=ep"));
    }
};

// --unprivileged-ping HELPER: the child of the test above, run as another user without any
// capability; prints the statuses of a ping to loopback and to a name, whether the service says
// it can ping, and which ways to allow it its reason names.
int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[1]) == "--unprivileged-ping") {
        QFile status("/proc/self/status");
        if (::geteuid() == 0 || !status.open(QIODevice::ReadOnly) || !status.readAll().contains("CapEff:\t0000000000000000"))
            return 2;
        LinuxIcmp icmp(LinuxIcmp::SocketKind::Automatic, QString::fromLocal8Bit(argv[2]));
        const auto statuses = icmp.echo({"127.0.0.1", "abc"}, hello, 2000);
        const QString reason = icmp.unavailableReason();
        const bool sysctl = reason.contains("net.ipv4.ping_group_range=\"65534 65534\"");
        const bool setcap = reason.contains("setcap cap_net_raw+ep " + QString::fromLocal8Bit(argv[2]));
        std::printf("status %d %d, %s%s%s\n", statuses.at(0), statuses.at(1), reason.isEmpty() ? "can ping" : "cannot ping:",
                    sysctl ? " sysctl," : "", setcap ? " setcap" : "");
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestIcmp t;
    return QTest::qExec(&t, argc, argv);
}
#include "tst_icmp.moc"
