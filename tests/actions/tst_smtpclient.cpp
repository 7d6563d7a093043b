// The classic SMTP dialogue: the exact message delivered to aiosmtpd, every refusal, silence and
// hang-up of a scripted server on a real socket, what only the simulated network can show, and
// the test mail on port 25 inside a network namespace of the test's own.
#include "actionrig.h"
#include "actions/mailing.h"
#include "actions/mailservers.h"
#include "actions/smtpmailwindow.h"
#include "actions/smtprig.h"

#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace velmora;
using actions::SmtpClient;
using platform::sim::SimSmtpServer;
using test::ScriptedSmtpServer;
using test::SmtpRig;
using test::sampleMail;

namespace {

// The header lines of sampleMail() sent at the simulated clock's start.
const QByteArray kHeaders = "From: Velmora <alerts@velmora.test>\r\nDate: Mon, 02 Mar 2026 08:00:00 +0100\r\n"
                            "X-Mailer: Velmora\r\nTo:  <admin@corp.test>\r\n"
                            "Subject: Service Status SRV1 Spooler Stopped\r\n\r\n";

const QStringList kCommands{"HELO ", "mail from: alerts@velmora.test", "rcpt to: admin@corp.test", "DATA", "quit"};

// A client on the simulated network, where an SMTP server answers for mail.test port 25. Only
// for what a real peer cannot show: a close racing the client's write, a reply arriving at a
// chosen second of the wait.
struct SimRig {
    platform::sim::SimTcpNetwork net;
    SimSmtpServer server;
    SmtpRig rig{[this] {
        server.listen(net, "mail.test", 25);
        return net.createSocket(nullptr, "Winsock1");
    }()};
    platform::sim::SimTcpSocket& socket() { return *static_cast<platform::sim::SimTcpSocket*>(rig.socket); }
    // Replaces the server on mail.test with one that does what connected says on each connection.
    void peer(std::function<void(platform::sim::SimTcpSocket&)> connected)
    {
        platform::sim::SimTcpNetwork::Peer p;
        p.connected = std::move(connected);
        net.listen("mail.test", 25, p);
    }
};

} // namespace

