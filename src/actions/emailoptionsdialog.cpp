#include "actions/emailoptionsdialog.h"

#include "actions/alertmailer.h"
#include "actions/mailing.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"
#include "core/datafolder.h"
#include "core/serverlistfile.h"
#include "core/writeresult.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace velmora::actions {

using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;

namespace {

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

const QString kSelectOption = QStringLiteral("Please select an Option to send Email !            ");
const QString kNoProfile = QStringLiteral("Please Specify a Email Profile !            ");
const QString kNoSmtp = QStringLiteral("Please Specify an SMTP Server and Port and sender SMTP address ! ");

// What counts as a number in the port field: anything that reads as a decimal number.
bool numeric(const QString& text)
{
    bool ok = false;
    text.trimmed().toDouble(&ok);
    return ok;
}

} // namespace

const QString EmailOptionsDialog::kDisableQuestion = QStringLiteral(
    "Are You sure you want to disable Email function?  No Email can be send, if a service fails.\n"
    "If You have configured Velmora to send Email, please reconfigure Email Options.");

EmailOptionsDialog::EmailOptionsDialog(Mailing& owner, QWidget* parent) : QDialog(parent), owner_(owner)
{
    setObjectName(QStringLiteral("Dialog"));
    setWindowTitle(QStringLiteral("Set Email Options"));
    setModal(false);

    Check1 = named(new QCheckBox(QStringLiteral("Enable Email function ( if not checked Email function will be removed )")), "Check1");
    Option1 = named(new QRadioButton(QStringLiteral("Send Email via installed Mapi Client (Outlook)")), "Option1");
    Option2 = named(new QRadioButton(QStringLiteral("Send Email via SMTP Server")), "Option2");

    Frame1 = named(new QGroupBox(QStringLiteral("Email Profilename:")), "Frame1");
    Label1 = named(new QLabel(QStringLiteral("Please specify a Email Profile to use !")), "Label1");
    Text1 = named(new QLineEdit, "Text1");
    auto* f1 = new QVBoxLayout(Frame1);
    f1->addWidget(Label1);
    f1->addWidget(Text1);

    Frame2 = named(new QGroupBox(QStringLiteral("SMTP Server Name/Port")), "Frame2");
    Label2 = named(new QLabel(QStringLiteral("Please specify an SMTP Server Name or IP  and port Nr to use !")), "Label2");
    Text2 = named(new QLineEdit, "Text2");
    Label3 = named(new QLabel(QStringLiteral("Port:")), "Label3");
    Text3 = named(new QLineEdit, "Text3");
    Label4 = named(new QLabel(QStringLiteral("Please specify the sender email SMTP address:")), "Label4");
    Text4 = named(new QLineEdit, "Text4");
    auto* f2 = new QGridLayout(Frame2);
    f2->addWidget(Label2, 0, 0, 1, 3);
    f2->addWidget(Text2, 1, 0);
    f2->addWidget(Label3, 1, 1);
    f2->addWidget(Text3, 1, 2);
    f2->addWidget(Label4, 2, 0, 1, 3);
    f2->addWidget(Text4, 3, 0, 1, 3);
    Check2 = named(new QCheckBox(QStringLiteral("Server needs a name, encryption or login")), "Check2");
    Text5 = named(new QLineEdit, "Text5");
    Text6 = named(new QLineEdit, "Text6");
    Text6->setEchoMode(QLineEdit::Password);
    Combo1 = named(new QComboBox, "Combo1");
    Combo1->addItem(QStringLiteral("STARTTLS (required)"), int(SmtpTls::StartTls));
    Combo1->addItem(QStringLiteral("TLS from the first byte (port 465)"), int(SmtpTls::Implicit));
    Combo1->addItem(QStringLiteral("No encryption: password and mail go in clear"), int(SmtpTls::None));
    Check3 = named(new QCheckBox(QStringLiteral("Accept this server's certificate")), "Check3");
    Label8 = named(new QLabel, "Label8");
    Label8->setTextInteractionFlags(Qt::TextSelectableByMouse);
    Label8->setWordWrap(false);
    f2->addWidget(Check2, 4, 0, 1, 3);
    f2->addWidget(new QLabel(QStringLiteral("User:")), 5, 0);
    f2->addWidget(Text5, 5, 1, 1, 2);
    f2->addWidget(new QLabel(QStringLiteral("Password:")), 6, 0);
    f2->addWidget(Text6, 6, 1, 1, 2);
    f2->addWidget(new QLabel(QStringLiteral("Encryption:")), 7, 0);
    f2->addWidget(Combo1, 7, 1, 1, 2);
    f2->addWidget(Check3, 8, 0, 1, 3);
    f2->addWidget(Label8, 9, 0, 1, 3);

    Command1 = named(new QPushButton(QStringLiteral("Send SMTP Testmail...")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("Send Outlook Testmail...")), "Command2");
    OKButton = named(new QPushButton(QStringLiteral("&OK")), "OKButton");
    CancelButton = named(new QPushButton(QStringLiteral("&Cancel")), "CancelButton");
    OKButton->setDefault(true);

    auto* layout = new QVBoxLayout(this);
    // The window grows with the fingerprint label instead of cutting it off.
    layout->setSizeConstraint(QLayout::SetMinimumSize);
    layout->addWidget(Check1);
    layout->addWidget(Option1);
    layout->addWidget(Frame1);
    layout->addWidget(Option2);
    layout->addWidget(Frame2);
    auto* tests = new QHBoxLayout;
    tests->addWidget(Command1);
    tests->addWidget(Command2);
    tests->addStretch();
    layout->addLayout(tests);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(OKButton);
    buttons->addWidget(CancelButton);
    layout->addLayout(buttons);

    connect(Check1, &QCheckBox::clicked, this, &EmailOptionsDialog::check1Click);
    connect(Option1, &QRadioButton::clicked, this, &EmailOptionsDialog::option1Click);
    connect(Option2, &QRadioButton::clicked, this, &EmailOptionsDialog::option2Click);
    connect(Check2, &QCheckBox::clicked, this, &EmailOptionsDialog::check2Click);
    // Ticking the box accepts the certificate the server showed last (or, when none was
    // refused yet, the next one it shows); unticking forgets the accepted one.
    connect(Check3, &QCheckBox::clicked, this, [this] {
        shownFingerprint_ = Check3->isChecked() ? offeredFingerprint_ : QByteArray();
        showFingerprint();
    });
    connect(Text3, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!text.isEmpty() && !numeric(text))
            Text3->clear();
    });
    connect(OKButton, &QPushButton::clicked, this, &EmailOptionsDialog::okClick);
    connect(CancelButton, &QPushButton::clicked, this, &EmailOptionsDialog::cancelClick);
    connect(Command1, &QPushButton::clicked, this, &EmailOptionsDialog::command1Click);
    connect(Command2, &QPushButton::clicked, this, &EmailOptionsDialog::command2Click);

    activate();
}

