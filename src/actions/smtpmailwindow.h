#pragma once
// Form7, "Test SMTP eMail": the window of the SMTP client. It sends the test mail typed into it
// (always on port 25) and, hidden, the alert mail of the "Send Email to:" action. Both share
// its socket Winsock1, its reply timer Timer1 and one sending flag.
#include "actions/mailtypes.h"
#include "actions/smtpclient.h"

#include <QWidget>

class QGroupBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace velmora::actions {

class Mailing;

class SmtpMailWindow : public QWidget {
    Q_OBJECT
public:
    SmtpMailWindow(Mailing& owner, QWidget* parent = nullptr);

    QGroupBox *Frame1 = nullptr, *Frame2 = nullptr, *Frame3 = nullptr, *Frame4 = nullptr, *Frame5 = nullptr;
    QLineEdit *Text1 = nullptr, *Text2 = nullptr, *Text3 = nullptr, *Text4 = nullptr, *Text5 = nullptr,
              *Text6 = nullptr, *Text8 = nullptr;
    QPlainTextEdit* Text7 = nullptr;
    QLabel* Label1 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr;
    platform::Timer* Timer1 = nullptr;
    platform::TcpSocket* Winsock1 = nullptr;

    SmtpClient& client() { return *client_; }
    // Whether a mail is on its way: being sent, or waiting for its password.
    bool busy() const { return preparing_ || client_->sending(); }

    // The alert mail to the configured server and port; see Mailing::sendemail.
    void sendemail(const QString& emailaddress, const MailText& text, std::function<void(bool)> done);
    // The test mail: to server on port 25, progress in Label1.
    void sendtestmail(const QString& server, const QString& sendername, const QString& senderaddress,
                      const QString& recipientname, const QString& recipientaddress, const QString& subject,
                      const QString& body, std::function<void(bool)> done);
    void setstatus(const QString& text);
    // Fills the fields from the run state (done each time the window is shown).
    void activate();
    // "&Send Email".
    void sendClicked();

protected:
    void showEvent(QShowEvent* event) override;

private:
    // Reads the stored options (and the password) for a send to server, then runs send with
    // them; with a failure, runs failed with its text instead.
    void withSecurity(const QString& server, std::function<void(const SmtpSecurity&)> send,
                      std::function<void(const QString&)> failed);

    Mailing& owner_;
    SmtpClient* client_ = nullptr;
    bool preparing_ = false;
    QString lastFailure_; // why the last test send could not start
    int linesLogged_ = 0; // job-log lines written by sends so far
};

} // namespace velmora::actions
