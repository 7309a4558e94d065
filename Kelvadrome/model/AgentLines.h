#pragma once

#include "Kelvadrome/model/AppState.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// One agent, as every surface tells of it.
struct AgentLine {
    InboxLogic::Lamp lamp = InboxLogic::Lamp::idle;
    std::string name = {};
    std::string words = {};   // what it does
    std::string place = {};   // what tells it from another of the same name; may be empty
    std::string id = {};      // agent, ":", session id
    std::int64_t waiting = 0; // cards of its own that need the user

    bool operator==(const AgentLine&) const = default;
};

AgentLine agentLine(const AppState& state, const AgentsStatus::Session& session);
/// One for each of `agentRows`.
std::vector<AgentLine> agentLines(const AppState& state);

/// Callsign, folder and terminal of a session, as far as they are known: "Ada · billing · tmux %3". The
/// folder is left out where it only repeats the topic.
std::string placeOf(
    const AgentsStatus::Session& session, const std::optional<std::string>& topic = std::nullopt);
/// The session that opened a card, when the daemon reports it.
const AgentsStatus::Session* sessionOf(const Card& card, const std::vector<AgentsStatus::Session>& sessions);
/// "needs you", "working", "idle" or "failed": what the lamp's colour says.
std::string_view lampWords(InboxLogic::Lamp lamp);
/// All of a line in one sentence, for a screen reader or a tool tip.
std::string sentenceOf(const AgentLine& line);

} // namespace kelvadrome
