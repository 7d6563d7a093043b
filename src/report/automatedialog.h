#pragma once
// The automation dialog Form11 "Automate": whether, where and from how many rows on the report
// is exported by itself after a scan (and then emptied). Loaded afresh from the settings on
// each opening; "&OK" stores, "&Cancel" leaves the settings alone.
#include "core/settings.h"
#include "platform/filedialogs.h"
#include "platform/messageboxes.h"

#include <QWidget>

class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace velmora::report {

class AutomateDialog : public QWidget {
    Q_OBJECT
public:
    AutomateDialog(core::SettingsRecord& settings, platform::MessageBoxes& boxes, platform::FileDialogs& dialogs,
                   QWidget* parent = nullptr);

    QGroupBox* Frame1 = nullptr;
    QCheckBox* Check1 = nullptr;
    QLineEdit *Text1 = nullptr, *Text2 = nullptr;
    QRadioButton *Option1 = nullptr, *Option2 = nullptr;
    QLabel *Label1 = nullptr, *Label3 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr;

    // "Browse...": a folder for Text1.
    void browse();
    // "&OK": checks the fields, stores them and closes; false when a field is refused.
    bool ok();

private:
    void enableFields(bool on);

    core::SettingsRecord& settings_;
    platform::MessageBoxes& boxes_;
    platform::FileDialogs& dialogs_;
};

} // namespace velmora::report
