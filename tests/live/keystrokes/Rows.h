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

/// What is special about a row.
struct RowTraits {
    enum class Question { prompt, folder, menu };
    /// What the agent must run below.
    enum class Below { either, shell, nothing };
    /// Who can see the change in the last instant, when all that can be looked at from outside has been: the
    /// tmux server itself, at the moment of typing; or nobody, since the kernel offers no way to type on a
    /// condition.
    enum class LastInstant { seen, unseen };

    Question question = Question::prompt;
    Below below = Below::either;
    LastInstant lastInstant = LastInstant::seen;
    bool harmless = false;                   // the answer is to arrive all the same
    bool inPause = false;                    // only between a text and its Return does anything show it
    void (*prepare)(Stage&) = [](Stage&) {}; // before the answer is made
};

/// One way in which the world can change while an answer is typed.
struct Row : RowTraits {
    using Apply = std::function<void(Stage&, Random&)>;

    Row(std::string name, std::string words, Apply apply, RowTraits traits = {})
        : RowTraits(traits), name(std::move(name)), words(std::move(words)), apply(std::move(apply)) {}

    std::string name;  // for arguments
    std::string words; // for a table
    Apply apply;       // returns when the change has happened
};

const std::vector<Row>& rows();
const Row& row(const std::string& name); // throws std::out_of_range

} // namespace kelvadrome::test
