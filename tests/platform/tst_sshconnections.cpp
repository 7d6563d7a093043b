// Ssh control masters against a real sshd on loopback, with a host key, client keys and a
// port of this test's own.
#include "platform/linux/sshconnections.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using velmora::platform::SshConnections;

namespace {

constexpr int NotYet = -99;
constexpr int ConnectMs = 20000;

quint16 freePort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

QString readText(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

bool writeText(const QString& path, const QByteArray& text, QFileDevice::Permissions perms = {})
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
        return false;
    f.close();
    return !perms || f.setPermissions(perms);
}

} // namespace

class TestSshConnections : public QObject {
    Q_OBJECT
private:
    QTemporaryDir dir;
    QString runtimeDir;
    QString sshdMissing; // why the sshd cases cannot run, or empty
    QProcess sshd;
    quint16 port = 0;
    const QString server = QStringLiteral("127.0.0.1");

    QString file(const QString& name) const { return dir.filePath(name); }

    bool keygen(const QString& name, const QString& passphrase = {})
    {
        return QProcess::execute("ssh-keygen", {"-q", "-t", "ed25519", "-N", passphrase, "-C", name, "-f", file(name)}) == 0;
    }

    QStringList options(const QString& key, quint16 toPort = 0) const
    {
        return {"-F", "/dev/null",
                "-p", QString::number(toPort ? toPort : port),
                "-i", file(key),
                "-o", "IdentitiesOnly=yes",
                "-o", "IdentityAgent=none",
                "-o", "UserKnownHostsFile=" + file("known_hosts"),
                "-o", "GlobalKnownHostsFile=/dev/null",
                "-o", "StrictHostKeyChecking=no"};
    }

    // Runs ssh through an open master; the exit code, or -1.
    int throughMaster(const QStringList& args)
    {
        QProcess p;
        p.start("ssh", QStringList{"-F", "/dev/null", "-S", SshConnections::controlPath(server)} + args);
        if (!p.waitForFinished(ConnectMs) || p.exitStatus() != QProcess::NormalExit)
            return -1;
        return p.exitCode();
    }

