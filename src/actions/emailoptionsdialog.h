#pragma once
// Dialog, "Set Email Options": e-mail on or off, and by which transport (a mail profile or the
// program's own SMTP client). The choice is stored as the presence of "MailProfile" or
// "SMTPServer" in the data folder; never both.
#include "actions/smtpoptions.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace velmora::actions {

class Mailing;

class EmailOptionsDialog : public QDialog {
    Q_OBJECT
public:
    EmailOptionsDialog(Mailing& owner, QWidget* parent = nullptr);

    QCheckBox* Check1 = nullptr;
    QRadioButton *Option1 = nullptr, *Option2 = nullptr;
    QGroupBox *Frame1 = nullptr, *Frame2 = nullptr;
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr;
    QLineEdit *Text1 = nullptr, *Text2 = nullptr, *Text3 = nullptr, *Text4 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *OKButton = nullptr, *CancelButton = nullptr;
    // Beside the SMTP fields: the dialogue for servers that need a name, encryption or login.
    QCheckBox* Check2 = nullptr;               // "Server needs a name, encryption or login"
    QLineEdit *Text5 = nullptr, *Text6 = nullptr; // user, password (never shown, never in a file)
    QComboBox* Combo1 = nullptr;               // encryption: STARTTLS (required), TLS, none (in clear)
    QCheckBox* Check3 = nullptr;               // "Accept this server's certificate"
    QLabel* Label8 = nullptr;                  // the accepted certificate's fingerprint

    // The stored transport shown in the controls (done each time the dialog is shown).
    void activate();

    // Button and control handlers, as the user's clicks run them.
    void check1Click();
    void option1Click();
    void option2Click();
    void check2Click();
    void okClick() { okSteps(false); }
    void cancelClick();
    void command1Click(); // "Send SMTP Testmail..."
    void command2Click(); // "Send Outlook Testmail..."

    static const QString kDisableQuestion;

public slots:
    void reject() override; // Esc is the Cancel button

protected:
    void showEvent(QShowEvent* event) override;
    // A typed password never stays in the hidden dialog, however it was closed.
    void hideEvent(QHideEvent* event) override;

private:
    void okSteps(bool test);
    // The steps on the files; okSteps then reloads the settings from them.
    void okStepsOnFiles(bool test);
    void useField(QLineEdit* field, bool inUse);
    // The fields of the second dialogue: shown from options, enabled while the SMTP fields are
    // in use and Check2 is ticked.
    void showSmtpOptions(const SmtpOptions& options);
    void enableSmtpOptions();
    // Saves the second dialogue's options and, when one was typed, its password (in the
    // secret store, which answers later and says so in a box when it fails). False, after a
    // box, when the options file could not be written.
    bool saveSmtpOptions();
    // Label8: the accepted certificate, or the one the server showed and the last send refused.
    void showFingerprint();
    // Asks whether the password of user on server goes too, and removes it when so.
    void offerPasswordRemoval(const QString& server, const QString& user);

    Mailing& owner_;
    QString shownServer_; // the server whose options are shown (an accepted certificate is its)
    QByteArray shownFingerprint_;   // accepted on OK (empty with the box ticked: the next one)
    QByteArray offeredFingerprint_; // refused at the last send, accepted by ticking the box
};

} // namespace velmora::actions
