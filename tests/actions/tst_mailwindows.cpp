// The mail windows on the simulated platform, reached through the running main window: the
// SMTP test window Form7, the profile test window Form8 and the e-mail options Dialog, with the
// exact texts of their boxes and the files they write.
#include "actions/emailoptionsdialog.h"
#include "actions/mailing.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"
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
const QString kQuestion = QStringLiteral(
    "Are You sure you want to disable Email function?  No Email can be send, if a service fails.\n"
    "If You have configured Velmora to send Email, please reconfigure Email Options.");

struct World {
    test::WindowFixture fx;
    shell::MainWindow* w = nullptr;
    actions::Mailing* mail = nullptr;
    SimSmtpServer smtp;

    explicit World(const std::function<void(test::WindowFixture&)>& prepare = {})
    {
        if (prepare)
            prepare(fx);
        w = &fx.start();
        mail = w->mailing;
        mail->smtpText = [] { return actions::MailText{"Service Status SRV1 Spooler Stopped", "smtp body"}; };
        mail->mapiText = [] { return actions::MailText{"Service Status  SRV1  Spooler  Stopped", "mapi body"}; };
        fx.sim.boxes.shown.clear();
    }
    QStringList log()
    {
        return fx.sim.files.readLines(fx.path(QStringLiteral("Jobs.log"))).value_or(QStringList());
    }
    QStringList fileLines(const QString& name)
    {
        return fx.sim.files.readLines(fx.path(name)).value_or(QStringList());
    }
    QList<platform::sim::ShownBox> boxes() const { return fx.sim.boxes.shown; }
};

} // namespace

class TestMailWindows : public QObject {
    Q_OBJECT
private slots:
    // Form7
    void form7ShowsItsControlsAndFillsFieldsOnShow();
    void form7SendsTestMailToPort25AndReports();
    void form7RefusesWhileSendingAndWithoutAddress();
    void form7FailureShowsErrorBoxAndLogsTheWait();
    void alertMailIsTrimmedLoggedAndRefusedWhileSending();
    // Form8
    void form8FillsProfileAndMailText();
    void form8RefusesWithoutProfileBeforeAddress();
    void form8SendsThroughTheProfileAndReportsErrors();
    void form8AllowsOneSendAtATime();
    // Dialog
    void dialogFromTheMenuShowsNoTransportWhenNothingStored();
    void dialogAsksForAnOptionAndForTheSmtpFields();
    void dialogSavesSmtpAndRefreshesTheSettings();
    void dialogSwitchesToProfileAndLogsOn();
    void dialogKeepsAProfileWhoseLogonFails();
    void dialogDisablingAsksAndCancelKeepsTheFile();
    void dialogUncheckedWithoutTransportClosesWithoutQuestion();
    void dialogPortFieldTakesOnlyNumbersAndOption2Refills25();
    void dialogTestButtonsSaveAndOpenTheTestWindows();
    void dialogCancelSavesNothingAndHidesSetupAlert();
    // Start-up
    void startupChecksTheProfileAndSmtpWins();
};

// ---- Form7 ----

