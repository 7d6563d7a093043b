#pragma once
#include "platform/desktop.h"
#include <QStringList>

namespace velmora::platform {

// A dialog listing the computers this machine knows (/etc/hosts, ssh known hosts and config,
// and mDNS when Avahi runs), where a name can also be typed.
class KnownComputersChooser : public ComputerChooser {
public:
    QString choose(QWidget* owner, const QString& title) override;
};

// The names the chooser offers, each once, sorted without regard to case.
QStringList knownComputers();

} // namespace velmora::platform
