#pragma once
// Dialog1, "Add Server": the user types a server name. The dialog only asks; whoever opened it
// decides whether the name is taken, and the dialog stays open for another try when it is not.
#include <QDialog>
#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

namespace velmora::shell {

class AddServerDialog : public QDialog {
    Q_OBJECT
public:
    // add receives the typed name in upper case and returns whether the server was added.
    explicit AddServerDialog(std::function<bool(const QString&)> add, QWidget* parent = nullptr);

    QLabel* Label1 = nullptr;
    QLineEdit* Text1 = nullptr;
    QPushButton *OKButton = nullptr, *CancelButton = nullptr;

protected:
    bool event(QEvent* event) override;

private:
    void ok();

    std::function<bool(const QString&)> add_;
};

} // namespace velmora::shell