void TestMailWindows::form7ShowsItsControlsAndFillsFieldsOnShow()
{
    World world;
    world.w->state.smtpserver = QStringLiteral("mail.corp.test");
    world.w->state.smtpport = 587;
    world.w->state.smtpsender = QStringLiteral("alerts@corp.test");
    world.w->state.mailaddress = QStringLiteral(" admin@corp.test ");
    actions::SmtpMailWindow* f = world.mail->form7();
    QCOMPARE(f->objectName(), QStringLiteral("Form7"));
    QCOMPARE(f->windowTitle(), QStringLiteral("Test SMTP eMail"));
    QVERIFY(!f->isVisible());
    QCOMPARE(f->findChild<QGroupBox*>("Frame1")->title(), QStringLiteral("Sender:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame2")->title(), QStringLiteral("Recipient:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame3")->title(), QStringLiteral("SMTP Server:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame4")->title(), QStringLiteral("Subject:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame5")->title(), QStringLiteral("Body:"));
    QCOMPARE(f->findChild<QLabel*>("Label1")->text(), QStringLiteral("Sending SMTP Mail......"));
    QCOMPARE(f->findChild<QPushButton*>("Command1")->text(), QStringLiteral("&Send Email"));
    QCOMPARE(f->findChild<QPushButton*>("Command2")->text(), QStringLiteral("&Close"));
    QVERIFY(f->findChild<platform::Timer*>("Timer1"));
    QVERIFY(f->findChild<platform::TcpSocket*>("Winsock1"));

    f->show();
    QCOMPARE(f->Text1->text(), QStringLiteral("Velmora"));
    QCOMPARE(f->Text2->text(), QStringLiteral("alerts@corp.test"));
    QCOMPARE(f->Text3->text(), QString());
    QCOMPARE(f->Text4->text(), QStringLiteral("admin@corp.test"));
    QCOMPARE(f->Text5->text(), QStringLiteral("mail.corp.test"));
    QCOMPARE(f->Text8->text(), QStringLiteral("587"));
    QCOMPARE(f->Text6->text(), QStringLiteral("Service Status SRV1 Spooler Stopped"));
    QCOMPARE(f->Text7->toPlainText(), QStringLiteral("smtp body"));
    f->Command2->click();
    QVERIFY(!f->isVisible());
}

void TestMailWindows::form7SendsTestMailToPort25AndReports()
{
    World world;
    world.smtp.listen(world.fx.sim.tcp, QStringLiteral("mail.corp.test"), 25);
    world.w->state.smtpport = 2525; // not used by the test mail
    actions::SmtpMailWindow* f = world.mail->form7();
    f->show();
    f->Text5->setText(QStringLiteral("mail.corp.test"));
    f->Text2->setText(QStringLiteral("me@corp.test"));
    f->Text3->setText(QStringLiteral("Admin Name"));
    f->Text4->setText(QStringLiteral("you@corp.test"));
    f->Text7->setPlainText(QStringLiteral("line one\nline two"));
    f->Command1->click();

    QCOMPARE(world.smtp.commands, (QStringList{"HELO ", "mail from: me@corp.test", "rcpt to: you@corp.test", "DATA", "quit"}));
    const QByteArray msg = world.smtp.messages.value(0);
    QVERIFY2(msg.startsWith("From: Velmora <me@corp.test>\r\nDate: "), msg.constData());
    QVERIFY2(msg.contains("\r\nX-Mailer: Brisken\r\nTo:  <you@corp.test>\r\nSubject: Service Status SRV1 Spooler Stopped\r\n\r\nline one\r\nline two\r\n\r\n"),
             msg.constData());
    QVERIFY(!msg.contains("Admin Name"));
    QCOMPARE(f->Label1->text(), QStringLiteral("Nachricht verschickt !"));
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("Email successfully sent"));
    QCOMPARE(world.boxes()[0].icon, MsgIcon::Information);
    QVERIFY(world.log().isEmpty());
    QVERIFY(f->isVisible());
}

void TestMailWindows::form7RefusesWhileSendingAndWithoutAddress()
{
    World world;
    world.smtp.answer[SimSmtpServer::Greeting].clear(); // never answers
    world.smtp.listen(world.fx.sim.tcp, QStringLiteral("mail.corp.test"), 25);
    actions::SmtpMailWindow* f = world.mail->form7();
    f->show();
    f->Text4->clear();
    f->Command1->click();
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("No email address specified !"));

    // An alert mail is under way: the test window refuses.
    world.w->state.smtpserver = QStringLiteral("mail.corp.test");
    world.w->state.smtpport = 25;
    std::optional<bool> alert;
    world.mail->sendemail(QStringLiteral("admin@corp.test"), {}, [&](bool ok) { alert = ok; });
    QVERIFY(!alert);
    f->Text4->setText(QStringLiteral("you@corp.test"));
    f->Command1->click();
    QCOMPARE(world.boxes().size(), 2);
    QCOMPARE(world.boxes()[1].text, QStringLiteral("Still sending Last Email please wait !"));
    QCOMPARE(world.smtp.commands.size(), 0);
    world.fx.sim.clock.advance(16000);
    QCOMPARE(alert, std::optional<bool>(false));
}

