// The SMTP password in the desktop's secret store: GNOME Keyring on a private session bus of the
// test's own, reached over the Secret Service API; first with no secret store running, then
// with one: unlocked, locked, and stopped in its tracks, while the actions send alert mails. At
// the end an alert mail goes from the e-mail options, as the user sets them, to aiosmtpd with
// STARTTLS and a login, the password read back from the keyring; the options are filed, the
// password is in no file and no widget.
#include "actions/emailoptionsdialog.h"
#include "actionrig.h"
#include "actions/mailing.h"
#include "actions/mailservers.h"
#include "actions/privatekeyring.h"
#include "actions/smtpoptions.h"
#include "platform/linux/secretservice.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QDirIterator>
#include <QJsonArray>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSslCertificate>
#include <QtTest>
#include <optional>

using namespace velmora;
using platform::SecretStore;

namespace {

const QString kPassword = QStringLiteral("p\u00e4ss w0rd");

// Waits for one call of the store.
SecretStore::Result await(const std::function<void(SecretStore::Done)>& call)
{
    std::optional<SecretStore::Result> out;
    call([&](const SecretStore::Result& r) { out = r; });
    if (!QTest::qWaitFor([&] { return out.has_value(); }, 30000))
        return {SecretStore::Status::Failed, {}, QStringLiteral("no answer within 30 s")};
    return *out;
}

// Whether any file under folder holds text (as UTF-8 or Latin-1).
bool anyFileHolds(const QString& folder, const QString& text)
{
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        if (!f.open(QIODevice::ReadOnly))
            continue;
        const QByteArray bytes = f.readAll();
        if (bytes.contains(text.toUtf8()) || bytes.contains(text.toLatin1()))
            return true;
    }
    return false;
}

} // namespace

class TestSmtpSecrets : public QObject {
    Q_OBJECT

    test::PrivateKeyring keyring_;
    QString busMissing_, keyringMissing_ = QStringLiteral("not started");
    platform::sim::SimWorker worker_;
    platform::SecretServiceStore secrets_{worker_};
    QObject context_;

    SecretStore::Result read(const QString& key)
    {
        return await([&](SecretStore::Done d) { secrets_.read(&context_, key, d); });
    }
    bool write(const QString& key, const QString& secret)
    {
        return await([&](SecretStore::Done d) { secrets_.write(&context_, key, secret, d); }).ok();
    }
    bool remove(const QString& key)
    {
        return await([&](SecretStore::Done d) { secrets_.remove(&context_, key, d); }).ok();
    }

    void needKeyring()
    {
        if (!busMissing_.isEmpty())
            QSKIP(qPrintable(busMissing_));
        if (keyringMissing_ == QLatin1String("not started"))
            keyringMissing_ = keyring_.startKeyring();
        if (!keyringMissing_.isEmpty())
            QSKIP(qPrintable(keyringMissing_));
    }

private slots:
    void initTestCase() { busMissing_ = keyring_.startBus(); }

    void withNoSecretStoreRunningTheDialogSaysSoAndKeepsNoPassword()
    {
        if (!busMissing_.isEmpty())
            QSKIP(qPrintable(busMissing_));
        QCOMPARE(await([&](SecretStore::Done d) { secrets_.write(&context_, "probe", "x", d); }).status,
                 SecretStore::Status::NoStore);

        test::ActionRig rig;
        rig.state.platform.secrets = &secrets_;
        rig.build();
        actions::Mailing mailing(rig.state, *rig.mailer, rig.results(), nullptr);
        mailing.showOptions();
        test::fillSmtpOptions(mailing.dialog(), "mail.corp.test", "alerts@corp.test", "alerts", kPassword);
        mailing.dialog()->OKButton->click();
        QTRY_COMPARE_WITH_TIMEOUT(rig.sim.boxes.texts(), QStringList{actions::AlertMailer::kNoSecretStore}, 30000);
        // The settings are kept; the password is nowhere.
        QVERIFY(rig.mailer->smtpOptions().on);
        QVERIFY(!anyFileHolds(rig.dir.path(), kPassword));

        // An alert mail that needs the password says why it cannot go out.
        QVERIFY(!rig.sendemail("admin@corp.test"));
        QCOMPARE(rig.lines(),
                 QStringList{actions::SmtpClient::kFailurePrefix
                             + "no secret store is running, so the password of alerts cannot be read"});
    }

    // Keeping and reading back are the tests below; the server's name in the key ignores case
    // and blanks, and removing what is not there is no failure.
    void keyringRemovesAPasswordAndNothingIsNoFailure()
    {
        needKeyring();
        const QString key = actions::smtpPasswordKey(QStringLiteral(" Mail.Corp.Test "), QStringLiteral("alerts"));
        QCOMPARE(key, QStringLiteral("smtp:alerts@mail.corp.test"));
        QVERIFY(write(key, kPassword));
        QVERIFY(remove(key));
        QCOMPARE(read(key).status, SecretStore::Status::NotFound);
        QVERIFY(remove(key));
    }

