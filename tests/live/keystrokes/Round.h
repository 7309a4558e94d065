#pragma once

#include "tests/live/keystrokes/Rows.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace kelvadrome::test {

/// When the world changes.
enum class Moment {
    random,      // at any time from the press to the last key
    beforeKey,   // after all that the executor looks at before a key, before the key's command is handed on
    lastInstant, // after all that anybody looks at, before tmux gets the key
};

/// How long it takes from the press to the last key, by the kind of answer: learnt from the rounds. Any
/// thread.
class Pace {
public:
    double secondsOf(const std::string& kind) const;
    void learn(const std::string& kind, double seconds);

private:
    mutable std::mutex lock_;
    std::map<std::string, double> seconds_;
};

/// What one round came to.
struct Verdict {
    JobOutcome outcome;
    bool right = false;       // done, and the agent got exactly the keys, in one piece
    bool refused = false;     // and nobody got any
    bool warned = false;      // some may have gone in
    bool saidDone = false;    // though they did not all go in, or not in one piece, or not to the agent
    bool saidRefused = false; // though some went in
    bool hung = false;        // no outcome in time
    std::string strays;       // who else got keys, or which question took them; empty for nobody
    std::string impossible;   // why this machine can't play the round; all else is then false
    std::string played;       // what the seed chose, and when the change came
    std::string got;          // by the agent that asked
    /// The change came when nobody looks any more, before the key that went wrong; but where tmux looks, it
    /// was to see.
    bool unseen = false;

    bool wrong() const { return !strays.empty() || saidDone || saidRefused || hung; }
    std::string text() const; // for a failure: all that was seen
};

struct Round {
    const Row* row = nullptr;
    Moment moment = Moment::random;
    std::uint64_t seed = 0;      // decides all that the row leaves open
    std::optional<double> after; // seconds from the press to the change, instead of a random time

    Verdict play(Pace& pace) const;
};

} // namespace kelvadrome::test
