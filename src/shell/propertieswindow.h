#pragma once
// Form10, "Server Properties": the descriptive properties of one server (alias, address, role,
// location, contacts, staff instructions, remarks), whether it is a Windows server, and,
// read-only, its monitored services. The properties are those of the server's own file; saving
// rewrites the file with its record lines exactly as they were read, then the properties block.
// The server's kind is kept apart from its file (see ServerKindChoice).
#include "core/serverfile.h"
#include "shell/serverkindchoice.h"

#include <QDialog>

class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace velmora::core { class MonitoredServices; }
namespace velmora::platform { class MessageBoxes; }

namespace velmora::shell {

class PropertiesWindow : public QDialog {
    Q_OBJECT
public:
    PropertiesWindow(core::MonitoredServices& monitored, platform::MessageBoxes& boxes, ServerKindChoice kinds,
                     QWidget* parent = nullptr);

    // Reads the server's file (creating it empty when missing) and shows it. Returns false, with
    // a message, when the file cannot be used.
    bool openFor(const QString& server);

    QGroupBox* Frame1 = nullptr;
    QLineEdit *Text1 = nullptr, *Text2 = nullptr, *Text3 = nullptr, *Text4 = nullptr;
    QPlainTextEdit *Text5 = nullptr, *Text6 = nullptr, *Text7 = nullptr;
    QListWidget* List2 = nullptr; // the monitored services' display names
    QListWidget* List1 = nullptr; // hidden: the record lines before "[Properties:]"
    QLineEdit* Text9 = nullptr;   // hidden: the server whose file is edited
    QPushButton *Command1 = nullptr, *Command2 = nullptr;
    QCheckBox* Check1 = nullptr; // "Windows server"; hidden where the platform has no such servers

private:
    void buildControls();
    void fill(const core::ServerProperties& props);
    void save();

    core::MonitoredServices& monitored_;
    platform::MessageBoxes& boxes_;
    ServerKindChoice kinds_;
    // The record lines as read; written back unchanged.
    QStringList recordLines_;
};

} // namespace velmora::shell
