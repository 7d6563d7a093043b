#include "platform/linux/qtcredentialsprompt.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::platform {

void QtCredentialsPrompt::askCredentials(Logon logon, const QString& server, const QString& user, bool refused,
                                         std::function<void(std::optional<Credentials>)> answer)
{
    auto* dialog = new QDialog(QApplication::activeWindow());
    dialog->setObjectName(QStringLiteral("credentialsDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::ApplicationModal);
    dialog->setWindowTitle(QStringLiteral("Velmora"));

    auto* text = new QLabel(dialog);
    text->setObjectName(QStringLiteral("explanation"));
    text->setWordWrap(true);
    if (logon == Logon::Windows)
        text->setText(refused
            ? QStringLiteral("The Windows server %1 did not accept the user name or password. Enter them again to "
                             "log on to its service manager.").arg(server)
            : QStringLiteral("Enter a user name (user or DOMAIN\\user) and password to log on to the service "
                             "manager of the Windows server %1. They are kept in the desktop's secret store.").arg(server));
    else
        text->setText(refused
            ? QStringLiteral("%1 did not accept the user name or password. Enter them again to connect over ssh.").arg(server)
            : QStringLiteral("%1 accepted neither an ssh key nor the ssh agent. Enter a user name and password to connect over ssh.").arg(server));
    auto* userEdit = new QLineEdit(user, dialog);
    userEdit->setObjectName(QStringLiteral("user"));
    auto* passwordEdit = new QLineEdit(dialog);
    passwordEdit->setObjectName(QStringLiteral("password"));
    passwordEdit->setEchoMode(QLineEdit::Password);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("&User name:"), userEdit);
    form->addRow(QStringLiteral("&Password:"), passwordEdit);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(text);
    layout->addLayout(form);
    layout->addWidget(buttons);
    (user.isEmpty() ? userEdit : passwordEdit)->setFocus();

    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    QObject::connect(dialog, &QDialog::finished, dialog, [dialog, userEdit, passwordEdit, answer = std::move(answer)](int result) {
        std::optional<Credentials> given;
        if (result == QDialog::Accepted)
            given = Credentials{userEdit->text().trimmed(), passwordEdit->text()};
        // The typed password goes to the caller only, not with the dialog's remains.
        passwordEdit->clear();
        dialog->disconnect();
        answer(given);
    });
    dialog->open();
}

void QtCredentialsPrompt::askTrust(const HostKey& key, std::function<void(bool trust)> answer)
{
    auto* box = new QMessageBox(QApplication::activeWindow());
    box->setObjectName(QStringLiteral("trustHostKey"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::ApplicationModal);
    box->setWindowTitle(QStringLiteral("Velmora"));
    box->setIcon(QMessageBox::Question);
    box->setText(QStringLiteral("The ssh host key of %1 is not known yet.\n\n"
                                "%2 key fingerprint:\n%3\n\n"
                                "Trust it only if it is the key of the server itself (on the server: "
                                "ssh-keygen -lf on its host key). Trust this key and connect?")
                     .arg(key.server, key.type.isEmpty() ? QStringLiteral("Host") : key.type,
                          key.fingerprint.isEmpty() ? QStringLiteral("(not shown by ssh)") : key.fingerprint));
    box->setDetailedText(key.details);
    box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box->setDefaultButton(QMessageBox::No);
    QObject::connect(box, &QMessageBox::finished, box, [box, answer = std::move(answer)](int) {
        const bool trust = box->clickedButton() == box->button(QMessageBox::Yes);
        box->disconnect();
        answer(trust);
    });
    box->open();
}

void QtCredentialsPrompt::hostKeyChanged(const HostKey& key)
{
    auto* box = new QMessageBox(QApplication::activeWindow());
    box->setObjectName(QStringLiteral("hostKeyChanged"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::ApplicationModal);
    box->setWindowTitle(QStringLiteral("Velmora"));
    box->setIcon(QMessageBox::Critical);
    box->setText(QStringLiteral("The ssh host key of %1 has changed: the connection was refused.\n\n"
                                "The server now shows the %2 key\n%3\n"
                                "which is not the key recorded for it. Someone may be intercepting the "
                                "connection, or the server's key was replaced. If it was replaced on "
                                "purpose, remove the old key (ssh-keygen -R %1) and connect again.")
                     .arg(key.server, key.type, key.fingerprint.isEmpty() ? QStringLiteral("(not shown by ssh)") : key.fingerprint));
    box->setDetailedText(key.details);
    box->setStandardButtons(QMessageBox::Ok);
    box->open();
}

} // namespace velmora::platform
