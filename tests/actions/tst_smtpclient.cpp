// The SMTP dialogue: exact commands and message, every failure path on the simulated network
// with the simulated clock, and the real socket against aiosmtpd and scripted servers on
// loopback (the test mail on port 25 inside a network namespace of the test's own).
#include "actionrig.h"
#include "actions/mailing.h"
#include "actions/smtpmailwindow.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include "actions/smtpclient.h"
#include "actions/smtpmailwindow.h"
#include "actions/mailservers.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QTemporaryDir>
#include <QJsonArray>
#include <QLabel>
#include <QtTest>
#include <optional>

using namespace velmora;
using actions::SmtpClient;
using actions::SmtpMail;
using platform::sim::SimSmtpServer;
using test::ScriptedSmtpServer;

namespace {

SmtpMail sampleMail(const QString& host = QStringLiteral("mail.test"), int port = 25)
{
    SmtpMail m;
    m.host = host;
    m.port = port;
    m.fromName = QStringLiteral("Velmora");
    m.sender = QStringLiteral("alerts@velmora.test");
    m.recipient = QStringLiteral("admin@corp.test");
    m.mailer = QStringLiteral("Velmora");
    m.subject = QStringLiteral("Service Status SRV1 Spooler Stopped");
    m.body = QStringLiteral("Velmora has noticed that on: 02.03.2026  at: 08:00:00   the Service:  Spooler");
    return m;
}

// One client on a socket and a timer of the simulated clock, with its log and status texts.
struct Rig {
    platform::sim::SimClock clock;
    QObject owner;
    platform::TcpSocket* socket;
    SmtpClient* client;
    QStringList log, status;
    std::optional<bool> result;
    int completions = 0;

    explicit Rig(platform::TcpSocket* s) : socket(s)
    {
        s->setParent(&owner);
        auto* timer = clock.createTimer(&owner, QStringLiteral("Timer1"), 1000);
        client = new SmtpClient(socket, timer, clock, &owner);
        client->locale = QLocale::c();
        QObject::connect(client, &SmtpClient::logLine, &owner, [this](const QString& l) { log << l; });
        QObject::connect(client, &SmtpClient::statusChanged, &owner, [this](const QString& t) { status << t; });
        QObject::connect(client, &SmtpClient::finished, &owner, [this](bool ok) {
            result = ok;
            ++completions;
        });
    }
    // The wait runs out at its 16th second, not before.
    void waitOut()
    {
        clock.advance(15999);
        QVERIFY(!result);
        clock.advance(1);
        QCOMPARE(result, std::optional<bool>(false));
    }
    void send(const SmtpMail& m, bool withStatus = false)
    {
        client->send(m, withStatus);
    }
};

// A client on the simulated network, where an SMTP server answers for mail.test port 25.
struct SimRig {
    platform::sim::SimTcpNetwork net;
    SimSmtpServer server;
    Rig rig{[this] {
        server.listen(net, QStringLiteral("mail.test"), 25);
        return net.createSocket(nullptr, QStringLiteral("Winsock1"));
    }()};
};

// Each step of the dialogue, with the number of commands sent before its answer.
const QList<std::pair<const char*, int>> kSteps{{"greeting", 0}, {"helo", 1}, {"mail from", 2}, {"rcpt to", 3},
                                                {"data", 4},     {"message", 4}, {"quit", 5}};

const QStringList kCommands{QStringLiteral("HELO "), QStringLiteral("mail from: alerts@velmora.test"),
                            QStringLiteral("rcpt to: admin@corp.test"), QStringLiteral("DATA"),
                            QStringLiteral("quit")};

} // namespace

class TestSmtpClient : public QObject {
    Q_OBJECT
private slots:
        // ---- simulated network ----

    void dialogueSendsExactCommandsMessageAndStatusTexts()
    {
        SimRig sim;
        auto& [net, server, rig] = sim;
        rig.send(sampleMail(), true);

        QCOMPARE(rig.result, std::optional<bool>(true));
        QCOMPARE(rig.completions, 1);
        QCOMPARE(server.commands, kCommands);
        const QByteArray expected = "From: Velmora <alerts@velmora.test>\r\n"
                                    "Date: Mon, 02 Mar 2026 08:00:00 +0100\r\n"
                                    "X-Mailer: Velmora\r\n"
                                    "To:  <admin@corp.test>\r\n"
                                    "Subject: Service Status SRV1 Spooler Stopped\r\n"
                                    "\r\n"
                                    "Velmora has noticed that on: 02.03.2026  at: 08:00:00   the Service:  Spooler\r\n"
                                    "\r\n";
        QCOMPARE(server.messages, QList<QByteArray>{expected});
        QCOMPARE(rig.status, (QStringList{"Connecting...", "Connected", "Sending Email", "Disconnecting",
                                          "Nachricht verschickt !"}));
        QVERIFY(rig.log.isEmpty());
        QVERIFY(!rig.client->sending());
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
    }

