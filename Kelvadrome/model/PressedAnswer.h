#pragma once

#include "KelvadromeKit/wire/Card.h"

#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What is known of an answer that was pressed here. It stands until a later read of its card says what
/// became of it, so that no press is ever without a trace: not when the reply is lost, not when the daemon
/// restarts.
struct PressedAnswer {
    enum class Known {
        sending, // the call is out and nothing came back yet
        unclear, // no reply that says anything came: it may or may not have been taken
        taken,   // the daemon has it
        refused, // it wasn't taken; `reason` says why
    };

    Card card;               // as it was pressed
    std::string label;       // the words of the answer
    std::uint64_t press = 0; // which press it was: a second one for the card takes this record's place
    Known known = Known::sending;
    std::string reason = {};             // of `refused` and `unclear`: what the call ended with
    double since = 0;                    // the uptime at which `known` became so
    std::optional<double> seenOpen = {}; // of `unclear`: the uptime of a read that showed the card unchanged
    bool undoWaits = false; // of `sending`: undo was pressed, and follows once the call has ended

    bool operator==(const PressedAnswer&) const = default;
};

using PressedAnswers = std::map<std::string, PressedAnswer>; // by card id

/// Whether the error that a call ended with says that its answer was not taken: the daemon's own word, or a
/// failure before the answer was sent. A lost, late or unreadable reply says nothing.
bool provesRefusal(const std::exception_ptr& error);

/// The records after a read of all open cards; `began` and `ended` are uptimes. A read that began before
/// something became known says nothing of it. One look at an unchanged card doesn't settle a lost reply,
/// since a daemon that wakes up may answer the read before the press that waits beside it; a second one does.
PressedAnswers settled(PressedAnswers pressed, const std::vector<Card>& cards, double began, double ended);

/// "“Yes”", shortened.
std::string inQuotes(const std::string& label);

} // namespace kelvadrome
