#pragma once
// The program's own SMTP client: one minimal dialogue (greeting, HELO without a domain, mail
// from, rcpt to, DATA, the message, quit) over a platform socket. Each reply is awaited on a
// one-second timer for up to 16 ticks; only the first three characters of the latest data
// received count. Nothing blocks: the dialogue runs on socket and timer events and ends in a
// completion callback.
#include "actions/mailtypes.h"
#include "platform/clock.h"
#include "platform/tcpsocket.h"

#include <QDateTime>
#include <QLocale>
#include <QObject>

namespace velmora::actions {

struct SmtpMail {
    QString host;
    int port = 25;
    QString fromName;  // shown in the From header
    QString sender;    // envelope sender and From address
    QString recipient; // envelope recipient and To address
    QString mailer;    // X-Mailer header
    QString subject;
    QString body;      // may hold several lines
};

// The message part of the dialogue, each line ended by CR LF: From, Date (day and month names
// of locale, zone always +0100), X-Mailer, To, Subject, an empty line, the body, an empty line
// and the "." line. Body lines that begin with "." are doubled, so the server restores them.
// Text goes on the wire as single-byte Latin-1.
QByteArray smtpMessage(const SmtpMail& mail, const QDateTime& now, const QLocale& locale = QLocale::system());

class SmtpClient : public QObject {
    Q_OBJECT
public:
    // The job-log lines of a reply that did not come.
    static inline const QString kNoValidResponse =
        QStringLiteral("Error on sending email via smtp Server : No valid responce from SMTP server");
    static inline const QString kTimeOut =
        QStringLiteral("Error on sending email via smtp Server : Time out while connecting to SMTP server");
    // Ticks of the reply timer after which a wait has failed once one more comes.
    static constexpr int kMaxTicks = 15;

    // socket is the connection (Winsock1) and timer the reply timer (Timer1), both owned by the
    // caller; the timer's interval is set to 1000 ms by every wait unless tickMs says otherwise.
    SmtpClient(platform::TcpSocket* socket, platform::Timer* timer, const platform::Clock& clock,
               QObject* parent = nullptr);

    JobLine appendjobline;                          // where failed waits are logged
    std::function<void(const QString&)> setstatus;  // progress texts of a dialogue run with status
    QLocale locale = QLocale::system();             // day and month names of the Date header
    int tickMs = 1000;

    // Whether a dialogue runs (the sending flag).
    bool sending() const { return sending_; }

    // Runs one dialogue. done(result) runs exactly once: at once with false when a dialogue
    // runs already (nothing is sent, nothing logged), else when the dialogue has ended and the
    // socket is closed again. With withStatus the progress texts go to setstatus.
    void send(const SmtpMail& mail, bool withStatus, std::function<void(bool)> done);

private:
    enum class Phase { Idle, Connect, Waiting, Finished };
    void onData();
    void onTick();
    void pump();
    void step();
    void beginWait(const QString& code);
    void endWait();
    void finish(bool result);

    platform::TcpSocket* socket_;
    platform::Timer* timer_;
    const platform::Clock& clock_;

    bool sending_ = false;
    Phase phase_ = Phase::Idle;
    int step_ = 0;
    QString buffer_;   // the last data received
    int counter_ = 0;  // ticks of the current wait
    QString expected_;
    bool withStatus_ = false;
    bool result_ = false;
    QList<QByteArray> texts_; // what steps 2 to 7 send
    SmtpMail mail_;
    std::function<void(bool)> done_;
    bool pumping_ = false, again_ = false;
};

} // namespace velmora::actions
