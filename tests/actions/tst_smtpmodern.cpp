// The SMTP dialogue for servers that need a name, encryption or login: the MIME message it
// writes, and real deliveries to a stock aiosmtpd on loopback with STARTTLS, TLS from the first
// byte and AUTH, with a throwaway certificate made by the test; scripted servers on loopback for
// what aiosmtpd never does (a login offered before TLS, refusals, floods, a hang-up on QUIT).
#include "actions/mailservers.h"
#include "actions/smtprig.h"

#include <QJsonArray>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QtTest>

using namespace velmora;
using actions::SmtpClient;
using actions::SmtpMail;
using actions::SmtpTls;
using test::ScriptedSmtpServer;
using test::SmtpRig;

namespace {

const QString kUtf8Subject = QStringLiteral("Service Status SRV1 Pr\u00fcfung Gr\u00f6\u00dfe \u20ac \u2713");
const QString kFail = SmtpClient::kFailurePrefix;

SmtpMail modernMail(int port, SmtpTls tls = SmtpTls::None, const QString& user = {}, const QString& password = {})
{
    SmtpMail m = test::sampleMail("127.0.0.1", port);
    m.subject = kUtf8Subject;
    m.body = QStringLiteral("Velmora has noticed that Pr\u00fcfung is Stopped\n.a line with a dot");
    m.security = {.on = true, .heloName = "adminpc.corp.test", .tls = tls, .user = user, .password = password};
    return m;
}

QByteArray fingerprintOf(const QString& certFile)
{
    return QSslCertificate::fromPath(certFile).value(0).digest(QCryptographicHash::Sha256).toHex();
}

} // namespace

class TestSmtpModern : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    test::TestCertificate cert_;

    // A stock aiosmtpd with TLS and a login for alerts with password. When it cannot start, the
    // test is skipped with the reason and the caller returns on false.
    bool startSink(test::SmtpSink& sink, const QString& password, const QStringList& extra = {})
    {
        const char* why = !cert_.ok() ? "openssl could not make a test certificate"
            : !sink.start("127.0.0.1", 0,
                          QStringList{"--stock", "--auth", "alerts:" + password, "--cert", cert_.cert, "--key", cert_.key}
                              + extra)
            ? "aiosmtpd (python3-aiosmtpd) is not available"
            : nullptr;
        if (why)
            QTest::qSkip(why, __FILE__, __LINE__);
        return !why;
    }