void TestMailWindows::form7FailureShowsErrorBoxAndLogsTheWait()
{
    World world;
    world.smtp.answer[SimSmtpServer::RcptTo] = QStringLiteral("550 no such user");
    world.smtp.listen(world.fx.sim.tcp, QStringLiteral("mail.corp.test"), 25);
    actions::SmtpMailWindow* f = world.mail->form7();
    f->show();
    f->Text5->setText(QStringLiteral("mail.corp.test"));
    f->Text4->setText(QStringLiteral("nobody@corp.test"));
    f->Command1->click();
    QVERIFY(world.boxes().isEmpty());
    // Still sending: a second press is refused.
    f->Command1->click();
    QCOMPARE(world.boxes().value(0).text, QStringLiteral("Still sending Last Email please wait !"));
    world.fx.sim.clock.advance(16000);
    QCOMPARE(world.boxes().size(), 2);
    QCOMPARE(world.boxes()[1].text, QStringLiteral("Error on sending Email"));
    QCOMPARE(world.boxes()[1].icon, MsgIcon::Critical);
    QCOMPARE(world.log(), QStringList{actions::SmtpClient::kNoValidResponse});
    QCOMPARE(f->Label1->text(), QStringLiteral("Sending Email"));
}

void TestMailWindows::alertMailIsTrimmedLoggedAndRefusedWhileSending()
{
    World world;
    world.smtp.listen(world.fx.sim.tcp, QStringLiteral("mail.corp.test"), 2525);
    core::RunState& s = world.w->state;
    s.smtpserver = QStringLiteral("mail.corp.test");
    s.smtpport = 2525;
    s.smtpsender = QStringLiteral("alerts@corp.test");
    QStringList busy;
    world.mail->alertBusy = [&](bool on) { busy << (on ? "wait" : "normal"); };
    std::optional<bool> result;
    world.mail->sendemail(QStringLiteral(" admin@corp.test"), {"Service Status SRV1 Spooler Stopped", "alert body"},
                          [&](bool ok) { result = ok; });
    QCOMPARE(result, std::optional<bool>(true));
    QCOMPARE(world.smtp.commands.value(1), QStringLiteral("mail from: alerts@corp.test"));
    QCOMPARE(world.smtp.commands.value(2), QStringLiteral("rcpt to: admin@corp.test"));
    const QByteArray msg = world.smtp.messages.value(0);
    QVERIFY2(msg.startsWith("From: Velmora <alerts@corp.test>\r\n"), msg.constData());
    QVERIFY(msg.contains("\r\nX-Mailer: Velmora\r\nTo:  <admin@corp.test>\r\nSubject: Service Status SRV1 Spooler Stopped\r\n\r\nalert body\r\n\r\n"));
    QCOMPARE(world.log(), QStringList{"Email sent to admin@corp.test"});
    QCOMPARE(busy, (QStringList{"wait", "normal"}));
    QVERIFY(!world.mail->form7()->isVisible());

    // A second alert mail while one is under way is refused silently.
    world.smtp.answer[SimSmtpServer::Greeting].clear();
    result.reset();
    world.mail->sendemail(QStringLiteral("admin@corp.test"), {}, [&](bool ok) { result = ok; });
    std::optional<bool> second;
    world.mail->sendemail(QStringLiteral("other@corp.test"), {}, [&](bool ok) { second = ok; });
    QCOMPARE(second, std::optional<bool>(false));
    QCOMPARE(world.log().size(), 1);
    world.fx.sim.clock.advance(16000);
    QCOMPARE(result, std::optional<bool>(false));
    QCOMPARE(world.log(), (QStringList{"Email sent to admin@corp.test", actions::SmtpClient::kTimeOut}));
}

// ---- Form8 ----

