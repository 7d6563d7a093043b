// Ssh control masters against a real sshd on loopback, with a host key, client keys and a
// port of this test's own.
#include "platform/linux/sshconnections.h"

#include <QApplication>
#include <QDir>
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

int childCount(qint64 pid)
{
    int n = 0;
    for (const QString& entry : QDir("/proc").entryList(QDir::Dirs)) {
        bool number = false;
        const qint64 other = entry.toLongLong(&number);
        if (number && parentOf(other) == pid)
            ++n;
    }
    return n;
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
    int throughMaster(const SshConnections& net, const QStringList& args)
    {
        QProcess p;
        p.start("ssh", QStringList{"-F", "/dev/null", "-S", net.controlPath(server)} + args);
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
            QCOMPARE(SshConnections::privateFolderProblem(folder), QString());
            QCOMPARE(QFileInfo(path).fileName(), QString("srv1"));
            QCOMPARE(net.controlPath("srv1"), path);
            // Nothing in a name can lead out of the folder or clash with a plain name.
            const QString odd = net.controlPath("../x/y z");
            QCOMPARE(QFileInfo(odd).path(), folder);
            QVERIFY(odd != net.controlPath("x_y_z"));
            QCOMPARE(QFileInfo(net.controlPath("..")).path(), folder);
            // Long names still fit a socket address.
            const QString longName = net.controlPath(QString(200, 'a') + ".example.org");
            QCOMPARE(QFileInfo(longName).path(), folder);
            QVERIFY(longName.toLocal8Bit().size() <= 90);
            QVERIFY(longName != net.controlPath(QString(201, 'a') + ".example.org"));
            // Two objects never share a folder.
            SshConnections other;
            QVERIFY(QFileInfo(other.controlPath("SRV1")).path() != folder);
        }
        // The folder goes with the object.
        QVERIFY(!QFileInfo::exists(folder));
    }

    void aRuntimeFolderOthersCanWriteIsNotUsed()
    {
        const QString shared = file("shared-run");
        QVERIFY(QDir().mkpath(shared));
        QVERIFY(QFile::setPermissions(shared, QFileDevice::Permissions(0x7777)));
        qputenv("XDG_RUNTIME_DIR", shared.toLocal8Bit());
        const QString path = SshConnections().controlPath("SRV1");
        qputenv("XDG_RUNTIME_DIR", runtimeDir.toLocal8Bit());
        QVERIFY(!path.startsWith(shared));
        QVERIFY(path.startsWith(QDir::tempPath() + "/velmora-ssh-"));
    }

    void privateFolderMeansOwnFolderModeOwnerOnly()
    {
        const QString good = file("good");
        QVERIFY(QDir().mkpath(good));
        QVERIFY(QFile::setPermissions(good, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        QCOMPARE(SshConnections::privateFolderProblem(good), QString());

        QVERIFY(QFile::link(good, file("link")));
        QVERIFY(SshConnections::privateFolderProblem(file("link")).contains("symbolic link"));

        const QString open = file("open");
        QVERIFY(QDir().mkpath(open));
        QVERIFY(QFile::setPermissions(open, QFileDevice::Permissions(0x7755)));
        QVERIFY(SshConnections::privateFolderProblem(open).contains("mode 0755"));

        QVERIFY(writeText(file("plain"), "x"));
        QVERIFY(SshConnections::privateFolderProblem(file("plain")).contains("not a folder"));
        QVERIFY(SshConnections::privateFolderProblem(file("none")).contains("cannot be examined"));

        if (::geteuid() == 0) {
            const QString foreign = file("foreign");
            QVERIFY(QDir().mkpath(foreign));
            QVERIFY(QFile::setPermissions(foreign, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
            QCOMPARE(::chown(QFile::encodeName(foreign).constData(), 65534, 65534), 0);
            QVERIFY(SshConnections::privateFolderProblem(foreign).contains("another user"));
        }
    }

    void keyLogonOpensASharedMasterThatCancelCloses()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        SshConnections net(options("client_key"));
        const QString path = net.controlPath(server);
        QCOMPARE(logOn(net, server), 0);
        QVERIFY(QFileInfo(path).exists());
        // The master is a child of this process, not a daemon of its own.
        const qint64 pid = masterPid(path);
        QVERIFY(pid > 0);
        QCOMPARE(parentOf(pid), qint64(::getpid()));
        // Other ssh runs go through the master without logging on again.
        QCOMPARE(throughMaster(net, {"-O", "check", server}), 0);
        QCOMPARE(throughMaster(net, {"-o", "BatchMode=yes", server, "true"}), 0);

        // A second request for the same server reuses the master; another user is refused.
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(logOn(net, server, "nobody"), 1219);

        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(path), ConnectMs);
        QVERIFY(throughMaster(net, {"-O", "check", server}) != 0);
    }

    void everyMasterAndItsSshdSessionEndsWithTheObject()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        QString path;
        qint64 pid = 0;
        {
            SshConnections net(options("client_key"));
            path = net.controlPath(server);
            QCOMPARE(logOn(net, server), 0);
            pid = masterPid(path);
            QVERIFY(pid > 0);
            QTRY_VERIFY(childCount(sshd.processId()) > 0);
        }
        QCOMPARE(parentOf(pid), qint64(0));
        QVERIFY(!QFileInfo::exists(path));
        QTRY_COMPARE_WITH_TIMEOUT(childCount(sshd.processId()), 0, ConnectMs);

        // closeAll() does the same for an object that lives on.
        SshConnections net(options("client_key"));
        path = net.controlPath(server);
        QCOMPARE(logOn(net, server), 0);
        pid = masterPid(path);
        QVERIFY(pid > 0);
        net.closeAll();
        QCOMPARE(parentOf(pid), qint64(0));
        QVERIFY(!QFileInfo::exists(path));
        QTRY_COMPARE_WITH_TIMEOUT(childCount(sshd.processId()), 0, ConnectMs);
        // And it connects again when asked.
        QCOMPARE(logOn(net, server), 0);
        QVERIFY(masterPid(path) > 0);
        net.closeAll();
    }

    void programThatDiesLeavesNoMaster()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
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
        QTRY_COMPARE_WITH_TIMEOUT(childCount(sshd.processId()), 0, ConnectMs);
    }

    void masterThatIgnoresTheRequestToEndIsKilled()
    {
        // A stand-in master that listens (its socket appears) and ignores SIGTERM.
        const QString fake = file("deaf-ssh");
        QVERIFY(writeText(fake,
                          "#!/bin/sh\n"
                          "echo $$ > \"$(dirname \"$0\")/deaf.pid\"\n"
                          ": > \"$3\"\n"
                          "trap '' TERM\n"
                          "exec sleep 600\n",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        QString path;
        {
            SshConnections net({}, fake);
            path = net.controlPath("DEAF");
            QCOMPARE(logOn(net, "DEAF"), 0);
            const qint64 pid = readText(file("deaf.pid")).trimmed().toLongLong();
            QCOMPARE(parentOf(pid), qint64(::getpid()));
            // cancel() does not wait for it ...
            net.cancel("DEAF");
            QCOMPARE(parentOf(pid), qint64(::getpid()));
            // ... and it is killed after the time-out, its socket removed.
            QTRY_COMPARE_WITH_TIMEOUT(parentOf(pid), qint64(0), SshConnections::stopTimeoutMs + 5000);
            QVERIFY(!QFileInfo::exists(path));

            // One still running when the object goes is killed as well.
            QCOMPARE(logOn(net, "DEAF"), 0);
        }
        QCOMPARE(parentOf(readText(file("deaf.pid")).trimmed().toLongLong()), qint64(0));
        QVERIFY(!QFileInfo::exists(path));
    }

    void socketLeftByAnEndedMasterIsReplaced()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        SshConnections net(options("client_key"));
        const QString path = net.controlPath(server);
        QVERIFY(writeText(path, "stale"));
        QCOMPARE(logOn(net, server), 0);
        QCOMPARE(throughMaster(net, {"-O", "check", server}), 0);
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
    }

    void passwordReachesSshThroughAskpass()
    {
        if (!sshdMissing.isEmpty())
            QSKIP(qPrintable(sshdMissing));
        // ssh asks for a key's passphrase the same way as for a password.
        SshConnections net(options("locked_key"));
        QCOMPARE(logOn(net, server, {}, "wrong words"), 1326);
        QCOMPARE(logOn(net, server, {}, "open sesame"), 0);
        QCOMPARE(throughMaster(net, {"-O", "check", server}), 0);
        net.cancel(server);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(net.controlPath(server)), ConnectMs);
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
                          ": > \"$3\"\n"
                          "exec sleep 600\n",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        SshConnections net({"-p", "2222"}, fake);
        QCOMPARE(logOn(net, "SRV9", "admin", "p@ss word;$(x)"), 0);
        const QStringList args = readText(file("args")).split('\n', Qt::SkipEmptyParts);
        const QStringList expected{"-M", "-S", net.controlPath("SRV9"), "-N", "-o", "ControlPersist=no",
                                   "-o", "BatchMode=no", "-o", "ConnectTimeout=10",
                                   "-o", "StrictHostKeyChecking=accept-new", "-p", "2222",
                                   "-l", "admin", "--", "SRV9"};
        QCOMPARE(args, expected);
        QCOMPARE(readText(file("require")), QString("force\n"));
        QCOMPARE(readText(file("answer")), QString("p@ss word;$(x)\n"));
        QCOMPARE(readText(file("confirm")), QString());
        QTRY_VERIFY(!QFileInfo::exists(readText(file("secret")).trimmed()));

        // Without a password ssh may not ask at all.
        net.cancel("SRV9");
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
    if (argc > 2 && qstrcmp(argv[1], "--hold-connection") == 0)
        return holdConnection(argc, argv);
    QApplication app(argc, argv);
    TestSshConnections test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_sshconnections.moc"
