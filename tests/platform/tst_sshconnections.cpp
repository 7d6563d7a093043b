// Ssh control masters against a real sshd on loopback, with a host key, client keys and a
// port of this test's own.
#include "platform/linux/askpass.h"
#include "platform/linux/privatefolder.h"
#include "platform/linux/sshconnections.h"
#include "platform/linux/systemdjournal.h"
#include "platform/sim/simcredentialsprompt.h"
#include "support/bytefiles.h"
#include "support/listening.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <functional>
#include <memory>
#include <pwd.h>
#include <unistd.h>

using velmora::platform::SshConnections;
using velmora::platform::SystemdJournal;
using velmora::platform::sim::SimCredentialsPrompt;
using velmora::test::bytesOf;
using velmora::test::putBytes;
using velmora::test::textOf;

namespace {

// Skips the test, saying why, when its peer is missing (the reason is not empty).
#define SKIP_IF(reason) if (!(reason).isEmpty()) QSKIP(qPrintable(reason))

constexpr int NotYet = -99;
constexpr int ConnectMs = 20000;

// The account the test's sshd knows besides root, with its password; it has no key.
const QString passwordUser = QStringLiteral("velmoratest");
const QString passwordOfUser = QStringLiteral("Secret 123");
// openssl passwd -6 -salt velmorasalt 'Secret 123'
const char passwordHash[] = "$6$velmorasalt$LipIlmozvYsDO68Yi42B2GfEPgA3p3HbAbzOwoN6Ut8RqWIvomFBdZQUNKXWj6fkjib2rpHnx288NnLLcnhtL0";

quint16 freePort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

// The pid of the master listening on a control socket, or 0.
qint64 masterPid(const QString& path)
{
    QProcess p;
    p.start("ssh", {"-F", "/dev/null", "-S", path, "-O", "check", "x"});
    if (!p.waitForFinished(10000))
        return 0;
    static const QRegularExpression pid("pid=(\\d+)");
    return pid.match(QString::fromUtf8(p.readAllStandardError())).captured(1).toLongLong();
}

// The parent of a process, or 0 when it is gone (or a zombie nobody has reaped).
qint64 parentOf(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = f.readAll();
    // "pid (name) state ppid ...": the name may hold blanks, so count from its closing bracket.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 1 && fields.at(0) != "Z" ? fields.at(1).toLongLong() : 0;
}

// The live processes other than this one with that parent (0: any) and program: "ssh" by its
// name, "self" this program's own file (ssh's askpass helpers), empty any.
int processCount(qint64 parent, const QString& program = {})
{
    int n = 0;
    for (const QString& entry : QDir("/proc").entryList(QDir::Dirs)) {
        const qint64 pid = entry.toLongLong(), up = pid ? parentOf(pid) : 0;
        const QString proc = "/proc/" + entry;
        if (up != 0 && (parent == 0 || up == parent) && pid != ::getpid()
            && (program == "self" ? QFileInfo(proc + "/exe").symLinkTarget() == QCoreApplication::applicationFilePath()
                                  : program.isEmpty() || textOf(proc + "/comm").trimmed() == program))
            ++n;
    }
    return n;
}

// Every regular file under folder whose bytes hold text.
QStringList filesHolding(const QString& folder, const QByteArray& text)
{
    QStringList found;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        if (const QString path = it.next(); bytesOf(path).contains(text))
            found << path;
    return found;
}

// "SHA256:..." and the type of a public key file.
QStringList fingerprintOf(const QString& publicKey)
{
    QProcess p;
    p.start("ssh-keygen", {"-lf", publicKey});
    p.waitForFinished();
    // "256 SHA256:... comment (ED25519)"
    const QStringList fields = QString::fromUtf8(p.readAllStandardOutput()).trimmed().split(' ');
    if (fields.size() < 3)
        return {};
    return {fields.last().mid(1).chopped(1), fields.at(1)};
}

} // namespace

class TestSshConnections : public QObject {
    Q_OBJECT
private:
    QTemporaryDir dir;
    QString runtimeDir;
    QString sshdMissing; // why the sshd cases cannot run, or empty
    QString passwordMissing; // why sshd has no account with a password, or empty
    QProcess sshd;
    quint16 port = 0;
    const QString server = QStringLiteral("127.0.0.1");

    QString file(const QString& name) const { return dir.filePath(name); }

