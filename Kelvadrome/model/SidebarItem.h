#pragma once

#include "KelvadromeKit/daemon/NavSection.h"
#include "KelvadromeKit/wire/AgentsStatus.h"

#include <string>
#include <variant>

namespace kelvadrome {

/// What the sidebar can have selected.
struct SidebarItem {
    struct Section {
        NavSection section = NavSection::inbox;
        bool operator==(const Section&) const = default;
    };
    struct Agent {
        std::string id; // agent, ":", session id
        bool operator==(const Agent&) const = default;
    };
    struct Autopilot {
        std::string id; // scope, ":", action class
        bool operator==(const Autopilot&) const = default;
    };
    using Value = std::variant<Section, Agent, Autopilot>;

    static Agent of(const AgentsStatus::Session& session) {
        return {session.agent + ":" + session.sessionId};
    }
    static Autopilot of(const AgentsStatus::Autopilot& pilot) {
        return {pilot.scope + ":" + pilot.actionClass};
    }
    /// The section whose page tells of it.
    static NavSection section(const Value& item) {
        if (const auto* const section = std::get_if<Section>(&item))
            return section->section;
        return std::holds_alternative<Agent>(item) ? NavSection::agents : NavSection::autopilot;
    }
};

} // namespace kelvadrome
