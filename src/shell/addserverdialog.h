#pragma once
// Dialog1, "Add Server": the user types a server name and says whether it is a Windows server.
// The dialog only asks; whoever opened it decides whether the name is taken, and the dialog stays
// open for another try when it is not.
#include "shell/serverkindchoice.h"

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace velmora::shell {

class AddServerDialog : public QDialog {
    Q_OBJECT
public:
    // OK asks for the typed name, in upper case, to be added (addRequested); added() then stores
    // the server's kind through kinds and closes the dialog.
    explicit AddServerDialog(ServerKindChoice kinds, QWidget* parent = nullptr);

    // The server asked for has been added.
    void added(const QString& name);

    QLabel* Label1 = nullptr;
    QLineEdit* Text1 = nullptr;
    QPushButton *OKButton = nullptr, *CancelButton = nullptr;
    QCheckBox* Check1 = nullptr; // "Windows server"; hidden where the platform has no such servers

signals:
    void addRequested(const QString& name);

protected:
    bool event(QEvent* event) override;

private:
    void ok();

    ServerKindChoice kinds_;
};

} // namespace velmora::shell
