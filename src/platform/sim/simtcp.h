#pragma once
// A simulated TCP network: peers that tests script listen on host and port; every socket the
// program opens is kept for inspection. Delivery is immediate: a peer's answer arrives inside
// the call that provoked it.
#include "platform/tcpsocket.h"

#include <QList>
#include <QPointer>
#include <QStringList>
#include <functional>
#include <map>
#include <optional>

namespace velmora::platform::sim {

class SimTcpNetwork;

class SimTcpSocket : public TcpSocket {
    Q_OBJECT
public:
    SimTcpSocket(SimTcpNetwork& network, QObject* parent) : TcpSocket(parent), network_(network) {}
    void connectTo(const QString& host, int port) override;
    bool send(const QByteArray& bytes) override;
    QByteArray receive() override;
    State state() const override { return state_; }
    void close() override;
    void startTls(const QString& peerName, const QByteArray& acceptedFingerprint, bool acceptAny) override;
    bool isEncrypted() const override { return encrypted_; }
    QByteArray peerFingerprint() const override { return fingerprint_; }

    // ---- the peer's side ----
    // The peer sends bytes (ignored unless connected).
    void reply(const QByteArray& bytes);
    // The peer closes the connection.
    void hangUp();

    QString host;          // of the last connectTo
    int port = 0;
    QByteArray sent;       // everything the program sent, over all connections
    int connects = 0, closes = 0;
    QString tlsPeerName;   // of the last startTls

private:
    SimTcpNetwork& network_;
    State state_ = State::Closed;
    QByteArray inbound_;
    bool encrypted_ = false;
    QByteArray fingerprint_;
};

class SimTcpNetwork : public TcpNetwork {
public:
    struct Peer {
        // A connection was accepted.
        std::function<void(SimTcpSocket&)> connected;
        // The program sent bytes.
        std::function<void(SimTcpSocket&, const QByteArray&)> received;
        // TLS: the SHA-256 fingerprint of the peer's certificate (hex) and whether the
        // program's trusted authorities vouch for it.
        QByteArray certificateFingerprint = QByteArrayLiteral("00");
        bool certificateTrusted = true;
        // TLS came up (called after encrypted()).
        std::function<void(SimTcpSocket&)> tlsStarted;
    };
    TcpSocket* createSocket(QObject* parent, const QString& name) override;

    // Connections to host (compared without regard to case) and port are accepted by peer; any
    // other connection fails at once with "Connection refused".
    void listen(const QString& host, int port, Peer peer);
    void stopListening(const QString& host, int port);
    const Peer* peer(const QString& host, int port) const;

    QList<QPointer<SimTcpSocket>> sockets; // every socket created, oldest first

private:
    std::map<std::pair<QString, int>, Peer> peers_;
};

// A simulated SMTP server on the simulated network: answers a plain client's dialogue and keeps
// what it received. Each step's answer can be replaced, withheld, or replaced by a hang-up.
class SimSmtpServer {
public:
    enum Step { Greeting, Helo, MailFrom, RcptTo, Data, Message, Quit, Other, StepCount };
    SimSmtpServer();

    void listen(SimTcpNetwork& network, const QString& host, int port);

    // The answer of a step, without CR LF; an empty text gives no answer at all.
    QString answer[StepCount];
    // At this step the server closes the connection instead of answering.
    std::optional<Step> hangUpAt;

    QStringList commands;        // every command line received, without CR LF
    QList<QByteArray> messages;  // the data of every message, up to and without the "." line
    QList<Step> steps;           // the step of every command or message, in order

private:
    void received(SimTcpSocket& socket, const QByteArray& bytes);
    void respond(SimTcpSocket& socket, Step step);
    QByteArray buffer_;
    bool inData_ = false;
};

} // namespace velmora::platform::sim
