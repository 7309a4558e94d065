#include "tests/live/keystrokes/Tally.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <ostream>
#include <thread>

namespace kelvadrome::test {

namespace {

const std::pair<const char*, bool (*)(const Verdict&)> headings[Tally::Counts::columns] = {
    {"Right", [](const Verdict& verdict) { return verdict.right; }},
    {"Refused", [](const Verdict& verdict) { return verdict.refused; }},
    {"Warned", [](const Verdict& verdict) { return verdict.warned; }},
    {"Stray keys", [](const Verdict& verdict) { return !verdict.strays.empty(); }},
    {"Said \"answered\" falsely", [](const Verdict& verdict) { return verdict.saidDone; }},
    {"Said \"refused\" falsely", [](const Verdict& verdict) { return verdict.saidRefused; }},
    {"of these unseen", [](const Verdict& verdict) { return verdict.unseen; }},
    {"No outcome", [](const Verdict& verdict) { return verdict.hung; }},
};

/// One number from several, so that neighbouring seeds have nothing in common.
std::uint64_t mixed(std::initializer_list<std::uint64_t> numbers) {
    std::uint64_t state = 0;
    for (const auto number : numbers) {
        state = (state ^ number) + 0x9e3779b97f4a7c15;
        state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9;
        state = (state ^ (state >> 27)) * 0x94d049bb133111eb;
        state ^= state >> 31;
    }
    return state;
}

std::uint64_t numberOf(std::string_view name) {
    std::uint64_t number = 0;
    for (const unsigned char c : name)
        number = mixed({number, c});
    return number;
}

} // namespace

std::string_view name(Moment moment) {
    return moment == Moment::random      ? "at random"
           : moment == Moment::beforeKey ? "after the last look"
                                         : "in the last instant";
}

void Tally::Counts::add(const Verdict& verdict) {
    ++rounds;
    for (std::size_t i = 0; i < of.size(); ++i)
        of[i] += headings[i].second(verdict) ? 1 : 0;
}

Tally Tally::of(const std::vector<const Row*>& rows, const std::vector<Moment>& moments, int rounds,
    std::uint64_t seed, int jobs, std::ostream* told) {
    Tally tally;
    for (const auto* row : rows) {
        for (const auto moment : moments)
            tally.lines.push_back({row, moment, {}, {}});
    }
    const auto all = tally.lines.size() * static_cast<std::size_t>(rounds);
    Pace pace;
    std::mutex lock;
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (auto number = next++; number < all; number = next++) {
            // Row after row, so that those that take long don't all come at once.
            auto& line = tally.lines[number % tally.lines.size()];
            const auto seedOfRound = mixed({seed, numberOf(line.row->name),
                static_cast<std::uint64_t>(line.moment), number / tally.lines.size()});
            const Round round{line.row, line.moment, seedOfRound, {}};
            Verdict verdict;
            std::string broken;
            try {
                verdict = round.play(pace);
            } catch (const std::exception& error) {
                broken = std::string("the round itself failed: ") + error.what();
            }
            std::lock_guard guard(lock);
            if (!verdict.impossible.empty()) {
                line.impossible = verdict.impossible;
                continue;
            }
            if (broken.empty()) {
                line.counts.add(verdict);
                if (!verdict.wrong() && (verdict.right || !line.row->harmless))
                    continue;
            }
            tally.faults.push_back({round, verdict.unseen, broken.empty() ? verdict.text() : broken});
            if (told) {
                *told << fmt::format("{} {} {:#x}: {}\n", line.row->name, name(line.moment), seedOfRound,
                             tally.faults.back().text)
                      << std::flush;
            }
        }
    };
    std::vector<std::jthread> workers;
    for (int i = 0; i < jobs; ++i)
        workers.emplace_back(work);
    workers.clear();
    return tally;
}

std::string Tally::markdown() const {
    std::string text = "| The world changes | When | Rounds |", rule = "|---|---|---|";
    for (const auto& [heading, holds] : headings) {
        text += fmt::format(" {} |", heading);
        rule += "---|";
    }
    text += "\n" + rule + "\n";
    const auto add = [&text](std::string_view first, std::string_view when, const Counts& counts) {
        text +=
            fmt::format("| {} | {} | {} | {} |\n", first, when, counts.rounds, fmt::join(counts.of, " | "));
    };
    Counts sum;
    for (const auto& line : lines) {
        if (!line.impossible.empty()) {
            text += fmt::format(
                "| {} | {} | not here: {} |\n", line.row->words, name(line.moment), line.impossible);
            continue;
        }
        add(line.row->words, name(line.moment), line.counts);
        sum.rounds += line.counts.rounds;
        std::ranges::transform(sum.of, line.counts.of, sum.of.begin(), std::plus());
    }
    add("all", "", sum);
    return text;
}

} // namespace kelvadrome::test
