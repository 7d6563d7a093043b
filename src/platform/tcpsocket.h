#pragma once
// A TCP client connection, in the manner of the classic socket control: connect to a host and
// port, send text, be told when data arrives, close. Everything is asynchronous and runs on the
// user-interface thread: no call blocks.
#include <QByteArray>
#include <QObject>
#include <QString>

namespace velmora::platform {

class TcpSocket : public QObject {
    Q_OBJECT
public:
    enum class State { Closed, Connecting, Connected };
    using QObject::QObject;

    // Starts connecting to host (a name or an address) on port. Allowed only while Closed;
    // otherwise it does nothing. The outcome arrives later as connected() or failed(); a host
    // that does not resolve, a port outside 1 to 65535 and a refused connection all end in
    // failed() and the state Closed.
    virtual void connectTo(const QString& host, int port) = 0;
    // Queues bytes for sending. Returns false, sending nothing, when the socket is not connected.
    virtual bool send(const QByteArray& bytes) = 0;
    // Everything received since the last call (empty when nothing came).
    virtual QByteArray receive() = 0;
    virtual State state() const = 0;
    // Drops the connection at once, unsent data included, and discards anything unread. The
    // socket is Closed afterwards and may connect again. No signal is emitted.
    virtual void close() = 0;

    // ---- TLS ----
    // Starts TLS on a connected socket as its client, checking the server's certificate against
    // peerName and the system's trusted authorities. A certificate that fails the check still
    // passes when its SHA-256 fingerprint equals acceptedFingerprint (the user accepted that
    // certificate), or, with acceptAny, whatever it is (the user accepted the next certificate
    // this server shows; its fingerprint is then read with peerFingerprint()). The outcome
    // arrives as encrypted(), certificateRejected() or failed(). Does nothing unless Connected.
    virtual void startTls(const QString& peerName, const QByteArray& acceptedFingerprint, bool acceptAny) = 0;
    // Whether TLS is on for the current connection.
    virtual bool isEncrypted() const = 0;
    // SHA-256 of the certificate the server showed, as lower-case hex (empty before TLS).
    virtual QByteArray peerFingerprint() const = 0;

signals:
    void connected();
    // New data can be read with receive().
    void dataArrived();
    // The other side closed the connection; the state is Closed.
    void closedByPeer();
    // Connecting failed or the connection broke; the state is Closed.
    void failed(const QString& text);
    // TLS is on; sent bytes are encrypted from now on.
    void encrypted();
    // The server's certificate could not be verified and was not accepted: text says why,
    // fingerprint is its SHA-256 as lower-case hex. The connection is dropped; the state is Closed.
    void certificateRejected(const QString& text, const QByteArray& fingerprint);
};

class TcpNetwork {
public:
    virtual ~TcpNetwork() = default;
    // A new closed socket owned by parent, with the given objectName.
    virtual TcpSocket* createSocket(QObject* parent, const QString& name) = 0;
};

} // namespace velmora::platform
