// The SMTP dialogue for servers that need a name, encryption or login: the MIME message it
// writes, and real deliveries to aiosmtpd on loopback with STARTTLS, TLS from the first byte and
// AUTH, with a throwaway certificate made by the test; a stock aiosmtpd that refuses the classic
// empty HELO; a scripted server that hangs up after the message.
#include "actions/smtpclient.h"
#include "actions/mailservers.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QJsonArray>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QtTest>
#include <optional>

using namespace velmora;
using actions::SmtpClient;
using actions::SmtpMail;
using actions::SmtpTls;

namespace {

const QString kUtf8Subject = QStringLiteral("Service Status SRV1 Pr\u00fcfung Gr\u00f6\u00dfe \u20ac \u2713");

SmtpMail modernMail(int port, SmtpTls tls = SmtpTls::None, const QString& user = {}, const QString& password = {})
{
    SmtpMail m;
    m.host = QStringLiteral("127.0.0.1");
    m.port = port;
    m.fromName = QStringLiteral("Velmora");
    m.sender = QStringLiteral("alerts@velmora.test");
    m.recipient = QStringLiteral("admin@corp.test");
    m.mailer = QStringLiteral("Velmora");
    m.subject = kUtf8Subject;
    m.body = QStringLiteral("Velmora has noticed that Pr\u00fcfung is Stopped\n.a line with a dot");
    m.security.on = true;
    m.security.heloName = QStringLiteral("adminpc.corp.test");
    m.security.tls = tls;
    m.security.user = user;
    m.security.password = password;
    return m;
}

// A client on a real socket, its timer on a simulated clock (no test here waits for a time-out).
struct Rig {
    platform::sim::SimClock clock;
    QObject owner;
    platform::QtTcpSocket* socket = new platform::QtTcpSocket(&owner);
    SmtpClient* client;
    QStringList log;
    QList<QByteArray> accepted;
    std::optional<bool> result;

    Rig()
    {
        client = new SmtpClient(socket, clock.createTimer(&owner, QStringLiteral("Timer1"), 1000), clock, &owner);
        QObject::connect(client, &SmtpClient::logLine, &owner, [this](const QString& l) { log << l; });
        QObject::connect(client, &SmtpClient::certificateAccepted, &owner, [this](const QByteArray& f) { accepted << f; });
        QObject::connect(client, &SmtpClient::finished, &owner, [this](bool ok) { result = ok; });
    }
    bool send(const SmtpMail& m)
    {
        result.reset();
        client->send(m, false);
        if (!QTest::qWaitFor([this] { return result.has_value(); }, 20000))
            return false;
        return *result;
    }
};

QByteArray fingerprintOf(const QString& certFile)
{
    const auto certs = QSslCertificate::fromPath(certFile);
    return certs.isEmpty() ? QByteArray() : certs.first().digest(QCryptographicHash::Sha256).toHex();
}

} // namespace

class TestSmtpModern : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    test::TestCertificate cert_;

    // An aiosmtpd with extra options, or a skip when it cannot start.
    bool startSink(test::SmtpSink& sink, const QStringList& extra)
    {
        return sink.start(QStringLiteral("127.0.0.1"), 0, extra);
    }
    QStringList tlsOptions() const { return {"--cert", cert_.cert, "--key", cert_.key}; }

