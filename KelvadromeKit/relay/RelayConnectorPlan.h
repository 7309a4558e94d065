#pragma once

#include "KelvadromeKit/daemon/DaemonEnvironment.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A complete, ready-to-exec start of the program that talks to the relay.
struct RelayConnectorPlan {
    std::string node;                   // the executable
    std::vector<std::string> arguments; // what follows it, the program's path first
    EnvironmentMap environment;         // the whole environment

    /// Where the program may be, best first; nowhere without a resource directory.
    static std::vector<std::string> binCandidates(const DaemonEnvironment& env);
    /// Takes little of `base`, the present environment, so that the child picks up no stray setting. Absent
    /// when the program isn't there.
    static std::optional<RelayConnectorPlan> make(const DaemonEnvironment& env, std::string node,
        const EnvironmentMap& base, const FileTest& exists = Files::exists);

    bool operator==(const RelayConnectorPlan&) const = default;
};

} // namespace kelvadrome
