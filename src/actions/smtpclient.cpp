#include "actions/smtpclient.h"

#include <QTimeZone>

namespace velmora::actions {

namespace {

const char* const kCodes[7] = {"220", "250", "250", "250", "354", "250", "221"};

QByteArray wire(const QString& text) { return text.toLatin1(); }

bool plainAscii(const QByteArray& bytes)
{
    for (char c : bytes) {
        if (static_cast<unsigned char>(c) > 126 || (static_cast<unsigned char>(c) < 32 && c != '\t'))
            return false;
    }
    return true;
}

// A display name as a header phrase: atoms as they are, other ASCII quoted, the rest encoded.
QByteArray phrase(const QString& name)
{
    const QByteArray utf8 = name.toUtf8();
    if (!plainAscii(utf8))
        return encodedHeaderText(name);
    static const QByteArray specials("()<>[]:;@\\,.\"");
    for (char c : utf8) {
        if (specials.contains(c)) {
            QByteArray quoted = utf8;
            quoted.replace("\\", "\\\\").replace("\"", "\\\"");
            return '"' + quoted + '"';
        }
    }
    return utf8;
}

QByteArray base64(const QString& text) { return text.toUtf8().toBase64(); }

} // namespace

QString rfc5322Date(const QDateTime& now)
{
    const int offset = now.offsetFromUtc() / 60;
    const int minutes = offset < 0 ? -offset : offset;
    return QLocale::c().toString(now, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss "))
        + (offset < 0 ? QLatin1Char('-') : QLatin1Char('+'))
        + QStringLiteral("%1%2").arg(minutes / 60, 2, 10, QLatin1Char('0')).arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

QByteArray encodedHeaderText(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    if (plainAscii(utf8))
        return utf8;
    // Each encoded word carries whole characters, at most 45 bytes (60 base64 characters), so
    // that "=?UTF-8?B?" + payload + "?=" stays within 75 characters.
    QList<QByteArray> words;
    QByteArray chunk;
    for (qsizetype i = 0; i < text.size(); ++i) {
        QString ch(text.at(i));
        if (text.at(i).isHighSurrogate() && i + 1 < text.size())
            ch += text.at(++i);
        const QByteArray bytes = ch.toUtf8();
        if (chunk.size() + bytes.size() > 45) {
            words << chunk;
            chunk.clear();
        }
        chunk += bytes;
    }
    if (!chunk.isEmpty())
        words << chunk;
    QByteArray out;
    for (const QByteArray& w : words) {
        if (!out.isEmpty())
            out += "\r\n ";
        out += "=?UTF-8?B?" + w.toBase64() + "?=";
    }
    return out;
}

QByteArray quotedPrintable(const QByteArray& utf8)
{
    QByteArray text = utf8;
    text.replace("\r\n", "\n");
    text.replace('\r', '\n');
    QByteArray out;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray& line : lines) {
        QByteArray encoded;
        int width = 0;
        for (qsizetype i = 0; i < line.size(); ++i) {
            const unsigned char c = static_cast<unsigned char>(line.at(i));
            const bool last = i + 1 == line.size();
            QByteArray piece;
            if ((c >= 33 && c <= 126 && c != '=') || ((c == ' ' || c == '\t') && !last))
                piece = QByteArray(1, char(c));
            else
                piece = '=' + QByteArray::number(c, 16).toUpper().rightJustified(2, '0');
            if (width + piece.size() > 75) {
                encoded += "=\r\n";
                width = 0;
            }
            encoded += piece;
            width += int(piece.size());
        }
        out += encoded + "\r\n";
    }
    return out;
}

QByteArray smtpMimeMessage(const SmtpMail& mail, const QDateTime& now, const QString& domain,
                           const QByteArray& uniquePart)
{
    QString body = mail.body;
    body.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    body.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    const QByteArray utf8 = body.toUtf8();
    bool shortLines = true;
    for (const QByteArray& line : utf8.split('\n'))
        shortLines = shortLines && line.size() <= 998;
    const bool sevenBit = plainAscii(utf8) && shortLines;
    QByteArray encodedBody = sevenBit ? utf8 + '\n' : quotedPrintable(utf8);
    encodedBody.replace("\r\n", "\n");
    QList<QByteArray> bodyLines = encodedBody.split('\n');
    bodyLines.removeLast(); // after the last line end
    for (QByteArray& line : bodyLines) {
        if (line.startsWith('.'))
            line.prepend('.');
    }
    const QList<QByteArray> headers{
        "From: " + phrase(mail.fromName) + " <" + mail.sender.toUtf8() + ">",
        "To: <" + mail.recipient.toUtf8() + ">",
        "Subject: " + encodedHeaderText(mail.subject),
        "Date: " + rfc5322Date(now).toLatin1(),
        "Message-ID: <" + uniquePart + "@" + domain.toUtf8() + ">",
        "X-Mailer: " + phrase(mail.mailer),
        "MIME-Version: 1.0",
        "Content-Type: text/plain; charset=UTF-8",
        QByteArray("Content-Transfer-Encoding: ") + (sevenBit ? "7bit" : "quoted-printable"),
    };
    return headers.join("\r\n") + "\r\n\r\n" + bodyLines.join("\r\n") + "\r\n.\r\n";
}

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
    // The classic dialogue does not listen to these: a broken connection runs into the time-out.
    connect(socket_, &platform::TcpSocket::connected, this, [this] {
        if (modern_ && phase_ == Phase::Waiting && mail_.security.tls == SmtpTls::Implicit)
            startTls();
    });
    connect(socket_, &platform::TcpSocket::encrypted, this, [this] {
        if (!modern_ || phase_ != Phase::Waiting)
            return;
        tlsUp_ = true;
        pump();
    });
    connect(socket_, &platform::TcpSocket::certificateRejected, this,
            [this](const QString& text, const QByteArray& fingerprint) {
                if (!modern_ || phase_ != Phase::Waiting)
                    return;
                const bool changed = !mail_.security.acceptedFingerprint.isEmpty();
                pendingFailure_ = QStringLiteral("the certificate of %1 is not trusted (%2). Its SHA-256 fingerprint is %3.")
                                      .arg(mail_.host, text, QString::fromLatin1(fingerprint))
                    + (changed ? QStringLiteral(" It is not the certificate accepted before (%1).")
                                     .arg(QString::fromLatin1(mail_.security.acceptedFingerprint))
                               : QString())
                    + QStringLiteral(" To trust it, tick \"Accept this server's certificate\" in the Email Options.");
                emit certificateRefused(mail_.host, fingerprint);
                pump();
            });
    connect(socket_, &platform::TcpSocket::failed, this, [this](const QString& text) {
        if (!modern_ || phase_ != Phase::Waiting)
            return;
        pendingFailure_ = stage_ == Stage::Greeting && inbound_.isEmpty()
                              ? QStringLiteral("could not connect to %1 port %2: %3").arg(mail_.host).arg(mail_.port).arg(text)
                              : QStringLiteral("the connection broke: ") + text;
        pump();
    });
    connect(socket_, &platform::TcpSocket::closedByPeer, this, [this] {
        if (!modern_ || phase_ != Phase::Waiting)
            return;
        closedByPeer_ = true;
        pump();
    });
}

bool SmtpClient::send(const SmtpMail& mail, bool withStatus)
{
    if (sending_)
        return false;
    // A line break in what goes into a command or a header would end it early on the server
    // and start a command or header of its own ("RCPT TO:", "Bcc:"): nothing is sent.
    const QString broken = holdsLineBreak(mail.recipient) ? QStringLiteral("recipient")
                           : holdsLineBreak(mail.sender)  ? QStringLiteral("sender")
                           : holdsLineBreak(mail.fromName) ? QStringLiteral("sender's name")
                           : holdsLineBreak(mail.subject) ? QStringLiteral("subject")
                                                          : QString();
    if (!broken.isEmpty()) {
        lastError_ = kFailurePrefix + QStringLiteral("the %1 holds a line break; nothing was sent").arg(broken);
        emit logLine(lastError_);
        emit finished(false);
        return true;
    }
    sending_ = true;
    mail_ = mail;
    withStatus_ = withStatus;
    result_ = false;
    step_ = 0;
    buffer_.clear();
    modern_ = mail.security.on;
    stage_ = Stage::Greeting;
    inbound_.clear();
    extensions_.clear();
    tlsUp_ = closedByPeer_ = ehloDone_ = false;
    pendingFailure_.clear();
    lastError_.clear();
    // A connection still open from before is not reused: this send fails and closes it.
    if (socket_->state() != platform::TcpSocket::State::Closed)
        finish(false);
    else
        phase_ = Phase::Connect;
    pump();
    return true;
}

void SmtpClient::onData()
{
    if (modern_) {
        // The second dialogue reads whole replies: arrivals are added up, but only so far. A
        // server that sends without end (or a line without end) is cut off.
        inbound_ += socket_->receive();
        const qsizetype openLine = inbound_.size() - (inbound_.lastIndexOf('\n') + 1);
        if (phase_ == Phase::Waiting && (openLine > kMaxReplyLine || inbound_.size() > kMaxReply)) {
            inbound_.clear();
            pendingFailure_ = QStringLiteral("the server sent an answer longer than %1 bytes")
                                  .arg(openLine > kMaxReplyLine ? kMaxReplyLine : kMaxReply);
        }
        pump();
        return;
    }
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
        emit finished(result_);
    }
}

