// The mail windows on the simulated platform, reached through the running main window: the
// SMTP test window Form7, the profile test window Form8 and the e-mail options Dialog, with the
// exact texts of their boxes and the files they write.
#include "actions/alertmail.h"
#include "actions/alertmailer.h"
#include "actions/dispatcher.h"
#include "actions/emailoptionsdialog.h"
#include "actions/mailing.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"
#include "actionrig.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QtTest>
#include <optional>

using namespace velmora;
using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;
using platform::sim::SimSmtpServer;

namespace {

const QString kNoSmtp = QStringLiteral("Please Specify an SMTP Server and Port and sender SMTP address ! ");
const QString kNoProfile = QStringLiteral("Please Specify a Email Profile !            ");
const QString kStillSending = QStringLiteral("Still sending Last Email please wait !");
const QString kNoAddress = QStringLiteral("No email address specified !");
const QString kQuestion = QStringLiteral(
    "Are You sure you want to disable Email function?  No Email can be send, if a service fails.\n"
    "If You have configured Velmora to send Email, please reconfigure Email Options.");

struct World {
    test::WindowFixture fx;
    shell::MainWindow* w = nullptr;
    actions::Mailing* mail = nullptr;
    SimSmtpServer smtp;

    // Starts the main window, with one data file written beforehand when given.
    explicit World(const QString& file = {}, const QStringList& lines = {})
    {
        if (!file.isEmpty())
            fx.writeFile(file, lines);
        w = &fx.start();
        mail = fx.program->mailing;
        // A failure whose actions have run: the test windows show its alert mail.
        core::MonitoredService spooler;
        spooler.servicename = QStringLiteral("Spooler");
        fx.program->dispatcher->runactions({QStringLiteral("SRV1"), spooler, QStringLiteral("Stopped"), {}}, {});
        fx.sim.boxes.shown.clear();
    }
    actions::AlertMailer& mailer() { return *fx.program->mailer; }
    actions::AlertMail alertMail()
    {
        const actions::ActionResults& r = fx.program->dispatcher->results();
        return actions::AlertMail::of(r.last, r, fx.sim.clock.now());
    }
    QStringList log() { return fx.sim.files.readLines(fx.path(QStringLiteral("Jobs.log"))).value_or(QStringList()); }
    QStringList texts() const { return fx.sim.boxes.texts(); }
    QList<MsgIcon> icons() const
    {
        QList<MsgIcon> out;
        for (const auto& box : fx.sim.boxes.shown)
            out << box.icon;
        return out;
    }
    QList<platform::sim::ShownBox> boxes() const { return fx.sim.boxes.shown; }
    // Shows the e-mail options with e-mail switched on (when it was off) and the given option.
    actions::EmailOptionsDialog* options(QRadioButton* actions::EmailOptionsDialog::* option = nullptr)
    {
        mail->showOptions();
        actions::EmailOptionsDialog* d = mail->dialog();
        if (option) {
            if (!d->Check1->isChecked())
                d->Check1->click();
            (d->*option)->click();
        }
        return d;
    }
    actions::SmtpMailWindow* form7(quint16 port = 25)
    {
        smtp.listen(fx.sim.tcp, QStringLiteral("mail.corp.test"), port);
        actions::SmtpMailWindow* f = mail->form7();
        f->show();
        f->Text5->setText(QStringLiteral("mail.corp.test"));
        return f;
    }
};

} // namespace

class TestMailWindows : public QObject {
    Q_OBJECT
private slots:
    // ---- Form7 (its test mail to a real server on port 25 is in the SMTP client's test) ----

    void form7FillsItsFieldsOnShow()
    {
        World world("SMTPServer", {"mail.corp.test", "587", "alerts@corp.test"});
        // The last alert mail's address, as its entry holds it.
        world.fx.program->dispatcher->runactions(
            {QStringLiteral("SRV1"), {{}, QStringLiteral("Spooler"), {"Send Email to:  admin@corp.test "}}, "Stopped", {}},
            {});
        actions::SmtpMailWindow* f = world.mail->form7();
        f->show();
        QCOMPARE((QStringList{f->Text1->text(), f->Text2->text(), f->Text3->text(), f->Text4->text(), f->Text5->text(),
                              f->Text8->text(), f->Text6->text(), f->Text7->toPlainText()}),
                 (QStringList{"Velmora", "alerts@corp.test", "", "admin@corp.test", "mail.corp.test", "25",
                              "Service Status SRV1 Spooler Stopped", world.alertMail().smtpBody()}));
        f->Command2->click();
        QVERIFY(!f->isVisible());
    }

