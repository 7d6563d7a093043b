// Profile mail through msmtp: reading accounts from a configuration, logon outcomes, and whole
// sends to aiosmtpd on loopback, directly and through the mail action with its job-log lines.
#include "actionrig.h"
#include "actions/mailservers.h"
#include "core/datafolder.h"
#include "platform/linux/msmtpmail.h"
#include "platform/sim/simplatform.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>
#include <optional>

using namespace velmora;
using platform::MailResult;
using platform::MsmtpMail;
namespace mailerror = platform::mailerror;

class TestProfileMail : public QObject {
    Q_OBJECT
private:
    MsmtpMail msmtp() const
    {
        MsmtpMail m;
        m.config = config_;
        return m;
    }
    bool haveMsmtp() const { return !QStandardPaths::findExecutable(QStringLiteral("msmtp")).isEmpty(); }

    QTemporaryDir dir_;
    QString config_;

    QString writeConfig(int port)
    {
        config_ = dir_.filePath(QStringLiteral("msmtprc"));
        QFile f(config_);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(QStringLiteral("defaults\nauth off\ntls off\n\naccount velmora\nhost 127.0.0.1\nport %1\n"
                               "from alerts@velmora.test\n\naccount backup : velmora\nfrom backup@velmora.test\n")
                    .arg(port)
                    .toUtf8());
        f.close();
        f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        return config_;
    }

private slots:
    void init() { config_.clear(); }

    void accountsAreReadFromEveryForm()
    {
        const QString text = QStringLiteral("defaults\n"
                                            "  account   first\r\n"
                                            "# account commented\n"
                                            "account second : first\n"
                                            "account \"with blank\"\n"
                                            "accounts notakeyword\n"
                                            "account default : second\n"
                                            "host account.test\n");
        QCOMPARE(MsmtpMail::accountsIn(text),
                 (QStringList{"first", "second", "with blank", "default"}));
    }

    void logonNeedsTheProgramAConfigurationAndTheAccount()
    {
        if (!haveMsmtp())
            QSKIP("msmtp is not installed");
        MsmtpMail none = msmtp();
        none.program = dir_.filePath(QStringLiteral("no-such-msmtp"));
        none.config = dir_.filePath(QStringLiteral("missing"));
        MailResult r = none.logon(QStringLiteral("velmora"));
        QCOMPARE(r.number, mailerror::noMailClient);
        QVERIFY(r.number > 0); // not the mail system's own error: no box at start-up

        MsmtpMail noConfig = msmtp();
        noConfig.config = dir_.filePath(QStringLiteral("missing"));
        r = noConfig.logon(QStringLiteral("velmora"));
        QCOMPARE(r.number, mailerror::logonFailed);
        QVERIFY(r.number < 0);
        QVERIFY(!r.description.isEmpty());

        writeConfig(25);
        QVERIFY(msmtp().logon(QStringLiteral("velmora")).ok());
        // Compared exactly: case and trailing blanks count.
        QCOMPARE(msmtp().logon(QStringLiteral("velmora ")).number, mailerror::logonFailed);
        QCOMPARE(msmtp().logon(QStringLiteral("Velmora")).number, mailerror::logonFailed);
    }

    void nonAsciiSubjectIsEncodedAndBodyKept()
    {
        const QByteArray msg = MsmtpMail::messageText(QStringLiteral("a@b.test"), QStringLiteral("Dienst gestoppt: Größe\nzwei"),
                                                      QStringLiteral("Prüfung\r\nok"));
        QVERIFY(msg.contains("Subject: =?UTF-8?B?"));
        QVERIFY(!msg.contains("Gr\xc3\xb6\xc3\x9f" "e"));
        QVERIFY(msg.contains("Content-Type: text/plain; charset=UTF-8\n"));
        QVERIFY(msg.endsWith("\n\nPr\xc3\xbc" "fung\nok\n"));
        // The encoded words decode to the subject with its line end turned into a blank.
        const qsizetype from = msg.indexOf("Subject: ") + 9;
        const QByteArray header = msg.mid(from, msg.indexOf("\nMIME-Version") - from);
        QByteArray decoded;
        for (QByteArray word : header.split(' ')) {
            word = word.trimmed();
            QVERIFY(word.startsWith("=?UTF-8?B?") && word.endsWith("?="));
            QVERIFY(word.size() <= 75);
            decoded += QByteArray::fromBase64(word.mid(10, word.size() - 12));
        }
        QCOMPARE(QString::fromUtf8(decoded), QStringLiteral("Dienst gestoppt: Größe zwei"));
    }

    void unusableRecipientFailsWithoutSending()
    {
        if (!haveMsmtp())
            QSKIP("msmtp is not installed");
        writeConfig(1);
        QObject context;
        for (const QString& bad : {QString(), QStringLiteral("john smith@corp.test"),
                                   QStringLiteral("a@b.test, c@d.test"), QStringLiteral("a@b.test\r\nBcc: x@y.test")}) {
            std::optional<MailResult> result;
            msmtp().send(&context, QStringLiteral("velmora"), bad, QStringLiteral("s"), QStringLiteral("b"),
                         [&](MailResult r) { result = r; });
            QVERIFY(!result); // reported later, never inside the call
            QTRY_VERIFY(result.has_value());
            QCOMPARE(result->number, mailerror::recipientUnresolved);
        }
    }

