#pragma once

#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/wire/Card.h"

#include <string>

namespace kelvadrome {

/// The daemon's word on an answer to a card of high risk: how it would go out, and what confirms it.
struct ReviewedAnswer {
    std::string token;
    std::string answer;
    double holdSeconds = 5;

    static ReviewedAnswer decode(const JSONValue& value);
    bool operator==(const ReviewedAnswer&) const = default;
};

/// An answer that the user looks at once more before it is sent.
struct SecondLook {
    Card card;      // as it was pressed
    std::string to; // the agent and its place
    ReviewedAnswer reviewed;

    bool operator==(const SecondLook&) const = default;
};

} // namespace kelvadrome