void TestMailWindows::form8FillsProfileAndMailText()
{
    World world([](test::WindowFixture& fx) { fx.writeFile("MailProfile", {"Office"}); });
    actions::ProfileMailWindow* f = world.mail->form8();
    QCOMPARE(f->objectName(), QStringLiteral("Form8"));
    QCOMPARE(f->windowTitle(), QStringLiteral("Test Outlook eMail"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame1")->title(), QStringLiteral("Outlook Profile:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame5")->title(), QStringLiteral("Recipient:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame3")->title(), QStringLiteral("Subject:"));
    QCOMPARE(f->findChild<QGroupBox*>("Frame2")->title(), QStringLiteral("Body:"));
    f->show();
    QCOMPARE(f->Text7->text(), QStringLiteral("Office"));
    QCOMPARE(f->Text3->text(), QString());
    QCOMPARE(f->Text5->text(), QStringLiteral("Service Status  SRV1  Spooler  Stopped"));
    QCOMPARE(f->Text6->toPlainText(), QStringLiteral("mapi body"));
    QCOMPARE(world.w->state.mailprofile, QStringLiteral("Office"));

    // Without the file (e-mail switched off) the profile field is empty.
    f->hide();
    QFile::remove(world.fx.path("MailProfile"));
    f->show();
    QCOMPARE(f->Text7->text(), QString());
}

void TestMailWindows::form8RefusesWithoutProfileBeforeAddress()
{
    World world;
    actions::ProfileMailWindow* f = world.mail->form8();
    f->show();
    f->Text7->clear();
    f->Text3->clear();
    f->Command1->click();
    f->Text7->setText(QStringLiteral("Office"));
    f->Command1->click();
    QCOMPARE(world.boxes().size(), 2);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("No Outlook Profile specified !"));
    QCOMPARE(world.boxes()[0].icon, MsgIcon::Information);
    QCOMPARE(world.boxes()[1].text, QStringLiteral("No email address specified !"));
    QCOMPARE(world.boxes()[1].icon, MsgIcon::Information);
    QVERIFY(world.fx.sim.profilemail.sent.isEmpty());
}

void TestMailWindows::form8SendsThroughTheProfileAndReportsErrors()
{
    World world([](test::WindowFixture& fx) { fx.writeFile("MailProfile", {"Office"}); });
    world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
    actions::ProfileMailWindow* f = world.mail->form8();
    f->show();
    f->Text3->setText(QStringLiteral("admin@corp.test"));
    f->Command1->click();
    QCOMPARE(world.fx.sim.profilemail.sent.size(), 1);
    const auto& m = world.fx.sim.profilemail.sent[0];
    QCOMPARE(m.profile, QStringLiteral("Office"));
    QCOMPARE(m.recipient, QStringLiteral("admin@corp.test"));
    QCOMPARE(m.subject, QStringLiteral("Service Status  SRV1  Spooler  Stopped"));
    QCOMPARE(m.body, QStringLiteral("mapi body"));
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("Email sent to: admin@corp.test"));
    QCOMPARE(world.boxes()[0].icon, MsgIcon::None);
    QCOMPARE(world.boxes()[0].buttons, MsgButtons::Ok);
    QVERIFY(world.log().isEmpty());

    f->Text7->setText(QStringLiteral("Office "));
    f->Command1->click();
    QCOMPARE(world.boxes().size(), 2);
    QCOMPARE(world.boxes()[1].text,
             QStringLiteral(" Error  %1  occured:   The profile Office  does not exist.").arg(platform::mailerror::logonFailed));
    QCOMPARE(world.boxes()[1].icon, MsgIcon::Critical);
    QVERIFY(world.log().isEmpty());
}

void TestMailWindows::form8AllowsOneSendAtATime()
{
    World world;
    world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
    world.fx.sim.profilemail.hold = true;
    actions::ProfileMailWindow* f = world.mail->form8();
    f->show();
    f->Text7->setText(QStringLiteral("Office"));
    f->Text3->setText(QStringLiteral("admin@corp.test"));
    f->Command1->click();
    QVERIFY(!f->Command1->isEnabled());
    QCOMPARE(world.fx.sim.profilemail.pending(), 1);
    f->testoutlookmail();
    QCOMPARE(world.fx.sim.profilemail.pending(), 1);
    QVERIFY(world.boxes().isEmpty());
    world.fx.sim.profilemail.release();
    QVERIFY(f->Command1->isEnabled());
    QCOMPARE(world.boxes().size(), 1);
}

