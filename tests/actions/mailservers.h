#pragma once
// Real servers for the mail and message tests, on loopback only: Debian's aiosmtpd as an SMTP
// sink, a scripted SMTP server on a QTcpServer, and a network namespace of the test's own
// (root only) in which a test may bind port 25 or run smbd.
#include "support/sourcefolder.h"

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::test {

// aiosmtpd on host and port (0: a free one), started by start() and stopped with the object.
class SmtpSink {
public:
    ~SmtpSink() { stop(); }
    // Port 0: a free port below 32768, since the stored SMTP settings keep the port as a 16-bit
    // signed number.
    // extra: smtpsink.py's options (--stock, --cert, --key, --implicit, --auth).
    // False when it could not start, also when python3-aiosmtpd is missing (the script ends
    // without a word then).
    bool start(const QString& host = QStringLiteral("127.0.0.1"), int port = 0, const QStringList& extra = {})
    {
        // Debian's own Python, which has Debian's aiosmtpd, before any other on the path.
        const QString py = QFileInfo::exists(QStringLiteral("/usr/bin/python3"))
            ? QStringLiteral("/usr/bin/python3")
            : QStandardPaths::findExecutable(QStringLiteral("python3"));
        if (py.isEmpty() || !dir_.isValid())
            return false;
        for (int attempt = 0; port == 0 && attempt < 200; ++attempt) {
            const int candidate = 20000 + int(QRandomGenerator::global()->bounded(12000));
            QTcpServer probe;
            if (probe.listen(QHostAddress(host), quint16(candidate)))
                port = candidate;
        }
        out_ = dir_.filePath(QStringLiteral("received.jsonl"));
        proc_ = std::make_unique<QProcess>();
        proc_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        proc_->start(py, QStringList{testsupport::sourceFolder() + QStringLiteral("/tests/actions/smtpsink.py"), host, QString::number(port), out_}
                            + extra);
        if (!proc_->waitForStarted(10000))
            return false;
        while (!proc_->canReadLine()) {
            if (!proc_->waitForReadyRead(20000))
                return false;
        }
        const QByteArray line = proc_->readLine().trimmed();
        if (!line.startsWith("READY "))
            return false;
        port_ = line.mid(6).toInt();
        return port_ > 0;
    }
    void stop()
    {
        if (proc_ && proc_->state() != QProcess::NotRunning) {
            proc_->terminate();
            if (!proc_->waitForFinished(10000)) {
                proc_->kill();
                proc_->waitForFinished(5000);
            }
        }
    }
    int port() const { return port_; }
    // Every message received so far: helo, mail_from, rcpt_tos, data.
    QList<QJsonObject> records() const
    {
        QList<QJsonObject> out;
        QFile f(out_);
        if (!f.open(QIODevice::ReadOnly))
            return out;
        for (const QByteArray& line : f.readAll().split('\n')) {
            if (!line.trimmed().isEmpty())
                out << QJsonDocument::fromJson(line).object();
        }
        return out;
    }

private:
    QTemporaryDir dir_;
    QString out_;
    std::unique_ptr<QProcess> proc_;
    int port_ = 0;
};

// A throwaway self-signed certificate for 127.0.0.1 and its key, made with openssl in dir.
struct TestCertificate {
    QString cert, key;
    bool ok() const { return !cert.isEmpty(); }
};
inline TestCertificate makeTestCertificate(const QTemporaryDir& dir)
{
    TestCertificate c{dir.filePath(QStringLiteral("cert.pem")), dir.filePath(QStringLiteral("key.pem"))};
    QProcess p;
    p.start(QStringLiteral("openssl"),
            {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
             QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
             QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"),
             QStringLiteral("-keyout"), c.key, QStringLiteral("-out"), c.cert});
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return {};
    return c;
}

// An SMTP server on a QTcpServer whose answers the test chooses: each step's answer (an empty
// text: none), or a hang-up instead of an answer. It keeps every byte it received.
class ScriptedSmtpServer {
public:
    enum Step { Greeting, Helo, MailFrom, RcptTo, Data, Message, Quit, Auth, Other, StepCount };
    QString answer[StepCount] = {
        QStringLiteral("220 scripted ready"), QStringLiteral("250 hello"), QStringLiteral("250 sender ok"),
        QStringLiteral("250 recipient ok"), QStringLiteral("354 go ahead"), QStringLiteral("250 queued"),
        QStringLiteral("221 bye"), QStringLiteral("235 accepted"), QStringLiteral("500 what")};
    int hangUpAt = -1;
    QByteArray wire; // everything received, in order
    // At this step the server answers without end: one endless line (floodLines false) or
    // endless continuation lines ("250-...") of a reply that never ends; flooded counts the bytes
    // handed to the connection until the client went away.
    int floodAt = -1;
    bool floodLines = false;
    qint64 flooded = 0;
    QStringList commands;
    QList<QByteArray> messages;
    int connections = 0;

    bool listen(const QHostAddress& address = QHostAddress::LocalHost, quint16 port = 0)
    {
        QObject::connect(&server_, &QTcpServer::newConnection, &server_, [this] {
            while (QTcpSocket* s = server_.nextPendingConnection()) {
                ++connections;
                buffer_.clear();
                inData_ = false;
                QPointer<QTcpSocket> sock(s);
                QObject::connect(s, &QTcpSocket::readyRead, s, [this, sock] {
                    if (sock)
                        received(sock);
                });
                respond(s, Greeting);
            }
        });
        return server_.listen(address, port);
    }
    quint16 port() const { return server_.serverPort(); }

private:
    void respond(QTcpSocket* s, Step step)
    {
        if (hangUpAt == step) {
            s->disconnectFromHost();
            return;
        }
        if (floodAt == step) {
            flood(s, answer[step].left(3).toLatin1() + '-');
            return;
        }
        if (!answer[step].isEmpty()) {
            s->write(answer[step].toLatin1() + "\r\n");
            s->flush();
        }
    }
    void flood(QTcpSocket* s, const QByteArray& code)
    {
        const QByteArray chunk = floodLines ? (code + QByteArray(70, 'x') + "\r\n").repeated(900) : QByteArray(64 * 1024, 'x');
        s->write(code);
        const QPointer<QTcpSocket> sock(s);
        const auto more = [this, sock, chunk] {
            // Kept a little ahead of what the connection takes, never far.
            while (sock && sock->state() == QAbstractSocket::ConnectedState && sock->bytesToWrite() < 256 * 1024) {
                sock->write(chunk);
                flooded += chunk.size();
            }
        };
        QObject::connect(s, &QTcpSocket::bytesWritten, s, more);
        more();
    }
    void received(QTcpSocket* s)
    {
        const QByteArray bytes = s->readAll();
        wire += bytes;
        buffer_ += bytes;
        for (;;) {
            if (inData_) {
                const qsizetype at = buffer_.indexOf("\r\n.\r\n");
                if (at < 0)
                    return;
                messages << buffer_.left(at + 2);
                buffer_.remove(0, at + 5);
                inData_ = false;
                respond(s, Message);
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
            if (verb == QLatin1String("HELO"))
                step = Helo;
            else if (line.startsWith(QLatin1String("mail from:"), Qt::CaseInsensitive))
                step = MailFrom;
            else if (line.startsWith(QLatin1String("rcpt to:"), Qt::CaseInsensitive))
                step = RcptTo;
            else if (verb == QLatin1String("DATA"))
                step = Data;
            else if (verb == QLatin1String("QUIT"))
                step = Quit;
            else if (verb == QLatin1String("AUTH"))
                step = Auth;
            if (step == Data && answer[Data].startsWith(QLatin1String("354")) && hangUpAt != Data)
                inData_ = true;
            respond(s, step);
        }
    }

    QTcpServer server_;
    QByteArray buffer_;
    bool inData_ = false;
};

// Moves the calling thread into a new network namespace with its loopback up, and back when
// destroyed. Sockets the thread opens and processes it starts live in the namespace. Root only.
class NetNamespace {
public:
    NetNamespace()
    {
        if (geteuid() != 0)
            return;
        original_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        if (original_ < 0)
            return;
        if (::unshare(CLONE_NEWNET) != 0)
            return;
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return;
        ifreq req{};
        std::strncpy(req.ifr_name, "lo", IFNAMSIZ - 1);
        if (::ioctl(fd, SIOCGIFFLAGS, &req) == 0) {
            req.ifr_flags |= IFF_UP;
            active_ = ::ioctl(fd, SIOCSIFFLAGS, &req) == 0;
        }
        ::close(fd);
    }
    ~NetNamespace()
    {
        if (original_ >= 0) {
            ::setns(original_, CLONE_NEWNET);
            ::close(original_);
        }
    }
    NetNamespace(const NetNamespace&) = delete;
    NetNamespace& operator=(const NetNamespace&) = delete;
    bool active() const { return active_; }

private:
    int original_ = -1;
    bool active_ = false;
};

} // namespace velmora::test
