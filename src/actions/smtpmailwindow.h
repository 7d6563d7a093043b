#pragma once
// Form7, "Test SMTP eMail": sends the test mail typed into it (on port 25 unless the stored
// options say otherwise) through the alert mailer, whose SMTP client and sending flag the alert
// mail shares; the progress shows in Label1.
#include "actions/mailtypes.h"

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

    // Whether a mail is on its way: being sent, or waiting for its password.
    bool busy() const;

    void setstatus(const QString& text);
    // Fills the fields from the mail settings and the last failure (each time it is shown).
    void activate();
    // "&Send Email".
    void sendClicked();

protected:
    void showEvent(QShowEvent* event) override;

private:
    Mailing& owner_;
};

} // namespace velmora::actions
