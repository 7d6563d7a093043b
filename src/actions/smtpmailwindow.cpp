#include "actions/smtpmailwindow.h"

#include "actions/alertmail.h"
#include "actions/alertmailer.h"
#include "actions/mailing.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
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

QGroupBox* frame(const char* name, const QString& title, const QList<QPair<QString, QWidget*>>& fields)
{
    auto* box = named(new QGroupBox(title), name);
    auto* grid = new QGridLayout(box);
    int row = 0;
    for (const auto& [caption, field] : fields) {
        if (!caption.isEmpty())
            grid->addWidget(new QLabel(caption), row, 0, Qt::AlignTop);
        grid->addWidget(field, row, 1);
        ++row;
    }
    return box;
}

} // namespace

SmtpMailWindow::SmtpMailWindow(Mailing& owner, QWidget* parent) : QWidget(parent, Qt::Window), owner_(owner)
{
    setObjectName(QStringLiteral("Form7"));
    setWindowTitle(QStringLiteral("Test SMTP eMail"));

    Text1 = named(new QLineEdit, "Text1");
    Text2 = named(new QLineEdit, "Text2");
    Text3 = named(new QLineEdit, "Text3");
    Text4 = named(new QLineEdit, "Text4");
    Text5 = named(new QLineEdit, "Text5");
    Text8 = named(new QLineEdit, "Text8");
    Text6 = named(new QLineEdit, "Text6");
    Text7 = named(new QPlainTextEdit, "Text7");
    Frame1 = frame("Frame1", QStringLiteral("Sender:"), {{QStringLiteral("Name:"), Text1}, {QStringLiteral("Email:"), Text2}});
    Frame2 = frame("Frame2", QStringLiteral("Recipient:"), {{QStringLiteral("Name:"), Text3}, {QStringLiteral("Email:"), Text4}});
    Frame3 = frame("Frame3", QStringLiteral("SMTP Server:"), {{QString(), Text5}, {QStringLiteral("Port:"), Text8}});
    Frame4 = frame("Frame4", QStringLiteral("Subject:"), {{QStringLiteral("Subject text:"), Text6}});
    Frame5 = frame("Frame5", QStringLiteral("Body:"), {{QStringLiteral("Body text:"), Text7}});
    Label1 = named(new QLabel(QStringLiteral("Sending SMTP Mail......")), "Label1");
    Command1 = named(new QPushButton(QStringLiteral("&Send Email")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("&Close")), "Command2");

    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    top->addWidget(Frame1);
    top->addWidget(Frame2);
    layout->addLayout(top);
    layout->addWidget(Frame3);
    layout->addWidget(Frame4);
    layout->addWidget(Frame5, 1);
    layout->addWidget(Label1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command1);
    buttons->addWidget(Command2);
    layout->addLayout(buttons);

    AlertMailer& mailer = owner_.mailer();
    connect(&mailer, &AlertMailer::statusChanged, this, &SmtpMailWindow::setstatus);
    // An alert mail that went out while the window was open leaves it hidden.
    connect(&mailer, &AlertMailer::alertBusyChanged, this, [this](bool busy) {
        if (!busy)
            hide();
    });

    connect(Command1, &QPushButton::clicked, this, &SmtpMailWindow::sendClicked);
    connect(Command2, &QPushButton::clicked, this, &QWidget::hide);
}

void SmtpMailWindow::showEvent(QShowEvent* event)
{
    activate();
    QWidget::showEvent(event);
}

bool SmtpMailWindow::busy() const { return owner_.mailer().busy(); }

void SmtpMailWindow::activate()
{
    AlertMailer& mailer = owner_.mailer();
    const MailSettings& s = mailer.settings();
    const ActionResults& results = owner_.results();
    const AlertMail text = AlertMail::of(results.last, results, owner_.state().platform.clock->now());
    Text1->setText(QStringLiteral("Velmora"));
    Text2->setText(s.smtpsender);
    Text3->clear();
    Text4->setText(trimBlanks(results.mailaddress));
    Text5->setText(s.smtpserver);
    // The classic dialogue always sends on port 25; only the dialogue for today's servers takes
    // the port of this field.
    Text8->setText(QString::number(mailer.smtpOptions().on ? int(s.smtpport) : 25));
    Text6->setText(text.smtpSubject());
    Text7->setPlainText(text.smtpBody());
}

void SmtpMailWindow::setstatus(const QString& text)
{
    Label1->setText(text);
    Label1->repaint();
}

void SmtpMailWindow::sendClicked()
{
    platform::MessageBoxes& boxes = *owner_.state().platform.boxes;
    if (busy()) {
        boxes.show(QStringLiteral("Still sending Last Email please wait !"), MsgIcon::None);
        return;
    }
    if (Text4->text().isEmpty()) {
        boxes.show(QStringLiteral("No email address specified !"), MsgIcon::None);
        return;
    }
    if (const QString why = lineBreakRefusal({{Text1->text(), "sender's name"},
                                              {Text2->text(), "sender's address"},
                                              {Text4->text(), "recipient's address"},
                                              {Text6->text(), "subject"}});
        !why.isEmpty()) {
        boxes.show(why, MsgIcon::Information);
        return;
    }
    bool ok = false;
    const int port = Text8->text().trimmed().toInt(&ok);
    setCursor(Qt::WaitCursor);
    QPointer<SmtpMailWindow> self(this);
    owner_.mailer().sendtestmail(
        Text5->text(), ok ? port : 0, Text1->text(), Text2->text(), Text4->text(), Text6->text(), Text7->toPlainText(),
        [self](bool sent, const QString& why) {
            if (!self)
                return;
            self->unsetCursor();
            platform::MessageBoxes& b = *self->owner_.state().platform.boxes;
            if (sent)
                b.show(QStringLiteral("Email successfully sent"), MsgIcon::Information);
            else
                b.show(why.isEmpty() ? QStringLiteral("Error on sending Email")
                                     : QStringLiteral("Error on sending Email") + QStringLiteral("\n\n") + why,
                       MsgIcon::Critical);
        });
}

} // namespace velmora::actions
