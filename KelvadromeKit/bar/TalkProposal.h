#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// What the daemon made of a request: a card, and what it understood.
struct TalkProposal {
    struct Proposal {
        std::optional<std::string> agent, mode, topic, goal, clarify;

        static Proposal decode(const JSONValue& value);
        bool operator==(const Proposal&) const = default;
    };
    using TopicTitle = std::function<std::optional<std::string>(const std::string& id)>;

    std::string parse;
    std::optional<Proposal> proposal;
    std::string cardId;

    /// A question that the daemon wants answered first.
    std::optional<std::string> clarify() const;
    /// "Claude Code, review, Payments": agent, mode and topic as far as they are known.
    std::string summary(const TopicTitle& topicTitle) const;

    /// For a person; a value that isn't known comes back as it is.
    static std::string agentName(std::string_view agent);
    static std::string modeName(std::string_view mode);

    static TalkProposal decode(const JSONValue& value);
    bool operator==(const TalkProposal&) const = default;
};

} // namespace kelvadrome
