#include "actions/smtpmailwindow.h"

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

    const platform::Platform& p = owner_.state().platform;
    // Its 16 ticks are the time a server gets to answer; they must not add up to less.
    Timer1 = p.clock->createTimer(this, QStringLiteral("Timer1"), 1000, platform::Precision::Precise);
    Winsock1 = p.tcp->createSocket(this, QStringLiteral("Winsock1"));
    client_ = new SmtpClient(Winsock1, Timer1, *p.clock, this);
    client_->appendjobline = [this](const QString& line) {
        ++linesLogged_;
        owner_.log(line);
    };
    client_->setstatus = [this](const QString& text) { setstatus(text); };
    client_->certificateAccepted = [this](const QByteArray& fingerprint) { owner_.rememberCertificate(fingerprint); };
    client_->certificateRefused = [this](const QString& host, const QByteArray& fingerprint) {
        owner_.rememberRefusedCertificate(host, fingerprint);
    };

    connect(Command1, &QPushButton::clicked, this, &SmtpMailWindow::sendClicked);
    connect(Command2, &QPushButton::clicked, this, &QWidget::hide);
}

void SmtpMailWindow::showEvent(QShowEvent* event)
{
    activate();
    QWidget::showEvent(event);
}

void SmtpMailWindow::activate()
{
    core::RunState& s = owner_.state();
    const MailText text = owner_.smtpText ? owner_.smtpText() : MailText{};
    Text1->setText(QStringLiteral("Velmora"));
    Text2->setText(s.smtpsender);
    Text3->clear();
    Text4->setText(trimBlanks(s.mailaddress));
    Text5->setText(s.smtpserver);
    // The classic dialogue always sends on port 25; only the dialogue for today's servers takes
    // the port of this field.
    Text8->setText(QString::number(owner_.smtpOptions().on ? int(s.smtpport) : 25));
    Text6->setText(text.subject);
    Text7->setPlainText(text.body);
}

void SmtpMailWindow::setstatus(const QString& text)
{
    Label1->setText(text);
    Label1->repaint();
}

void SmtpMailWindow::withSecurity(const QString& server, std::function<void(const SmtpSecurity&)> send,
                                  std::function<void(const QString&)> failed)
{
    preparing_ = true;
    QPointer<SmtpMailWindow> self(this);
    owner_.smtpSecurity(server, [self, send, failed](const SmtpSecurity& security, const QString& failure) {
        if (!self)
            return;
        self->preparing_ = false;
        if (failure.isEmpty())
            send(security);
        else
            failed(failure);
    });
}

void SmtpMailWindow::sendemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done)
{
    const QString address = trimBlanks(emailaddress);
    if (busy()) {
        // Nothing is sent; the job log says so, as the alert would otherwise vanish.
        owner_.log(Mailing::notSentLine(address, QStringLiteral("another email is being sent")));
        if (done)
            done(false);
        return;
    }
    core::RunState& s = owner_.state();
    owner_.setAlertBusy(true);
    SmtpMail mail{s.smtpserver, s.smtpport, QStringLiteral("Velmora"), s.smtpsender, address,
                  QStringLiteral("Velmora"), text.subject, text.body, {}};
    QPointer<SmtpMailWindow> self(this);
    const int linesBefore = linesLogged_;
    auto finished = [self, address, done, linesBefore](bool ok) {
        if (self) {
            if (ok)
                self->owner_.log(QStringLiteral("Email sent to ") + address);
            else if (self->linesLogged_ == linesBefore)
                // The dialogue ended on a socket that refused to send (the connection was gone
                // or still open from before) without a line of its own.
                self->owner_.log(SmtpClient::kFailurePrefix + QStringLiteral("the connection to ") + self->owner_.state().smtpserver
                                 + QStringLiteral(" was lost"));
            self->hide();
            self->owner_.setAlertBusy(false);
        }
        if (done)
            done(ok);
    };
    withSecurity(
        s.smtpserver,
        [self, mail, finished](const SmtpSecurity& security) mutable {
            mail.security = security;
            self->client_->send(mail, false, finished);
        },
        [self, finished](const QString& failure) {
            ++self->linesLogged_;
            self->owner_.log(SmtpClient::kFailurePrefix + failure);
            finished(false);
        });
}

void SmtpMailWindow::sendtestmail(const QString& server, const QString& sendername, const QString& senderaddress,
                                  const QString& /*recipientname*/, const QString& recipientaddress,
                                  const QString& subject, const QString& body, std::function<void(bool)> done)
{
    if (busy()) {
        if (done)
            done(false);
        return;
    }
    setCursor(Qt::WaitCursor);
    SmtpMail mail{server, 25, sendername, senderaddress, recipientaddress, QStringLiteral("Brisken"), subject, body, {}};
    QPointer<SmtpMailWindow> self(this);
    auto finished = [self, done](bool ok) {
        if (self)
            self->unsetCursor();
        if (done)
            done(ok);
    };
    withSecurity(
        server,
        [self, mail, finished](const SmtpSecurity& security) mutable {
            mail.security = security;
            // A server that needs more than the classic dialogue often listens elsewhere
            // (465, 587): the port field counts then.
            if (security.on) {
                bool ok = false;
                const int port = self->Text8->text().trimmed().toInt(&ok);
                if (ok && port > 0)
                    mail.port = port;
            }
            self->client_->send(mail, true, finished);
        },
        [self, finished](const QString& failure) {
            self->owner_.log(SmtpClient::kFailurePrefix + failure);
            self->client_->setstatus(QString());
            self->lastFailure_ = failure;
            finished(false);
        });
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
    QPointer<SmtpMailWindow> self(this);
    sendtestmail(Text5->text(), Text1->text(), Text2->text(), Text3->text(), Text4->text(), Text6->text(),
                 Text7->toPlainText(), [self](bool ok) {
                     if (!self)
                         return;
                     platform::MessageBoxes& b = *self->owner_.state().platform.boxes;
                     if (ok) {
                         b.show(QStringLiteral("Email successfully sent"), MsgIcon::Information);
                         return;
                     }
                     // The second dialogue says why; the classic one keeps its single text.
                     QString why = std::exchange(self->lastFailure_, QString());
                     if (why.isEmpty() && !self->client_->lastError().isEmpty())
                         why = self->client_->lastError().mid(SmtpClient::kFailurePrefix.size());
                     b.show(why.isEmpty() ? QStringLiteral("Error on sending Email")
                                          : QStringLiteral("Error on sending Email") + QStringLiteral("\n\n") + why,
                            MsgIcon::Critical);
                 });
}

} // namespace velmora::actions
