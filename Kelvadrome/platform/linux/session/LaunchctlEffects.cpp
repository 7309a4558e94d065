#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"

#include "KelvadromeKit/support/Files.h"

namespace kelvadrome {

namespace {

constexpr const char* launchctl = "/bin/launchctl";
constexpr double limit = 20.0; // seconds

} // namespace

RunProgram systemProgram() {
    return [](const std::string& path, const std::vector<std::string>& arguments) {
        return runCommand(path, arguments, Files::processEnvironment(), limit).status;
    };
}

BackgroundService::Launchctl linuxLaunchctl(RunProgram run, Systemctl systemctl) {
    return [run = std::move(run), systemctl = std::move(systemctl)](std::vector<std::string> arguments) {
        const auto status = run(launchctl, arguments);
        const bool ours = arguments.size() == 2 && arguments[0] == "kickstart" &&
                          arguments[1].ends_with(std::string("/") + BackgroundService::label);
        if (!ours || status == 0)
            return status;
        return static_cast<std::int32_t>(systemctl({"restart", SystemdAgentService::unitName}, limit).status);
    };
}

} // namespace kelvadrome
