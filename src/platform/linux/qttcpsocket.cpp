#include "platform/linux/qttcpsocket.h"

#include <QCryptographicHash>
#include <QPointer>
#include <QSslCertificate>
#include <QSignalBlocker>

namespace velmora::platform {

QtTcpSocket::QtTcpSocket(QObject* parent) : TcpSocket(parent)
{
    connect(&socket_, &QTcpSocket::connected, this, &TcpSocket::connected);
    connect(&socket_, &QTcpSocket::readyRead, this, &TcpSocket::dataArrived);
    connect(&socket_, &QTcpSocket::disconnected, this, [this] {
        if (!rejected_)
            emit closedByPeer();
    });
    connect(&socket_, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        if (rejected_) {
            // Reported once, as the certificate's rejection.
            if (!rejectedText_.isNull()) {
                const QString text = std::exchange(rejectedText_, QString());
                emit certificateRejected(text, rejectedFingerprint_);
            }
            return;
        }
        // The peer's close is reported by disconnected() alone.
        if (error != QAbstractSocket::RemoteHostClosedError)
            emit failed(socket_.errorString());
    });
    connect(&socket_, &QSslSocket::encrypted, this, &TcpSocket::encrypted);
    connect(&socket_, &QSslSocket::sslErrors, this, &QtTcpSocket::onSslErrors);
}

void QtTcpSocket::startTls(const QString& peerName, const QByteArray& acceptedFingerprint, bool acceptAny)
{
    if (state() != State::Connected || socket_.isEncrypted())
        return;
    acceptedFingerprint_ = acceptedFingerprint.toLower();
    acceptAny_ = acceptAny;
    rejected_ = false;
    socket_.setPeerVerifyName(peerName);
    socket_.startClientEncryption();
}

bool QtTcpSocket::isEncrypted() const { return socket_.isEncrypted(); }

QByteArray QtTcpSocket::peerFingerprint() const
{
    const QSslCertificate cert = socket_.peerCertificate();
    return cert.isNull() ? QByteArray() : cert.digest(QCryptographicHash::Sha256).toHex();
}

void QtTcpSocket::onSslErrors(const QList<QSslError>& errors)
{
    const QByteArray fingerprint = peerFingerprint();
    if (acceptAny_ || (!acceptedFingerprint_.isEmpty() && fingerprint == acceptedFingerprint_)) {
        socket_.ignoreSslErrors();
        return;
    }
    // Not ignoring the errors makes the handshake fail: the socket reports an error and closes,
    // and that error is passed on as the rejection.
    QStringList texts;
    for (const QSslError& e : errors)
        texts << e.errorString();
    rejected_ = true;
    rejectedText_ = texts.join(QStringLiteral("; "));
    rejectedFingerprint_ = fingerprint;
}

void QtTcpSocket::connectTo(const QString& host, int port)
{
    if (state() != State::Closed)
        return;
    rejected_ = false;
    if (port < 1 || port > 65535) {
        // Reported later, like every other connection failure.
        QPointer<QtTcpSocket> self(this);
        QMetaObject::invokeMethod(this, [self, port] {
            if (self && self->state() == State::Closed)
                emit self->failed(QStringLiteral("Invalid port %1").arg(port));
        }, Qt::QueuedConnection);
        return;
    }
    socket_.connectToHost(host, quint16(port));
}

bool QtTcpSocket::send(const QByteArray& bytes)
{
    if (socket_.state() != QAbstractSocket::ConnectedState)
        return false;
    return socket_.write(bytes) == bytes.size();
}

QByteArray QtTcpSocket::receive() { return socket_.readAll(); }

TcpSocket::State QtTcpSocket::state() const
{
    switch (socket_.state()) {
    case QAbstractSocket::HostLookupState:
    case QAbstractSocket::ConnectingState:
        return State::Connecting;
    case QAbstractSocket::ConnectedState:
        return State::Connected;
    default:
        return State::Closed;
    }
}

void QtTcpSocket::close()
{
    // Closing on our own is not the peer's close: no signal.
    const QSignalBlocker quiet(&socket_);
    socket_.abort();
}

TcpSocket* QtTcpNetwork::createSocket(QObject* parent, const QString& name)
{
    auto* s = new QtTcpSocket(parent);
    s->setObjectName(name);
    return s;
}

} // namespace velmora::platform