    // No address or a mail under way (a test mail here; an alert mail holds the same client): a
    // box each, nothing sent; a failed test mail shows its error box after the wait and logs the
    // wait's line.
    void form7RefusesAndReportsAFailedTestMail()
    {
        World world;
        world.smtp.answer[SimSmtpServer::RcptTo] = QStringLiteral("550 no such user");
        actions::SmtpMailWindow* f = world.form7();
        f->Text4->clear();
        f->Command1->click();
        QCOMPARE(world.texts(), QStringList{kNoAddress});
        f->Text4->setText(QStringLiteral("nobody@corp.test"));
        f->Command1->click();
        QCOMPARE(world.texts().size(), 1);
        f->Command1->click();
        QCOMPARE(world.texts().mid(1), QStringList{kStillSending});
        world.fx.sim.clock.advance(16000);
        QCOMPARE(world.texts().mid(2), QStringList{"Error on sending Email"});
        QCOMPARE(world.icons().value(2), MsgIcon::Critical);
        QCOMPARE(world.log(), QStringList{actions::SmtpClient::kNoValidResponse});
        QCOMPARE(f->Label1->text(), QStringLiteral("Sending Email"));
        QCOMPARE(world.smtp.commands.size(), 3);
    }

    // A line break typed or pasted into a field that goes into a command or header of the mail
    // is refused with a box in both test windows; nothing is sent.
    void testWindowsRefuseLineBreaks_data()
    {
        QTest::addColumn<QString>("field"); // "Form7.Text4" ...
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("said");
        QTest::newRow("Form7 recipient, CR LF") << "Form7.Text4" << "you@corp.test\r\nRCPT TO:<spy@evil.test>"
                                                << "recipient's address";
        QTest::newRow("Form7 sender, LF") << "Form7.Text2" << "me@corp.test\nRCPT TO:<spy@evil.test>"
                                          << "sender's address";
        QTest::newRow("Form7 sender's name, CR") << "Form7.Text1" << "Velmora\rBcc: spy@evil.test" << "sender's name";
        QTest::newRow("Form7 subject, line separator") << "Form7.Text6" << QString("Status\u2028Bcc: spy@evil.test")
                                                       << "subject";
        QTest::newRow("Form8 recipient, CR LF") << "Form8.Text3" << "you@corp.test\r\nBcc: spy@evil.test"
                                                << "recipient's address";
        QTest::newRow("Form8 subject, LF") << "Form8.Text5" << "Status\nBcc: spy@evil.test" << "subject";
    }
    void testWindowsRefuseLineBreaks()
    {
        QFETCH(QString, field);
        QFETCH(QString, text);
        QFETCH(QString, said);
        World world("MailProfile", {"Office"});
        world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
        QWidget* form = field.startsWith("Form7") ? static_cast<QWidget*>(world.form7()) : world.mail->form8();
        form->show();
        for (const char* name : {"Text4", "Text3"}) {
            if (auto* recipient = form->findChild<QLineEdit*>(name); recipient && recipient->text().isEmpty())
                recipient->setText(QStringLiteral("you@corp.test"));
        }
        form->findChild<QLineEdit*>(field.section('.', 1))->setText(text);
        form->findChild<QPushButton*>("Command1")->click();
        QCOMPARE(world.texts().size(), 1);
        QVERIFY2(world.texts().first().contains("The " + said + " holds a line break"), qPrintable(world.texts().first()));
        QVERIFY(world.smtp.commands.isEmpty());
        QVERIFY(world.fx.sim.profilemail.sent.isEmpty());
    }

    // ---- Form8 ----

