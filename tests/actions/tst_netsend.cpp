// Network messages: result lines, the action's log line and box, and the Samba transport
// against a real smbd on loopback inside a network namespace of the test's own.
#include "actionrig.h"
#include "actions/mailservers.h"
#include "platform/linux/smbmessenger.h"

#include "support/privatesmbd.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>
#include <optional>
#include <sys/stat.h>

using namespace velmora;
using platform::SmbMessenger;
namespace code = platform::netmsgerror;

namespace {

// smbd on 127.0.0.1 of the current network namespace, taking WinPopup messages into files.
class SmbServer {
public:
    // acceptMessages false: no message command, so smbd refuses messages.
    bool start(bool acceptMessages, QString* why)
    {
        // The message command runs as the guest user: it must reach and write the folder.
        const QString root = QFileInfo(smbd_.config()).path();
        QFile::setPermissions(root, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                        | QFileDevice::ReadOther | QFileDevice::ExeOther | QFileDevice::ReadGroup
                                        | QFileDevice::ExeGroup);
        QDir(root).mkpath(QStringLiteral("msgs"));
        ::chmod(QFile::encodeName(messageFolder()).constData(), 01777);
        QString conf = QStringLiteral("  netbios name = VELMORATEST\n  workgroup = VELMORA\n"
                                      "  server role = standalone server\n  server min protocol = NT1\n"
                                      "  client min protocol = NT1\n  disable netbios = no\n  smb ports = 139 445\n"
                                      "  map to guest = bad user\n  guest account = nobody\n");
        if (acceptMessages)
            conf += QStringLiteral("  message command = /bin/sh -c '/bin/cat %s > \"$(/bin/mktemp %1/msg.XXXXXX)\"; "
                                   "/bin/rm -f %s' &\n")
                        .arg(messageFolder());
        // Ready once it accepts connections on the NetBIOS session port.
        return smbd_.configure(conf) && smbd_.start(139, why);
    }
    QString config() const { return smbd_.config(); }
    QString messageFolder() const { return smbd_.path(QStringLiteral("msgs")); }
    QStringList messages() const
    {
        QStringList out;
        QDirIterator it(messageFolder(), {QStringLiteral("msg.*")}, QDir::Files);
        while (it.hasNext()) {
            QFile f(it.next());
            if (f.open(QIODevice::ReadOnly))
                out << QString::fromUtf8(f.readAll());
        }
        return out;
    }

private:
    testsupport::PrivateSmbd smbd_;
};

// An executable shell script standing in for smbclient.
QString fakeClient(const QTemporaryDir& dir, const QByteArray& script)
{
    const QString path = dir.filePath(QStringLiteral("smbclient"));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    f.write("#!/bin/sh\n" + script);
    f.close();
    f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return path;
}

int sendAndWait(SmbMessenger& m, const QString& recipient, const QString& text)
{
    QObject context;
    std::optional<int> result;
    m.send(&context, recipient, text, [&](int c) { result = c; });
    if (result)
        return -1000; // must never be reported inside the call
    if (!QTest::qWaitFor([&] { return result.has_value(); }, 60000))
        return -2000;
    return *result;
}

} // namespace

class TestNetSend : public QObject {
    Q_OBJECT
private slots:
    // What smbclient says in cases the real peers of realSmbclient cannot show here.
    void smbclientOutputMapsToCodes_data()
    {
        QTest::addColumn<int>("exit");
        QTest::addColumn<QString>("output");
        QTest::addColumn<int>("code");
        QTest::newRow("no such share name") << 1 << "tree connect failed: NT_STATUS_BAD_NETWORK_NAME\n"
                                            << code::nameNotFound;
        QTest::newRow("host unreachable") << 1 << "Error NT_STATUS_HOST_UNREACHABLE" << code::nameNotFound;
        QTest::newRow("access denied") << 1 << "Error NT_STATUS_ACCESS_DENIED" << code::accessDenied;
        QTest::newRow("net unreachable") << 1 << "Error NT_STATUS_NETWORK_UNREACHABLE" << code::connectionNotFound;
        QTest::newRow("not supported") << 1 << "NT_STATUS_NOT_SUPPORTED" << code::notSupported;
        QTest::newRow("other status") << 1 << "NT_STATUS_CONNECTION_RESET" << code::networkError;
        QTest::newRow("silent failure") << 1 << "" << code::networkError;
    }

    void smbclientOutputMapsToCodes()
    {
        QFETCH(int, exit);
        QFETCH(QString, output);
        QFETCH(int, code);
        QCOMPARE(SmbMessenger::codeForOutput(exit, output), code);
    }

