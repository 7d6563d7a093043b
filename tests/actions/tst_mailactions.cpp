// The "Send Email to:" action as the check cycle runs it, with no window: the program is a
// QCoreApplication here, so a widget could not even be built. The alert mail carries the
// results of the actions before it, goes over SMTP (to aiosmtpd on loopback), is refused while
// another one is under way, ends the dispatch when the profile file is missing, and leaves a line
// when e-mail is switched off.
#include "actionrig.h"
#include "actions/mailservers.h"
#include "platform/linux/qttcpsocket.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTcpServer>
#include <QtTest>

using namespace velmora;

namespace {
const QString kNetLine = QStringLiteral("The Net Message was successfully sent to PC9.");
}

class TestMailActions : public QObject {
    Q_OBJECT
private slots:
    // Two alert mails of one dispatch to aiosmtpd, with no window: each carries the results of
    // the slots before it only.
    void smtpAlertMailsReachAiosmtpdWithTheResultsOfEarlierSlots()
    {
        test::SmtpSink sink;
        if (!sink.start())
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        test::ActionRig rig;
        rig.useRealTcp();
        rig.storeSmtp("127.0.0.1", sink.port());
        rig.build();
        QVERIFY(!rig.run({"Send Email to:  admin@corp.test ", "Net Message Send to:  PC9 ", "Restart Service",
                          "Send Email to: boss@corp.test", ""}));
        QTRY_COMPARE_WITH_TIMEOUT(rig.lines(), (QStringList{"Email sent to admin@corp.test", kNetLine}), 20000);
        rig.sim.clock.advance(actions::ActionDispatcher::kRestartWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(rig.dones, 1, 20000);
        const QString restart = QStringLiteral("Attemp to restart service : spooler Successfull");
        QCOMPARE(rig.lines(), (QStringList{"Email sent to admin@corp.test", kNetLine, restart,
                                           "Email sent to boss@corp.test"}));
        QCOMPARE(rig.results().mailaddress, QStringLiteral("boss@corp.test"));
        QTRY_COMPARE(sink.records().size(), 2);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("alerts@corp.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("admin@corp.test")});
        QVERIFY(r.value("data").toString().contains("is Stopped          \r\n\r\n"));
        const QString second = sink.records().value(1).value("data").toString();
        QVERIFY(second.contains("is Stopped  " + restart + "      " + kNetLine));
    }

    // A server that never greets keeps the first mail under way on a real socket.
    void aSecondAlertMailWhileOneIsUnderWayIsRefused()
    {
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        test::ActionRig rig;
        rig.useRealTcp();
        rig.storeSmtp("127.0.0.1", silent.serverPort());
        rig.build();
        bool first = true, second = true;
        rig.mailer->sendemail(QStringLiteral("admin@corp.test"), {}, [&](bool ok) { first = ok; });
        rig.mailer->sendemail(QStringLiteral("other@corp.test"), {}, [&](bool ok) { second = ok; });
        QVERIFY(!second);
        const QString refused = QStringLiteral("Email to other@corp.test not sent: another email is being sent");
        QCOMPARE(rig.lines(), QStringList{refused});
        QTRY_VERIFY(silent.hasPendingConnections());
        rig.sim.clock.advance(16000);
        QVERIFY(!first);
        QCOMPARE(rig.lines(), (QStringList{refused, actions::SmtpClient::kTimeOut}));
    }

    // The profile is the transport in use; with its file gone (e-mail stays on through a stored
    // SMTP server) the mail ends the dispatch with a line that says why.
    void aMissingProfileFileEndsTheDispatch()
    {
        test::ActionRig rig;
        rig.sim.profilemail.profiles = {QStringLiteral("Office")};
        rig.sim.files.writeLines(rig.file(core::files::mailprofile), {QStringLiteral("Office")});
        rig.build();
        QVERIFY(!rig.mailer->settings().usesmtp);
        rig.sim.files.remove(rig.file(core::files::mailprofile));
        rig.storeSmtp(QStringLiteral("mail.corp.test"), 25);
        QVERIFY(rig.run({"Send Email to: admin@corp.test", "Alert", "", "", ""}));
        QCOMPARE(rig.lines(), QStringList{"Email to admin@corp.test not sent: the mail profile file is missing"});
    }

    void alertMailWithEmailSwitchedOffLeavesALineAndTheListGoesOn()
    {
        test::ActionRig rig;
        rig.build();
        QVERIFY(rig.run({"Send Email to: admin@corp.test", "Start program: /usr/bin/xterm", "", "", ""}));
        QCOMPARE(rig.lines(), (QStringList{"Email to admin@corp.test not sent: " + actions::AlertMailer::kMailOff,
                                           "Program started: /usr/bin/xterm"}));
    }
};

QTEST_GUILESS_MAIN(TestMailActions)
#include "tst_mailactions.moc"
