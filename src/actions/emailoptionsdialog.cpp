#include "actions/emailoptionsdialog.h"

#include "actions/mailing.h"
#include "actions/profilemailwindow.h"
#include "actions/smtpmailwindow.h"
#include "core/datafolder.h"
#include "core/serverlistfile.h"

#include <QApplication>
#include <QCheckBox>
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

    Command1 = named(new QPushButton(QStringLiteral("Send SMTP Testmail...")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("Send Outlook Testmail...")), "Command2");
    OKButton = named(new QPushButton(QStringLiteral("&OK")), "OKButton");
    CancelButton = named(new QPushButton(QStringLiteral("&Cancel")), "CancelButton");
    OKButton->setDefault(true);

    auto* layout = new QVBoxLayout(this);
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
    owner_.folder();
    platform::TextFiles& files = *owner_.state().platform.files;
    core::RunState& s = owner_.state();
    if (files.exists(owner_.file(core::files::mailprofile))) {
        Check1->setChecked(true);
        Option1->setEnabled(true);
        Option2->setEnabled(true);
        Option1->setChecked(true);
        s.mailprofile = owner_.firstLine(core::files::mailprofile).value_or(QString());
        useField(Text1, true);
        Text1->setText(s.mailprofile);
        Command2->setEnabled(true);
        for (QLineEdit* f : {Text2, Text3, Text4})
            useField(f, false);
        Command1->setEnabled(false);
    } else if (files.exists(owner_.file(core::files::smtpserver))) {
        Check1->setChecked(true);
        Option1->setEnabled(true);
        Option2->setEnabled(true);
        Option2->setChecked(true);
        const core::SmtpSettings smtp = core::readSmtpSettings(files, owner_.file(core::files::smtpserver));
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
    } else {
        Check1->setChecked(false);
        Option1->setEnabled(false);
        Option2->setEnabled(false);
        for (QLineEdit* f : {Text1, Text2, Text3, Text4})
            useField(f, false);
        Command1->setEnabled(false);
        Command2->setEnabled(false);
    }
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
}

void EmailOptionsDialog::option1Click()
{
    useField(Text1, true);
    Command2->setEnabled(true);
    for (QLineEdit* f : {Text2, Text3, Text4})
        useField(f, false);
    Command1->setEnabled(false);
}

void EmailOptionsDialog::option2Click()
{
    useField(Text1, false);
    Command2->setEnabled(false);
    for (QLineEdit* f : {Text2, Text3, Text4})
        useField(f, true);
    Command1->setEnabled(true);
    Text3->setText(QStringLiteral("25"));
}

void EmailOptionsDialog::okSteps(bool test)
{
    owner_.folder();
    platform::Platform& p = owner_.state().platform;
    platform::TextFiles& files = *p.files;
    core::RunState& s = owner_.state();
    const QString profileFile = owner_.file(core::files::mailprofile);
    const QString smtpFile = owner_.file(core::files::smtpserver);
    const bool enabled = Check1->isChecked();

    if (enabled && !Option1->isChecked() && !Option2->isChecked()) {
        p.boxes->show(kSelectOption, MsgIcon::Exclamation);
        return;
    }
    if (!enabled && files.exists(profileFile)) {
        if (p.boxes->show(kDisableQuestion, MsgIcon::Question, MsgButtons::OkCancel) != MsgAnswer::Cancel) {
            files.remove(profileFile);
            hide();
        }
    }
    if (!enabled && files.exists(smtpFile)) {
        if (p.boxes->show(kDisableQuestion, MsgIcon::Question, MsgButtons::OkCancel) != MsgAnswer::Cancel) {
            files.remove(smtpFile);
            hide();
        }
    }
    if (Option1->isChecked() && files.exists(smtpFile))
        files.remove(smtpFile);
    if (Option2->isChecked() && files.exists(profileFile))
        files.remove(profileFile);
    if (!enabled) {
        hide();
        return;
    }
    if (Option1->isChecked()) {
        if (Text1->text().isEmpty()) {
            p.boxes->show(kNoProfile, MsgIcon::Exclamation);
            return;
        }
        files.writeLines(profileFile, {Text1->text()});
        s.mailprofile = owner_.firstLine(core::files::mailprofile).value_or(QString());
        const platform::MailResult r = p.profilemail->logon(s.mailprofile);
        if (!r.ok()) {
            // The profile stays saved, so that the user can correct the name.
            p.boxes->show(QStringLiteral("Error : ") + r.description + QStringLiteral("\n\r\n\r"), MsgIcon::Critical);
            return;
        }
    } else if (Option2->isChecked()) {
        if (Text2->text().isEmpty() || Text3->text().isEmpty() || Text4->text().isEmpty()) {
            p.boxes->show(kNoSmtp, MsgIcon::Exclamation);
            return;
        }
        files.writeLines(smtpFile, {Text2->text(), Text3->text(), Text4->text()});
    }
    if (!test) {
        owner_.refreschmailsettings();
        hide();
    }
}

void EmailOptionsDialog::cancelClick()
{
    hide();
    if (owner_.hideSetupAlert)
        owner_.hideSetupAlert();
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
    w->show();
    w->raise();
    w->activateWindow();
}

} // namespace velmora::actions
