// The transports plugged into the action dispatcher: a failed service's action list sends the
// alert mail with the results of the actions before it, over SMTP (to aiosmtpd on loopback and
// on the simulated network) and through the mail profile, and sends its network message.
#include "actions/dispatcher.h"
#include "actions/mailing.h"
#include "actions/mailservers.h"
#include "core/datafolder.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

using namespace velmora;

namespace {

struct Rig {
    QTemporaryDir dir;
    platform::sim::SimPlatform sim;
    core::RunState state;
    QObject owner;
    platform::Timer* timer6 = nullptr;
    std::unique_ptr<actions::Mailing> mailing;
    std::unique_ptr<actions::ActionDispatcher> dispatcher;

    Rig()
    {
        state.platform = sim.platform();
        state.datafolder = dir.path();
        state.smtpserver = QStringLiteral("mail.corp.test");
        state.smtpport = 25;
        state.smtpsender = QStringLiteral("alerts@corp.test");
        sim.files.create(file(core::files::jobslog));
        // E-mail is switched on: the SMTP server is stored.
        sim.files.writeLines(file(core::files::smtpserver), {state.smtpserver, QStringLiteral("25"), state.smtpsender});
    }
    void build()
    {
        timer6 = sim.clock.createTimer(&owner, QStringLiteral("Timer6"), 250);
        mailing = std::make_unique<actions::Mailing>(state, nullptr);
        dispatcher = std::make_unique<actions::ActionDispatcher>(state, timer6, [this] { return state.datafolder; });
        mailing->connectTo(*dispatcher);
    }
    QString file(const QString& name) const { return core::dataFile(dir.path(), name); }
    QStringList log() { return sim.files.readLines(file(core::files::jobslog)).value_or(QStringList()); }
    bool run(const std::array<QString, 5>& entries)
    {
        state.currentserver = QStringLiteral("SRV1");
        state.currentservice = QStringLiteral("Spooler");
        state.currentstate = QStringLiteral("Stopped");
        bool done = false;
        dispatcher->runactions(QStringLiteral("SRV1"), QStringLiteral("Spooler"), QStringLiteral("Stopped"), entries,
                               [&] { done = true; });
        return QTest::qWaitFor([&] { return done; }, 30000);
    }
};

const QString kNetLine = QStringLiteral("The Net Message was successfully sent to PC9.");

} // namespace

class TestMailActions : public QObject {
    Q_OBJECT
private slots:
    void smtpAlertMailCarriesEarlierResults()
    {
        Rig rig;
        platform::sim::SimSmtpServer smtp;
        smtp.listen(rig.sim.tcp, QStringLiteral("mail.corp.test"), 25);
        rig.build();
        QVERIFY(rig.run({QStringLiteral("Net Message Send to:  PC9 "), QStringLiteral("Alert"), QString(),
                         QStringLiteral("Send Email to: admin@corp.test"), QString()}));
        QCOMPARE(rig.log(), (QStringList{kNetLine, "Alert activated", "Email sent to admin@corp.test"}));
        QCOMPARE(rig.state.netsendrecipient, QStringLiteral("PC9"));
        QCOMPARE(rig.state.mailaddress, QStringLiteral("admin@corp.test"));
        QCOMPARE(rig.sim.messenger.sent.value(0).recipient, QStringLiteral("PC9"));
        QCOMPARE(smtp.commands.value(2), QStringLiteral("rcpt to: admin@corp.test"));
        const QString msg = QString::fromLatin1(smtp.messages.value(0));
        QVERIFY2(msg.contains("\r\nSubject: Service Status SRV1 Spooler Stopped\r\n"), qPrintable(msg));
        QVERIFY2(msg.contains("  " + kNetLine + "  "), qPrintable(msg));
        QVERIFY2(msg.contains("  Alert activated  "), qPrintable(msg));
    }

    void profileAlertMailAndMissingProfileFileEndsTheDispatch()
    {
        Rig rig;
        rig.state.usesmtp = false;
        rig.sim.profilemail.profiles = {QStringLiteral("Office")};
        rig.build();

        // Without the profile file the mail ends the dispatch, with a line that says why: the
        // later slot does not run.
        QVERIFY(rig.run({QStringLiteral("Send Email to: admin@corp.test"), QStringLiteral("Alert"), QString(), QString(),
                         QString()}));
        QCOMPARE(rig.log(), QStringList{"Email to admin@corp.test not sent: the mail profile file is missing"});
        QVERIFY(!rig.timer6->isEnabled());

        rig.sim.files.remove(rig.file(core::files::jobslog));
        rig.sim.files.create(rig.file(core::files::jobslog));
        rig.sim.files.writeLines(rig.file(core::files::mailprofile), {QStringLiteral("Office")});
        QVERIFY(rig.run({QStringLiteral("Alert"), QStringLiteral("Send Email to: admin@corp.test"), QString(), QString(),
                         QStringLiteral("Net Message Send to: PC9")}));
        QCOMPARE(rig.log(), (QStringList{"Alert activated", "Email sent to:  admin@corp.test", kNetLine}));
        const auto& m = rig.sim.profilemail.sent.value(0);
        QCOMPARE(m.profile, QStringLiteral("Office"));
        QCOMPARE(m.recipient, QStringLiteral(" admin@corp.test"));
        QCOMPARE(m.subject, QStringLiteral("Service Status  SRV1  Spooler  Stopped"));
        QVERIFY2(m.body.contains(QStringLiteral("\r\nAlert activated\r\n")), qPrintable(m.body));
    }

    void realSmtpAlertMailReachesAiosmtpd()
    {
        test::SmtpSink sink;
        if (!sink.start())
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig;
        platform::QtTcpNetwork realTcp;
        rig.state.platform.tcp = &realTcp;
        rig.state.smtpserver = QStringLiteral("127.0.0.1");
        rig.state.smtpport = sink.port();
        rig.build();
        QVERIFY(rig.run({QStringLiteral("Alert"), QStringLiteral("Send Email to: admin@corp.test"), QString(), QString(),
                         QString()}));
        QCOMPARE(rig.log(), (QStringList{"Alert activated", "Email sent to admin@corp.test"}));
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("alerts@corp.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("admin@corp.test")});
        QVERIFY(r.value("data").toString().contains(QStringLiteral("Subject: Service Status SRV1 Spooler Stopped\r\n")));
        QVERIFY(r.value("data").toString().contains(QStringLiteral("  Alert activated  ")));
    }

};

QTEST_MAIN(TestMailActions)
#include "tst_mailactions.moc"