    // Filled from the stored profile and the last alert mail; refuses without a profile, then
    // without an address; sends, and reports a profile that fails.
    void form8FillsRefusesSendsAndReportsAFailingProfile()
    {
        World world("MailProfile", {"Office"});
        auto& profilemail = world.fx.sim.profilemail;
        actions::ProfileMailWindow* f = world.mail->form8();
        f->show();
        const QString body = world.alertMail().profileBody().replace("\r\n", "\n");
        QCOMPARE((QStringList{f->Text7->text(), f->Text3->text(), f->Text5->text(), f->Text6->toPlainText()}),
                 (QStringList{"Office", "", "Service Status  SRV1  Spooler  Stopped", body}));

        f->Text7->clear();
        f->Command1->click();
        f->Text7->setText(QStringLiteral("Office"));
        f->Command1->click();
        QCOMPARE(world.texts(), (QStringList{"No Outlook Profile specified !", kNoAddress}));
        QCOMPARE(world.icons(), (QList<MsgIcon>{MsgIcon::Information, MsgIcon::Information}));
        QVERIFY(profilemail.sent.isEmpty());

        profilemail.profiles = {QStringLiteral("Office")};
        f->Text3->setText(QStringLiteral("admin@corp.test"));
        f->Command1->click();
        QCOMPARE(profilemail.sent.size(), 1);
        const auto& m = profilemail.sent[0];
        QCOMPARE((QStringList{m.profile, m.recipient, m.subject, m.body}),
                 (QStringList{"Office", "admin@corp.test", "Service Status  SRV1  Spooler  Stopped", body}));
        QCOMPARE(world.texts().mid(2), QStringList{"Email sent to: admin@corp.test"});
        QCOMPARE(world.boxes()[2].icon, MsgIcon::None);

        f->Text7->setText(QStringLiteral("Office "));
        f->Command1->click();
        QCOMPARE(world.texts().mid(3), QStringList{QStringLiteral(" Error  %1  occured:   The profile Office  does not exist.")
                                                       .arg(platform::mailerror::logonFailed)});
        QCOMPARE(world.icons().value(3), MsgIcon::Critical);
        QVERIFY(world.log().isEmpty());

        // Without the file (e-mail switched off) the profile field is empty.
        f->hide();
        QFile::remove(world.fx.path("MailProfile"));
        f->show();
        QCOMPARE(f->Text7->text(), QString());
    }

    // ---- Dialog ----

    // With nothing stored: from the menu, switched off; switched on, it asks for an option, then
    // for the SMTP fields (the port takes only digits, Option2 refills 25); Cancel saves nothing
    // and hides the alert setup.
    void dialogWithNothingStoredAsksForWhatIsMissingAndCancelSavesNothing()
    {
        World world;
        world.w->mnusetemailoptions->trigger();
        actions::EmailOptionsDialog* d = world.mail->dialog();
        QVERIFY(d->isVisible());
        QVERIFY(!d->Check1->isChecked() && !d->Option2->isEnabled() && !d->Text2->isEnabled());
        // Still switched off, OK closes without a question.
        d->OKButton->click();
        QVERIFY(world.boxes().isEmpty());
        QVERIFY(!d->isVisible());

        world.options();
        d->Check1->click();
        d->OKButton->click();
        QCOMPARE(world.texts(), QStringList{"Please select an Option to send Email !            "});
        QVERIFY(d->isVisible());
        d->Option2->click();
        QCOMPARE(d->Text3->text(), QStringLiteral("25"));
        d->Text2->setText(QStringLiteral("mail.corp.test"));
        d->OKButton->click();
        d->Text4->setText(QStringLiteral("alerts@corp.test"));
        d->Text3->clear();
        QTest::keyClicks(d->Text3, QStringLiteral("ab"));
        QCOMPARE(d->Text3->text(), QString());
        d->OKButton->click();
        QCOMPARE(world.texts().mid(1), (QStringList{kNoSmtp, kNoSmtp}));
        QCOMPARE(world.icons(), QList<MsgIcon>(3, MsgIcon::Exclamation));
        QVERIFY(d->isVisible());

        int setupHidden = 0;
        QObject::connect(world.mail, &actions::Mailing::setupAlertHideRequested, world.mail, [&] { ++setupHidden; });
        d->CancelButton->click();
        QVERIFY(!d->isVisible());
        QCOMPARE(setupHidden, 1);
        QVERIFY(!world.fx.fileExists("SMTPServer"));
        QCOMPARE(world.boxes().size(), 3);
    }

