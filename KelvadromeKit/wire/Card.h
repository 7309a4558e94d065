#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// One question inside a batch card.
struct BatchRow {
    std::string questionId;
    std::string text;
    std::optional<std::string> defaultAnswer;
    std::string agentState;

    static BatchRow decode(const JSONValue& value);
    bool operator==(const BatchRow&) const = default;
};

/// An inbox item that asks the user something. What identifies it is required; all else has a default.
struct Card {
    std::string id;
    std::int64_t version = 0; // sent back when answering
    std::string kind;
    std::string risk = "low";
    std::string state = "open";
    std::optional<std::string> topic;
    std::optional<std::string> agent;
    std::optional<std::string> sessionId;
    std::optional<std::string> stopType;
    std::string title;
    std::string body;
    std::vector<std::string> options;
    std::optional<std::string> defaultAnswer;
    bool blocking = true;
    std::optional<std::vector<BatchRow>> rows;
    std::string openedAt;                 // ISO 8601, kept as text
    std::optional<std::string> heldUntil; // ISO 8601, kept as text
    std::optional<std::map<std::string, std::string>> refs;
    std::optional<std::string> deliveryNote =
        {};                  // what stands between an answer and the agent, known beforehand
    bool answerable = true;  // false: no answer to it can be typed
    bool maybeTyped = false; // an earlier answer may stand in the agent's terminal
    bool menu = false;       // its options are all that can be answered: a menu in the terminal
    bool screen = false;     // so too, of a question of the agent's own screen
    std::optional<std::string> snoozedUntil = {}; // ISO 8601, kept as text

    static Card decode(const JSONValue& value);
    bool operator==(const Card&) const = default;
};

} // namespace kelvadrome