void EmailOptionsDialog::showEvent(QShowEvent* event)
{
    activate();
    QDialog::showEvent(event);
}

void EmailOptionsDialog::hideEvent(QHideEvent* event)
{
    Text6->clear();
    QDialog::hideEvent(event);
}

// A field in use is enabled on the window background; one that is not is emptied, disabled and
// drawn grey.
void EmailOptionsDialog::useField(QLineEdit* field, bool inUse)
{
    if (!inUse)
        field->clear();
    field->setEnabled(inUse);
    QPalette pal = field->palette();
    const QPalette& app = QApplication::palette();
    for (QPalette::ColorGroup g : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
        pal.setColor(g, QPalette::Base, inUse ? app.color(QPalette::Active, QPalette::Base)
                                              : app.color(QPalette::Active, QPalette::Button));
    field->setPalette(pal);
}

void EmailOptionsDialog::activate()
{
    platform::TextFiles& files = *owner_.state().platform.files;
    AlertMailer& mailer = owner_.mailer();
    MailSettings& s = mailer.settings();
    if (files.exists(mailer.file(core::files::mailprofile))) {
        Check1->setChecked(true);
        Option1->setEnabled(true);
        Option2->setEnabled(true);
        Option1->setChecked(true);
        s.mailprofile = owner_.mailer().firstLine(core::files::mailprofile).value_or(QString());
        useField(Text1, true);
        Text1->setText(s.mailprofile);
        Command2->setEnabled(true);
        for (QLineEdit* f : {Text2, Text3, Text4})
            useField(f, false);
        Command1->setEnabled(false);
    } else if (files.exists(owner_.mailer().file(core::files::smtpserver))) {
        Check1->setChecked(true);
        Option1->setEnabled(true);
        Option2->setEnabled(true);
        Option2->setChecked(true);
        const core::SmtpSettings smtp = core::readSmtpSettings(files, owner_.mailer().file(core::files::smtpserver));
        s.smtpserver = smtp.server;
        s.smtpport = smtp.port;
        s.smtpsender = smtp.sender;
        for (QLineEdit* f : {Text2, Text3, Text4})
            useField(f, true);
        Text2->setText(s.smtpserver);
        Text3->setText(QString::number(s.smtpport));
        Text4->setText(s.smtpsender);
        Command1->setEnabled(true);
        useField(Text1, false);
        Command2->setEnabled(false);
        shownServer_ = s.smtpserver;
        showSmtpOptions(owner_.mailer().smtpOptions());
    } else {
        Check1->setChecked(false);
        Option1->setEnabled(false);
        Option2->setEnabled(false);
        for (QLineEdit* f : {Text1, Text2, Text3, Text4})
            useField(f, false);
        Command1->setEnabled(false);
        Command2->setEnabled(false);
    }
    enableSmtpOptions();
}

void EmailOptionsDialog::showSmtpOptions(const SmtpOptions& o)
{
    Check2->setChecked(o.on);
    Text5->setText(o.user);
    Text6->clear();
    Combo1->setCurrentIndex(std::max(0, Combo1->findData(int(o.tls))));
    // A certificate the server showed and the send refused is offered for acceptance: the box
    // is shown unticked then, even when another certificate was accepted before.
    offeredFingerprint_ = o.on ? owner_.mailer().refusedCertificate(shownServer_) : QByteArray();
    const bool offered = !offeredFingerprint_.isEmpty() && offeredFingerprint_ != o.fingerprint;
    Check3->setChecked(o.acceptCertificate && !offered);
    shownFingerprint_ = Check3->isChecked() ? o.fingerprint : QByteArray();
    if (!offered)
        offeredFingerprint_.clear();
    showFingerprint();
}

void EmailOptionsDialog::showFingerprint()
{
    // On a line of its own, in groups of 16 digits.
    auto grouped = [](const QByteArray& fingerprint) {
        QStringList groups;
        for (qsizetype i = 0; i < fingerprint.size(); i += 16)
            groups << QString::fromLatin1(fingerprint.mid(i, 16));
        return groups.join(QLatin1Char(' '));
    };
    if (!shownFingerprint_.isEmpty())
        Label8->setText(QStringLiteral("Accepted certificate (SHA-256):\n") + grouped(shownFingerprint_));
    else if (!offeredFingerprint_.isEmpty() && !Check3->isChecked())
        Label8->setText(QStringLiteral("The server shows a certificate not accepted yet (SHA-256):\n")
                        + grouped(offeredFingerprint_));
    else
        Label8->clear();
}

void EmailOptionsDialog::enableSmtpOptions()
{
    const bool smtpInUse = Text2->isEnabled();
    if (!smtpInUse && Check2->isChecked())
        showSmtpOptions({});
    Check2->setEnabled(smtpInUse);
    const bool modern = smtpInUse && Check2->isChecked();
    for (QWidget* w : std::initializer_list<QWidget*>{Text5, Text6, Combo1, Check3})
        w->setEnabled(modern);
    Text6->setPlaceholderText(modern ? QStringLiteral("empty: keep the stored password") : QString());
}

void EmailOptionsDialog::check2Click() { enableSmtpOptions(); }

bool EmailOptionsDialog::saveSmtpOptions()
{
    SmtpOptions o;
    o.on = Check2->isChecked();
    o.user = Text5->text().trimmed();
    o.tls = SmtpTls(Combo1->currentData().toInt());
    o.acceptCertificate = Check3->isChecked();
    // An accepted certificate belongs to the server it came from.
    if (o.acceptCertificate && Text2->text().trimmed().compare(shownServer_.trimmed(), Qt::CaseInsensitive) == 0)
        o.fingerprint = shownFingerprint_;
    const core::WriteResult written = owner_.mailer().saveSmtpOptions(o);
    if (!written) {
        owner_.state().platform.boxes->show(core::writeFailedText(written), MsgIcon::Critical);
        return false;
    }
    shownServer_ = Text2->text();
    shownFingerprint_ = o.fingerprint;

    const QString password = Text6->text();
    Text6->clear();
    if (!o.on || o.user.isEmpty() || password.isEmpty())
        return true;
    platform::Platform& p = owner_.state().platform;
    if (!p.secrets) {
        p.boxes->show(AlertMailer::kNoSecretStore, MsgIcon::Critical);
        return true;
    }
    platform::MessageBoxes* boxes = p.boxes;
    p.secrets->write(this, smtpPasswordKey(Text2->text(), o.user), password,
                     [boxes](const platform::SecretStore::Result& r) {
                         using S = platform::SecretStore::Status;
                         if (r.status == S::NoStore)
                             boxes->show(AlertMailer::kNoSecretStore, MsgIcon::Critical);
                         else if (!r.ok())
                             boxes->show(QStringLiteral("The SMTP password could not be kept in the secret store:\n")
                                             + r.text,
                                         MsgIcon::Critical);
                     });
    return true;
}

void EmailOptionsDialog::offerPasswordRemoval(const QString& server, const QString& user)
{
    platform::Platform& p = owner_.state().platform;
    if (!p.secrets
        || p.boxes->show(QStringLiteral("Remove the SMTP password of %1 on %2 from the secret store as well?").arg(user, server),
                         MsgIcon::Question, MsgButtons::YesNo)
               != MsgAnswer::Yes)
        return;
    platform::MessageBoxes* boxes = p.boxes;
    p.secrets->remove(this, smtpPasswordKey(server, user), [boxes](const platform::SecretStore::Result& r) {
        if (!r.ok())
            boxes->show(QStringLiteral("The SMTP password could not be removed from the secret store:\n") + r.text,
                        MsgIcon::Critical);
    });
}

void EmailOptionsDialog::check1Click()
{
    if (!Check1->isChecked()) {
        for (QLineEdit* f : {Text1, Text2, Text3, Text4})
            useField(f, false);
        Option1->setEnabled(false);
        Option2->setEnabled(false);
        Command1->setEnabled(false);
        Command2->setEnabled(false);
        enableSmtpOptions();
        return;
    }
    Option1->setEnabled(true);
    Option2->setEnabled(true);
    if (Option1->isChecked()) {
        useField(Text1, true);
        Command2->setEnabled(true);
    } else if (Option2->isChecked()) {
        for (QLineEdit* f : {Text2, Text3, Text4})
            useField(f, true);
        Text3->setText(QStringLiteral("25"));
        Command1->setEnabled(true);
    }
    enableSmtpOptions();
}

void EmailOptionsDialog::option1Click()
{
    useField(Text1, true);
    Command2->setEnabled(true);
    for (QLineEdit* f : {Text2, Text3, Text4})
        useField(f, false);
    Command1->setEnabled(false);
    enableSmtpOptions();
}

void EmailOptionsDialog::option2Click()
{
    useField(Text1, false);
    Command2->setEnabled(false);
    for (QLineEdit* f : {Text2, Text3, Text4})
        useField(f, true);
    Command1->setEnabled(true);
    Text3->setText(QStringLiteral("25"));
    enableSmtpOptions();
}

void EmailOptionsDialog::okSteps(bool test)
{
    okStepsOnFiles(test);
    // However the steps ended (saved, refused, a failed logon, a cancelled question, a test
    // button), the settings in memory are the ones the files hold now.
    owner_.mailer().refreschmailsettings();
}

void EmailOptionsDialog::okStepsOnFiles(bool test)
{
    platform::Platform& p = owner_.state().platform;
    platform::TextFiles& files = *p.files;
    AlertMailer& mailer = owner_.mailer();
    MailSettings& s = mailer.settings();
    const QString profileFile = owner_.mailer().file(core::files::mailprofile);
    const QString smtpFile = owner_.mailer().file(core::files::smtpserver);
    // A file that cannot be removed is said at once: e-mail would otherwise go on as it was
    // while the dialog claims otherwise.
    auto remove = [&](const QString& path) {
        if (!files.exists(path) || files.remove(path))
            return true;
        const QString reason = files.lastError();
        p.boxes->show(QStringLiteral("Could not delete \"%1\": %2.")
                          .arg(path, reason.isEmpty() ? QStringLiteral("the file could not be deleted") : reason),
                      MsgIcon::Critical);
        return false;
    };
    // The options of the SMTP server go with it.
    auto removeSmtp = [&] { return remove(smtpFile) && remove(owner_.mailer().file(kSmtpOptionsFile)); };
    auto write = [&](const QString& path, const QStringList& lines) {
        const core::WriteResult r = core::writeFile(files, path, lines);
        if (!r)
            p.boxes->show(core::writeFailedText(r), MsgIcon::Critical);
        return r.ok();
    };
    const bool enabled = Check1->isChecked();

    if (enabled && !Option1->isChecked() && !Option2->isChecked()) {
        p.boxes->show(kSelectOption, MsgIcon::Exclamation);
        return;
    }
    if (!enabled) {
        // Switching e-mail off removes the stored transport once the user confirms; the option
        // buttons, disabled now, change nothing.
        if (files.exists(profileFile)
            && p.boxes->show(kDisableQuestion, MsgIcon::Question, MsgButtons::OkCancel) != MsgAnswer::Cancel)
            remove(profileFile);
        if (files.exists(smtpFile)
            && p.boxes->show(kDisableQuestion, MsgIcon::Question, MsgButtons::OkCancel) != MsgAnswer::Cancel) {
            const SmtpOptions options = owner_.mailer().smtpOptions();
            const QString server = core::readSmtpSettings(files, smtpFile).server;
            if (removeSmtp() && !options.user.isEmpty())
                offerPasswordRemoval(server, options.user);
        }
        hide();
        return;
    }
    // The new transport is checked and written before the old one is removed, so that a
    // refused or failed save leaves the stored transport as it was.
    if (Option1->isChecked()) {
        if (Text1->text().isEmpty()) {
            p.boxes->show(kNoProfile, MsgIcon::Exclamation);
            return;
        }
        if (!write(profileFile, {Text1->text()}) || !removeSmtp())
            return;
        s.mailprofile = owner_.mailer().firstLine(core::files::mailprofile).value_or(QString());
        const platform::MailResult r = p.profilemail->logon(s.mailprofile);
        if (!r.ok()) {
            // The profile stays saved, so that the user can correct the name.
            p.boxes->show(QStringLiteral("Error : ") + r.description + QStringLiteral("\n\r\n\r"), MsgIcon::Critical);
            return;
        }
    } else {
        if (Text2->text().isEmpty() || Text3->text().isEmpty() || Text4->text().isEmpty()) {
            p.boxes->show(kNoSmtp, MsgIcon::Exclamation);
            return;
        }
        if (!write(smtpFile, {Text2->text(), Text3->text(), Text4->text()}) || !saveSmtpOptions()
            || !remove(profileFile))
            return;
    }
    if (!test)
        hide();
}

void EmailOptionsDialog::cancelClick()
{
    // Nothing is saved; the settings in memory are made the stored ones again, in case a test
    // button saved entries since the dialog was opened.
    owner_.mailer().refreschmailsettings();
    hide();
    owner_.requestSetupAlertHidden();
}

void EmailOptionsDialog::reject() { cancelClick(); }

void EmailOptionsDialog::command1Click()
{
    if (Check1->isChecked() && Option2->isChecked()
        && (Text2->text().isEmpty() || Text3->text().isEmpty() || Text4->text().isEmpty())) {
        owner_.state().platform.boxes->show(kNoSmtp, MsgIcon::Exclamation);
        return;
    }
    okSteps(true);
    SmtpMailWindow* w = owner_.form7();
    // An open test window shows the settings just saved, not those of its first showing.
    if (w->isVisible())
        w->activate();
    w->show();
    w->raise();
    w->activateWindow();
}

void EmailOptionsDialog::command2Click()
{
    if (Check1->isChecked() && Option1->isChecked() && Text1->text().isEmpty()) {
        owner_.state().platform.boxes->show(kNoProfile, MsgIcon::Exclamation);
        return;
    }
    okSteps(true);
    ProfileMailWindow* w = owner_.form8();
    if (w->isVisible())
        w->activate();
    w->show();
    w->raise();
    w->activateWindow();
}

} // namespace velmora::actions
