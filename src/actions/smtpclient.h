#pragma once
// The program's own SMTP client over a platform socket, with two dialogues:
//
// - the classic one: greeting, HELO without a domain, mail from, rcpt to, DATA, the message,
//   quit. Each reply is awaited on a one-second timer for up to 16 ticks; only the first three
//   characters of the latest data received count.
// - the one for servers that need a name, encryption or login (SmtpSecurity::on): EHLO with
//   this computer's name, STARTTLS or TLS from the first byte (nothing but EHLO and STARTTLS
//   goes out before TLS is up, unless "No encryption" is chosen), AUTH PLAIN or LOGIN when a
//   user is set, and a MIME message in UTF-8. Replies are read whole (multi-line ones
//   included) and waited for on the same timer; the mail counts as delivered on the 250 after
//   the message, whatever happens on QUIT. Any failure ends it with a job-log line saying why.
//   A reply is bounded (kMaxReplyLine, kMaxReply): a server that floods the connection ends it.
//
// Neither dialogue sends a recipient, sender or subject that holds a line break: the send fails
// at once with a job-log line, nothing is sent.
//
// Nothing blocks: the dialogue runs on socket and timer events and ends in a completion callback.
#include "actions/mailtypes.h"
#include "platform/clock.h"
#include "platform/tcpsocket.h"

#include <QDateTime>
#include <QLocale>
#include <QObject>

namespace velmora::actions {

// How the second dialogue encrypts the connection.
enum class SmtpTls {
    StartTls, // STARTTLS, required: a server that does not offer it gets nothing
    Implicit, // TLS from the first byte (port 465)
    None,     // never
};

// The second dialogue and its settings; off means the classic dialogue.
struct SmtpSecurity {
    bool on = false;
    QString heloName;  // this computer's fully qualified name, for EHLO and the Message-ID
    SmtpTls tls = SmtpTls::StartTls;
    QString user;      // empty: no login
    QString password;
    QByteArray acceptedFingerprint; // SHA-256 (hex) of a certificate the user accepted
    bool acceptNextCertificate = false; // accept whatever certificate the server shows next
};

struct SmtpMail {
    QString host;
    int port = 25;
    QString fromName;  // shown in the From header
    QString sender;    // envelope sender and From address
    QString recipient; // envelope recipient and To address
    QString mailer;    // X-Mailer header
    QString subject;
    QString body;      // may hold several lines
    SmtpSecurity security;
};

// The message part of the dialogue, each line ended by CR LF: From, Date (day and month names
// of locale, zone always +0100), X-Mailer, To, Subject, an empty line, the body, an empty line
// and the "." line. Body lines that begin with "." are doubled, so the server restores them.
// Text goes on the wire as single-byte Latin-1.
QByteArray smtpMessage(const SmtpMail& mail, const QDateTime& now, const QLocale& locale = QLocale::system());

// The message of the second dialogue, each line ended by CR LF and closed by the "." line:
// From, To, Subject (RFC 2047 encoded when not plain ASCII), Date in the English form of
// RFC 5322 with now's real offset from UTC, Message-ID (uniquePart@domain), X-Mailer,
// MIME-Version, Content-Type text/plain in UTF-8 and the body, 7bit when it is short-lined
// ASCII and quoted-printable otherwise. Lines that begin with "." are doubled.
QByteArray smtpMimeMessage(const SmtpMail& mail, const QDateTime& now, const QString& domain,
                           const QByteArray& uniquePart);
// The Date header's value: "Mon, 02 Mar 2026 08:00:00 +0100".
QString rfc5322Date(const QDateTime& now);
// text as an RFC 2047 header value: unchanged when plain ASCII, else UTF-8 base64 encoded
// words of at most 75 characters, folded onto continuation lines.
QByteArray encodedHeaderText(const QString& text);
// UTF-8 bytes as quoted-printable lines (CR LF ends each, soft breaks keep them under 77).
QByteArray quotedPrintable(const QByteArray& utf8);

class SmtpClient : public QObject {
    Q_OBJECT
public:
    // The job-log lines of a reply that did not come.
    static inline const QString kNoValidResponse =
        QStringLiteral("Error on sending email via smtp Server : No valid responce from SMTP server");
    static inline const QString kTimeOut =
        QStringLiteral("Error on sending email via smtp Server : Time out while connecting to SMTP server");
    // The start of every failure line of the second dialogue.
    static inline const QString kFailurePrefix = QStringLiteral("Error on sending email via smtp Server : ");
    // Ticks of the reply timer after which a wait has failed once one more comes.
    static constexpr int kMaxTicks = 15;
    // The longest reply line (a server's may be 512 bytes) and the longest reply the second
    // dialogue takes; a server that sends more ends the dialogue.
    static constexpr qsizetype kMaxReplyLine = 4096;
    static constexpr qsizetype kMaxReply = 64 * 1024;

