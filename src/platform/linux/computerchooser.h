#pragma once
#include "platform/desktop.h"
#include <QDialog>
#include <QStringList>

class QLineEdit;
class QListWidget;
class QProcess;
class QPushButton;

namespace velmora::platform {

// Where the chooser looks for computer names. An empty entry is a source left out.
struct KnownComputerSources {
    QString hostsFile;       // /etc/hosts
    QString knownHostsFile;  // ~/.ssh/known_hosts (hashed entries cannot be read back)
    QString sshConfigFile;   // ~/.ssh/config, the names of its Host lines
    QString avahiProgram;    // avahi-browse, for the computers announcing services over mDNS
    int avahiTimeoutMs = 3000;

    static KnownComputerSources standard();
};

// The names the chooser offers, each once (without regard to case), sorted without regard to
// case. Waits up to sources.avahiTimeoutMs for mDNS.
QStringList knownComputers(const KnownComputerSources& sources = KnownComputerSources::standard());
// The names of the files alone, at once.
QStringList knownComputersFromFiles(const KnownComputerSources& sources);

// The dialog: the title as window title and label, the known computers in a list (mDNS names
// join when they arrive), a field where a name can be typed or a list entry lands when clicked,
// OK and Cancel.
class KnownComputersDialog : public QDialog {
    Q_OBJECT
public:
    KnownComputersDialog(const KnownComputerSources& sources, const QString& title, QWidget* owner = nullptr);
    ~KnownComputersDialog() override;
    // The typed or chosen name, without surrounding blanks.
    QString computerName() const;

private:
    void addNames(const QStringList& names);
    void takeAvahiOutput();

    QListWidget* list_;
    QLineEdit* edit_;
    QPushButton* ok_;
    QProcess* avahi_ = nullptr;
};

// A dialog listing the computers this machine knows (/etc/hosts, ssh known hosts and config,
// and mDNS when Avahi runs), where a name can also be typed.
class KnownComputersChooser : public ComputerChooser {
public:
    explicit KnownComputersChooser(KnownComputerSources sources = KnownComputerSources::standard());
    QString choose(QWidget* owner, const QString& title) override;

private:
    KnownComputerSources sources_;
};

} // namespace velmora::platform