    int logOn(SshConnections& net, const QString& to, const QString& user = {}, const QString& password = {})
    {
        QObject context;
        int code = NotYet;
        net.add(&context, to, user, password, [&code](int c) { code = c; });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(code != NotYet, ConnectMs); }();
        return code;
    }

    void closeMaster()
    {
        const QString path = SshConnections::controlPath(server);
        if (QFileInfo::exists(path))
            QProcess::execute("ssh", {"-q", "-S", path, "-O", "exit", server});
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
        if (!writeText(file("authorized_keys"), readText(file("client_key.pub")).toUtf8()
                                                    + readText(file("locked_key.pub")).toUtf8()))
            return "cannot write authorized_keys";
        port = freePort();
        const QByteArray config = QStringLiteral("Port %1\n"
                                                 "ListenAddress 127.0.0.1\n"
                                                 "HostKey %2\n"
                                                 "AuthorizedKeysFile %3\n"
                                                 "PidFile %4\n"
                                                 "StrictModes no\n"
                                                 "UsePAM no\n"
                                                 "PasswordAuthentication no\n"
                                                 "KbdInteractiveAuthentication no\n"
                                                 "PermitRootLogin prohibit-password\n")
                                      .arg(port)
                                      .arg(file("host_key"), file("authorized_keys"), file("sshd.pid"))
                                      .toUtf8();
        if (!writeText(file("sshd_config"), config))
            return "cannot write sshd_config";
        QDir().mkpath("/run/sshd"); // sshd's privilege separation folder
        sshd.setStandardOutputFile(file("sshd.log"));
        sshd.setStandardErrorFile(file("sshd.log"), QIODevice::Append);
        sshd.start(sshdPath, {"-D", "-e", "-f", file("sshd_config")});
        if (!sshd.waitForStarted())
            return "sshd does not start";
        for (int i = 0; i < 100; ++i) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, port);
            if (probe.waitForConnected(100))
                return {};
            if (sshd.state() == QProcess::NotRunning)
                return "sshd ended at once";
            QTest::qWait(50);
        }
        return "sshd does not listen";
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
    }

    void cleanupTestCase()
    {
        closeMaster();
        if (sshd.state() != QProcess::NotRunning) {
            sshd.terminate();
            sshd.waitForFinished(5000);
        }
    }

    void controlPathLivesInTheRuntimeFolderAndIgnoresCase()
    {
        QCOMPARE(SshConnections::controlPath("SRV1"), runtimeDir + "/velmora-ssh-srv1");
        QCOMPARE(SshConnections::controlPath("srv1"), SshConnections::controlPath("SRV1"));
        // Nothing in a name can lead out of the folder or clash with a plain name.
        const QString odd = SshConnections::controlPath("../x/y z");
        QCOMPARE(QFileInfo(odd).path(), runtimeDir);
        QVERIFY(odd != SshConnections::controlPath("x_y_z"));
        // Long names still fit a socket address.
        const QString longName = SshConnections::controlPath(QString(200, 'a') + ".example.org");
        QCOMPARE(QFileInfo(longName).path(), runtimeDir);
        QVERIFY(longName.toLocal8Bit().size() <= 90);
        QVERIFY(longName != SshConnections::controlPath(QString(201, 'a') + ".example.org"));
    }

    void keyLogonOpensASharedMasterThatCancelCloses()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        SshConnections net(options("client_key"));
        const QString path = SshConnections::controlPath(server);
        QCOMPARE(logOn(net, server), 0);
        QVERIFY(QFileInfo(path).exists());
        // Other ssh runs go through the master without logging on again.
        QCOMPARE(throughMaster({"-O", "check", server}), 0);
        QCOMPARE(throughMaster({"-o", "BatchMode=yes", server, "true"}), 0);

        // A second request for the same server reuses the master; another user is refused.
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(logOn(net, server, "nobody"), 1219);

        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(path), ConnectMs);
        QVERIFY(throughMaster({"-O", "check", server}) != 0);
    }

    void socketLeftByAnEndedMasterIsReplaced()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        const QString path = SshConnections::controlPath(server);
        QVERIFY(writeText(path, "stale"));
        SshConnections net(options("client_key"));
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(throughMaster({"-O", "check", server}), 0);
        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(path), ConnectMs);
    }

    void failuresMapToNetworkCodes()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        {
            SshConnections net(options("client_key", freePort()));
            QCOMPARE(logOn(net, server), 53); // connection refused
        }
        {
            SshConnections net(options("wrong_key"));
            QCOMPARE(logOn(net, server), 1326);
        }
        {
            SshConnections net(options("client_key"));
            QCOMPARE(logOn(net, "no-such-host-velmora.invalid"), 53);
        }
        QVERIFY(!QFileInfo::exists(SshConnections::controlPath(server)));
    }

    void passwordReachesSshThroughAskpass()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        // ssh asks for a key's passphrase the same way as for a password.
        SshConnections net(options("locked_key"));
        QCOMPARE(logOn(net, server, {}, "wrong words"), 1326);
        QCOMPARE(logOn(net, server, {}, "open sesame"), 0);
        QCOMPARE(throughMaster({"-O", "check", server}), 0);
        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(SshConnections::controlPath(server)), ConnectMs);
        // The password files are gone once ssh has logged on.
        QCOMPARE(QDir(runtimeDir).entryList({"velmora-pw-*"}, QDir::Files | QDir::Hidden), QStringList());
    }

    void commandLineCarriesNoPassword()
    {
        // A stand-in ssh that records what it was given and asks for the password as ssh does.
        const QString fake = file("fake-ssh");
        QVERIFY(writeText(fake,
                          "#!/bin/sh\n"
                          "printf '%s\\n' \"$@\" > \"$(dirname \"$0\")/args\"\n"
                          "echo \"$SSH_ASKPASS_REQUIRE\" > \"$(dirname \"$0\")/require\"\n"
                          "echo \"$VELMORA_ASKPASS_FILE\" > \"$(dirname \"$0\")/secret\"\n"
                          "\"$SSH_ASKPASS\" \"admin@srv9's password: \" > \"$(dirname \"$0\")/answer\"\n"
                          "\"$SSH_ASKPASS\" \"Are you sure you want to continue connecting (yes/no/[fingerprint])? \""
                          " > \"$(dirname \"$0\")/confirm\"\n"
                          "exit 0\n",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        SshConnections net({"-p", "2222"}, fake);
        QCOMPARE(logOn(net, "SRV9", "admin", "p@ss word;$(x)"), 0);
        const QStringList args = readText(file("args")).split('\n', Qt::SkipEmptyParts);
        const QStringList expected{"-M", "-S", SshConnections::controlPath("SRV9"), "-o", "ControlPersist=yes",
                                   "-o", "BatchMode=no", "-o", "ConnectTimeout=10",
                                   "-o", "StrictHostKeyChecking=accept-new", "-p", "2222", "-N", "-f",
                                   "-l", "admin", "--", "SRV9"};
        QCOMPARE(args, expected);
        QCOMPARE(readText(file("require")), QString("force\n"));
        QCOMPARE(readText(file("answer")), QString("p@ss word;$(x)\n"));
        QCOMPARE(readText(file("confirm")), QString());
        QTRY_VERIFY(!QFileInfo::exists(readText(file("secret")).trimmed()));

        // Without a password ssh may not ask at all.
        QCOMPARE(logOn(net, "SRV9"), 0);
        QVERIFY(readText(file("args")).contains("BatchMode=yes\n"));
        QCOMPARE(readText(file("require")), QString("never\n"));
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

QTEST_MAIN(TestSshConnections)
#include "tst_sshconnections.moc"