    void unreachableServerGivesMsmtpsOwnWords()
    {
        if (!haveMsmtp())
            QSKIP("msmtp is not installed");
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const int closedPort = probe.serverPort();
        probe.close();
        writeConfig(closedPort);
        QObject context;
        std::optional<MailResult> result;
        msmtp().send(&context, QStringLiteral("velmora"), QStringLiteral("admin@corp.test"), QStringLiteral("s"),
                     QStringLiteral("b"), [&](MailResult r) { result = r; });
        QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 30000);
        QCOMPARE(result->number, mailerror::callFailed);
        QVERIFY2(result->description.contains(QStringLiteral("cannot connect")), qPrintable(result->description));
        QVERIFY(!result->description.contains(QLatin1Char('\n')));
    }

    // The mail action through msmtp to aiosmtpd: an account that delivers (the address handed
    // over with the blank the action entry keeps before it), a profile that is no account.
    void mailActionDeliversThroughTheAccountAndLogsOutcomes()
    {
        if (!haveMsmtp())
            QSKIP("msmtp is not installed");
        test::SmtpSink sink;
        if (!sink.start())
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        writeConfig(sink.port());
        test::ActionRig rig;
        MsmtpMail real = msmtp();
        rig.state.platform.profilemail = &real;
        rig.build();
        const actions::MailText text{"Service Status  SRV1  Spooler  Stopped",
                                     "Velmora has noticed that\r\non: 02.03.2026  at: 08:00:00\r\n\r\nAlert activated"};
        auto send = [&] {
            std::optional<bool> goesOn;
            rig.mailer->subemail(" admin@corp.test", text, [&](bool on) { goesOn = on; });
            return QTest::qWaitFor([&] { return goesOn.has_value(); }, 30000) ? goesOn : std::nullopt;
        };

        rig.sim.files.writeLines(rig.file(core::files::mailprofile), {"velmora"});
        QCOMPARE(send(), std::optional<bool>(true));
        QCOMPARE(rig.lines(), QStringList{"Email sent to:  admin@corp.test"});
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("alerts@velmora.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("admin@corp.test")});
        const QString data = r.value("data").toString();
        QVERIFY2(data.contains("To: admin@corp.test\r\n"), qPrintable(data));
        QVERIFY2(data.contains("Subject: " + text.subject + "\r\n"), qPrintable(data));
        QVERIFY2(data.contains("\r\n\r\n" + text.body), qPrintable(data));

        // A profile that is no account: one error line, and the dispatch goes on.
        rig.sim.files.writeLines(rig.file(core::files::mailprofile), {"velmora "});
        QCOMPARE(send(), std::optional<bool>(true));
        QVERIFY2(rig.lines().value(1).startsWith("Error on sending Email: "), qPrintable(rig.lines().value(1)));
        QCOMPARE(sink.records().size(), 1);
    }

    void startupLogonShowsOnlyMailSystemErrorsAndSmtpWins()
    {
        test::ActionRig rig;
        rig.build();
        auto& sim = rig.sim;
        actions::AlertMailer& mailer = *rig.mailer;

        // No profile file: nothing happens.
        mailer.checkmailprofile();
        QVERIFY(mailer.settings().usesmtp);
        QCOMPARE(sim.profilemail.logons, 0);

        sim.files.writeLines(rig.file(core::files::mailprofile), {QStringLiteral("Office")});
        sim.profilemail.profiles = {QStringLiteral("Office")};
        mailer.checkmailprofile();
        QVERIFY(!mailer.settings().usesmtp);
        QCOMPARE(mailer.settings().mailprofile, QStringLiteral("Office"));
        QVERIFY(sim.boxes.shown.isEmpty());

        sim.profilemail.profiles.clear();
        mailer.checkmailprofile();
        QCOMPARE(sim.boxes.texts(), QStringList{"Error : The profile Office does not exist.\n\r\n\r"});
        QCOMPARE(sim.boxes.shown[0].icon, platform::MsgIcon::Critical);

        // No mail client at all: silent.
        sim.profilemail.installed = false;
        mailer.checkmailprofile();
        QCOMPARE(sim.boxes.shown.size(), 1);

        // A stored SMTP server wins over the profile.
        rig.storeSmtp(QStringLiteral("mail.corp.test"), 587);
        mailer.checkmailprofile();
        QVERIFY(mailer.settings().usesmtp);
        QCOMPARE(mailer.settings().smtpserver, QStringLiteral("mail.corp.test"));
        QCOMPARE(mailer.settings().smtpport, 587);
    }
};

QTEST_MAIN(TestProfileMail)
#include "tst_profilemail.moc"
