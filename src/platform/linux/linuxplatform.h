#pragma once
// The real services of a Linux desktop.
#include "platform/platform.h"
#include <memory>

namespace velmora::platform {

// Ends the process at once with code, once the window has done its closing work: threads still
// busy (a ping batch waiting for a name server, a call on a stalled bus) are abandoned instead of
// waited for, and no destructor runs. Nothing is lost by that: text files are never held open
// between calls, and the socket file a running copy leaves is taken over by the next start.
[[noreturn]] void endProcessNow(int code);

class LinuxPlatform {
public:
    LinuxPlatform();
    ~LinuxPlatform();
    Platform platform();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace velmora::platform
