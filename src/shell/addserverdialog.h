#pragma once
// Dialog1, "Add Server": the user types a server name and says whether it is a Windows server.
// The dialog only asks; whoever opened it decides whether the name is taken, and the dialog stays
// open for another try when it is not.
#include "shell/serverkindchoice.h"

#include <QDialog>
#include <functional>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace velmora::shell {

class AddServerDialog : public QDialog {
    Q_OBJECT
public:
    // add receives the typed name in upper case and returns whether the server was added; the
    // server's kind is then stored through kinds.
    AddServerDialog(std::function<bool(const QString&)> add, ServerKindChoice kinds, QWidget* parent = nullptr);

    QLabel* Label1 = nullptr;
    QLineEdit* Text1 = nullptr;
    QPushButton *OKButton = nullptr, *CancelButton = nullptr;
    QCheckBox* Check1 = nullptr; // "Windows server"; hidden where the platform has no such servers

protected:
    bool event(QEvent* event) override;

private:
    void ok();

    std::function<bool(const QString&)> add_;
    ServerKindChoice kinds_;
};

} // namespace velmora::shell
