// The dialogs that ask the user for ssh credentials and about host keys, driven as a user would.
#include "platform/linux/qtcredentialsprompt.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>

using velmora::platform::CredentialsPrompt;
using velmora::platform::QtCredentialsPrompt;

namespace {

template <typename T>
T* shown(const QString& name)
{
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (w->isVisible() && w->objectName() == name)
            if (auto* t = qobject_cast<T*>(w))
                return t;
    }
    return nullptr;
}

} // namespace

class TestCredentialsPrompt : public QObject {
    Q_OBJECT
private slots:
    void credentialsDialogGivesWhatWasTypedWithoutBlockingTheCaller_data()
    {
        QTest::addColumn<int>("logon");
        QTest::addColumn<bool>("refused"); // the password given before was not accepted
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<QString>("speaksOf");
        QTest::addColumn<QString>("never");
        QTest::newRow("ssh") << int(CredentialsPrompt::Logon::Ssh) << false << false << "over ssh" << "Windows";
        QTest::newRow("Windows") << int(CredentialsPrompt::Logon::Windows) << false << false << "the Windows server SRV1"
                                 << "ssh";
        QTest::newRow("refused, then cancelled") << int(CredentialsPrompt::Logon::Ssh) << true << true << "did not accept"
                                                 << "Windows";
    }
    void credentialsDialogGivesWhatWasTypedWithoutBlockingTheCaller()
    {
        QFETCH(int, logon);
        QFETCH(bool, refused);
        QFETCH(bool, cancel);
        QFETCH(QString, speaksOf);
        QFETCH(QString, never);
        QtCredentialsPrompt prompt;
        std::optional<CredentialsPrompt::Credentials> given;
        int answers = 0;
        prompt.askCredentials(CredentialsPrompt::Logon(logon), "SRV1", "root", refused,
                              [&](std::optional<CredentialsPrompt::Credentials> c) {
                                  given = c;
                                  ++answers;
                              });
        // The call returned with the dialog open.
        QCOMPARE(answers, 0);
        QDialog* dialog = nullptr;
        QTRY_VERIFY((dialog = shown<QDialog>("credentialsDialog")));
        QVERIFY(dialog->isModal());
        const QString explanation = dialog->findChild<QLabel*>("explanation")->text();
        QVERIFY2(explanation.contains(speaksOf) && !explanation.contains(never), qPrintable(explanation));
        auto* user = dialog->findChild<QLineEdit*>("user");
        auto* password = dialog->findChild<QLineEdit*>("password");
        QCOMPARE(user->text(), QString("root"));
        QCOMPARE(password->echoMode(), QLineEdit::Password);
        user->setText(" admin ");
        password->setText(" secret ");
        dialog->findChild<QDialogButtonBox*>()->button(cancel ? QDialogButtonBox::Cancel : QDialogButtonBox::Ok)->click();
        QCOMPARE(answers, 1);
        QCOMPARE(given.has_value(), !cancel);
        if (given) {
            QCOMPARE(given->user, QString("admin"));
            QCOMPARE(given->password, QString(" secret "));
        }
        QTRY_VERIFY(!shown<QDialog>("credentialsDialog"));
        // Once answered, no widget holds the password.
        for (const QWidget* w : QApplication::allWidgets())
            if (const auto* field = qobject_cast<const QLineEdit*>(w))
                QVERIFY(field->text() != " secret ");
    }

    void trustQuestionShowsTheFingerprintAndDefaultsToNo()
    {
        QtCredentialsPrompt prompt;
        const CredentialsPrompt::HostKey key{"SRV1", "ED25519", "SHA256:abcdef", "ssh said so"};
        std::optional<bool> trust;
        prompt.askTrust(key, [&](bool t) { trust = t; });
        QMessageBox* box = nullptr;
        QTRY_VERIFY((box = shown<QMessageBox>("trustHostKey")));
        QVERIFY(box->text().contains("SHA256:abcdef"));
        QCOMPARE(box->defaultButton(), box->button(QMessageBox::No));
        QTest::keyClick(box, Qt::Key_Return);
        QCOMPARE(trust, std::optional<bool>(false));

        trust.reset();
        prompt.askTrust(key, [&](bool t) { trust = t; });
        QTRY_VERIFY((box = shown<QMessageBox>("trustHostKey")));
        box->button(QMessageBox::Yes)->click();
        QCOMPARE(trust, std::optional<bool>(true));
    }

    void aChangedKeyIsShownWithWhatSshSaid()
    {
        QtCredentialsPrompt prompt;
        prompt.hostKeyChanged({"SRV1", "ED25519", "SHA256:abcdef", "Offending ED25519 key in /k:3"});
        QMessageBox* box = nullptr;
        QTRY_VERIFY((box = shown<QMessageBox>("hostKeyChanged")));
        QVERIFY(box->text().contains("SHA256:abcdef"));
        QCOMPARE(box->detailedText(), QString("Offending ED25519 key in /k:3"));
        box->button(QMessageBox::Ok)->click();
        QTRY_VERIFY(!shown<QMessageBox>("hostKeyChanged"));
    }
};

QTEST_MAIN(TestCredentialsPrompt)
#include "tst_credentialsprompt.moc"
