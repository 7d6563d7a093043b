#pragma once
// Dialog, "Set Email Options": e-mail on or off, and by which transport (a mail profile or the
// program's own SMTP client). The choice is stored as the presence of "MailProfile" or
// "SMTPServer" in the data folder; never both.
#include <QDialog>

class QCheckBox;
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

    // The stored transport shown in the controls (done each time the dialog is shown).
    void activate();

    // Button and control handlers, as the user's clicks run them.
    void check1Click();
    void option1Click();
    void option2Click();
    void okClick() { okSteps(false); }
    void cancelClick();
    void command1Click(); // "Send SMTP Testmail..."
    void command2Click(); // "Send Outlook Testmail..."

    static const QString kDisableQuestion;

public slots:
    void reject() override; // Esc is the Cancel button

protected:
    void showEvent(QShowEvent* event) override;

private:
    void okSteps(bool test);
    void useField(QLineEdit* field, bool inUse);

    Mailing& owner_;
};

} // namespace velmora::actions
