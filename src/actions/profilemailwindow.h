#pragma once
// Form8, "Test Outlook eMail": sends a test mail through the mail profile typed into it.
#include "actions/mailtypes.h"

#include <QWidget>

class QGroupBox;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace velmora::actions {

class Mailing;

class ProfileMailWindow : public QWidget {
    Q_OBJECT
public:
    ProfileMailWindow(Mailing& owner, QWidget* parent = nullptr);

    QGroupBox *Frame1 = nullptr, *Frame2 = nullptr, *Frame3 = nullptr, *Frame5 = nullptr;
    QLineEdit *Text7 = nullptr, *Text3 = nullptr, *Text5 = nullptr;
    QPlainTextEdit* Text6 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr;

    // Fills the fields (done each time the window is shown).
    void activate();
    // "&Send Email".
    void sendClicked();
    // Sends the mail of the fields; the outcome is shown in a box. done runs after the box.
    void testoutlookmail(std::function<void()> done = {});
    bool busy() const { return busy_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    Mailing& owner_;
    bool busy_ = false;
};

} // namespace velmora::actions
