#include "KelvadromeKit/relay/RelayConnectorPlan.h"

#include <algorithm>

namespace kelvadrome {

std::vector<std::string> RelayConnectorPlan::binCandidates(const DaemonEnvironment& env) {
    const auto root = env.bundleRoot();
    if (!root)
        return {};
    return {*root + "/node_modules/@kelvadrome/relay/dist/bin.js",
        *root + "/node_modules/@kelvadrome/daemon/../relay/dist/bin.js"};
}

std::optional<RelayConnectorPlan> RelayConnectorPlan::make(
    const DaemonEnvironment& env, std::string node, const EnvironmentMap& base, const FileTest& exists) {
    const auto candidates = binCandidates(env);
    const auto program = std::ranges::find_if(candidates, exists);
    if (program == candidates.end())
        return std::nullopt;
    RelayConnectorPlan plan{.node = std::move(node),
        .arguments = {*program, "connect", "--socket", env.socketPath()},
        .environment = {}};
    for (const auto* name : {"HOME", "USER", "LANG", "TMPDIR"}) {
        if (const auto held = base.find(name); held != base.end())
            plan.environment.insert(*held);
    }
    plan.environment["KELVADROME_HOME"] = env.home;
    plan.environment["NODE_ENV"] = "production";
    return plan;
}

} // namespace kelvadrome
