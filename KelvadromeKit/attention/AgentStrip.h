#pragma once

#include "KelvadromeKit/wire/AgentsStatus.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// The row of lamps for the always-on-top strip: what each agent does, the most urgent first.
struct AgentStrip {
    enum class Lamp { needsYou, working, waiting, idle }; // in the order in which they stand

    struct Item {
        std::string id; // agent, ":", session id
        std::string label;
        Lamp lamp = Lamp::idle;
        std::string words;

        bool operator==(const Item&) const = default;
    };

    AgentStrip() = default;
    AgentStrip(const std::vector<AgentsStatus::Session>& sessions, std::int64_t needsYou);

    std::vector<Item> items;
    std::int64_t needsYou = 0;

    std::string headline() const;
    /// By the daemon's exact session words, unlike the lamp of the inbox, which reads words made from cards
    /// too.
    static Lamp lamp(std::string_view status, const std::optional<std::string>& detail);

    bool operator==(const AgentStrip&) const = default;
};

std::string_view rawValue(AgentStrip::Lamp lamp); // the enumerator's name

} // namespace kelvadrome
