#pragma once
// The session shared by the windows and modules for the whole run: the platform, the data folder,
// the settings and this computer's name. The program owns the one instance.
#include "core/datafolder.h"
#include "core/settings.h"
#include "platform/platform.h"

#include <QString>

namespace velmora::core {

struct RunState : DataFiles {
    platform::Platform platform;

    // Data folder (also shown in the main window's hidden field Text7).
    QString datafolder;
    SettingsRecord settings;

    QString localcomputer; // this computer's name

    QString folder() const override { return datafolder; }
};

} // namespace velmora::core
