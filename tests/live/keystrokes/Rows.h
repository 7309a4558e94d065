#pragma once

#include "tests/live/keystrokes/Stage.h"

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace kelvadrome::test {

using Random = std::mt19937_64;

/// What a second client types; no answer holds it.
constexpr char foreignKey = '~';

/// One way in which the world can change while an answer is typed.
struct Row {
    using Apply = std::function<void(Stage&, Random&)>;
    enum class Question { prompt, folder };
    /// What the agent must run below.
    enum class Below { either, shell, nothing };
    /// Who can see the change in the last instant, when all that can be looked at from outside has been: the
    /// tmux server itself, at the moment of typing; or nobody, since the kernel offers no way to type on a
    /// condition.
    enum class LastInstant { seen, unseen };

    std::string name;  // for arguments
    std::string words; // for a table
    Question question = Question::prompt;
    Below below = Below::either;
    bool harmless = false; // the answer is to arrive all the same
    bool inPause = false;  // only between a text and its Return does anything show the change
    LastInstant lastInstant = LastInstant::seen;
    std::function<void(Stage&)> prepare = [](Stage&) {}; // before the answer is made
    Apply apply;                                         // returns when the change has happened
};

const std::vector<Row>& rows();
const Row& row(const std::string& name); // throws std::out_of_range

} // namespace kelvadrome::test
