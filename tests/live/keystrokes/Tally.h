#pragma once

#include "tests/live/keystrokes/Round.h"

#include <array>
#include <iosfwd>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// Plays many rounds, several at once, and counts what came of them.
class Tally {
public:
    /// How many rounds, and of how many of them each of this class's columns holds.
    struct Counts {
        static constexpr std::size_t columns = 8;

        int rounds = 0;
        std::array<int, columns> of = {};

        void add(const Verdict& verdict);
    };
    struct Fault {
        Round round;
        bool unseen = false; // as in the verdict
        std::string text;
    };
    /// Of one row at one kind of moment.
    struct Line {
        const Row* row = nullptr;
        Moment moment = Moment::random;
        Counts counts;
        std::string impossible; // why none of its rounds could be played; empty when they could
    };

    /// `rounds` of each of these rows at each of these moments. `jobs` is how many at once.
    static Tally of(const std::vector<const Row*>& rows, const std::vector<Moment>& moments, int rounds,
        std::uint64_t seed, int jobs, std::ostream* faults = nullptr);

    std::vector<Line> lines;
    /// Strays, false words, no outcome, and harmless changes that kept an answer back.
    std::vector<Fault> faults;

    std::string markdown() const;
};

std::string_view name(Moment moment);

} // namespace kelvadrome::test
