#pragma once
// Form3, "Setup Alert": builds the ordered action list (at most five entries) of one monitored
// service. Opened by the monitoring setup (Add, Edit) and by the main window's "Monitor
// Service"; its OK hands the list to the setup window, which stores it on its own OK.
#include <QDialog>
#include <QStringList>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace velmora::core { struct RunState; }
namespace velmora::actions { class ActionDispatcher; }

namespace velmora::monitoring {

class SetupWindow;

class AlertSetupWindow : public QDialog {
    Q_OBJECT
public:
    // Loading: empty fields, "Alert" chosen.
    AlertSetupWindow(SetupWindow& setup, core::RunState& state, actions::ActionDispatcher& dispatcher);

    enum class Mode { New, Edit };

    QGroupBox* Frame1 = nullptr;
    QComboBox* Combo1 = nullptr;      // the action kind
    QLineEdit* Text1 = nullptr;       // e-mail address
    QLineEdit* Text2 = nullptr;       // program or sound file
    QLineEdit* Text3 = nullptr;       // net message recipient
    QListWidget* List1 = nullptr;     // the action list
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr,
                *Command5 = nullptr, *Command6 = nullptr, *Command7 = nullptr, *Command8 = nullptr;
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr, *Label5 = nullptr,
           *Label10 = nullptr;

    // The kinds, in the order of Combo1.
    static const QStringList kKinds;
    // The most entries one service can have.
    static constexpr int kMaxActions = 5;

    Mode mode() const { return mode_; }
    int editPosition() const { return editPosition_; }
    // New: for the service named (Frame1 shows it). Edit: the entry at position, whose actions
    // are put into List1.
    void setNew(const QString& displayname, const QString& servicename);
    void setEdit(int position, const QStringList& actions);
    QStringList actions() const;

    // The commands.
    void kindChosen();      // Combo1
    void addToList();       // Command4 "&Add to action list"
    void removeFromList();  // Command5
    void moveUp();          // Command6
    void moveDown();        // Command7
    void browse();          // Command3
    void testNetSend();     // Command8
    void ok();              // Command1
    void cancel();          // Command2

signals:
    // An e-mail action was added while no mail transport is set up.
    void emailOptionsRequested();

protected:
    bool event(QEvent* e) override;

private:
    void buildControls();
    void setField(QLineEdit* field, bool enabled);
    // The selected row of List1, or -1.
    int selectedRow() const;
    bool listChecks();

    SetupWindow& setup_;
    core::RunState& state_;
    actions::ActionDispatcher& dispatcher_;
    Mode mode_ = Mode::New;
    int editPosition_ = -1;
    QString newDisplay_, newService_;
};

} // namespace velmora::monitoring