    bool keygen(const QString& name, const QString& passphrase = {})
    {
        return QProcess::execute("ssh-keygen", {"-q", "-t", "ed25519", "-N", passphrase, "-C", name, "-f", file(name)}) == 0;
    }

    QStringList options(const QString& key, quint16 toPort = 0, const QString& knownHosts = "known_hosts") const
    {
        return {"-F", "/dev/null",
                "-p", QString::number(toPort ? toPort : port),
                "-i", file(key),
                "-o", "IdentitiesOnly=yes",
                "-o", "IdentityAgent=none",
                "-o", "UserKnownHostsFile=" + file(knownHosts),
                "-o", "GlobalKnownHostsFile=/dev/null"};
    }

    // A known-hosts line that records key for the test's sshd.
    QByteArray knownHostsLine(const QString& key) const
    {
        const QStringList pub = textOf(file(key + ".pub")).split(' ');
        return QStringLiteral("[%1]:%2 %3 %4\n").arg(server).arg(port).arg(pub.value(0), pub.value(1)).toUtf8();
    }

    // Starts sshd in a mount namespace of its own in which the account database has the
    // password user; the system's own files stay as they are. Empty, or why it cannot.
    QString startSshdWithPasswordUser(const QString& sshdPath)
    {
        if (QProcess::execute("unshare", {"-m", "true"}) != 0)
            return "no mount namespace can be made (unshare -m)";
        uid_t uid = 4711;
        while (::getpwuid(uid))
            ++uid;
        const QString home = file("home");
        QDir().mkpath(home);
        if (::chown(QFile::encodeName(home).constData(), uid, uid) != 0)
            return "cannot give the password user a home folder";
        putBytes(file("passwd"), bytesOf("/etc/passwd")
                                     + QStringLiteral("%1:x:%2:%2:Velmora test:%3:/bin/sh\n").arg(passwordUser).arg(uid).arg(home).toUtf8());
        putBytes(file("shadow"), bytesOf("/etc/shadow") + passwordUser.toUtf8() + ':' + passwordHash + ":20000:0:99999:7:::\n");
        sshd.start("unshare", {"-m", "--", "sh", "-c",
                               "mount --bind \"$1\" /etc/passwd && mount --bind \"$2\" /etc/shadow && exec \"$3\" -D -e -f \"$4\"",
                               "sh", file("passwd"), file("shadow"), sshdPath, file("sshd_config")});
        return {};
    }

    // Runs ssh through an open master; the exit code, or -1.
    int throughMaster(const SshConnections& net, const QStringList& args)
    {
        QProcess p;
        p.start("ssh", QStringList{"-F", "/dev/null", "-S", net.controlPath(server)} + args);
        if (!p.waitForFinished(ConnectMs) || p.exitStatus() != QProcess::NormalExit)
            return -1;
        return p.exitCode();
    }