// ---- Dialog ----

void TestMailWindows::dialogFromTheMenuShowsNoTransportWhenNothingStored()
{
    World world;
    world.w->mnusetemailoptions->trigger();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    QVERIFY(d->isVisible());
    QCOMPARE(d->objectName(), QStringLiteral("Dialog"));
    QCOMPARE(d->windowTitle(), QStringLiteral("Set Email Options"));
    QCOMPARE(d->Check1->text(), QStringLiteral("Enable Email function ( if not checked Email function will be removed )"));
    QCOMPARE(d->Option1->text(), QStringLiteral("Send Email via installed Mapi Client (Outlook)"));
    QCOMPARE(d->Option2->text(), QStringLiteral("Send Email via SMTP Server"));
    QCOMPARE(d->Frame1->title(), QStringLiteral("Email Profilename:"));
    QCOMPARE(d->Label1->text(), QStringLiteral("Please specify a Email Profile to use !"));
    QCOMPARE(d->Frame2->title(), QStringLiteral("SMTP Server Name/Port"));
    QCOMPARE(d->Label2->text(), QStringLiteral("Please specify an SMTP Server Name or IP  and port Nr to use !"));
    QCOMPARE(d->Label3->text(), QStringLiteral("Port:"));
    QCOMPARE(d->Label4->text(), QStringLiteral("Please specify the sender email SMTP address:"));
    QCOMPARE(d->Command1->text(), QStringLiteral("Send SMTP Testmail..."));
    QCOMPARE(d->Command2->text(), QStringLiteral("Send Outlook Testmail..."));
    QCOMPARE(d->OKButton->text(), QStringLiteral("&OK"));
    QCOMPARE(d->CancelButton->text(), QStringLiteral("&Cancel"));

    QVERIFY(!d->Check1->isChecked());
    for (QWidget* c : std::initializer_list<QWidget*>{d->Option1, d->Option2, d->Text1, d->Text2, d->Text3, d->Text4,
                                                      d->Command1, d->Command2})
        QVERIFY2(!c->isEnabled(), qPrintable(c->objectName()));
}

void TestMailWindows::dialogAsksForAnOptionAndForTheSmtpFields()
{
    World world;
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    QVERIFY(d->Option1->isEnabled() && d->Option2->isEnabled());
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("Please select an Option to send Email !            "));
    QCOMPARE(world.boxes()[0].icon, MsgIcon::Exclamation);
    QVERIFY(d->isVisible());

    d->Option2->click();
    QCOMPARE(d->Text3->text(), QStringLiteral("25"));
    d->Text2->setText(QStringLiteral("mail.corp.test"));
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 2);
    QCOMPARE(world.boxes()[1].text, kNoSmtp);
    QCOMPARE(world.boxes()[1].icon, MsgIcon::Exclamation);
    QVERIFY(d->isVisible());
    QVERIFY(!world.fx.fileExists("SMTPServer"));
}

void TestMailWindows::dialogSavesSmtpAndRefreshesTheSettings()
{
    World world([](test::WindowFixture& fx) { fx.writeFile("MailProfile", {"Office"}); });
    world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    QVERIFY(d->Check1->isChecked());
    QVERIFY(d->Option1->isChecked());
    QCOMPARE(d->Text1->text(), QStringLiteral("Office"));
    QVERIFY(d->Text1->isEnabled() && d->Command2->isEnabled());
    QVERIFY(!d->Text2->isEnabled() && !d->Command1->isEnabled());

    d->Option2->click();
    QCOMPARE(d->Text1->text(), QString());
    QVERIFY(!d->Text1->isEnabled() && !d->Command2->isEnabled());
    d->Text2->setText(QStringLiteral("mail.corp.test"));
    d->Text3->setText(QStringLiteral("2525"));
    d->Text4->setText(QStringLiteral("alerts@corp.test"));
    d->OKButton->click();
    QVERIFY(world.boxes().isEmpty());
    QVERIFY(!d->isVisible());
    QVERIFY(!world.fx.fileExists("MailProfile"));
    QCOMPARE(world.fx.readBytes("SMTPServer"), QByteArray("mail.corp.test\r\n2525\r\nalerts@corp.test\r\n"));
    const core::RunState& s = world.w->state;
    QVERIFY(s.usesmtp);
    QCOMPARE(s.smtpserver, QStringLiteral("mail.corp.test"));
    QCOMPARE(s.smtpport, qint16(2525));
    QCOMPARE(s.smtpsender, QStringLiteral("alerts@corp.test"));

    // Shown again, it shows the stored transport.
    world.mail->showOptions();
    QVERIFY(d->Option2->isChecked());
    QCOMPARE(d->Text2->text(), QStringLiteral("mail.corp.test"));
    QCOMPARE(d->Text3->text(), QStringLiteral("2525"));
    QCOMPARE(d->Text4->text(), QStringLiteral("alerts@corp.test"));
    QVERIFY(d->Command1->isEnabled() && !d->Command2->isEnabled());
}

