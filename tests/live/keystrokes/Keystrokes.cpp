// Plays rounds in which the world changes while an answer is typed, and prints what came of them as a table.
//   keystrokes --rounds N [--seed S] [--row NAME]... [--moment random|key|last]... [--jobs K]
//   keystrokes --again SEED --row NAME --moment MOMENT [--after SECONDS]    one round of a table again

#include "KelvadromeKit/support/Text.h"

#include "tests/live/keystrokes/Tally.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <stdexcept>

namespace kelvadrome::test {
namespace {

struct Wishes {
    std::vector<const Row*> rows;
    std::vector<Moment> moments;
    std::uint64_t seed = 1, again = 0;
    std::optional<double> after;
    int rounds = 100; // in all
    int jobs = 8;
};

std::uint64_t number(const std::string& text) {
    std::size_t used = 0;
    const auto value = std::stoull(text, &used, 0);
    if (used != text.size())
        throw std::invalid_argument(text + " is no number");
    return value;
}

Wishes read(const std::vector<std::string>& words) {
    static const std::map<std::string, Moment> moments{
        {"random", Moment::random}, {"key", Moment::beforeKey}, {"last", Moment::lastInstant}};
    Wishes wishes;
    for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
        const auto& name = words[i];
        const auto& value = words[i + 1];
        if (name == "--row")
            wishes.rows.push_back(&row(value));
        else if (name == "--moment")
            wishes.moments.push_back(moments.at(value));
        else if (name == "--seed")
            wishes.seed = number(value);
        else if (name == "--again")
            wishes.again = number(value);
        else if (name == "--after")
            wishes.after = std::stod(value);
        else if (name == "--rounds")
            wishes.rounds = static_cast<int>(number(value));
        else if (name == "--jobs")
            wishes.jobs = static_cast<int>(number(value));
        else
            throw std::invalid_argument("unknown: " + name);
    }
    if (words.size() % 2 != 0)
        throw std::invalid_argument(words.back() + " needs a value");
    if (wishes.rows.empty())
        std::ranges::transform(rows(), std::back_inserter(wishes.rows), [](const Row& row) { return &row; });
    if (wishes.moments.empty())
        wishes.moments = {Moment::random, Moment::beforeKey, Moment::lastInstant};
    return wishes;
}

int play(const Wishes& wishes) {
    if (wishes.again != 0) {
        Pace pace;
        const Round round{wishes.rows.front(), wishes.moments.front(), wishes.again, wishes.after};
        std::cout << round.play(pace).text() << "\n";
        return 0;
    }
    const auto lines = static_cast<int>(wishes.rows.size() * wishes.moments.size());
    const auto each = std::max(1, wishes.rounds / lines);
    const auto tally = Tally::of(wishes.rows, wishes.moments, each, wishes.seed, wishes.jobs, &std::cerr);
    std::cout << tally.markdown();
    return tally.faults.empty() ? 0 : 1;
}

} // namespace
} // namespace kelvadrome::test

int main(int count, char** words) {
    try {
        return kelvadrome::test::play(kelvadrome::test::read({words + 1, words + count}));
    } catch (const std::exception& error) {
        std::cerr << "keystrokes: " << error.what() << "\n";
        return 64;
    }
}