    void messageDoublesLeadingDotsAndEndsLinesWithCrLf()
    {
        SmtpMail m = sampleMail();
        m.body = QStringLiteral("first\n.\n.second\r\nthird");
        const QByteArray msg = actions::smtpMessage(m, QDateTime(QDate(2026, 3, 2), QTime(8, 0)), QLocale::c());
        QVERIFY(msg.endsWith("\r\nfirst\r\n..\r\n..second\r\nthird\r\n\r\n.\r\n"));
        QVERIFY(!msg.contains("\n\n"));
    }

    void dateHeaderUsesLocaleNamesAndFixedZone()
    {
        const QDateTime at(QDate(2026, 12, 24), QTime(23, 5, 9));
        const QByteArray c = actions::smtpMessage(sampleMail(), at, QLocale::c());
        QVERIFY(c.contains("\r\nDate: Thu, 24 Dec 2026 23:05:09 +0100\r\n"));
        const QLocale german(QLocale::German, QLocale::Germany);
        const QByteArray de = actions::smtpMessage(sampleMail(), at, german);
        const QString expected = QStringLiteral("Date: ") + german.toString(at.date(), QStringLiteral("ddd")) + ", 24 "
            + german.toString(at.date(), QStringLiteral("MMM")) + " 2026 23:05:09 +0100";
        QVERIFY2(de.contains(expected.toLatin1()), de.constData());
    }

