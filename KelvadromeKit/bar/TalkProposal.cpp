#include "KelvadromeKit/bar/TalkProposal.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>
#include <vector>

namespace kelvadrome {

namespace {

using Name = std::pair<std::string_view, std::string_view>;

constexpr std::array<Name, 3> agentNames{{{"claude", "Claude Code"}, {"codex", "Codex"}, {"grok", "Grok"}}};
constexpr std::array<Name, 4> modeNames{
    {{"review-readonly", "review"}, {"research", "research"}, {"write", "write"}, {"browser", "browser"}}};

std::string nameIn(const auto& table, std::string_view value) {
    const auto* const found = std::ranges::find(table, value, &Name::first);
    return std::string(found == table.end() ? value : found->second);
}

} // namespace

std::string TalkProposal::agentName(std::string_view agent) {
    return nameIn(agentNames, agent);
}

std::string TalkProposal::modeName(std::string_view mode) {
    return nameIn(modeNames, mode);
}

TalkProposal::Proposal TalkProposal::Proposal::decode(const JSONValue& value) {
    const auto object = value.object();
    const auto text = [&](const char* key) { return object.optional<std::string>(key); };
    return {text("agent"), text("mode"), text("topic"), text("goal"), text("clarify")};
}

TalkProposal TalkProposal::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("parse"), object.optional<Proposal>("proposal"),
        object.required<std::string>("card_id")};
}

std::optional<std::string> TalkProposal::clarify() const {
    return proposal ? proposal->clarify : std::nullopt;
}

std::string TalkProposal::summary(const TopicTitle& topicTitle) const {
    std::vector<std::string> parts;
    if (proposal && proposal->agent)
        parts.push_back(agentName(*proposal->agent));
    if (proposal && proposal->mode)
        parts.push_back(modeName(*proposal->mode));
    if (proposal && proposal->topic) {
        // One that the board doesn't tell of yet goes by its id.
        parts.push_back(topicTitle(*proposal->topic).value_or(*proposal->topic));
    }
    return parts.empty() ? "Request saved" : Text::join(parts, ", ");
}

} // namespace kelvadrome