    // From the profile to SMTP and back, as the files and the settings in memory show it at
    // every step, whatever closes the dialog: a switch with fields missing keeps the profile; a
    // profile whose logon fails is stored all the same; switching off then cancelling the
    // question keeps the stored transport; a file that cannot be written keeps it too; switching
    // off confirmed removes it.
    void dialogSwitchesTransportsAndNeverLeavesThemHalfSaved()
    {
        World world("MailProfile", {"Office"});
        world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
        const actions::MailSettings& s = world.mailer().settings();
        actions::EmailOptionsDialog* d = world.options();
        QVERIFY(d->Option1->isChecked());
        QCOMPARE(d->Text1->text(), QStringLiteral("Office"));

        d->Option2->click();
        QCOMPARE(d->Text1->text(), QString());
        d->OKButton->click();
        QCOMPARE(world.texts(), QStringList{kNoSmtp});
        QVERIFY(world.fx.fileExists("MailProfile"));
        d->Text2->setText(QStringLiteral("mail.corp.test"));
        d->Text3->setText(QStringLiteral("2525"));
        d->Text4->setText(QStringLiteral("alerts@corp.test"));
        d->OKButton->click();
        QVERIFY(!d->isVisible() && !world.fx.fileExists("MailProfile"));
        QCOMPARE(world.fx.readBytes("SMTPServer"), QByteArray("mail.corp.test\r\n2525\r\nalerts@corp.test\r\n"));
        QVERIFY(s.usesmtp && s.smtpport == 2525);

        world.options();
        QCOMPARE((QStringList{d->Text2->text(), d->Text3->text(), d->Text4->text()}),
                 (QStringList{"mail.corp.test", "2525", "alerts@corp.test"}));
        d->Option1->click();
        d->OKButton->click();
        QCOMPARE(world.texts().mid(1), QStringList{kNoProfile});
        // A profile whose logon fails is stored all the same.
        d->Text1->setText(QStringLiteral("Nope"));
        d->OKButton->click();
        QCOMPARE(world.texts().mid(2), QStringList{"Error : The profile Nope does not exist.\n\r\n\r"});
        QCOMPARE(world.icons().value(2), MsgIcon::Critical);
        QCOMPARE(world.fx.readBytes("MailProfile"), QByteArray("Nope\r\n"));
        QVERIFY(!world.fx.fileExists("SMTPServer") && !s.usesmtp);
        d->Text1->setText(QStringLiteral("Office"));
        d->OKButton->click();
        QVERIFY(!d->isVisible());
        QCOMPARE(world.fx.readBytes("MailProfile"), QByteArray("Office\r\n"));

        // Switching off and cancelling the question keeps the stored transport.
        world.options();
        d->Check1->click();
        world.fx.sim.boxes.script(MsgAnswer::Cancel);
        d->OKButton->click();
        QCOMPARE(world.texts().mid(3), QStringList{kQuestion});
        QCOMPARE(world.boxes()[3].icon, MsgIcon::Question);
        QCOMPARE(world.boxes()[3].buttons, MsgButtons::OkCancel);
        QVERIFY(!d->isVisible()); // closes all the same
        QVERIFY(world.fx.fileExists("MailProfile"));

        // So does a file that cannot be written.
        world.fx.sim.files.failOn(platform::sim::SimTextFiles::Op::Write, QStringLiteral("SMTPServer"));
        test::fillSmtpOptions(world.options(), "mail.corp.test", "a@corp.test");
        d->OKButton->click();
        QVERIFY(world.texts().value(4).startsWith(QStringLiteral("Could not save \"")));
        QCOMPARE(world.icons().value(4), MsgIcon::Critical);
        QVERIFY(d->isVisible());
        QVERIFY(world.fx.fileExists("MailProfile") && !world.fx.fileExists("SMTPServer") && !s.usesmtp);

        // Switched off and confirmed, the profile file goes.
        d->CancelButton->click();
        world.options();
        d->Check1->click();
        d->OKButton->click();
        QCOMPARE(world.texts().mid(5), QStringList{kQuestion});
        QVERIFY(!world.fx.fileExists("MailProfile"));
        world.options();
        QVERIFY(!d->Check1->isChecked());
    }