private slots:
    void initTestCase()
    {
        QVERIFY(dir_.isValid());
        cert_ = test::makeTestCertificate(dir_);
    }

    // ---- the message ----

    void dateIsEnglishWithTheRealOffsetWhateverTheLocale()
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QDate day(2026, 3, 2);
        QCOMPARE(actions::rfc5322Date(QDateTime(day, QTime(8, 0), QTimeZone::utc())),
                 QStringLiteral("Mon, 02 Mar 2026 08:00:00 +0000"));
        QCOMPARE(actions::rfc5322Date(QDateTime(day, QTime(23, 59, 58), QTimeZone(-(3 * 3600 + 1800)))),
                 QStringLiteral("Mon, 02 Mar 2026 23:59:58 -0330"));
        QCOMPARE(actions::rfc5322Date(QDateTime(QDate(2026, 10, 11), QTime(1, 2, 3), QTimeZone(19800))),
                 QStringLiteral("Sun, 11 Oct 2026 01:02:03 +0530"));
        QLocale::setDefault(QLocale::c());
    }

    void messageCarriesMimeHeadersAndUtf8()
    {
        SmtpMail m = modernMail(25);
        const QByteArray msg = actions::smtpMimeMessage(m, QDateTime(QDate(2026, 3, 2), QTime(8, 0), QTimeZone::utc()),
                                                        QStringLiteral("adminpc.corp.test"), "k1.x2.1");
        QVERIFY2(msg.startsWith("From: Velmora <alerts@velmora.test>\r\nTo: <admin@corp.test>\r\nSubject: =?UTF-8?B?"),
                 msg.constData());
        QVERIFY(msg.contains("\r\nDate: Mon, 02 Mar 2026 08:00:00 +0000\r\n"));
        QVERIFY(msg.contains("\r\nMessage-ID: <k1.x2.1@adminpc.corp.test>\r\n"));
        QVERIFY(msg.contains("\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=UTF-8\r\n"
                             "Content-Transfer-Encoding: quoted-printable\r\n\r\n"));
        QVERIFY(msg.contains("\r\n\r\nVelmora has noticed that Pr=C3=BCfung is Stopped\r\n..a line with a dot\r\n.\r\n"));
        for (char c : msg)
            QVERIFY2(static_cast<unsigned char>(c) < 128, "the message is 7-bit on the wire");
        // Nothing but CR LF ends a line.
        QCOMPARE(msg.count('\n'), msg.count("\r\n"));

        m.subject = QStringLiteral("Service Status SRV1 Spooler Stopped");
        m.body = QStringLiteral("plain text");
        const QByteArray plain = actions::smtpMimeMessage(m, QDateTime(QDate(2026, 3, 2), QTime(8, 0), QTimeZone::utc()),
                                                          QStringLiteral("h"), "u");
        QVERIFY(plain.contains("\r\nSubject: Service Status SRV1 Spooler Stopped\r\n"));
        QVERIFY(plain.contains("Content-Transfer-Encoding: 7bit\r\n\r\nplain text\r\n.\r\n"));
    }

    void longUtf8SubjectIsFoldedIntoShortEncodedWords()
    {
        const QByteArray encoded = actions::encodedHeaderText(QString(40, QChar(0x00fc)) + QStringLiteral(" \u2713"));
        const QList<QByteArray> lines = encoded.split('\n');
        QVERIFY(lines.size() > 1);
        QString decoded;
        for (QByteArray line : lines) {
            line = line.trimmed();
            QVERIFY2(line.size() <= 75, line.constData());
            QVERIFY(line.startsWith("=?UTF-8?B?") && line.endsWith("?="));
            decoded += QString::fromUtf8(QByteArray::fromBase64(line.mid(10, line.size() - 12)));
        }
        QCOMPARE(decoded, QString(40, QChar(0x00fc)) + QStringLiteral(" \u2713"));
    }

    // ---- real servers ----

    void stockServerRefusesTheEmptyHeloButTakesEhloWithTheName()
    {
        test::SmtpSink sink;
        if (!startSink(sink, {"--stock"}))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig classic;
        SmtpMail old = modernMail(sink.port());
        old.security = {};
        int arrivals = 0;
        QObject::connect(classic.socket, &platform::TcpSocket::dataArrived, [&] { ++arrivals; });
        classic.client->send(old, false);
        // The greeting, then the refusal of "HELO " with no name; the classic dialogue waits its
        // 16 seconds for a 250 that never comes.
        QTRY_COMPARE_WITH_TIMEOUT(arrivals, 2, 20000);
        QVERIFY(!classic.result);
        classic.clock.advance(16000);
        QCOMPARE(classic.result, std::optional<bool>(false));
        QCOMPARE(classic.log, QStringList{SmtpClient::kNoValidResponse});

        Rig modern;
        QVERIFY(modern.send(modernMail(sink.port())));
        QVERIFY(modern.log.isEmpty());
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("helo").toString(), QStringLiteral("adminpc.corp.test"));
        QCOMPARE(r.value("subject").toString(), kUtf8Subject);
        QCOMPARE(r.value("text").toString(),
                 QStringLiteral("Velmora has noticed that Pr\u00fcfung is Stopped\n.a line with a dot\n"));
        QCOMPARE(r.value("tls").toBool(), false);
    }

    void startTlsAndLoginDeliverWithAnAcceptedCertificate_data()
    {
        QTest::addColumn<QStringList>("extra");
        QTest::newRow("AUTH PLAIN") << QStringList{};
        QTest::newRow("AUTH LOGIN") << QStringList{"--login-only"};
    }
    void startTlsAndLoginDeliverWithAnAcceptedCertificate()
    {
        QFETCH(QStringList, extra);
        if (!cert_.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!startSink(sink, QStringList{"--stock", "--auth", "alerts:s3cret \u00e4"} + tlsOptions() + extra))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls::StartTls, QStringLiteral("alerts"), QStringLiteral("s3cret \u00e4"));
        m.security.acceptedFingerprint = fingerprintOf(cert_.cert);
        QVERIFY2(rig.send(m), qPrintable(rig.log.join('\n')));
        QVERIFY(rig.log.isEmpty());
        QVERIFY(rig.accepted.isEmpty());
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("tls").toBool(), true);
        QCOMPARE(r.value("auth_user").toString(), QStringLiteral("alerts"));
        QCOMPARE(r.value("mail_from").toString(), QStringLiteral("alerts@velmora.test"));
        QCOMPARE(r.value("rcpt_tos").toArray().toVariantList(), QVariantList{QStringLiteral("admin@corp.test")});
        QCOMPARE(r.value("subject").toString(), kUtf8Subject);
    }

    void untrustedCertificateFailsWithItsFingerprintUntilAccepted()
    {
        if (!cert_.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!startSink(sink, QStringList{"--stock", "--auth", "alerts:pw"} + tlsOptions()))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        const QByteArray fingerprint = fingerprintOf(cert_.cert);
        Rig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls::StartTls, QStringLiteral("alerts"), QStringLiteral("pw"));
        QVERIFY(!rig.send(m));
        QCOMPARE(rig.log.size(), 1);
        QVERIFY2(rig.log.first().startsWith(SmtpClient::kFailurePrefix + "the certificate of 127.0.0.1 is not trusted"),
                 qPrintable(rig.log.first()));
        QVERIFY(rig.log.first().contains(QString::fromLatin1(fingerprint)));
        QCOMPARE(rig.client->lastError(), rig.log.first());

        // Another certificate accepted before does not let this one through.
        m.security.acceptedFingerprint = QByteArray(64, 'a');
        QVERIFY(!rig.send(m));
        QVERIFY(rig.log.last().contains(QStringLiteral("It is not the certificate accepted before")));

        // Accepting the next certificate lets it through and hands its fingerprint out to keep.
        m.security.acceptedFingerprint.clear();
        m.security.acceptNextCertificate = true;
        QVERIFY(rig.send(m));
        QCOMPARE(rig.accepted, QList<QByteArray>{fingerprint});
        QTRY_COMPARE(sink.records().size(), 1);
        QVERIFY(sink.records().first().value("tls").toBool());
    }

    void wrongPasswordIsLoggedWithTheServersAnswer()
    {
        if (!cert_.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!startSink(sink, QStringList{"--stock", "--auth", "alerts:right"} + tlsOptions()))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls::StartTls, QStringLiteral("alerts"), QStringLiteral("wrong"));
        m.security.acceptedFingerprint = fingerprintOf(cert_.cert);
        QVERIFY(!rig.send(m));
        QCOMPARE(rig.log.size(), 1);
        QVERIFY2(rig.log.first().startsWith(SmtpClient::kFailurePrefix + "the server refused the login as alerts: \"535"),
                 qPrintable(rig.log.first()));
        QVERIFY(sink.records().isEmpty());
    }

    void loginWithoutEncryptionIsNotOfferedAndSaysSo()
    {
        if (!cert_.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!startSink(sink, QStringList{"--stock", "--auth", "alerts:pw"} + tlsOptions()))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig;
        QVERIFY(!rig.send(modernMail(sink.port(), SmtpTls::None, QStringLiteral("alerts"), QStringLiteral("pw"))));
        QCOMPARE(rig.log, QStringList{SmtpClient::kFailurePrefix
                                      + "the server offers no login by PLAIN or LOGIN without encryption"});
    }

    void noByteOfThePasswordGoesOutBeforeTls_data()
    {
        QTest::addColumn<int>("tls");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("logged"); // the job-log line after the failure prefix; empty: delivered
        QTest::newRow("STARTTLS required, login")
            << int(SmtpTls::StartTls) << "alerts"
            << "the server offers no STARTTLS, which the Email Options require, so the password of alerts and the "
               "mail were not sent";
        QTest::newRow("STARTTLS required, no login")
            << int(SmtpTls::StartTls) << ""
            << "the server offers no STARTTLS, which the Email Options require, so the mail was not sent";
        QTest::newRow("no encryption, chosen by name") << int(SmtpTls::None) << "alerts" << "";
    }
    void noByteOfThePasswordGoesOutBeforeTls()
    {
        QFETCH(int, tls);
        QFETCH(QString, user);
        QFETCH(QString, logged);
        // A server of the test's own that offers a login without STARTTLS and keeps every byte:
        // aiosmtpd never offers AUTH before TLS, so it cannot show a client that sends it then.
        test::ScriptedSmtpServer server;
        server.answer[test::ScriptedSmtpServer::Other] = QStringLiteral("250-scripted.test\r\n250-AUTH PLAIN LOGIN\r\n250 8BITMIME");
        QVERIFY(server.listen());
        const QString password = QStringLiteral("pw-\u00e4-secret");
        Rig rig;
        QCOMPARE(rig.send(modernMail(server.port(), SmtpTls(tls), user, password)), logged.isEmpty());
        QCOMPARE(rig.log, logged.isEmpty() ? QStringList() : QStringList{SmtpClient::kFailurePrefix + logged});
        const QByteArray token = (QByteArray(1, '\0') + user.toUtf8() + '\0' + password.toUtf8()).toBase64();
        if (logged.isEmpty()) {
            // Only the explicit choice sends the login in clear.
            QVERIFY(server.wire.contains("AUTH PLAIN " + token));
            QCOMPARE(server.messages.size(), 1);
        } else {
            QCOMPARE(server.commands, QStringList{"EHLO adminpc.corp.test"});
            QVERIFY(!server.wire.contains("AUTH") && !server.wire.contains(password.toUtf8()));
        }
    }

    void tlsFromTheFirstByte()
    {
        if (!cert_.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!startSink(sink, QStringList{"--stock", "--implicit", "--auth", "alerts:pw"} + tlsOptions()))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        Rig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls::Implicit, QStringLiteral("alerts"), QStringLiteral("pw"));
        m.security.acceptedFingerprint = fingerprintOf(cert_.cert);
        QVERIFY2(rig.send(m), qPrintable(rig.log.join('\n')));
        QTRY_COMPARE(sink.records().size(), 1);
        QCOMPARE(sink.records().first().value("tls").toBool(), true);
        QCOMPARE(sink.records().first().value("auth_user").toString(), QStringLiteral("alerts"));
    }

    void serverHangingUpOnQuitStillDelivered()
    {
        test::ScriptedSmtpServer server;
        server.answer[test::ScriptedSmtpServer::Other] = QStringLiteral("250 scripted"); // EHLO
        server.hangUpAt = test::ScriptedSmtpServer::Quit;
        QVERIFY(server.listen());
        Rig rig;
        QVERIFY(rig.send(modernMail(server.port())));
        QVERIFY(rig.log.isEmpty());
        QCOMPARE(server.messages.size(), 1);
        QCOMPARE(server.commands.first(), QStringLiteral("EHLO adminpc.corp.test"));
        QCOMPARE(server.commands.last(), QStringLiteral("QUIT"));
    }

    // A server that answers without end (one endless line, or a reply of endless lines) is cut
    // off once its answer is longer than any server's: the dialogue fails and says why, and
    // what the connection took stays bounded.
    void aFloodingServerIsCutOff_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<bool>("lines");
        QTest::addColumn<QString>("said");
        QTest::newRow("one endless greeting line") << int(test::ScriptedSmtpServer::Greeting) << false
                                                   << "longer than 4096 bytes";
        QTest::newRow("an EHLO answer of endless lines") << int(test::ScriptedSmtpServer::Other) << true
                                                         << "longer than 65536 bytes";
    }
    void aFloodingServerIsCutOff()
    {
        QFETCH(int, step);
        QFETCH(bool, lines);
        QFETCH(QString, said);
        test::ScriptedSmtpServer server;
        server.floodAt = step;
        server.floodLines = lines;
        QVERIFY(server.listen());
        Rig rig;
        QVERIFY(!rig.send(modernMail(server.port())));
        QCOMPARE(rig.log.size(), 1);
        QVERIFY2(rig.log.first().startsWith(SmtpClient::kFailurePrefix + "the server sent an answer " + said),
                 qPrintable(rig.log.first()));
        QVERIFY2(server.flooded < 64 * 1024 * 1024, qPrintable(QString::number(server.flooded)));
    }

    // Whatever a caller hands over, a line break in the recipient, the sender or the subject
    // never reaches the server, in either dialogue: the send fails with a line saying why.
    void lineBreaksNeverReachTheServer_data()
    {
        QTest::addColumn<bool>("modern");
        QTest::addColumn<QString>("field");
        for (const bool modern : {false, true}) {
            for (const char* field : {"recipient", "sender", "subject"})
                QTest::addRow("%s, %s", modern ? "modern" : "classic", field) << modern << QString(field);
        }
    }
    void lineBreaksNeverReachTheServer()
    {
        QFETCH(bool, modern);
        QFETCH(QString, field);
        test::ScriptedSmtpServer server;
        QVERIFY(server.listen());
        SmtpMail mail = modernMail(server.port());
        mail.security.on = modern;
        QString& text = field == "recipient" ? mail.recipient : field == "sender" ? mail.sender : mail.subject;
        text += "\r\nRCPT TO:<spy@evil.test>";
        Rig rig;
        QVERIFY(!rig.send(mail));
        QCOMPARE(rig.log, QStringList{SmtpClient::kFailurePrefix + "the " + field + " holds a line break; nothing was sent"});
        QCOMPARE(server.connections, 0);
    }

    void refusedRecipientIsLoggedWithTheAnswer()
    {
        test::ScriptedSmtpServer server;
        server.answer[test::ScriptedSmtpServer::Other] = QStringLiteral("250 scripted");
        server.answer[test::ScriptedSmtpServer::RcptTo] = QStringLiteral("550 5.1.1 no such user");
        QVERIFY(server.listen());
        Rig rig;
        QVERIFY(!rig.send(modernMail(server.port())));
        QCOMPARE(rig.log, QStringList{SmtpClient::kFailurePrefix
                                      + "the server answered \"550 5.1.1 no such user\" to RCPT TO:<admin@corp.test>"});
        QVERIFY(server.messages.isEmpty());
    }
};

QTEST_MAIN(TestSmtpModern)
#include "tst_smtpmodern.moc"
