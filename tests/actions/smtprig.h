#pragma once
// One SMTP client on a socket (a real one unless the test hands over another) whose one-second
// timer runs on the simulated clock, so that no test waits for a real time-out; with its log
// lines, status texts, accepted certificates and result.
#include "actions/smtpclient.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QTest>
#include <optional>

namespace velmora::test {

inline actions::SmtpMail sampleMail(const QString& host = "127.0.0.1", int port = 25)
{
    actions::SmtpMail m;
    m.host = host;
    m.port = port;
    m.fromName = m.mailer = "Velmora";
    m.sender = "alerts@velmora.test";
    m.recipient = "admin@corp.test";
    m.subject = "Service Status SRV1 Spooler Stopped";
    m.body = "Velmora has noticed that on: 02.03.2026  at: 08:00:00   the Service:  Spooler";
    return m;
}

struct SmtpRig {
    platform::sim::SimClock clock;
    QObject owner;
    platform::TcpSocket* socket;
    actions::SmtpClient* client;
    QStringList log, status;
    QList<QByteArray> accepted;
    std::optional<bool> result;
    int completions = 0;

    explicit SmtpRig(platform::TcpSocket* s = new platform::QtTcpSocket) : socket(s)
    {
        s->setParent(&owner);
        client = new actions::SmtpClient(s, clock.createTimer(&owner, "Timer1", 1000), clock, &owner);
        client->locale = QLocale::c();
        QObject::connect(client, &actions::SmtpClient::logLine, &owner, [this](const QString& l) { log << l; });
        QObject::connect(client, &actions::SmtpClient::statusChanged, &owner, [this](const QString& t) { status << t; });
        QObject::connect(client, &actions::SmtpClient::certificateAccepted, &owner,
                         [this](const QByteArray& f) { accepted << f; });
        QObject::connect(client, &actions::SmtpClient::finished, &owner, [this](bool ok) {
            result = ok;
            ++completions;
        });
    }
    // Sends and waits up to 20 s for the end: true when the mail went out.
    bool send(const actions::SmtpMail& m, bool withStatus = false)
    {
        result.reset();
        client->send(m, withStatus);
        return QTest::qWaitFor([this] { return result.has_value(); }, 20000) && *result;
    }
    // The wait for an answer runs out at its 16th second, not before.
    void waitOut()
    {
        clock.advance(15999);
        QVERIFY(!result);
        clock.advance(1);
        QCOMPARE(result, std::optional<bool>(false));
    }
};

} // namespace velmora::test
