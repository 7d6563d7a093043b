#include "actions/profilemailwindow.h"

#include "actions/alertmail.h"
#include "actions/alertmailer.h"
#include "actions/mailing.h"
#include "core/datafolder.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::actions {

using platform::MsgIcon;

namespace {

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

QGroupBox* frame(const char* name, const QString& title, const QString& caption, QWidget* field)
{
    auto* box = named(new QGroupBox(title), name);
    auto* grid = new QGridLayout(box);
    grid->addWidget(new QLabel(caption), 0, 0, Qt::AlignTop);
    grid->addWidget(field, 0, 1);
    return box;
}

} // namespace

ProfileMailWindow::ProfileMailWindow(Mailing& owner, QWidget* parent) : QWidget(parent, Qt::Window), owner_(owner)
{
    setObjectName(QStringLiteral("Form8"));
    setWindowTitle(QStringLiteral("Test Outlook eMail"));

    Text7 = named(new QLineEdit, "Text7");
    Text3 = named(new QLineEdit, "Text3");
    Text5 = named(new QLineEdit, "Text5");
    Text6 = named(new QPlainTextEdit, "Text6");
    Frame1 = frame("Frame1", QStringLiteral("Outlook Profile:"), QStringLiteral("Profile Name:"), Text7);
    Frame5 = frame("Frame5", QStringLiteral("Recipient:"), QStringLiteral("Email Address:"), Text3);
    Frame3 = frame("Frame3", QStringLiteral("Subject:"), QStringLiteral("Subject text:"), Text5);
    Frame2 = frame("Frame2", QStringLiteral("Body:"), QStringLiteral("Body text:"), Text6);
    Command1 = named(new QPushButton(QStringLiteral("&Send Email")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("&Close")), "Command2");

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Frame1);
    layout->addWidget(Frame5);
    layout->addWidget(Frame3);
    layout->addWidget(Frame2, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command1);
    buttons->addWidget(Command2);
    layout->addLayout(buttons);

    connect(Command1, &QPushButton::clicked, this, &ProfileMailWindow::sendClicked);
    connect(Command2, &QPushButton::clicked, this, &QWidget::hide);
}

void ProfileMailWindow::showEvent(QShowEvent* event)
{
    activate();
    QWidget::showEvent(event);
}

void ProfileMailWindow::activate()
{
    Text3->setFocus();
    // Without a profile file (e-mail switched off) the profile field stays empty.
    AlertMailer& mailer = owner_.mailer();
    const std::optional<QString> profile = mailer.firstLine(core::files::mailprofile);
    if (profile)
        mailer.settings().mailprofile = *profile;
    const ActionResults& results = owner_.results();
    const AlertMail text = AlertMail::of(results.last, results, owner_.state().platform.clock->now());
    Text3->clear();
    Text5->setText(text.profileSubject());
    Text7->setText(profile ? *profile : QString());
    Text6->setPlainText(text.profileBody());
}

void ProfileMailWindow::sendClicked()
{
    platform::MessageBoxes& boxes = *owner_.state().platform.boxes;
    if (Text7->text().isEmpty()) {
        boxes.show(QStringLiteral("No Outlook Profile specified !"), MsgIcon::Information);
        return;
    }
    if (Text3->text().isEmpty()) {
        boxes.show(QStringLiteral("No email address specified !"), MsgIcon::Information);
        return;
    }
    if (const QString why = lineBreakRefusal({{Text3->text(), "recipient's address"}, {Text5->text(), "subject"}});
        !why.isEmpty()) {
        boxes.show(why, MsgIcon::Information);
        return;
    }
    testoutlookmail();
}

void ProfileMailWindow::testoutlookmail(std::function<void()> done)
{
    if (busy_)
        return;
    busy_ = true;
    // The window waits for the mail system as the classic blocking call did: no second send.
    Command1->setEnabled(false);
    setCursor(Qt::WaitCursor);
    const QString recipient = Text3->text();
    QPointer<ProfileMailWindow> self(this);
    owner_.state().platform.profilemail->send(
        this, Text7->text(), recipient, Text5->text(), Text6->toPlainText(),
        [self, recipient, done](const platform::MailResult& r) {
            if (!self)
                return;
            self->busy_ = false;
            self->Command1->setEnabled(true);
            self->unsetCursor();
            platform::MessageBoxes& boxes = *self->owner_.state().platform.boxes;
            if (r.ok())
                boxes.show(QStringLiteral("Email sent to: ") + recipient, MsgIcon::None);
            else
                boxes.show(QStringLiteral(" Error  ") + QString::number(r.number) + QStringLiteral("  occured:   ")
                               + r.description,
                           MsgIcon::Critical);
            if (done)
                done();
        });
}

} // namespace velmora::actions