private slots:
    void initTestCase()
    {
        cert_ = test::makeTestCertificate(dir_);
    }

    // ---- the message ----

    void dateIsEnglishWithTheRealOffsetWhateverTheLocale()
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QDate day(2026, 3, 2);
        QCOMPARE(actions::rfc5322Date(QDateTime(day, QTime(8, 0), QTimeZone::utc())), "Mon, 02 Mar 2026 08:00:00 +0000");
        QCOMPARE(actions::rfc5322Date(QDateTime(day, QTime(23, 59, 58), QTimeZone(-(3 * 3600 + 1800)))),
                 "Mon, 02 Mar 2026 23:59:58 -0330");
        QCOMPARE(actions::rfc5322Date(QDateTime(QDate(2026, 10, 11), QTime(1, 2, 3), QTimeZone(19800))),
                 "Sun, 11 Oct 2026 01:02:03 +0530");
        QLocale::setDefault(QLocale::c());
    }

    void messageCarriesMimeHeadersAndUtf8()
    {
        SmtpMail m = modernMail(25);
        const QDateTime at(QDate(2026, 3, 2), QTime(8, 0), QTimeZone::utc());
        const QByteArray msg = actions::smtpMimeMessage(m, at, "adminpc.corp.test", "k1.x2.1");
        QVERIFY2(msg.startsWith("From: Velmora <alerts@velmora.test>\r\nTo: <admin@corp.test>\r\nSubject: =?UTF-8?B?"),
                 msg.constData());
        QVERIFY(msg.contains("\r\nDate: Mon, 02 Mar 2026 08:00:00 +0000\r\n"));
        QVERIFY(msg.contains("\r\nMessage-ID: <k1.x2.1@adminpc.corp.test>\r\n"));
        QVERIFY(msg.contains("\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=UTF-8\r\n"
                             "Content-Transfer-Encoding: quoted-printable\r\n\r\n"));
        QVERIFY(msg.contains("\r\n\r\nVelmora has noticed that Pr=C3=BCfung is Stopped\r\n..a line with a dot\r\n.\r\n"));
        QVERIFY2(std::all_of(msg.begin(), msg.end(), [](char c) { return static_cast<unsigned char>(c) < 128; }),
                 "the message is 7-bit on the wire");
        // Nothing but CR LF ends a line.
        QCOMPARE(msg.count('\n'), msg.count("\r\n"));

        m.subject = "Service Status SRV1 Spooler Stopped";
        m.body = "plain text";
        const QByteArray plain = actions::smtpMimeMessage(m, at, "h", "u");
        QVERIFY(plain.contains("\r\nSubject: Service Status SRV1 Spooler Stopped\r\n"));
        QVERIFY(plain.contains("Content-Transfer-Encoding: 7bit\r\n\r\nplain text\r\n.\r\n"));
    }

    void longUtf8SubjectIsFoldedIntoShortEncodedWords()
    {
        const QString subject = QString(40, QChar(0x00fc)) + QStringLiteral(" \u2713");
        const QList<QByteArray> lines = actions::encodedHeaderText(subject).split('\n');
        QVERIFY(lines.size() > 1);
        QString decoded;
        for (QByteArray line : lines) {
            line = line.trimmed();
            QVERIFY2(line.size() <= 75, line.constData());
            QVERIFY(line.startsWith("=?UTF-8?B?") && line.endsWith("?="));
            decoded += QString::fromUtf8(QByteArray::fromBase64(line.mid(10, line.size() - 12)));
        }
        QCOMPARE(decoded, subject);
    }

    // ---- real servers ----

    // A stock server refuses the classic dialogue's "HELO " with no name (a refusal the classic
    // dialogue's test shows on a scripted server); the modern one says EHLO with the name.
    void stockServerTakesEhloWithTheName()
    {
        test::SmtpSink sink;
        if (!sink.start("127.0.0.1", 0, {"--stock"}))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");
        SmtpRig modern;
        QVERIFY(modern.send(modernMail(sink.port())));
        QVERIFY(modern.log.isEmpty());
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("helo").toString(), "adminpc.corp.test");
        QCOMPARE(r.value("subject").toString(), kUtf8Subject);
        QCOMPARE(r.value("text").toString(), QStringLiteral("Velmora has noticed that Pr\u00fcfung is Stopped\n.a line with a dot\n"));
    }

    // Logins with the server's certificate accepted before: delivered with TLS, or refused
    // with a line that says why and nothing delivered.
    void loginsToAiosmtpd_data()
    {
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<int>("tls");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("logged"); // the start of the job-log line after the prefix; empty: delivered
        const int startTls = int(SmtpTls::StartTls);
        QTest::newRow("STARTTLS, AUTH PLAIN") << QStringList{} << startTls << QStringLiteral("s3cret \u00e4") << "";
        QTest::newRow("STARTTLS, AUTH LOGIN") << QStringList{"--login-only"} << startTls << QStringLiteral("s3cret \u00e4") << "";
        QTest::newRow("TLS from the first byte") << QStringList{"--implicit"} << int(SmtpTls::Implicit) << "s3cret" << "";
        QTest::newRow("wrong password") << QStringList{} << startTls << "wrong"
                                        << "the server refused the login as alerts: \"535";
        QTest::newRow("login without encryption") << QStringList{} << int(SmtpTls::None) << "s3cret"
                                                  << "the server offers no login by PLAIN or LOGIN without encryption";
    }
    void loginsToAiosmtpd()
    {
        QFETCH(QStringList, extra);
        QFETCH(int, tls);
        QFETCH(QString, password);
        QFETCH(QString, logged);
        test::SmtpSink sink;
        if (!startSink(sink, password == "wrong" ? "s3cret" : password, extra))
            return;
        SmtpRig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls(tls), "alerts", password);
        m.security.acceptedFingerprint = fingerprintOf(cert_.cert);
        QCOMPARE(rig.send(m), logged.isEmpty());
        QVERIFY(rig.accepted.isEmpty());
        if (!logged.isEmpty()) {
            QCOMPARE(rig.log.size(), 1);
            QVERIFY2(rig.log.first().startsWith(kFail + logged), qPrintable(rig.log.first()));
            QVERIFY(sink.records().isEmpty());
            return;
        }
        QVERIFY2(rig.log.isEmpty(), qPrintable(rig.log.join('\n')));
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("tls").toBool(), true);
        QCOMPARE(r.value("auth_user").toString(), "alerts");
    }

    void untrustedCertificateFailsWithItsFingerprintUntilAccepted()
    {
        test::SmtpSink sink;
        if (!startSink(sink, "pw"))
            return;
        const QByteArray fingerprint = fingerprintOf(cert_.cert);
        SmtpRig rig;
        SmtpMail m = modernMail(sink.port(), SmtpTls::StartTls, "alerts", "pw");
        QVERIFY(!rig.send(m));
        QCOMPARE(rig.log.size(), 1);
        QVERIFY2(rig.log.first().startsWith(kFail + "the certificate of 127.0.0.1 is not trusted"), qPrintable(rig.log.first()));
        QVERIFY(rig.log.first().contains(QString::fromLatin1(fingerprint)));
        QCOMPARE(rig.client->lastError(), rig.log.first());

        // Another certificate accepted before does not let this one through.
        m.security.acceptedFingerprint = QByteArray(64, 'a');
        QVERIFY(!rig.send(m));
        QVERIFY(rig.log.last().contains("It is not the certificate accepted before"));

        // Accepting the next certificate lets it through and hands its fingerprint out to keep.
        m.security.acceptedFingerprint.clear();
        m.security.acceptNextCertificate = true;
        QVERIFY(rig.send(m));
        QCOMPARE(rig.accepted, QList<QByteArray>{fingerprint});
        QTRY_COMPARE(sink.records().size(), 1);
        QVERIFY(sink.records().first().value("tls").toBool());
    }

    // aiosmtpd never offers AUTH before TLS, so it cannot show a client that sends it then: a
    // server of the test's own offers a login without STARTTLS and keeps every byte.
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
        ScriptedSmtpServer server;
        server.answer[ScriptedSmtpServer::Other] = "250-scripted.test\r\n250-AUTH PLAIN LOGIN\r\n250 8BITMIME";
        QVERIFY(server.listen());
        const QString password = QStringLiteral("pw-\u00e4-secret");
        SmtpRig rig;
        QCOMPARE(rig.send(modernMail(server.port(), SmtpTls(tls), user, password)), logged.isEmpty());
        QCOMPARE(rig.log, logged.isEmpty() ? QStringList() : QStringList{kFail + logged});
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

    // What aiosmtpd never does, from a scripted server: a refused recipient (logged with the
    // answer, no message), a hang-up on QUIT (delivered all the same), and an answer without end
    // (one endless line, or a reply of endless lines), cut off once it is longer than any
    // server's while what the connection took stays bounded.
    void scriptedServerAnswers_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<QString>("answer"); // "hang-up", "flood", "flood lines" or the answer
        QTest::addColumn<QString>("logged"); // the start of the job-log line after the prefix; empty: delivered
        QTest::addColumn<int>("messages");
        QTest::newRow("refused recipient")
            << int(ScriptedSmtpServer::RcptTo) << "550 5.1.1 no such user"
            << "the server answered \"550 5.1.1 no such user\" to RCPT TO:<admin@corp.test>" << 0;
        QTest::newRow("hang-up on QUIT") << int(ScriptedSmtpServer::Quit) << "hang-up" << "" << 1;
        QTest::newRow("one endless greeting line") << int(ScriptedSmtpServer::Greeting) << "flood"
                                                   << "the server sent an answer longer than 4096 bytes" << 0;
        QTest::newRow("an EHLO answer of endless lines") << int(ScriptedSmtpServer::Other) << "flood lines"
                                                         << "the server sent an answer longer than 65536 bytes" << 0;
    }
    void scriptedServerAnswers()
    {
        QFETCH(int, step);
        QFETCH(QString, answer);
        QFETCH(QString, logged);
        QFETCH(int, messages);
        ScriptedSmtpServer server;
        server.answer[ScriptedSmtpServer::Other] = "250 scripted"; // EHLO
        if (answer == "hang-up")
            server.hangUpAt = step;
        else if (answer.startsWith("flood"))
            server.floodAt = step, server.floodLines = answer == "flood lines";
        else
            server.answer[step] = answer;
        QVERIFY(server.listen());
        SmtpRig rig;
        QCOMPARE(rig.send(modernMail(server.port())), logged.isEmpty());
        QCOMPARE(rig.log.size(), logged.isEmpty() ? 0 : 1);
        QVERIFY2(logged.isEmpty() || rig.log.value(0).startsWith(kFail + logged), qPrintable(rig.log.value(0)));
        QCOMPARE(server.messages.size(), messages);
        QVERIFY2(server.flooded < 64 * 1024 * 1024, qPrintable(QString::number(server.flooded)));
        if (messages)
            QCOMPARE(server.commands.first() + "|" + server.commands.last(), "EHLO adminpc.corp.test|QUIT");
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
        ScriptedSmtpServer server;
        QVERIFY(server.listen());
        SmtpMail mail = modernMail(server.port());
        mail.security.on = modern;
        QString& text = field == "recipient" ? mail.recipient : field == "sender" ? mail.sender : mail.subject;
        text += "\r\nRCPT TO:<spy@evil.test>";
        SmtpRig rig;
        QVERIFY(!rig.send(mail));
        QCOMPARE(rig.log, QStringList{kFail + "the " + field + " holds a line break; nothing was sent"});
        QCOMPARE(server.connections, 0);
    }
};

QTEST_MAIN(TestSmtpModern)
#include "tst_smtpmodern.moc"