    // An error answer, none at all, or a hang-up during a wait: the wait runs out, nothing more
    // is sent (no QUIT either) and the connection is closed.
    void badAnswerAtAnyStepFailsAfterSixteenSeconds_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("commandsSent");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<bool>("hangUp");
        for (int step = 0; step < kSteps.size(); ++step) {
            const auto [name, sent] = kSteps[step];
            QTest::addRow("error at %s", name) << step << sent << "554 5.7.1 refused" << SmtpClient::kNoValidResponse
                                               << false;
            // Only a server that never greeted could not be connected to.
            QTest::addRow("silence at %s", name)
                << step << sent << "" << (step == 0 ? SmtpClient::kTimeOut : SmtpClient::kNoValidResponse) << false;
        }
        QTest::newRow("hang-up at rcpt to") << int(SimSmtpServer::RcptTo) << 3 << "" << SmtpClient::kNoValidResponse
                                            << true;
    }
    void badAnswerAtAnyStepFailsAfterSixteenSeconds()
    {
        QFETCH(int, step);
        QFETCH(int, commandsSent);
        QFETCH(QString, answer);
        QFETCH(QString, logLine);
        QFETCH(bool, hangUp);
        SimRig sim;
        auto& [net, server, rig] = sim;
        if (hangUp)
            server.hangUpAt = SimSmtpServer::Step(step);
        else
            server.answer[step] = answer;
        rig.send(sampleMail());
        QVERIFY(rig.client->sending());
        rig.waitOut();
        QCOMPARE(rig.log, QStringList{logLine});
        QCOMPARE(server.commands, kCommands.mid(0, commandsSent));
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
        QVERIFY(!rig.client->sending());
        rig.clock.advance(60000);
        QCOMPARE(rig.completions, 1);
    }

    void sendOnAClosedConnectionEndsWithoutLogLine()
    {
        // The server greets and closes at once: the HELO cannot be sent, which ends the dialogue
        // there and then, unlogged.
        SimRig sim;
        auto& [net, server, rig] = sim;
        platform::sim::SimTcpNetwork::Peer peer;
        peer.connected = [](platform::sim::SimTcpSocket& s) {
            s.reply("220 hello\r\n");
            s.hangUp();
        };
        net.listen(QStringLiteral("mail.test"), 25, peer);
        rig.send(sampleMail());
        QCOMPARE(rig.result, std::optional<bool>(false));
        QVERIFY(rig.log.isEmpty());
        QVERIFY(!rig.client->sending());
    }

    void refusedOrInvalidConnectionTimesOut_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::newRow("nobody listens") << "mail.test" << 2525;
        QTest::newRow("port 0 (not a number in the file)") << "mail.test" << 0;
        QTest::newRow("no host") << "" << 25;
    }
    void refusedOrInvalidConnectionTimesOut()
    {
        QFETCH(QString, host);
        QFETCH(int, port);
        SimRig sim;
        auto& [net, server, rig] = sim;
        rig.send(sampleMail(host, port));
        rig.waitOut();
        QCOMPARE(rig.log, QStringList{SmtpClient::kTimeOut});
        QVERIFY(server.commands.isEmpty());
    }

    void secondSendWhileSendingIsRefusedAtOnce()
    {
        SimRig sim;
        auto& [net, server, rig] = sim;
        server.answer[SimSmtpServer::Greeting].clear();
        rig.send(sampleMail());
        QVERIFY(!rig.client->send(sampleMail(), false));
        QCOMPARE(rig.completions, 0);
        QCOMPARE(static_cast<platform::sim::SimTcpSocket*>(rig.socket)->connects, 1);
        QVERIFY(rig.log.isEmpty());
        rig.clock.advance(16000);
        QCOMPARE(rig.result, std::optional<bool>(false));
        QCOMPARE(rig.log.size(), 1);
    }

    void connectionLeftOpenFailsTheSendAndIsClosed()
    {
        SimRig sim;
        auto& [net, server, rig] = sim;
        rig.socket->connectTo(QStringLiteral("mail.test"), 25);
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Connected);
        rig.send(sampleMail());
        QCOMPARE(rig.result, std::optional<bool>(false));
        QVERIFY(rig.log.isEmpty());
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
        // The next attempt runs normally.
        rig.send(sampleMail());
        QCOMPARE(rig.result, std::optional<bool>(true));
    }

    void onlyTheLatestPacketsFirstThreeCharactersCount()
    {
        // A multi-line greeting in one packet is fine; a reply split over two packets is never seen.
        SimRig sim;
        auto& [net, server, rig] = sim;
        server.answer[SimSmtpServer::Greeting] = QStringLiteral("220-mail.test ESMTP\r\n220 ready");
        platform::sim::SimTcpNetwork::Peer split = *net.peer(QStringLiteral("mail.test"), 25);
        const auto received = split.received;
        split.received = [received](platform::sim::SimTcpSocket& s, const QByteArray& bytes) {
            if (bytes.startsWith("HELO")) {
                s.reply("25");
                s.reply("0 hello\r\n");
                return;
            }
            received(s, bytes);
        };
        net.listen(QStringLiteral("mail.test"), 25, split);
        rig.send(sampleMail());
        rig.clock.advance(16000);
        QCOMPARE(rig.result, std::optional<bool>(false));
        QCOMPARE(rig.log, QStringList{SmtpClient::kNoValidResponse});
    }

    void garbageThenRightCodeWithinTheWaitSucceeds()
    {
        SimRig sim;
        auto& [net, server, rig] = sim;
        platform::sim::SimTcpNetwork::Peer peer;
        peer.connected = [](platform::sim::SimTcpSocket& s) { s.reply("\x01\x02garbage\r\n"); };
        net.listen(QStringLiteral("mail.test"), 25, peer);
        rig.send(sampleMail());
        rig.clock.advance(15000);
        QVERIFY(!rig.result);
        auto* sock = static_cast<platform::sim::SimTcpSocket*>(rig.socket);
        sock->reply("220 late but fine\r\n");
        QVERIFY(sock->sent.startsWith("HELO \r\n"));
        // The HELO wait starts over at zero.
        rig.waitOut();
        QCOMPARE(rig.log, QStringList{SmtpClient::kNoValidResponse});
    }

    // ---- real sockets ----

    void realDialogueDeliversToAiosmtpd()
    {
        test::SmtpSink sink;
        if (!sink.start())
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig(new platform::QtTcpSocket);
        SmtpMail m = sampleMail(QStringLiteral("127.0.0.1"), sink.port());
        m.body = QStringLiteral("first line\n.leading dot\nlast line");
        rig.send(m, true);
        QTRY_VERIFY_WITH_TIMEOUT(rig.result.has_value(), 20000);
        QCOMPARE(*rig.result, true);
        QVERIFY(rig.log.isEmpty());
        QCOMPARE(rig.status.last(), QStringLiteral("Nachricht verschickt !"));
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("helo").toString(), QString());
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("alerts@velmora.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("admin@corp.test")});
        const QString data = r.value("data").toString();
        QVERIFY2(data.startsWith("From: Velmora <alerts@velmora.test>\r\nDate: Mon, 02 Mar 2026 08:00:00 +0100\r\n"
                                 "X-Mailer: Velmora\r\nTo:  <admin@corp.test>\r\n"
                                 "Subject: Service Status SRV1 Spooler Stopped\r\n\r\n"),
                 qPrintable(data));
        QVERIFY2(data.endsWith("\r\n\r\nfirst line\r\n.leading dot\r\nlast line\r\n\r\n"), qPrintable(data));
        QCOMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
    }

    void realSilentServerTimesOut()
    {
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        Rig rig(new platform::QtTcpSocket);
        rig.send(sampleMail(QStringLiteral("127.0.0.1"), silent.serverPort()));
        QTRY_COMPARE(rig.socket->state(), platform::TcpSocket::State::Connected);
        QVERIFY(!rig.result);
        rig.clock.advance(16000);
        QCOMPARE(rig.result, std::optional<bool>(false));
        QCOMPARE(rig.log, QStringList{SmtpClient::kTimeOut});
    }

    void realErrorAnswerAtEachStep_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("commandsSent");
        for (int step = 0; step < kSteps.size(); ++step)
            QTest::newRow(kSteps[step].first) << step << kSteps[step].second;
    }

    void realErrorAnswerAtEachStep()
    {
        QFETCH(int, step);
        QFETCH(int, commandsSent);
        ScriptedSmtpServer server;
        server.answer[step] = QStringLiteral("451 4.3.0 try again later");
        QVERIFY(server.listen());
        Rig rig(new platform::QtTcpSocket);
        QSignalSpy arrivals(rig.socket, &platform::TcpSocket::dataArrived);
        rig.send(sampleMail(QStringLiteral("127.0.0.1"), server.port()));
        // Every reply up to the refusal has reached the client: the greeting, one per command, and
        // one for the message.
        QTRY_COMPARE(arrivals.count(), commandsSent + 1 + (step >= ScriptedSmtpServer::Message ? 1 : 0));
        QCOMPARE(server.commands.size(), commandsSent);
        QVERIFY(!rig.result);
        rig.clock.advance(16000);
        QCOMPARE(rig.result, std::optional<bool>(false));
        QCOMPARE(rig.log, QStringList{SmtpClient::kNoValidResponse});
        QCOMPARE(server.commands, kCommands.mid(0, commandsSent));
    }

    // A server that hangs up after MAIL FROM was reached: not a time-out while connecting.
    void realServerClosingMidDialogue()
    {
        ScriptedSmtpServer server;
        server.hangUpAt = ScriptedSmtpServer::MailFrom;
        QVERIFY(server.listen());
        Rig rig(new platform::QtTcpSocket);
        rig.send(sampleMail(QStringLiteral("127.0.0.1"), server.port()));
        QTRY_COMPARE(server.commands.size(), 2);
        QTRY_COMPARE(rig.socket->state(), platform::TcpSocket::State::Closed);
        QVERIFY(!rig.result);
        rig.clock.advance(16000);
        QCOMPARE(rig.result, std::optional<bool>(false));
        QCOMPARE(rig.log, QStringList{SmtpClient::kNoValidResponse});
    }

    void testMailAlwaysGoesToPort25()
    {
        if (geteuid() != 0)
            QSKIP("binding port 25 in a network namespace of its own needs root");
        test::NetNamespace ns;
        QVERIFY(ns.active());
        test::SmtpSink sink;
        if (!sink.start(QStringLiteral("127.0.0.1"), 25))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");

        test::ActionRig rig;
        platform::QtTcpNetwork realTcp;
        rig.state.platform.tcp = &realTcp;
        rig.storeSmtp(QStringLiteral("127.0.0.1"), 2525); // the configured port is not used by the test mail
        rig.build();
        rig.sim.files.remove(rig.file(QStringLiteral("Jobs.log")));
        actions::Mailing mailing(rig.state, *rig.mailer, rig.results(), nullptr);
        actions::SmtpMailWindow* form7 = mailing.form7();
        rig.mailer->client().locale = QLocale::c();
        form7->show();
        form7->Text5->setText(QStringLiteral("127.0.0.1"));
        form7->Text1->setText(QStringLiteral("Test Sender"));
        form7->Text2->setText(QStringLiteral("me@velmora.test"));
        form7->Text4->setText(QStringLiteral("you@corp.test"));
        form7->Text6->setText(QStringLiteral("Test subject"));
        form7->Text7->setPlainText(QStringLiteral("one\ntwo"));
        form7->Command1->click();
        QTRY_VERIFY_WITH_TIMEOUT(!rig.sim.boxes.shown.isEmpty(), 20000);
        QCOMPARE(rig.sim.boxes.texts(), QStringList{"Email successfully sent"});
        QCOMPARE(form7->Label1->text(), QStringLiteral("Nachricht verschickt !"));
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("me@velmora.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("you@corp.test")});
        const QString data = r.value("data").toString();
        QVERIFY2(data.startsWith("From: Test Sender <me@velmora.test>\r\nDate: "), qPrintable(data));
        QVERIFY2(data.contains("\r\nX-Mailer: Brisken\r\nTo:  <you@corp.test>\r\nSubject: Test subject\r\n\r\none\r\ntwo\r\n"),
                 qPrintable(data));
        // The test mail logs nothing.
        QVERIFY(!QFile::exists(rig.file(QStringLiteral("Jobs.log"))));
    }

};

QTEST_MAIN(TestSmtpClient)
#include "tst_smtpclient.moc"
