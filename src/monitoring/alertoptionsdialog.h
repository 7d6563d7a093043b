#pragma once
// Dialog "Alert Options...": how alerts remember failures (once, reminders, recoveries), servers
// down, the restart-loop guard, the unit's journal in the mail and desktop notifications. It
// shows the options file, and OK stores them there and hands them on through saved().
#include "core/alertoptions.h"

#include <QDialog>

class QCheckBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace velmora::platform { class MessageBoxes; class TextFiles; }

namespace velmora::monitoring {

class AlertOptionsDialog : public QDialog {
    Q_OBJECT
public:
    AlertOptionsDialog(platform::TextFiles& files, platform::MessageBoxes& boxes, QString path,
                       QWidget* parent = nullptr);

    QCheckBox* Check1 = nullptr; // alert once, recovery
    QSpinBox* Spin1 = nullptr;   // reminder every N scans
    QCheckBox* Check2 = nullptr; // server down
    QLineEdit* Text1 = nullptr;  // its mail addresses
    QCheckBox* Check3 = nullptr; // restart-loop guard
    QSpinBox *Spin2 = nullptr, *Spin3 = nullptr; // N restarts within M scans
    QCheckBox* Check4 = nullptr; // journal lines in the mail
    QCheckBox* Check5 = nullptr; // desktop notifications
    QPushButton *OKButton = nullptr, *CancelButton = nullptr;

    // Reads the file into the controls; a damaged file is shown as all off, and a box says why.
    void load();
    core::AlertOptions shown() const;
    void showOptions(const core::AlertOptions& options);

signals:
    void saved(const velmora::core::AlertOptions& options);

private:
    void okClick();
    void enableFields();

    platform::TextFiles& files_;
    platform::MessageBoxes& boxes_;
    QString path_;
};

} // namespace velmora::monitoring