void SmtpClient::step()
{
    if (modern_) {
        modernStep();
        return;
    }
    if (phase_ == Phase::Connect) {
        status(QStringLiteral("Connecting..."));
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
        switch (step_) {
        case 0: status(QStringLiteral("Connected")); break;
        case 1: status(QStringLiteral("Sending Email")); break;
        case 5: status(QStringLiteral("Disconnecting")); break;
        case 6: status(QStringLiteral("Nachricht verschickt !")); break;
        default: break;
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
        // "Time out while connecting" only while no greeting came; a server that said hello
        // and then went silent, or hung up, did not give a valid answer.
        emit logLine(buffer_.isEmpty() && step_ == 0 ? kTimeOut : kNoValidResponse);
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

namespace velmora::actions {

QString SmtpClient::Reply::text() const
{
    return QString::number(code) + QLatin1Char(' ') + lines.join(QLatin1Char(' '));
}

void SmtpClient::status(const QString& text)
{
    if (withStatus_)
        emit statusChanged(text);
}

void SmtpClient::startTls()
{
    stage_ = Stage::TlsHandshake;
    const SmtpSecurity& sec = mail_.security;
    socket_->startTls(mail_.host, sec.acceptedFingerprint, sec.acceptNextCertificate);
}

// One whole reply from the front of inbound_: lines "ddd-text" up to the first "ddd text".
bool SmtpClient::takeReply(Reply& reply)
{
    Reply r;
    qsizetype at = 0;
    for (;;) {
        const qsizetype eol = inbound_.indexOf('\n', at);
        if (eol < 0)
            return false;
        QByteArray line = inbound_.mid(at, eol - at);
        if (line.endsWith('\r'))
            line.chop(1);
        at = eol + 1;
        bool ok = false;
        const int code = line.left(3).toInt(&ok);
        if (!ok || line.size() < 3) {
            // Not a reply line: taken as a reply the dialogue cannot use.
            r.code = 0;
            r.lines << QString::fromUtf8(line);
            break;
        }
        r.code = code;
        r.lines << QString::fromUtf8(line.mid(4));
        if (line.size() == 3 || line.at(3) != '-')
            break;
    }
    inbound_.remove(0, at);
    reply = r;
    return true;
}

void SmtpClient::command(const QByteArray& line, Stage next, const QString& shown)
{
    stage_ = next;
    lastCommand_ = shown.isEmpty() ? QString::fromUtf8(line) : shown;
    beginWait(QString());
    if (!socket_->send(line + "\r\n"))
        fail(QStringLiteral("the connection is gone"));
}

void SmtpClient::fail(const QString& reason)
{
    endWait();
    if (stage_ == Stage::Quit) {
        // The message was taken before: what happens on QUIT does not undo that.
        status(QStringLiteral("Nachricht verschickt !"));
        finish(true);
        return;
    }
    lastError_ = kFailurePrefix + reason;
    emit logLine(lastError_);
    finish(false);
}

void SmtpClient::modernStep()
{
    if (phase_ == Phase::Connect) {
        status(QStringLiteral("Connecting..."));
        phase_ = Phase::Waiting;
        stage_ = Stage::Greeting;
        lastCommand_ = QStringLiteral("the connection");
        beginWait(QString());
        socket_->connectTo(mail_.host, mail_.port);
        again_ = true;
        return;
    }
    if (phase_ != Phase::Waiting)
        return;
    if (!pendingFailure_.isEmpty()) {
        fail(std::exchange(pendingFailure_, QString()));
        return;
    }
    if (tlsUp_) {
        tlsUp_ = false;
        const SmtpSecurity& sec = mail_.security;
        const QByteArray fingerprint = socket_->peerFingerprint();
        if (sec.acceptNextCertificate && fingerprint != sec.acceptedFingerprint)
            emit certificateAccepted(fingerprint);
        if (sec.tls == SmtpTls::Implicit) {
            stage_ = Stage::Greeting; // the greeting comes over TLS
        } else {
            // What the server said before TLS is forgotten; it is asked again.
            extensions_.clear();
            command("EHLO " + sec.heloName.toUtf8(), Stage::Ehlo);
        }
        again_ = true;
        return;
    }
    Reply reply;
    if (stage_ != Stage::TlsHandshake && takeReply(reply)) {
        endWait();
        handleReply(reply);
        again_ = true;
        return;
    }
    if (closedByPeer_) {
        fail(QStringLiteral("the server closed the connection while waiting for the answer to ") + lastCommand_);
        return;
    }
    if (counter_ > kMaxTicks) {
        if (stage_ == Stage::Greeting && inbound_.isEmpty() && socket_->state() != platform::TcpSocket::State::Connected)
            fail(QStringLiteral("Time out while connecting to SMTP server"));
        else if (stage_ == Stage::TlsHandshake)
            fail(QStringLiteral("Time out while starting encryption with the SMTP server"));
        else
            fail(QStringLiteral("Time out waiting for the answer to ") + lastCommand_);
    }
}

void SmtpClient::handleReply(const Reply& reply)
{
    const SmtpSecurity& sec = mail_.security;
    auto refused = [&](const QString& what) {
        fail(QStringLiteral("the server answered \"%1\" to %2").arg(reply.text(), what));
    };
    switch (stage_) {
    case Stage::Greeting:
        if (reply.code != 220)
            return refused(QStringLiteral("the connection"));
        status(QStringLiteral("Connected"));
        command("EHLO " + sec.heloName.toUtf8(), Stage::Ehlo);
        return;
    case Stage::Ehlo:
        if (reply.code != 250)
            return refused(lastCommand_);
        extensions_.clear();
        for (qsizetype i = 1; i < reply.lines.size(); ++i)
            extensions_ << reply.lines.at(i).toUpper();
        if (sec.tls == SmtpTls::StartTls && !socket_->isEncrypted() && extensions_.contains(QStringLiteral("STARTTLS"))) {
            command("STARTTLS", Stage::StartTls);
            return;
        }
        if (!ehloDone_) {
            ehloDone_ = true;
            status(QStringLiteral("Sending Email"));
        }
        afterEhlo();
        return;
    case Stage::StartTls:
        if (reply.code != 220)
            return refused(QStringLiteral("STARTTLS"));
        beginWait(QString());
        startTls();
        return;
    case Stage::AuthPlain:
    case Stage::AuthPass:
        if (reply.code != 235)
            return fail(QStringLiteral("the server refused the login as %1: \"%2\"").arg(sec.user, reply.text()));
        mailFrom();
        return;
    case Stage::AuthLogin:
        if (reply.code != 334)
            return fail(QStringLiteral("the server refused the login as %1: \"%2\"").arg(sec.user, reply.text()));
        command(base64(sec.user), Stage::AuthUser, QStringLiteral("the user name"));
        return;
    case Stage::AuthUser:
        if (reply.code != 334)
            return fail(QStringLiteral("the server refused the login as %1: \"%2\"").arg(sec.user, reply.text()));
        command(base64(sec.password), Stage::AuthPass, QStringLiteral("the password"));
        return;
    case Stage::MailFrom:
        if (reply.code != 250)
            return refused(lastCommand_);
        command("RCPT TO:<" + mail_.recipient.toUtf8() + ">", Stage::RcptTo);
        return;
    case Stage::RcptTo:
        if (reply.code != 250 && reply.code != 251)
            return refused(lastCommand_);
        command("DATA", Stage::Data);
        return;
    case Stage::Data: {
        if (reply.code != 354)
            return refused(QStringLiteral("DATA"));
        QByteArray unique = QByteArray::number(clock_.now().toMSecsSinceEpoch(), 36) + '.'
                            + QByteArray::number(quintptr(this), 36) + '.'
                            + QByteArray::number(++messageCount_, 36);
        const QByteArray message = smtpMimeMessage(mail_, clock_.now(), sec.heloName, unique);
        stage_ = Stage::Message;
        lastCommand_ = QStringLiteral("the message");
        beginWait(QString());
        if (!socket_->send(message))
            fail(QStringLiteral("the connection is gone"));
        return;
    }
    case Stage::Message:
        if (reply.code != 250)
            return refused(QStringLiteral("the message"));
        status(QStringLiteral("Disconnecting"));
        result_ = true;
        command("QUIT", Stage::Quit);
        return;
    case Stage::Quit:
        endWait();
        status(QStringLiteral("Nachricht verschickt !"));
        finish(true);
        return;
    case Stage::TlsHandshake:
        return;
    }
}

void SmtpClient::afterEhlo()
{
    const SmtpSecurity& sec = mail_.security;
    // Only "No encryption", chosen by name in the Email Options, lets a byte of the login or
    // the mail go out before TLS is up; a server that does not offer STARTTLS is never
    // quietly talked to in clear.
    if (sec.tls != SmtpTls::None && !socket_->isEncrypted()) {
        fail(sec.user.isEmpty()
                 ? QStringLiteral("the server offers no STARTTLS, which the Email Options require, so the mail was not sent")
                 : QStringLiteral("the server offers no STARTTLS, which the Email Options require, so the password "
                                  "of %1 and the mail were not sent")
                       .arg(sec.user));
        return;
    }
    if (sec.user.isEmpty()) {
        mailFrom();
        return;
    }
    QStringList mechanisms;
    for (const QString& ext : extensions_) {
        if (ext.startsWith(QLatin1String("AUTH ")) || ext.startsWith(QLatin1String("AUTH=")))
            mechanisms << ext.mid(5).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    }
    if (mechanisms.contains(QStringLiteral("PLAIN"))) {
        const QByteArray token = ('\0' + sec.user.toUtf8() + '\0' + sec.password.toUtf8()).toBase64();
        command("AUTH PLAIN " + token, Stage::AuthPlain, QStringLiteral("AUTH PLAIN"));
    } else if (mechanisms.contains(QStringLiteral("LOGIN"))) {
        command("AUTH LOGIN", Stage::AuthLogin);
    } else {
        // Most servers offer a login only once the connection is encrypted.
        fail(socket_->isEncrypted() ? QStringLiteral("the server offers no login by PLAIN or LOGIN")
                                    : QStringLiteral("the server offers no login by PLAIN or LOGIN without encryption"));
    }
}

void SmtpClient::mailFrom()
{
    command("MAIL FROM:<" + mail_.sender.toUtf8() + ">", Stage::MailFrom);
}

} // namespace velmora::actions