    // A test button saves what the dialog holds (or asks for what is missing) and opens its
    // test window, which shows what was saved.
    void dialogTestButtonsSaveAndOpenTheTestWindows()
    {
        World world;
        world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
        const actions::MailSettings& s = world.mailer().settings();
        actions::EmailOptionsDialog* d = world.options(&actions::EmailOptionsDialog::Option2);
        d->Text2->setText(QStringLiteral("mail.corp.test"));
        d->Command1->click();
        QCOMPARE(world.texts(), QStringList{kNoSmtp});
        QVERIFY(!world.mail->form7()->isVisible());
        d->Text4->setText(QStringLiteral("alerts@corp.test"));
        d->Command1->click();
        QCOMPARE(world.boxes().size(), 1);
        QVERIFY(world.fx.fileExists("SMTPServer") && s.usesmtp);
        QVERIFY(d->isVisible() && world.mail->form7()->isVisible());
        QCOMPARE(world.mail->form7()->Text5->text(), QStringLiteral("mail.corp.test"));
        QCOMPARE(world.mail->form7()->Text2->text(), QStringLiteral("alerts@corp.test"));
        world.mail->form7()->hide();

        d->Option1->click();
        d->Command2->click();
        QCOMPARE(world.texts(), (QStringList{kNoSmtp, kNoProfile}));
        QVERIFY(!world.mail->form8()->isVisible());
        d->Text1->setText(QStringLiteral("Office"));
        d->Command2->click();
        QCOMPARE(world.boxes().size(), 2);
        QVERIFY(!world.fx.fileExists("SMTPServer") && world.fx.fileExists("MailProfile") && !s.usesmtp);
        QVERIFY(d->isVisible() && world.mail->form8()->isVisible());
        QCOMPARE(world.mail->form8()->Text7->text(), QStringLiteral("Office"));
    }

    void switchingEmailOffAsksWhetherTheStoredPasswordGoesToo_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("kept");
        QTest::newRow("yes") << int(MsgAnswer::Yes) << false;
        QTest::newRow("no") << int(MsgAnswer::No) << true;
    }
    void switchingEmailOffAsksWhetherTheStoredPasswordGoesToo()
    {
        QFETCH(int, answer);
        QFETCH(bool, kept);
        World world("SMTPServer", {"mail.corp.test", "587", "a@corp.test"});
        world.fx.writeFile("SMTPOptions", {"modern=1", "user=alerts", "tls=starttls"});
        const QString key = QStringLiteral("smtp:alerts@mail.corp.test");
        world.fx.sim.secrets.secrets.insert(key, QStringLiteral("secret-pw"));
        actions::EmailOptionsDialog* d = world.options();
        d->Check1->click();
        world.fx.sim.boxes.script(MsgAnswer::Ok);
        world.fx.sim.boxes.script(MsgAnswer(answer));
        d->OKButton->click();
        QCOMPARE(world.texts(),
                 (QStringList{kQuestion, "Remove the SMTP password of alerts on mail.corp.test from the secret store as well?"}));
        QCOMPARE(world.boxes()[1].buttons, MsgButtons::YesNo);
        QVERIFY(!world.fx.fileExists("SMTPServer"));
        QCOMPARE(world.fx.sim.secrets.secrets.contains(key), kept);
    }

    // ---- start-up ----

    // The start-up logs on to the stored profile and shows why it failed; the checks behind it
    // (no box without a mail client, a stored SMTP server winning) are the mailer's own test.
    void startupChecksTheStoredProfile()
    {
        test::WindowFixture fx;
        fx.writeFile("MailProfile", {"Ghost"});
        fx.start();
        QVERIFY(fx.sim.boxes.texts().contains(QStringLiteral("Error : The profile Ghost does not exist.\n\r\n\r")));
    }
};

QTEST_MAIN(TestMailWindows)
#include "tst_mailwindows.moc"