    // socket is the connection (Winsock1) and timer the reply timer (Timer1), both owned by the
    // caller; the timer's interval is set to 1000 ms by every wait unless tickMs says otherwise.
    SmtpClient(platform::TcpSocket* socket, platform::Timer* timer, const platform::Clock& clock,
               QObject* parent = nullptr);

    QLocale locale = QLocale::system();             // day and month names of the Date header
    int tickMs = 1000;

    // Whether a dialogue runs (the sending flag).
    bool sending() const { return sending_; }
    // Why the last dialogue failed (its job-log line), or empty.
    const QString& lastError() const { return lastError_; }

    // Runs one dialogue: false at once when a dialogue runs already (nothing is sent, nothing
    // logged, nothing emitted). Otherwise finished() follows exactly once, possibly inside the
    // call, when the dialogue has ended and the socket is closed again. With withStatus the
    // progress texts go to statusChanged().
    bool send(const SmtpMail& mail, bool withStatus);

signals:
    // A job-log line: a failed wait or why the second dialogue failed.
    void logLine(const QString& line);
    // A progress text of a dialogue run with status.
    void statusChanged(const QString& text);
    // The second dialogue accepted a certificate on the user's word (acceptNextCertificate);
    // its fingerprint, to be kept as the one accepted from now on.
    void certificateAccepted(const QByteArray& fingerprint);
    // The second dialogue refused the certificate host showed (not trusted, or not the one
    // accepted before); its fingerprint, for the user to accept.
    void certificateRefused(const QString& host, const QByteArray& fingerprint);
    // The dialogue has ended: ok when the mail was delivered.
    void finished(bool ok);

private:
    enum class Phase { Idle, Connect, Waiting, Finished };
    enum class Stage { Greeting, TlsHandshake, Ehlo, StartTls, AuthPlain, AuthLogin, AuthUser, AuthPass,
                       MailFrom, RcptTo, Data, Message, Quit };
    struct Reply {
        int code = 0;
        QStringList lines; // without the code and its separator
        QString text() const;
    };
    void modernStep();
    bool takeReply(Reply& reply);
    void handleReply(const Reply& reply);
    void command(const QByteArray& line, Stage next, const QString& shown = {});
    void afterEhlo();
    void mailFrom();
    void fail(const QString& reason);
    void startTls();
    void status(const QString& text);
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
    bool pumping_ = false, again_ = false;

    // The second dialogue.
    bool modern_ = false;
    Stage stage_ = Stage::Greeting;
    QByteArray inbound_;      // received and not yet taken as replies
    QString lastCommand_;     // as named in failure texts
    QStringList extensions_;  // of the last EHLO answer, upper case
    bool tlsUp_ = false, closedByPeer_ = false, ehloDone_ = false;
    QString pendingFailure_;  // reported by a socket event, taken by the next step
    QString lastError_;
    quint64 messageCount_ = 0;
};

} // namespace velmora::actions