    // Cancels the connection to the server and waits until its master has gone.
    void cancelAndWait(SshConnections& net)
    {
        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(net.controlPath(server)), ConnectMs);
    }

    int logOn(SshConnections& net, const QString& to, const QString& user = {}, const QString& password = {})
    {
        QObject context;
        int code = NotYet;
        net.add(&context, to, user, password, [&code](int c) { code = c; });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(code != NotYet, ConnectMs); }();
        return code;
    }

    QString startSshd()
    {
        if (::geteuid() != 0)
            return "sshd needs root";
        const QString sshdPath = QStandardPaths::findExecutable("sshd", {"/usr/sbin", "/usr/local/sbin", "/sbin"});
        if (sshdPath.isEmpty())
            return "sshd (openssh-server) is missing";
        if (QStandardPaths::findExecutable("ssh").isEmpty() || QStandardPaths::findExecutable("ssh-keygen").isEmpty())
            return "the ssh client is missing";
        if (!keygen("host_key") || !keygen("client_key") || !keygen("wrong_key")
            || !keygen("locked_key", "open sesame"))
            return "ssh-keygen failed";
        putBytes(file("authorized_keys"), bytesOf(file("client_key.pub")) + bytesOf(file("locked_key.pub")));
        port = freePort();
        putBytes(file("sshd_config"), QStringLiteral("Port %1\n"
                                                 "ListenAddress 127.0.0.1\n"
                                                 "HostKey %2\n"
                                                 "AuthorizedKeysFile %3\n"
                                                 "PidFile %4\n"
                                                 "StrictModes no\n"
                                                 "UsePAM no\n"
                                                 "PasswordAuthentication yes\n"
                                                 "KbdInteractiveAuthentication no\n"
                                                 "PermitRootLogin prohibit-password\n")
                                      .arg(port)
                                      .arg(file("host_key"), file("authorized_keys"), file("sshd.pid"))
                                      .toUtf8());
        putBytes(file("known_hosts"), knownHostsLine("host_key"));
        QDir().mkpath("/run/sshd"); // sshd's privilege separation folder
        sshd.setStandardOutputFile(file("sshd.log"));
        sshd.setStandardErrorFile(file("sshd.log"), QIODevice::Append);
        passwordMissing = startSshdWithPasswordUser(sshdPath);
        if (!passwordMissing.isEmpty())
            sshd.start(sshdPath, {"-D", "-e", "-f", file("sshd_config")});
        return velmora::testsupport::waitUntilListening(sshd, port) ? QString() : "sshd does not listen";
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        // Control sockets go into a runtime folder of this test's own.
        runtimeDir = file("run");
        QVERIFY(QDir().mkpath(runtimeDir));
        QVERIFY(QFile::setPermissions(runtimeDir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        qputenv("XDG_RUNTIME_DIR", runtimeDir.toLocal8Bit());
        sshdMissing = startSshd();
        if (!sshdMissing.isEmpty())
            passwordMissing = sshdMissing;
    }

    void cleanupTestCase()
    {
        if (sshd.state() != QProcess::NotRunning) {
            sshd.terminate();
            sshd.waitForFinished(5000);
        }
    }

    void controlSocketsLiveInAPrivateFolderOfTheirOwn()
    {
        QString folder;
        {
            SshConnections net;
            QVERIFY(net.folderProblem().isEmpty());
            const QString path = net.controlPath("SRV1");
            folder = QFileInfo(path).path();
            // A new folder under an unpredictable name in the runtime folder, mode 0700.
            QCOMPARE(QFileInfo(folder).path(), runtimeDir);
            QVERIFY(QFileInfo(folder).fileName().startsWith("velmora-ssh-"));
            QCOMPARE(velmora::platform::privateFolderProblem(folder), QString());
            // No name leads out of the folder or clashes with a plain one; long ones still fit a
            // socket address.
            const QString odd = net.controlPath("../x/y z"), longName = net.controlPath(QString(200, 'a'));
            QCOMPARE(QFileInfo(odd).path(), folder);
            QVERIFY(odd != net.controlPath("x_y_z"));
            QCOMPARE(QFileInfo(longName).path(), folder);
            QVERIFY(longName.toLocal8Bit().size() <= 90);
            SshConnections other;
            const QString otherFolder = QFileInfo(other.controlPath("SRV1")).path();
            // The program's way out runs no destructor; leave() removes the folder all the same.
            other.leave();
            QVERIFY(!QFileInfo::exists(otherFolder));
        }
        // The folder goes with the object.
        QVERIFY(!QFileInfo::exists(folder));

        // A runtime folder others can write is not used.
        const QString shared = file("shared-run");
        QVERIFY(QDir().mkpath(shared));
        QVERIFY(QFile::setPermissions(shared, QFileDevice::Permissions(0x7777)));
        qputenv("XDG_RUNTIME_DIR", shared.toLocal8Bit());
        const QString path = SshConnections().controlPath("SRV1");
        qputenv("XDG_RUNTIME_DIR", runtimeDir.toLocal8Bit());
        QVERIFY(!path.startsWith(shared));
        QVERIFY(path.startsWith(QDir::tempPath() + "/velmora-ssh-"));
    }

    void keyLogonOpensASharedMasterThatCancelCloses()
    {
        SKIP_IF(sshdMissing);
        SshConnections net(options("client_key"));
        const QString path = net.controlPath(server);
        putBytes(path, "stale"); // as a master that ended would leave it
        QCOMPARE(logOn(net, server), 0);
        // Other ssh runs go through the master without logging on again.
        QCOMPARE(throughMaster(net, {"-o", "BatchMode=yes", server, "true"}), 0);
        // The journal of a unit is read on the far side through the same master: journalctl
        // ran there (the machine keeps no lines of these units), its name quoted for the shell.
        SystemdJournal::Options o;
        o.controlPath = [&net](const QString& s) { return net.controlPath(s); };
        SystemdJournal journal(o);
        for (const QString unit : {"velmora-none", "it's; false"})
            QCOMPARE(journal.lastLines(server, unit, 20).problem,
                     "The journal holds no lines of " + SystemdJournal::unitName(unit) + ".");

        // A second request for the same server reuses the master; another user is refused.
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(logOn(net, server, "nobody"), 1219);

        cancelAndWait(net);
        QVERIFY(throughMaster(net, {"-O", "check", server}) != 0);
        QCOMPARE(journal.lastLines(server, "velmora-none", 20).problem, "There is no connection to 127.0.0.1.");
        o.isWindows = [](const QString& s) { return s == "WIN1"; };
        QCOMPARE(SystemdJournal(o).lastLines("WIN1", "cron", 20).problem, QString("A Windows server keeps no journal."));
    }

    void programThatDiesLeavesNoMaster()
    {
        SKIP_IF(sshdMissing);
        // This test program again, in the role of a program that opens a connection and is then
        // killed without any chance to clean up.
        QProcess program;
        program.start(QCoreApplication::applicationFilePath(),
                      QStringList{"--hold-connection", server} + options("client_key"));
        QVERIFY(program.waitForStarted());
        QByteArray said;
        QTRY_VERIFY_WITH_TIMEOUT((said += program.readAllStandardOutput()).contains('\n'), ConnectMs);
        QVERIFY2(said.startsWith("connected "), said.constData());
        const QString path = QString::fromLocal8Bit(said.mid(10).trimmed());
        const qint64 pid = masterPid(path);
        QVERIFY(pid > 0);
        QCOMPARE(parentOf(pid), program.processId());
        ::kill(pid_t(program.processId()), SIGKILL);
        QVERIFY(program.waitForFinished());
        QTRY_COMPARE_WITH_TIMEOUT(parentOf(pid), qint64(0), ConnectMs);
        QTRY_VERIFY(!QFileInfo::exists(path));
        QTRY_COMPARE_WITH_TIMEOUT(processCount(sshd.processId()), 0, ConnectMs);

        // The folder it left is tidied away by the next connections object, once it has
        // settled; a live object's folder stays.
        const QString left = QFileInfo(path).path();
        QVERIFY(QFileInfo(left).isDir());
        SshConnections live;
        const QString liveFolder = QFileInfo(live.controlPath(server)).path();
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(left) || (SshConnections(), false), 10000);
        QVERIFY(QFileInfo(liveFolder).isDir());
    }

    void failuresMapToNetworkCodes()
    {
        SKIP_IF(sshdMissing);
        const auto logOnWith = [this](const QStringList& options, const QString& to) {
            SshConnections net(options);
            return logOn(net, to);
        };
        QCOMPARE(logOnWith(options("client_key", freePort()), server), 53); // connection refused
        QCOMPARE(logOnWith(options("wrong_key"), server), 1326);
    }

    // A peer that sends its banner and then nothing ends, within the program's own time
    // limits, in the failure an unreachable server gives. (One unanswered probe is made enough
    // here, so that the test waits one interval, not three.)
    void aServerThatStallsAfterItsBannerFailsAsUnreachable()
    {
        if (QStandardPaths::findExecutable("ssh").isEmpty())
            QSKIP("the ssh client is missing");
        QTcpServer stalling;
        QVERIFY(stalling.listen(QHostAddress::LocalHost));
        QList<QTcpSocket*> held;
        QObject::connect(&stalling, &QTcpServer::newConnection, &stalling, [&] {
            while (QTcpSocket* s = stalling.nextPendingConnection()) {
                s->write("SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n");
                held << s;
            }
        });
        SshConnections net({"-F", "/dev/null", "-p", QString::number(stalling.serverPort()), "-o", "ServerAliveCountMax=1",
                            "-o", "UserKnownHostsFile=" + file("known_hosts"), "-o", "GlobalKnownHostsFile=/dev/null"});
        QCOMPARE(logOn(net, "127.0.0.1"), 53);
        QCOMPARE(held.size(), 1);
        QCOMPARE(processCount(::getpid(), "ssh"), 0);
    }

    void passwordReachesSshThroughAskpass()
    {
        SKIP_IF(sshdMissing);
        // ssh asks for a key's passphrase the same way as for a password.
        SshConnections net(options("locked_key"));
        QCOMPARE(logOn(net, server, {}, "wrong words"), 1326);
        QCOMPARE(logOn(net, server, {}, "open sesame"), 0);
        QCOMPARE(throughMaster(net, {"-O", "check", server}), 0);
        cancelAndWait(net);
    }

    void askpassHelperWithoutItsConnectionAnswersNothing()
    {
        // A helper whose socket is not there, or whose token is not known, prints nothing.
        QProcess helper;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(velmora::platform::askpassTokenVariable, "00");
        SshConnections net;
        for (const QString& socket : {file("no-socket"), QFileInfo(net.controlPath("x")).path() + "/_ask"}) {
            env.insert(velmora::platform::askpassSocketVariable, socket);
            helper.setProcessEnvironment(env);
            helper.start(QCoreApplication::applicationFilePath(), {"root@x's password: "});
            QTRY_VERIFY_WITH_TIMEOUT(helper.state() == QProcess::NotRunning, ConnectMs);
            QCOMPARE(helper.exitCode(), 1);
            QCOMPARE(helper.readAllStandardOutput(), QByteArray());
        }
    }

    void whenKeysFailTheUserIsAskedForUserAndPassword()
    {
        SKIP_IF(passwordMissing);
        SimCredentialsPrompt prompt;
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{passwordUser, passwordOfUser});
        SshConnections net(options("wrong_key"), "ssh", &prompt);
        const QString path = net.controlPath(server);
        QCOMPARE(logOn(net, server), 0);
        // ssh tried this login's own name first; the user gave another one, and the logon
        // started anew as that user.
        const QString me = QString::fromLocal8Bit(::getpwuid(::geteuid())->pw_name);
        QCOMPARE(prompt.asked, QStringList{"credentials 127.0.0.1 " + me});
        QProcess who;
        who.start("ssh", {"-F", "/dev/null", "-S", path, server, "id -un"});
        QVERIFY(who.waitForFinished(ConnectMs));
        QCOMPARE(QString::fromUtf8(who.readAllStandardOutput()).trimmed(), passwordUser);

        // The password is nowhere but in memory: not in a file, not in the master's command
        // line or environment.
        const qint64 pid = masterPid(path);
        QVERIFY(pid > 0);
        QCOMPARE(filesHolding(dir.path(), passwordOfUser.toUtf8()), QStringList());
        for (const char* what : {"cmdline", "environ"}) {
            const QByteArray bytes = bytesOf(QStringLiteral("/proc/%1/%2").arg(pid).arg(what));
            QVERIFY(!bytes.isEmpty() && !bytes.contains(passwordOfUser.toUtf8()));
        }

        // It is kept for the run: connecting again asks nothing.
        cancelAndWait(net);
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(prompt.asked.size(), 1);
    }

    void aRefusedPasswordIsAskedForAgainAndCancelEndsTheLogon()
    {
        SKIP_IF(passwordMissing);
        SimCredentialsPrompt prompt;
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{passwordUser, "wrong"});
        prompt.credentials.push_back(std::nullopt);
        SshConnections net(options("wrong_key"), "ssh", &prompt);
        QCOMPARE(logOn(net, server, passwordUser), 1223);
        QCOMPARE(prompt.asked, (QStringList{"credentials 127.0.0.1 " + passwordUser,
                                            "credentials 127.0.0.1 " + passwordUser + " refused"}));
        // Nothing keeps running at the server after a cancel.
        QTRY_COMPARE_WITH_TIMEOUT(processCount(sshd.processId()), 0, ConnectMs);

        // A wrong password from the caller brings the dialog up, saying it was refused.
        prompt.asked.clear();
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{passwordUser, passwordOfUser});
        QCOMPARE(logOn(net, server, passwordUser, "not it"), 0);
        QCOMPARE(prompt.asked, QStringList{"credentials 127.0.0.1 " + passwordUser + " refused"});
        net.closeAll();
    }

    void anUnknownHostKeyShowsItsFingerprintAndIsTrustedOnlyOnYes()
    {
        SKIP_IF(sshdMissing);
        const QStringList key = fingerprintOf(file("host_key.pub"));
        const QString known = file("new_known_hosts");
        putBytes(known, "");
        SimCredentialsPrompt prompt;
        prompt.trust = {false, true};
        SshConnections net(options("client_key", 0, "new_known_hosts"), "ssh", &prompt);
        QCOMPARE(logOn(net, server), 1223);
        QCOMPARE(prompt.asked, QStringList{"trust 127.0.0.1 " + key.join(' ')});
        QCOMPARE(textOf(known), QString());

        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(prompt.asked.size(), 2);
        QVERIFY(textOf(known).contains(textOf(file("host_key.pub")).split(' ').value(1)));
        net.closeAll();

        // With nobody to ask, an unknown key is not trusted.
        putBytes(known, "");
        SshConnections alone(options("client_key", 0, "new_known_hosts"));
        QCOMPARE(logOn(alone, server), 1397);
        QCOMPARE(textOf(known), QString());
    }

    void aChangedHostKeyIsRefusedAndTheUserToldWhy()
    {
        SKIP_IF(sshdMissing);
        // The recorded key is another one than the server shows.
        const QString known = file("changed_known_hosts");
        putBytes(known, knownHostsLine("wrong_key"));
        SimCredentialsPrompt prompt;
        prompt.trust = {true};
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{"root", "x"});
        SshConnections net(options("client_key", 0, "changed_known_hosts"), "ssh", &prompt);
        QCOMPARE(logOn(net, server), 1397);
        // Neither trust nor a password is asked for: the user is told, with the key shown.
        QCOMPARE(prompt.asked, QStringList{"changed 127.0.0.1 " + fingerprintOf(file("host_key.pub")).join(' ')});
        QVERIFY2(prompt.keys.at(0).details.contains(known + ":1"), qPrintable(prompt.keys.at(0).details));
        QCOMPARE(textOf(known), QString::fromUtf8(knownHostsLine("wrong_key")));
        QTRY_COMPARE_WITH_TIMEOUT(processCount(::getpid(), "ssh"), 0, ConnectMs);
    }

    void endingAConnectionWhileTheUserIsAskedLeavesNothingBehind()
    {
        SKIP_IF(passwordMissing);
        SimCredentialsPrompt prompt;
        prompt.hold = true;
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{passwordUser, passwordOfUser});
        SshConnections net(options("wrong_key"), "ssh", &prompt);
        QObject context;
        int code = NotYet;
        net.add(&context, server, passwordUser, {}, [&code](int c) { code = c; });
        QTRY_COMPARE_WITH_TIMEOUT(prompt.held.size(), size_t(1), ConnectMs);
        net.cancel(server);
        QTRY_COMPARE(code, 1223);
        QTRY_COMPARE_WITH_TIMEOUT(processCount(::getpid(), "ssh"), 0, ConnectMs);
        QTRY_COMPARE_WITH_TIMEOUT(processCount(0, "self"), 0, ConnectMs);
        // The late answer goes nowhere; and the next question still comes.
        prompt.answerHeld();
        QTest::qWait(300);
        QCOMPARE(processCount(::getpid(), "ssh"), 0);
        QVERIFY(!QFileInfo::exists(net.controlPath(server)));

        prompt.hold = false;
        prompt.credentials.push_back(SimCredentialsPrompt::Credentials{passwordUser, passwordOfUser});
        QCOMPARE(logOn(net, server, passwordUser), 0);
        QCOMPARE(prompt.asked.size(), 2);
        net.closeAll();
    }

    void missingSshGives2FromTheEventLoop()
    {
        SshConnections net({}, file("no-ssh-here"));
        QObject context;
        int code = NotYet;
        net.add(&context, server, {}, {}, [&code](int c) { code = c; });
        QCOMPARE(code, NotYet);
        QTRY_COMPARE(code, 2);

        // Nothing is reported to a context that is gone.
        auto* gone = new QObject;
        bool called = false;
        net.add(gone, server, {}, {}, [&called](int) { called = true; });
        delete gone;
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QVERIFY(!called);
    }
};

// --hold-connection SERVER OPTIONS...: opens a connection, says "connected" and waits to be killed.
int holdConnection(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(2);
    const QString to = args.takeFirst();
    SshConnections net(args);
    net.add(&app, to, {}, {}, [&net, to](int code) {
        QTextStream(stdout) << (code == 0 ? "connected " + net.controlPath(to) : "failed") << Qt::endl;
    });
    return app.exec();
}

int main(int argc, char** argv)
{
    // The connections run this program as ssh's askpass helper, as they run the real one.
    if (velmora::platform::askpassRequested())
        return velmora::platform::askpassMain(argc, argv);
    if (argc > 2 && qstrcmp(argv[1], "--hold-connection") == 0)
        return holdConnection(argc, argv);
    QApplication app(argc, argv);
    TestSshConnections test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_sshconnections.moc"