void TestMailWindows::dialogSwitchesToProfileAndLogsOn()
{
    World world([](test::WindowFixture& fx) { fx.writeFile("SMTPServer", {"mail.corp.test", "25", "a@corp.test"}); });
    world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    QVERIFY(d->Option2->isChecked());
    d->Option1->click();
    QCOMPARE(d->Text2->text(), QString());
    d->OKButton->click();
    QCOMPARE(world.boxes().value(0).text, kNoProfile);
    d->Text1->setText(QStringLiteral("Office"));
    const int logons = world.fx.sim.profilemail.logons;
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 1);
    QVERIFY(!d->isVisible());
    QCOMPARE(world.fx.sim.profilemail.logons, logons + 1);
    QVERIFY(!world.fx.fileExists("SMTPServer"));
    QCOMPARE(world.fx.readBytes("MailProfile"), QByteArray("Office\r\n"));
    QVERIFY(!world.w->state.usesmtp);
    QCOMPARE(world.w->state.mailprofile, QStringLiteral("Office"));
}

void TestMailWindows::dialogKeepsAProfileWhoseLogonFails()
{
    World world;
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    d->Option1->click();
    d->Text1->setText(QStringLiteral("Nope"));
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, QStringLiteral("Error : The profile Nope does not exist.\n\r\n\r"));
    QCOMPARE(world.boxes()[0].icon, MsgIcon::Critical);
    QVERIFY(d->isVisible());
    QCOMPARE(world.fx.readBytes("MailProfile"), QByteArray("Nope\r\n"));
}

void TestMailWindows::dialogDisablingAsksAndCancelKeepsTheFile()
{
    World world([](test::WindowFixture& fx) { fx.writeFile("MailProfile", {"Office"}); });
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    QVERIFY(!d->Option1->isEnabled() && !d->Text1->isEnabled() && !d->Command2->isEnabled());
    QCOMPARE(d->Text1->text(), QString());
    world.fx.sim.boxes.script(MsgAnswer::Cancel);
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.boxes()[0].text, kQuestion);
    QCOMPARE(world.boxes()[0].icon, MsgIcon::Question);
    QCOMPARE(world.boxes()[0].buttons, MsgButtons::OkCancel);
    QVERIFY(world.fx.fileExists("MailProfile"));
    QVERIFY(!d->isVisible()); // closes all the same

    world.mail->showOptions();
    QVERIFY(d->Check1->isChecked() && d->Option1->isChecked());
    d->Check1->click();
    d->OKButton->click();
    QCOMPARE(world.boxes().size(), 2);
    QVERIFY(!world.fx.fileExists("MailProfile"));
    QVERIFY(!d->isVisible());
    world.mail->showOptions();
    QVERIFY(!d->Check1->isChecked());
}

void TestMailWindows::dialogUncheckedWithoutTransportClosesWithoutQuestion()
{
    World world;
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->OKButton->click();
    QVERIFY(world.boxes().isEmpty());
    QVERIFY(!d->isVisible());
}

