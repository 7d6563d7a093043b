#include "platform/sim/simtcp.h"

namespace velmora::platform::sim {

void SimTcpSocket::connectTo(const QString& h, int p)
{
    if (state_ != State::Closed)
        return;
    host = h;
    port = p;
    ++connects;
    inbound_.clear();
    encrypted_ = false;
    fingerprint_.clear();
    const SimTcpNetwork::Peer* peer = network_.peer(h, p);
    if (!peer) {
        emit failed(QStringLiteral("Connection refused"));
        return;
    }
    const SimTcpNetwork::Peer copy = *peer;
    state_ = State::Connected;
    emit connected();
    if (copy.connected && state_ == State::Connected)
        copy.connected(*this);
}

bool SimTcpSocket::send(const QByteArray& bytes)
{
    if (state_ != State::Connected)
        return false;
    sent += bytes;
    if (const SimTcpNetwork::Peer* peer = network_.peer(host, port)) {
        const SimTcpNetwork::Peer copy = *peer;
        if (copy.received)
            copy.received(*this, bytes);
    }
    return true;
}

QByteArray SimTcpSocket::receive()
{
    QByteArray out;
    out.swap(inbound_);
    return out;
}

void SimTcpSocket::close()
{
    ++closes;
    state_ = State::Closed;
    encrypted_ = false;
    inbound_.clear();
}

void SimTcpSocket::startTls(const QString& peerName, const QByteArray& acceptedFingerprint, bool acceptAny)
{
    if (state_ != State::Connected || encrypted_)
        return;
    tlsPeerName = peerName;
    const SimTcpNetwork::Peer* peer = network_.peer(host, port);
    if (!peer)
        return;
    const SimTcpNetwork::Peer copy = *peer;
    fingerprint_ = copy.certificateFingerprint;
    if (!copy.certificateTrusted && !acceptAny
        && (acceptedFingerprint.isEmpty() || acceptedFingerprint.toLower() != fingerprint_)) {
        state_ = State::Closed;
        inbound_.clear();
        emit certificateRejected(QStringLiteral("The certificate is self-signed, and untrusted"), fingerprint_);
        return;
    }
    encrypted_ = true;
    emit encrypted();
    if (copy.tlsStarted && state_ == State::Connected)
        copy.tlsStarted(*this);
}

void SimTcpSocket::reply(const QByteArray& bytes)
{
    if (state_ != State::Connected)
        return;
    inbound_ += bytes;
    emit dataArrived();
}

void SimTcpSocket::hangUp()
{
    if (state_ != State::Connected)
        return;
    state_ = State::Closed;
    emit closedByPeer();
}

TcpSocket* SimTcpNetwork::createSocket(QObject* parent, const QString& name)
{
    auto* s = new SimTcpSocket(*this, parent);
    s->setObjectName(name);
    sockets.append(s);
    return s;
}

void SimTcpNetwork::listen(const QString& host, int port, Peer peer)
{
    peers_[{host.toLower(), port}] = std::move(peer);
}

void SimTcpNetwork::stopListening(const QString& host, int port) { peers_.erase({host.toLower(), port}); }

const SimTcpNetwork::Peer* SimTcpNetwork::peer(const QString& host, int port) const
{
    const auto it = peers_.find({host.toLower(), port});
    return it == peers_.end() ? nullptr : &it->second;
}

// ---- SMTP server ----

SimSmtpServer::SimSmtpServer()
{
    answer[Greeting] = QStringLiteral("220 sim.test Simple Mail Transfer Service Ready");
    answer[Helo] = QStringLiteral("250 sim.test");
    answer[MailFrom] = QStringLiteral("250 OK");
    answer[RcptTo] = QStringLiteral("250 OK");
    answer[Data] = QStringLiteral("354 End data with <CR><LF>.<CR><LF>");
    answer[Message] = QStringLiteral("250 OK: queued");
    answer[Quit] = QStringLiteral("221 Bye");
    answer[Other] = QStringLiteral("500 Command unrecognized");
}

void SimSmtpServer::listen(SimTcpNetwork& network, const QString& host, int port)
{
    SimTcpNetwork::Peer peer;
    peer.connected = [this](SimTcpSocket& s) {
        buffer_.clear();
        inData_ = false;
        respond(s, Greeting);
    };
    peer.received = [this](SimTcpSocket& s, const QByteArray& bytes) { received(s, bytes); };
    network.listen(host, port, std::move(peer));
}

void SimSmtpServer::respond(SimTcpSocket& socket, Step step)
{
    if (hangUpAt && *hangUpAt == step) {
        socket.hangUp();
        return;
    }
    if (!answer[step].isEmpty())
        socket.reply(answer[step].toLatin1() + "\r\n");
}

void SimSmtpServer::received(SimTcpSocket& socket, const QByteArray& bytes)
{
    buffer_ += bytes;
    for (;;) {
        if (inData_) {
            qsizetype end = -1;
            if (buffer_.startsWith(".\r\n"))
                end = 0;
            else if (const qsizetype at = buffer_.indexOf("\r\n.\r\n"); at >= 0)
                end = at + 2;
            if (end < 0)
                return;
            messages << buffer_.left(end);
            buffer_.remove(0, end + 3);
            inData_ = false;
            steps << Message;
            respond(socket, Message);
            continue;
        }
        const qsizetype eol = buffer_.indexOf("\r\n");
        if (eol < 0)
            return;
        const QString line = QString::fromLatin1(buffer_.left(eol));
        buffer_.remove(0, eol + 2);
        commands << line;
        const QString verb = line.section(QLatin1Char(' '), 0, 0).toUpper();
        Step step = Other;
        if (verb == QLatin1String("HELO") || verb == QLatin1String("EHLO"))
            step = Helo;
        else if (line.startsWith(QLatin1String("MAIL FROM:"), Qt::CaseInsensitive))
            step = MailFrom;
        else if (line.startsWith(QLatin1String("RCPT TO:"), Qt::CaseInsensitive))
            step = RcptTo;
        else if (verb == QLatin1String("DATA"))
            step = Data;
        else if (verb == QLatin1String("QUIT"))
            step = Quit;
        steps << step;
        if (step == Data && answer[Data].startsWith(QLatin1String("354")) && !(hangUpAt && *hangUpAt == Data))
            inData_ = true;
        respond(socket, step);
        if (socket.state() != TcpSocket::State::Connected)
            return;
    }
}

} // namespace velmora::platform::sim
