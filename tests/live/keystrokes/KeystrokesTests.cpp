#include "tests/live/keystrokes/Tally.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <iostream>

namespace kelvadrome::test {
namespace {

constexpr int rounds = 2;
constexpr int jobs = 8; // rounds mostly wait

void expectNoFault(Moment moment, std::uint64_t seed) {
    std::vector<const Row*> played;
    for (const auto& row : rows()) {
        // What nobody can see in the last instant, nobody can keep from the key. The table of the program
        // counts how often it was so.
        const bool unseen = moment == Moment::lastInstant && row.lastInstant == Row::LastInstant::unseen;
        if (!unseen)
            played.push_back(&row);
    }
    const auto tally = Tally::of(played, {moment}, rounds, seed, jobs);
    for (const auto& fault : tally.faults) {
        const auto words = fmt::format(
            "{} {}, seed {:#x}: {}", fault.round.row->name, name(moment), fault.round.seed, fault.text);
        if (fault.unseen)
            std::cout << words << "\n";
        else
            ADD_FAILURE() << words;
    }
    for (const auto& line : tally.lines) {
        EXPECT_EQ(line.counts.rounds, line.impossible.empty() ? rounds : 0) << line.row->name;
        if (!line.impossible.empty())
            std::cout << line.row->name << " was left out: " << line.impossible << "\n";
    }
}

TEST(Keystrokes, noKeyGoesAstrayAndNoWordIsFalseWheneverTheWorldChanges) {
    expectNoFault(Moment::random, 1);
}

TEST(Keystrokes, noKeyGoesAstrayAndNoWordIsFalseWhenTheWorldChangesAfterTheLastLook) {
    expectNoFault(Moment::beforeKey, 2);
}

TEST(Keystrokes, whatTmuxItselfSeesIsSeenAtTheMomentOfTyping) {
    expectNoFault(Moment::lastInstant, 3);
}

} // namespace
} // namespace kelvadrome::test