void TestMailWindows::dialogPortFieldTakesOnlyNumbersAndOption2Refills25()
{
    World world;
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    d->Option2->click();
    d->Text2->setText(QStringLiteral("mail.corp.test"));
    d->Text4->setText(QStringLiteral("alerts@corp.test"));
    d->Text3->clear();
    QTest::keyClicks(d->Text3, QStringLiteral("ab"));
    QCOMPARE(d->Text3->text(), QString());
    d->OKButton->click();
    QCOMPARE(world.boxes().value(0).text, kNoSmtp);
    QVERIFY(!world.fx.fileExists("SMTPServer"));
    d->Text3->setText(QStringLiteral("2525"));
    d->Option2->click();
    QCOMPARE(d->Text3->text(), QStringLiteral("25"));
}

void TestMailWindows::dialogTestButtonsSaveAndOpenTheTestWindows()
{
    World world;
    world.fx.sim.profilemail.profiles = {QStringLiteral("Office")};
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    d->Option2->click();
    d->Text2->setText(QStringLiteral("mail.corp.test"));
    d->Command1->click();
    QCOMPARE(world.boxes().value(0).text, kNoSmtp);
    QVERIFY(!world.mail->form7()->isVisible());
    d->Text4->setText(QStringLiteral("alerts@corp.test"));
    d->Command1->click();
    QCOMPARE(world.boxes().size(), 1);
    QCOMPARE(world.fx.readBytes("SMTPServer"), QByteArray("mail.corp.test\r\n25\r\nalerts@corp.test\r\n"));
    QVERIFY(d->isVisible());
    QVERIFY(world.mail->form7()->isVisible());
    world.mail->form7()->hide();

    d->Option1->click();
    d->Command2->click();
    QCOMPARE(world.boxes().value(1).text, kNoProfile);
    QVERIFY(!world.mail->form8()->isVisible());
    d->Text1->setText(QStringLiteral("Office"));
    d->Command2->click();
    QCOMPARE(world.boxes().size(), 2);
    QVERIFY(!world.fx.fileExists("SMTPServer"));
    QCOMPARE(world.fx.readBytes("MailProfile"), QByteArray("Office\r\n"));
    QVERIFY(d->isVisible());
    QVERIFY(world.mail->form8()->isVisible());
    QCOMPARE(world.mail->form8()->Text7->text(), QStringLiteral("Office"));
}

void TestMailWindows::dialogCancelSavesNothingAndHidesSetupAlert()
{
    World world;
    int setupHidden = 0;
    world.mail->hideSetupAlert = [&] { ++setupHidden; };
    world.mail->showOptions();
    actions::EmailOptionsDialog* d = world.mail->dialog();
    d->Check1->click();
    d->Option2->click();
    d->Text2->setText(QStringLiteral("mail.corp.test"));
    d->Text4->setText(QStringLiteral("alerts@corp.test"));
    d->CancelButton->click();
    QVERIFY(!d->isVisible());
    QCOMPARE(setupHidden, 1);
    QVERIFY(!world.fx.fileExists("SMTPServer"));
    QVERIFY(world.boxes().isEmpty());
}

// ---- start-up ----

void TestMailWindows::startupChecksTheProfileAndSmtpWins()
{
    test::WindowFixture fx;
    fx.writeFile("MailProfile", {"Ghost"});
    shell::MainWindow& w = fx.start();
    QVERIFY(!w.state.usesmtp);
    QCOMPARE(w.state.mailprofile, QStringLiteral("Ghost"));
    QVERIFY(fx.sim.boxes.texts().contains(QStringLiteral("Error : The profile Ghost does not exist.\n\r\n\r")));

    test::WindowFixture both;
    both.writeFile("MailProfile", {"Office"});
    both.writeFile("SMTPServer", {"mail.corp.test", "25", "a@corp.test"});
    both.sim.profilemail.profiles = {QStringLiteral("Office")};
    shell::MainWindow& w2 = both.start();
    QVERIFY(w2.state.usesmtp);
    QCOMPARE(w2.state.smtpserver, QStringLiteral("mail.corp.test"));
    QVERIFY(both.sim.boxes.shown.isEmpty());
}

QTEST_MAIN(TestMailWindows)
#include "tst_mailwindows.moc"
