#include "Kelvadrome/model/InspectorRows.h"

#include "KelvadromeKit/attention/InboxLogic.h"

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

InspectorGroup agentGroup(const AppState& state, const AgentsStatus::Session& session) {
    InspectorGroup group{InboxLogic::agentDisplay(session.agent, session.label),
        {{"Status", InboxLogic::statusWord(session.status, false, false, std::nullopt)}}};
    const auto add = [&](const char* title, const std::optional<std::string>& value) {
        if (value && !value->empty())
            group.rows.push_back({title, *value});
    };
    add("Doing", session.detail);
    add("Topic", session.topicTitle ? session.topicTitle : topicTitle(state, session.topic));
    add("Kind", session.kind);
    if (holdsEdge(state, session))
        add("Holds", "Edge");
    add("Session", session.sessionId);
    return group;
}

InspectorGroup autopilotGroup(const AgentsStatus::Autopilot& pilot) {
    InspectorGroup group{pilot.label.value_or(InboxLogic::actionLabel(pilot.actionClass)),
        {{"Level", pilot.level + ", " + std::string(rawValue(InboxLogic::annunciator(pilot.level)))},
            {"Scope", pilot.scope == "*" ? "Everywhere" : pilot.scope}, {"Action", pilot.actionClass}}};
    if (pilot.mode)
        group.rows.push_back({"Mode", *pilot.mode});
    if (pilot.floor)
        group.rows.push_back({"Floor", "It stays at this level"});
    return group;
}

/// Absent for a section, and for what is no longer there.
std::optional<InspectorGroup> selectedGroup(const AppState& state, const SidebarItem::Value& selected) {
    for (const auto& session : agentRows(state)) {
        if (selected == SidebarItem::Value(SidebarItem::of(session)))
            return agentGroup(state, session);
    }
    for (const auto& pilot :
        state.agents ? state.agents->autopilot : std::vector<AgentsStatus::Autopilot>()) {
        if (selected == SidebarItem::Value(SidebarItem::of(pilot)))
            return autopilotGroup(pilot);
    }
    return std::nullopt;
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

std::vector<InspectorGroup> inspectorGroups(const AppState& state, const SidebarItem::Value& selected) {
    std::vector<InspectorGroup> groups;
    if (auto group = selectedGroup(state, selected))
        groups.push_back(std::move(*group));
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
