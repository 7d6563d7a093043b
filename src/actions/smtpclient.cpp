#include "actions/smtpclient.h"

namespace velmora::actions {

namespace {

const char* const kCodes[7] = {"220", "250", "250", "250", "354", "250", "221"};

QByteArray wire(const QString& text) { return text.toLatin1(); }

} // namespace

QByteArray smtpMessage(const SmtpMail& mail, const QDateTime& now, const QLocale& locale)
{
    QString body = mail.body;
    body.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    body.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    QStringList bodyLines = body.split(QLatin1Char('\n'));
    for (QString& line : bodyLines) {
        if (line.startsWith(QLatin1Char('.')))
            line.prepend(QLatin1Char('.'));
    }
    const QStringList lines{
        QStringLiteral("From: ") + mail.fromName + QStringLiteral(" <") + mail.sender + QStringLiteral(">"),
        QStringLiteral("Date: ") + locale.toString(now.date(), QStringLiteral("ddd")) + QStringLiteral(", ")
            + locale.toString(now.date(), QStringLiteral("dd MMM yyyy")) + QStringLiteral(" ")
            + now.time().toString(QStringLiteral("hh:mm:ss")) + QStringLiteral(" +0100"),
        QStringLiteral("X-Mailer: ") + mail.mailer,
        QStringLiteral("To: ") + QStringLiteral(" <") + mail.recipient + QStringLiteral(">"),
        QStringLiteral("Subject: ") + mail.subject,
        QString(),
        bodyLines.join(QStringLiteral("\r\n")),
        QString(),
        QStringLiteral("."),
    };
    return wire(lines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n"));
}

SmtpClient::SmtpClient(platform::TcpSocket* socket, platform::Timer* timer, const platform::Clock& clock,
                       QObject* parent)
    : QObject(parent), socket_(socket), timer_(timer), clock_(clock)
{
    timer_->setEnabled(false);
    connect(socket_, &platform::TcpSocket::dataArrived, this, &SmtpClient::onData);
    connect(timer_, &platform::Timer::timeout, this, &SmtpClient::onTick);
}

void SmtpClient::send(const SmtpMail& mail, bool withStatus, std::function<void(bool)> done)
{
    if (sending_) {
        if (done)
            done(false);
        return;
    }
    sending_ = true;
    mail_ = mail;
    withStatus_ = withStatus;
    done_ = std::move(done);
    result_ = false;
    step_ = 0;
    buffer_.clear();
    // A connection still open from before is not reused: this send fails and closes it.
    if (socket_->state() != platform::TcpSocket::State::Closed)
        finish(false);
    else
        phase_ = Phase::Connect;
    pump();
}

void SmtpClient::onData()
{
    // Every arrival replaces what came before.
    buffer_ = QString::fromLatin1(socket_->receive());
    pump();
}

void SmtpClient::onTick()
{
    ++counter_;
    pump();
}

// Socket and timer events may arrive while a step is being taken (a peer that answers inside
// send()); they only mark that another look is due, so steps never nest.
void SmtpClient::pump()
{
    if (pumping_) {
        again_ = true;
        return;
    }
    pumping_ = true;
    do {
        again_ = false;
        step();
    } while (again_ && phase_ != Phase::Finished);
    pumping_ = false;
    if (phase_ == Phase::Finished) {
        phase_ = Phase::Idle;
        auto done = std::move(done_);
        done_ = nullptr;
        if (done)
            done(result_);
    }
}

void SmtpClient::step()
{
    if (phase_ == Phase::Connect) {
        if (withStatus_ && setstatus)
            setstatus(QStringLiteral("Connecting..."));
        texts_ = {
            wire(QStringLiteral("HELO \r\n")),
            wire(QStringLiteral("mail from: ") + mail_.sender + QStringLiteral("\r\n")),
            wire(QStringLiteral("rcpt to: ") + mail_.recipient + QStringLiteral("\r\n")),
            wire(QStringLiteral("DATA\r\n")),
            smtpMessage(mail_, clock_.now(), locale),
            wire(QStringLiteral("quit\r\n")),
        };
        phase_ = Phase::Waiting;
        step_ = 0;
        beginWait(QString::fromLatin1(kCodes[0]));
        socket_->connectTo(mail_.host, mail_.port);
        again_ = true;
        return;
    }
    if (phase_ != Phase::Waiting)
        return;

    if (buffer_.left(3) == expected_) {
        endWait();
        if (withStatus_ && setstatus) {
            switch (step_) {
            case 0: setstatus(QStringLiteral("Connected")); break;
            case 1: setstatus(QStringLiteral("Sending Email")); break;
            case 5: setstatus(QStringLiteral("Disconnecting")); break;
            case 6: setstatus(QStringLiteral("Nachricht verschickt !")); break;
            default: break;
            }
        }
        ++step_;
        if (step_ == 7) {
            finish(true);
            return;
        }
        beginWait(QString::fromLatin1(kCodes[step_]));
        // A socket that refuses to send (the connection is gone) ends the dialogue unlogged.
        if (!socket_->send(texts_[step_ - 1])) {
            endWait();
            finish(false);
            return;
        }
        again_ = true;
        return;
    }
    if (counter_ > kMaxTicks) {
        if (appendjobline)
            appendjobline(buffer_.isEmpty() ? kTimeOut : kNoValidResponse);
        endWait();
        finish(false);
    }
}

void SmtpClient::beginWait(const QString& code)
{
    expected_ = code;
    counter_ = 0;
    timer_->setInterval(tickMs);
    timer_->setEnabled(true);
}

void SmtpClient::endWait()
{
    buffer_.clear();
    timer_->setEnabled(false);
}

void SmtpClient::finish(bool result)
{
    result_ = result;
    sending_ = false;
    timer_->setEnabled(false);
    socket_->close();
    phase_ = Phase::Finished;
}

} // namespace velmora::actions
