#pragma once
// TCP client connections over Qt Network, with TLS through QSslSocket.
#include "platform/tcpsocket.h"

#include <QSslSocket>

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
    void startTls(const QString& peerName, const QByteArray& acceptedFingerprint, bool acceptAny) override;
    bool isEncrypted() const override;
    QByteArray peerFingerprint() const override;

private:
    void onSslErrors(const QList<QSslError>& errors);

    QSslSocket socket_;
    QByteArray acceptedFingerprint_;
    bool acceptAny_ = false;
    bool rejected_ = false;
    QString rejectedText_;
    QByteArray rejectedFingerprint_;
};

class QtTcpNetwork : public TcpNetwork {
public:
    TcpSocket* createSocket(QObject* parent, const QString& name) override;
};

} // namespace velmora::platform
