#pragma once
// The bundle of platform services handed to the windows and modules that need them.
#include "platform/beeper.h"
#include "platform/clock.h"
#include "platform/desktop.h"
#include "platform/filedialogs.h"
#include "platform/icmp.h"
#include "platform/journal.h"
#include "platform/messageboxes.h"
#include "platform/netmessenger.h"
#include "platform/netconnections.h"
#include "platform/notifications.h"
#include "platform/servicemanager.h"
#include "platform/opener.h"
#include "platform/profilemail.h"
#include "platform/secretstore.h"
#include "platform/serverkinds.h"
#include "platform/system.h"
#include "platform/tcpsocket.h"
#include "platform/textfiles.h"
#include "platform/tray.h"
#include "platform/worker.h"

namespace velmora::platform {

struct Platform {
    TextFiles* files = nullptr;
    MessageBoxes* boxes = nullptr;
    Clock* clock = nullptr;
    SystemInfo* system = nullptr;
    SingleInstance* instance = nullptr;
    Application* app = nullptr;
    Icmp* icmp = nullptr;
    Worker* worker = nullptr;
    NetConnections* net = nullptr;
    ServiceManager* services = nullptr;
    TrayIcon* tray = nullptr;
    Sound* sound = nullptr;
    ComputerChooser* chooser = nullptr;
    FileOpener* opener = nullptr;
    Beeper* beeper = nullptr;
    TcpNetwork* tcp = nullptr;
    ProfileMail* profilemail = nullptr;
    NetMessenger* messenger = nullptr;
    FileDialogs* filedialogs = nullptr;
    SecretStore* secrets = nullptr;
    // Null where every server is a systemd server.
    ServerKinds* serverkinds = nullptr;
    // Where the program installs the implementation that serverkinds (and the backends) go by.
    ServerKindsSlot* serverkindsSlot = nullptr;
    // A unit's journal, and desktop notifications; null where there are none.
    UnitJournal* journal = nullptr;
    Notifier* notifier = nullptr;
};

} // namespace velmora::platform
