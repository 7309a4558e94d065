#include "Kelvadrome/model/InspectorRows.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

/// "3 h 20 min", from seconds.
std::string duration(double seconds) {
    const auto minutes = static_cast<std::int64_t>(seconds / 60);
    if (minutes < 1)
        return "under a minute";
    if (minutes < 60)
        return fmt::format("{} min", minutes);
    if (minutes < 24 * 60)
        return fmt::format("{} h {} min", minutes / 60, minutes % 60);
    return fmt::format("{} d {} h", minutes / (24 * 60), minutes / 60 % 24);
}

InspectorGroup supervision(const DaemonSupervisor::Status& status) {
    InspectorGroup group{"Daemon", {{"Mode", std::string(modeWords(status.mode))}}};
    const auto add = [&](const char* title, const std::optional<std::string>& value) {
        if (value)
            group.rows.push_back({title, *value});
    };
    add("Node", status.nodePath);
    add("Node version", status.nodeVersion);
    if (status.childPid)
        add("Child process", std::to_string(*status.childPid));
    add("Restarts", std::to_string(status.restarts));
    add("Last error", status.lastError);
    return group;
}

InspectorGroup healthGroup(const Health& health) {
    InspectorGroup group{"Health",
        {{"Version", health.version}, {"Process", std::to_string(health.pid)}, {"Home", health.home}}};
    if (health.watermark)
        group.rows.push_back({"Watermark", *health.watermark});
    if (health.uptimeS)
        group.rows.push_back({"Running for", duration(*health.uptimeS)});
    return group;
}

} // namespace

std::string_view modeWords(DaemonSupervisor::Mode mode) {
    switch (mode) {
    case DaemonSupervisor::Mode::starting:
        return "Starting";
    case DaemonSupervisor::Mode::attached:
        return "Attached to a running daemon";
    case DaemonSupervisor::Mode::spawned:
        return "Started by this window";
    case DaemonSupervisor::Mode::failed:
        return "Not running";
    }
    return "";
}

std::vector<InspectorGroup> inspectorGroups(const AppState& state) {
    std::vector<InspectorGroup> groups;
    if (state.supervisorStatus)
        groups.push_back(supervision(*state.supervisorStatus));
    if (state.health)
        groups.push_back(healthGroup(*state.health));
    InspectorGroup session{"Page session", {}};
    if (state.credentialsExpiry)
        session.rows.push_back({"Open on", *state.credentialsExpiry});
    session.rows.push_back({"Cookie", "HttpOnly, in memory"});
    session.rows.push_back({"Writes", "CSRF header on every write"});
    groups.push_back(std::move(session));
    if (state.supervisorStatus && !state.supervisorStatus->logTail.empty()) {
        groups.push_back(
            {"Log", {{"", fmt::format("{}", fmt::join(state.supervisorStatus->logTail, "\n"))}}});
    }
    return groups;
}

} // namespace kelvadrome
