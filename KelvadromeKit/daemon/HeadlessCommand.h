#pragma once

#include "KelvadromeKit/daemon/BackgroundService.h"
#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"

namespace kelvadrome {

/// The commands that run without a window, before anything of the application exists.
namespace HeadlessCommand {

/// What the commands reach. The process's own streams and current directory are changed directly.
struct World {
    std::function<std::optional<std::string>()> resources;
    EnvironmentMap environment;
    std::string userHome;
    std::function<std::shared_ptr<AgentService>()> agentService;
    BackgroundService::Effects background;
    std::optional<std::string> build;
    std::function<Defaults&()> defaults;
    std::function<void(std::string_view)> out;
    std::function<void(std::string_view)> err;
    /// Replaces this process's image; the errno when it returns.
    std::function<int(const DaemonLaunchPlan&)> replaceProcess;
};

/// The whole argument vector, the program's name first. Absent: the application is to start.
std::optional<std::int32_t> run(const std::vector<std::string>& arguments, const World& world);

/// Turns this process into the daemon. Returns only when that failed.
std::int32_t execDaemon(const World& world);

/// Registers or unregisters the login item; what came of it goes to the streams and into the status.
std::int32_t background(bool on, const World& world);

/// Sends a descriptor to the end of a regular file of mode 0600, made when missing. A link, or anything that
/// is no regular file, leaves the descriptor as it was.
void redirect(int descriptor, const std::string& path);

/// execve of the plan; the errno.
int replaceProcess(const DaemonLaunchPlan& plan);

} // namespace HeadlessCommand

} // namespace kelvadrome
