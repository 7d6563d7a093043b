#pragma once
// The real services of a Linux desktop.
#include "platform/platform.h"
#include <memory>

namespace velmora::platform {

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
