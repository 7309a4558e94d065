#pragma once

#include "KelvadromeKit/daemon/DaemonEnvironment.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A complete, ready-to-exec start of the daemon by the login item.
struct DaemonLaunchPlan {
    /// The argument that makes this executable start the daemon.
    static constexpr const char* flag = "--kelvadromed";

    std::string executable;             // Node
    std::vector<std::string> arguments; // the whole argument vector, Node's path first
    EnvironmentMap environment;         // the whole environment
    std::string stdoutPath;
    std::string stderrPath;

    /// Absent when there is no Node or no launcher script.
    static std::optional<DaemonLaunchPlan> make(const std::string& resources,
        const EnvironmentMap& environment, const std::string& userHome,
        const FileTest& isExecutable = Files::isExecutable, const FileTest& fileExists = Files::exists);

    /// The `stderrPath` of every plan for this user.
    static std::string errorLog(const std::string& userHome);

    bool operator==(const DaemonLaunchPlan&) const = default;
};

} // namespace kelvadrome
