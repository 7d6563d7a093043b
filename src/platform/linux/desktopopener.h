#pragma once
#include "platform/opener.h"

namespace velmora::platform {

// Opens documents through the desktop's association database: "gio open" when GLib's tool is
// installed (it reports at once whether an application was found), else "xdg-open", else Qt's
// desktop services (asked on the user-interface thread). Program files are started directly.
// Safe to call from any thread; it keeps no state between calls.
class DesktopOpener : public FileOpener {
public:
    int open(const QString& file, const QString& parameters = {}) override;
    // How long a launcher may take to say whether it found an application. Set it before
    // the first open; it is read from whichever thread opens.
    int launcher_wait_ms = 10000;
};

} // namespace velmora::platform