class TestSmtpClient : public QObject {
    Q_OBJECT
private slots:
    // A body with a lone dot line and a leading dot: aiosmtpd ends the message at an undoubled
    // one and strips the doubling, so what it keeps is what a reader sees.
    void dialogueDeliversTheExactMessageToAiosmtpd()
    {
        test::SmtpSink sink;
        if (!sink.start())
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        SmtpRig rig;
        actions::SmtpMail m = sampleMail("127.0.0.1", sink.port());
        m.body = "first line\n.\n.leading dot\r\nlast line";
        QVERIFY(rig.send(m, true));
        QCOMPARE(rig.completions, 1);
        QCOMPARE(rig.status, (QStringList{"Connecting...", "Connected", "Sending Email", "Disconnecting",
                                          "Nachricht verschickt !"}));
        QVERIFY(rig.log.isEmpty());
        QVERIFY(!rig.client->sending());
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), "alerts@velmora.test");
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{"admin@corp.test"});
        QCOMPARE(r.value("data").toString().toLatin1(), kHeaders + "first line\r\n.\r\n.leading dot\r\nlast line\r\n\r\n");
    }

    void dateHeaderUsesLocaleNamesAndFixedZone()
    {
        const QDateTime at(QDate(2026, 12, 24), QTime(23, 5, 9));
        QVERIFY(actions::smtpMessage(sampleMail(), at, QLocale::c()).contains("\r\nDate: Thu, 24 Dec 2026 23:05:09 +0100\r\n"));
        const QLocale german(QLocale::German, QLocale::Germany);
        const QByteArray de = actions::smtpMessage(sampleMail(), at, german);
        const QString expected = "Date: " + german.toString(at.date(), "ddd") + ", 24 " + german.toString(at.date(), "MMM")
            + " 2026 23:05:09 +0100";
        QVERIFY2(de.contains(expected.toLatin1()), de.constData());
    }

    // aiosmtpd answers every step rightly, so a server of the test's own on a real socket
    // refuses, stays silent or hangs up at the chosen step. The wait runs out at its 16th
    // second, nothing more is sent (no QUIT either) and the connection is closed.
    void refusalSilenceOrHangUpAtAnyStepFailsAfterSixteenSeconds_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("commandsSent");
        QTest::addColumn<QString>("logLine");
        const QList<std::pair<const char*, int>> steps{{"greeting", 0}, {"helo", 1},    {"mail from", 2}, {"rcpt to", 3},
                                                       {"data", 4},     {"message", 4}, {"quit", 5}};
        for (int step = 0; step < steps.size(); ++step) {
            const auto [name, sent] = steps[step];
            QTest::addRow("error at %s", name) << step << "error" << sent << SmtpClient::kNoValidResponse;
            // Only a server that never greeted could not be connected to.
            QTest::addRow("silence at %s", name)
                << step << "silence" << sent << (step == 0 ? SmtpClient::kTimeOut : SmtpClient::kNoValidResponse);
        }
        QTest::newRow("hang-up at mail from") << int(ScriptedSmtpServer::MailFrom) << "hang-up" << 2
                                              << SmtpClient::kNoValidResponse;
    }
    void refusalSilenceOrHangUpAtAnyStepFailsAfterSixteenSeconds()
    {
        QFETCH(int, step);
        QFETCH(QString, mode);
        QFETCH(int, commandsSent);
        QFETCH(QString, logLine);
        ScriptedSmtpServer server;
        if (mode == "hang-up")
            server.hangUpAt = step;
        else
            server.answer[step] = mode == "error" ? "451 4.3.0 try again later" : "";
        QVERIFY(server.listen());
        SmtpRig rig;
        QSignalSpy arrivals(rig.socket, &platform::TcpSocket::dataArrived);
        rig.client->send(sampleMail("127.0.0.1", server.port()), false);
        // Every reply up to the step has reached the client (the refusal too), or the hang-up has.
        QTRY_COMPARE(rig.socket->state(), mode == "hang-up" ? platform::TcpSocket::State::Closed
                                                             : platform::TcpSocket::State::Connected);
        if (mode != "hang-up")
            QTRY_COMPARE(arrivals.count(), step + (mode == "error" ? 1 : 0));
        QTRY_COMPARE(server.commands, kCommands.mid(0, commandsSent));
        QVERIFY(rig.client->sending());
        rig.waitOut();
        QCOMPARE(rig.log, QStringList{logLine});
        QCOMPARE(server.commands, kCommands.mid(0, commandsSent));
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
        QVERIFY(!rig.client->sending());
        rig.clock.advance(60000);
        QCOMPARE(rig.completions, 1);
    }

    void refusedConnectionTimesOut()
    {
        SimRig sim;
        sim.rig.client->send(sampleMail("mail.test", 2525), false);
        sim.rig.waitOut();
        QCOMPARE(sim.rig.log, QStringList{SmtpClient::kTimeOut});
        QVERIFY(sim.server.commands.isEmpty());
    }

    // The server greets and closes at once: the HELO cannot be sent, which ends the dialogue
    // there and then, unlogged.
    void sendOnAClosedConnectionEndsWithoutLogLine()
    {
        SimRig sim;
        sim.peer([](platform::sim::SimTcpSocket& s) {
            s.reply("220 hello\r\n");
            s.hangUp();
        });
        sim.rig.client->send(sampleMail("mail.test"), false);
        QCOMPARE(sim.rig.result, std::optional<bool>(false));
        QVERIFY(sim.rig.log.isEmpty());
        QVERIFY(!sim.rig.client->sending());
    }

    // Form7's test mail: the window's fields, not the stored settings (the sender's name field
    // stays out of the mail), always to port 25, a box and no job-log line.
    void testMailAlwaysGoesToPort25()
    {
        if (geteuid() != 0)
            QSKIP("binding port 25 in a network namespace of its own needs root");
        test::NetNamespace ns;
        QVERIFY(ns.active());
        test::SmtpSink sink;
        if (!sink.start("127.0.0.1", 25))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");

        test::ActionRig rig;
        rig.useRealTcp();
        rig.storeSmtp("127.0.0.1", 2525); // the configured port is not used by the test mail
        rig.build();
        actions::Mailing mailing(rig.state, *rig.mailer, rig.results(), nullptr);
        actions::SmtpMailWindow* form7 = mailing.form7();
        rig.mailer->client().locale = QLocale::c();
        form7->show();
        form7->Text5->setText("127.0.0.1");
        form7->Text1->setText("Test Sender");
        form7->Text2->setText("me@velmora.test");
        form7->Text3->setText("Admin Name");
        form7->Text4->setText("you@corp.test");
        form7->Text6->setText("Test subject");
        form7->Text7->setPlainText("one\ntwo");
        form7->Command1->click();
        QTRY_VERIFY_WITH_TIMEOUT(!rig.sim.boxes.shown.isEmpty(), 20000);
        QCOMPARE(rig.sim.boxes.texts(), QStringList{"Email successfully sent"});
        QCOMPARE(rig.sim.boxes.shown[0].icon, platform::MsgIcon::Information);
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), "me@velmora.test");
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{"you@corp.test"});
        const QString data = r.value("data").toString();
        QVERIFY2(data.startsWith("From: Test Sender <me@velmora.test>\r\nDate: "), qPrintable(data));
        QVERIFY2(data.contains("\r\nX-Mailer: Brisken\r\nTo:  <you@corp.test>\r\nSubject: Test subject\r\n\r\none\r\ntwo\r\n"),
                 qPrintable(data));
        QVERIFY(!data.contains("Admin Name"));
        QVERIFY(rig.lines().isEmpty()); // the test mail logs nothing
    }
};

QTEST_MAIN(TestSmtpClient)
#include "tst_smtpclient.moc"
