#include "tests/live/keystrokes/Tally.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <ostream>
#include <thread>

namespace kelvadrome::test {

namespace {

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

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

std::string_view name(Moment moment) {
    switch (moment) {
    case Moment::random:
        return "at random";
    case Moment::beforeKey:
        return "after the last look";
    case Moment::lastInstant:
        break;
    }
    return "in the last instant";
}

void Tally::Counts::add(const Verdict& verdict) {
    ++rounds;
    right += verdict.right ? 1 : 0;
    refused += verdict.refused ? 1 : 0;
    warned += verdict.warned ? 1 : 0;
    strays += verdict.strays.empty() ? 0 : 1;
    saidDone += verdict.saidDone ? 1 : 0;
    saidRefused += verdict.saidRefused ? 1 : 0;
    unseen += verdict.unseen ? 1 : 0;
    hung += verdict.hung ? 1 : 0;
}

Tally Tally::of(const std::vector<const Row*>& rows, const std::vector<Moment>& moments, int rounds,
    std::uint64_t seed, int jobs, std::ostream* told) {
    Tally tally;
    for (const auto* row : rows) {
        for (const auto moment : moments)
            tally.lines.push_back({row, moment, {}, {}, {}, {}});
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
                if (verdict.unwatchedSeconds >= 0)
                    line.unwatched.push_back(verdict.unwatchedSeconds);
                line.looks.insert(line.looks.end(), verdict.lookSeconds.begin(), verdict.lookSeconds.end());
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
    std::string text =
        "| The world changes | When | Rounds | Right | Refused | Warned | Stray keys | Said \"answered\" "
        "falsely | Said \"refused\" falsely | of these unseen | No outcome |\n"
        "|---|---|---|---|---|---|---|---|---|---|---|\n";
    const auto add = [&text](std::string_view first, std::string_view when, const Counts& c) {
        text += fmt::format("| {} | {} | {} | {} | {} | {} | {} | {} | {} | {} | {} |\n", first, when,
            c.rounds, c.right, c.refused, c.warned, c.strays, c.saidDone, c.saidRefused, c.unseen, c.hung);
    };
    Counts sum;
    std::vector<double> unwatched, looks;
    for (const auto& [row, moment, counts, impossible, unwatchedHere, looksHere] : lines) {
        if (!impossible.empty()) {
            text += fmt::format("| {} | {} | not here: {} |\n", row->words, name(moment), impossible);
            continue;
        }
        add(row->words, name(moment), counts);
        for (auto member : {&Counts::rounds, &Counts::right, &Counts::refused, &Counts::warned,
                 &Counts::strays, &Counts::saidDone, &Counts::saidRefused, &Counts::unseen, &Counts::hung})
            sum.*member += counts.*member;
        unwatched.insert(unwatched.end(), unwatchedHere.begin(), unwatchedHere.end());
        looks.insert(looks.end(), looksHere.begin(), looksHere.end());
    }
    add("all", "", sum);
    const auto addTimes = [&text](std::string_view what, const std::vector<double>& seconds) {
        if (!seconds.empty())
            text += fmt::format("\n{}: {:.2f} ms in the middle, {:.1f} ms at most.\n", what,
                median(seconds) * 1000, *std::ranges::max_element(seconds) * 1000);
    };
    addTimes("The last look at the agent before a key took", looks);
    addTimes("From a change in the last instant to its stray key", unwatched);
    return text;
}

} // namespace kelvadrome::test
