#pragma once

#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/daemon/BackgroundService.h"

namespace kelvadrome {

/// Runs one program with arguments; its exit status, non-zero when it can't be launched.
using RunProgram =
    std::function<std::int32_t(const std::string& path, const std::vector<std::string>& arguments)>;

RunProgram systemProgram();

/// launchctl on Linux. The vector goes to /bin/launchctl as everywhere, where an absent tool is a failed
/// command. A kickstart of our login item restarts the unit that stands in for it, and its status is that
/// restart's.
BackgroundService::Launchctl linuxLaunchctl(RunProgram run, Systemctl systemctl);

} // namespace kelvadrome