    // The action's line and result are the dispatcher's test; the test button shows the line in
    // a box too, and the action none.
    void testButtonTellsInABoxAboutTheLastFailure()
    {
        test::ActionRig rig;
        rig.build();
        auto& sim = rig.sim;
        // The test button before any failure: a message with empty parts.
        rig.dispatcher->testnetsend(QStringLiteral("ADMINPC"));
        QCOMPARE(sim.messenger.sent.value(0).text, QStringLiteral("Velmora:  On    the service  is "));
        sim.boxes.shown.clear();
        QVERIFY(rig.run({"Net Message Send to: ADMINPC", "", "", "", ""}));
        QVERIFY(sim.boxes.shown.isEmpty());

        // The test button: the line, also in a box, about the last failure; the log waits for
        // the transport.
        sim.messenger.result = code::nameNotFound;
        sim.messenger.hold = true;
        rig.dispatcher->testnetsend(QStringLiteral("PC9"));
        QCOMPARE(rig.lines().size(), 2);
        sim.messenger.release();
        QCOMPARE(sim.messenger.sent.value(2).text, QStringLiteral("Velmora:  On  SRV1  the service spooler is Stopped"));
        const QString line = QStringLiteral("Error sending Net Message to PC9, user or workstation was not found.");
        QCOMPARE(rig.lines().last(), line);
        QCOMPARE(rig.results().netsend, line);
        QCOMPARE(sim.boxes.texts(), QStringList{line});
        QCOMPARE(sim.boxes.shown[0].icon, platform::MsgIcon::Information);
    }

    void badRecipientsAndMissingClientNeverRunSmbclient()
    {
        QTemporaryDir dir;
        SmbMessenger m;
        m.program = fakeClient(dir, "touch '" + QFile::encodeName(dir.path()) + "/ran'\n"); // records being run
        QCOMPARE(sendAndWait(m, QString(), QStringLiteral("text")), code::invalidParameter);
        QCOMPARE(sendAndWait(m, QStringLiteral("two words"), QStringLiteral("text")), code::invalidName);
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("ran"))));

        SmbMessenger missing;
        missing.program = dir.filePath(QStringLiteral("no-smbclient"));
        QCOMPARE(sendAndWait(missing, QStringLiteral("127.0.0.1"), QStringLiteral("text")), code::notSupported);
    }

    void hungClientIsStoppedAfterItsTimeOut()
    {
        QTemporaryDir dir;
        SmbMessenger m;
        m.program = fakeClient(dir, "exec sleep 60\n");
        m.timeout_ms = 300;
        QCOMPARE(sendAndWait(m, QStringLiteral("127.0.0.1"), QStringLiteral("text")), code::networkError);
    }

    // smbclient against real peers inside a network namespace of the test's own, so that its
    // NetBIOS broadcasts stay there: an smbd that takes the message, one without a message
    // command (which refuses it), an address where nobody listens, a DNS name under the reserved
    // .invalid domain and a bare NetBIOS name that no resolver knows. A name not found is never
    // a general network error.
    void realSmbclient_data()
    {
        QTest::addColumn<QString>("smbd"); // "takes", "refuses" or "none"
        QTest::addColumn<QString>("recipient");
        QTest::addColumn<bool>("sent");
        QTest::newRow("smbd takes the message") << "takes" << "localhost" << true;
        QTest::newRow("smbd without a message command") << "refuses" << "127.0.0.1" << false;
        QTest::newRow("nobody listening") << "refuses" << "127.0.0.2" << false;
        QTest::newRow("DNS name that does not resolve") << "none" << "velmora-nohost.invalid" << false;
        QTest::newRow("NetBIOS name that does not resolve") << "none" << "VELMORANOPC" << false;
    }
    void realSmbclient()
    {
        QFETCH(QString, smbd);
        QFETCH(QString, recipient);
        QFETCH(bool, sent);
        if (geteuid() != 0)
            QSKIP("a network namespace of the test's own needs root");
        if (QStandardPaths::findExecutable(QStringLiteral("smbclient")).isEmpty())
            QSKIP("smbclient is not installed");
        test::NetNamespace ns;
        QVERIFY(ns.active());
        SmbServer server;
        QString why, config = server.config();
        if (smbd == "none") {
            // The client's defaults otherwise, as a desktop without Samba configuration has them.
            QFile conf(config);
            QVERIFY(conf.open(QIODevice::WriteOnly));
            conf.write("[global]\n  client min protocol = NT1\n");
        } else if (!server.start(smbd == "takes", &why)) {
            QSKIP(qPrintable(why));
        }
        SmbMessenger real;
        real.extra_arguments = {QStringLiteral("-s"), config};
        test::ActionRig rig;
        rig.state.platform.messenger = &real;
        rig.build();
        rig.run({"Net Message Send to:  " + recipient + " ", "", "", "", ""});
        QTRY_COMPARE_WITH_TIMEOUT(rig.dones, 1, 60000);
        const QString text = QStringLiteral("Velmora:  On  SRV1  the service spooler is Stopped");
        QCOMPARE(rig.lines(), QStringList{sent ? "The Net Message was successfully sent to " + recipient + "."
                                               : "Error sending Net Message to " + recipient
                                                     + ", user or workstation was not found."});
        if (sent)
            QTRY_COMPARE_WITH_TIMEOUT(server.messages(), QStringList{text}, 20000);
        else
            QVERIFY(server.messages().isEmpty());
    }
};

QTEST_MAIN(TestNetSend)
#include "tst_netsend.moc"
