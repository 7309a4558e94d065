#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"

namespace kelvadrome {

std::optional<DaemonLaunchPlan> DaemonLaunchPlan::make(const std::string& resources,
    const EnvironmentMap& environment, const std::string& userHome, const FileTest& isExecutable,
    const FileTest& fileExists) {
    const auto variable = environment.find("KELVADROME_HOME");
    const auto override = variable != environment.end()
                              ? variable->second
                              : Files::join(userHome, "Library/Application Support/Kelvadrome");
    // An empty variable falls through to the default home of the running process.
    const DaemonEnvironment daemon(DaemonEnvironment::resolveHome(override, {}), std::nullopt, resources);

    const auto path = environment.find("PATH");
    const auto node =
        daemon.findNode(path != environment.end() ? std::optional(path->second) : std::nullopt, isExecutable);
    if (!node)
        return std::nullopt;
    const auto arguments = daemon.daemonArguments();
    if (!arguments || !fileExists(*daemon.launcherPath()))
        return std::nullopt;

    DaemonLaunchPlan plan;
    plan.executable = *node;
    plan.arguments = {*node};
    plan.arguments.insert(plan.arguments.end(), arguments->begin(), arguments->end());
    plan.environment = daemon.daemonEnvironment(environment);
    plan.environment["PATH"] = prependMissing(
        plan.environment["PATH"], {Files::join(userHome, ".local/bin"), Files::join(userHome, ".grok/bin")});
    plan.environment.emplace("HOME", userHome);
    plan.stdoutPath = Files::join(userHome, "Library/Logs/Kelvadrome/kelvadromed.out.log");
    plan.stderrPath = errorLog(userHome);
    return plan;
}

std::string DaemonLaunchPlan::errorLog(const std::string& userHome) {
    return Files::join(userHome, "Library/Logs/Kelvadrome/kelvadromed.err.log");
}

} // namespace kelvadrome
