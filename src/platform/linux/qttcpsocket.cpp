#include "platform/linux/qttcpsocket.h"

#include <QPointer>
#include <QSignalBlocker>

namespace velmora::platform {

QtTcpSocket::QtTcpSocket(QObject* parent) : TcpSocket(parent)
{
    connect(&socket_, &QTcpSocket::connected, this, &TcpSocket::connected);
    connect(&socket_, &QTcpSocket::readyRead, this, &TcpSocket::dataArrived);
    connect(&socket_, &QTcpSocket::disconnected, this, &TcpSocket::closedByPeer);
    connect(&socket_, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        // The peer's close is reported by disconnected() alone.
        if (error != QAbstractSocket::RemoteHostClosedError)
            emit failed(socket_.errorString());
    });
}

void QtTcpSocket::connectTo(const QString& host, int port)
{
    if (state() != State::Closed)
        return;
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
