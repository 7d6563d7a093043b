#pragma once
// TCP client connections over Qt Network.
#include "platform/tcpsocket.h"

#include <QTcpSocket>

namespace velmora::platform {

class QtTcpSocket : public TcpSocket {
    Q_OBJECT
public:
    explicit QtTcpSocket(QObject* parent = nullptr);
    void connectTo(const QString& host, int port) override;
    bool send(const QByteArray& bytes) override;
    QByteArray receive() override;
    State state() const override;
    void close() override;

private:
    QTcpSocket socket_;
};

class QtTcpNetwork : public TcpNetwork {
public:
    TcpSocket* createSocket(QObject* parent, const QString& name) override;
};

} // namespace velmora::platform