    void aLockedSilentOrEmptyStoreFailsOnlyThatMailAndTheScanGoesOn_data()
    {
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("why"); // the job-log line after the failure prefix
        QTest::newRow("locked") << "locked"
                                << "the secret store is locked, so the password of alerts was not read; unlock the "
                                   "keyring and the next alert mail reads it";
        QTest::newRow("silent") << "silent"
                                << "the secret store did not answer within 3 seconds, so the password of alerts was "
                                   "not read";
        QTest::newRow("no entry") << "empty"
                                  << "the secret store holds no entry for the password of alerts; enter it in the "
                                     "Email Options";
    }
    void aLockedSilentOrEmptyStoreFailsOnlyThatMailAndTheScanGoesOn()
    {
        QFETCH(QString, store);
        QFETCH(QString, why);
        needKeyring();
        const QString key = actions::smtpPasswordKey(QStringLiteral("127.0.0.1"), QStringLiteral("alerts"));
        QVERIFY(write(key, kPassword));
        if (store == "empty")
            QVERIFY(remove(key));
        else if (store == "locked")
            QCOMPARE(keyring_.lock(), QString());

        test::ActionRig rig;
        rig.state.platform.secrets = &secrets_;
        rig.storeSmtp("127.0.0.1", 25);
        rig.sim.files.writeLines(rig.file("SMTPOptions"), {"modern=1", "user=alerts", "tls=starttls"});
        if (store == "silent")
            keyring_.freeze(true);
        rig.build();
        // Two failed services, each sending an alert mail (which needs the password) and then a
        // network message.
        for (int i = 0; i < 2; ++i)
            rig.run({"Send Email to: admin@corp.test", "Net Message Send to: PC9", "", "", ""});
        QTRY_COMPARE_WITH_TIMEOUT(rig.dones, 2, 20000);
        const QString mailLine = actions::SmtpClient::kFailurePrefix + why;
        const QString netLine = QStringLiteral("The Net Message was successfully sent to PC9.");
        QCOMPARE(rig.lines(), (QStringList{mailLine, netLine, mailLine, netLine}));
        if (store == "silent")
            keyring_.freeze(false);
        else if (store == "locked")
            QCOMPARE(keyring_.unlock(), QString());
        // The store never asked to be unlocked; once it answers, the password is there.
        QTRY_COMPARE_WITH_TIMEOUT(read(key).status, store == "empty" ? SecretStore::Status::NotFound : SecretStore::Status::Ok, 20000);
    }

    void alertMailFromTheDialogsSettingsReachesAiosmtpdWithStartTlsAndLogin()
    {
        needKeyring();
        QTemporaryDir dir;
        const test::TestCertificate cert = test::makeTestCertificate(dir);
        if (!cert.ok())
            QSKIP("openssl could not make a test certificate");
        test::SmtpSink sink;
        if (!sink.start(QStringLiteral("127.0.0.1"), 0,
                        {"--stock", "--auth", QStringLiteral("alerts:") + kPassword, "--cert", cert.cert, "--key", cert.key}))
            QSKIP("aiosmtpd (python3-aiosmtpd) is not available");

        test::ActionRig rig;
        rig.useRealTcp();
        rig.state.platform.secrets = &secrets_;
        rig.build();
        actions::AlertMailer& mailer = *rig.mailer;
        actions::Mailing mailing(rig.state, mailer, rig.results(), nullptr);

        // The user sets the server, ticks the option, enters user and password and accepts the
        // server's certificate.
        actions::EmailOptionsDialog* d = mailing.dialog();
        mailing.showOptions();
        test::fillSmtpOptions(d, "127.0.0.1", "alerts@velmora.test", "alerts", kPassword);
        d->Text3->setText(QString::number(sink.port()));
        d->Combo1->setCurrentIndex(d->Combo1->findData(int(actions::SmtpTls::StartTls)));
        d->Check3->click();
        d->OKButton->click();
        QVERIFY(!d->isVisible());
        QVERIFY(rig.sim.boxes.texts().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(read(actions::smtpPasswordKey("127.0.0.1", "alerts")).secret, kPassword, 30000);
        QVERIFY(d->Text6->text().isEmpty());
        QVERIFY(!anyFileHolds(rig.dir.path(), kPassword));

        QVERIFY(rig.sendemail(" admin@corp.test"));
        QCOMPARE(rig.lines(), QStringList{"Email sent to admin@corp.test"});
        QTRY_COMPARE(sink.records().size(), 1);
        const QJsonObject r = sink.records().first();
        QCOMPARE(r.value("tls").toBool(), true);
        QCOMPARE(r.value("auth_user").toString(), QStringLiteral("alerts"));

        // The certificate accepted on the user's word is the one kept from now on.
        auto fingerprintOf = [](const QString& file) {
            return QSslCertificate::fromPath(file).value(0).digest(QCryptographicHash::Sha256).toHex();
        };
        QCOMPARE(mailer.smtpOptions().fingerprint, fingerprintOf(cert.cert));
        QCOMPARE(rig.sim.files.readLines(rig.file("SMTPOptions")).value_or(QStringList()),
                 (QStringList{"modern=1", "user=alerts", "tls=starttls", "acceptcertificate=1",
                              "fingerprint=" + fingerprintOf(cert.cert)}));
        QVERIFY(!anyFileHolds(rig.dir.path(), kPassword));

        // Shown again: the options, never the password; OK with the field empty keeps it.
        mailing.showOptions();
        QCOMPARE(d->Text6->text(), QString());
        d->OKButton->click();
        QVERIFY(rig.sendemail("admin@corp.test"));

        // A password typed and cancelled stays in no widget and replaces nothing.
        mailing.showOptions();
        d->Text6->setText(QStringLiteral("typed-pw"));
        d->CancelButton->click();
        QCOMPARE(d->Text6->text(), QString());
        QCOMPARE(read(actions::smtpPasswordKey("127.0.0.1", "alerts")).secret, kPassword);

        // The options go with the SMTP server when the profile takes over.
        rig.sim.profilemail.profiles = {QStringLiteral("Office")};
        mailing.showOptions();
        d->Option1->click();
        d->Text1->setText(QStringLiteral("Office"));
        d->OKButton->click();
        QVERIFY(!QFile::exists(rig.file("SMTPServer")) && !QFile::exists(rig.file("SMTPOptions")));
    }
};

QTEST_MAIN(TestSmtpSecrets)
#include "tst_smtpsecrets.moc"
