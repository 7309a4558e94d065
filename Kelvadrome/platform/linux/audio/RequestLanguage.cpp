#include "Kelvadrome/platform/linux/audio/RequestLanguage.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

namespace kelvadrome {

namespace {

constexpr int requests = 20'000; // made by chance
constexpr int deepest = 6;       // names within names

using Words = std::vector<std::string_view>;

Words split(std::string_view text, char at) {
    Words parts;
    for (std::size_t from = 0; from <= text.size();) {
        const auto end = std::min(text.find(at, from), text.size());
        if (const auto part = Text::trimWhitespace(text.substr(from, end - from)); !part.empty())
            parts.push_back(part);
        from = end + 1;
    }
    return parts;
}

/// The lines of the templates, and requests made of them.
class Grammar {
public:
    explicit Grammar(std::string_view templates) {
        for (const auto line : split(templates, '\n')) {
            const auto colon = line.find(':');
            if (colon == std::string_view::npos)
                throw std::runtime_error(fmt::format("no name in the line \"{}\"", line));
            auto& ways = ways_[line.substr(0, colon)];
            for (const auto way : split(line.substr(colon + 1), '|'))
                ways.push_back(split(way, ' '));
            if (line.front() >= 'A' && line.front() <= 'Z')
                whole_.push_back(line.substr(0, colon));
        }
        if (whole_.empty())
            throw std::runtime_error("nothing that is said as a whole");
    }

    Words request() {
        Words made;
        append(made, pick(whole_), 0);
        return made;
    }

private:
    template <class Of>
    const Of& pick(const std::vector<Of>& from) {
        return from[chance_() % from.size()];
    }

    void append(Words& to, std::string_view name, int depth) {
        const auto found = ways_.find(name);
        if (found == ways_.end() || depth > deepest)
            throw std::runtime_error(fmt::format("the name \"{}\" has no line, or is part of itself", name));
        for (const auto word : pick(found->second)) {
            if (word.front() == '$')
                append(to, word.substr(1), depth + 1);
            else
                to.push_back(word);
        }
    }

    std::map<std::string_view, std::vector<Words>> ways_;
    std::vector<std::string_view> whole_;
    std::minstd_rand chance_{1}; // the same numbers everywhere
};

/// What came after each history of up to two words.
struct Counts {
    struct After {
        std::map<std::string_view, double> words;
        double total = 0;
    };
    std::map<Words, After> after;

    void add(const Words& history, std::string_view word) {
        auto& here = after[history];
        here.words[word] += 1;
        here.total += 1;
    }

    /// The more different words came after a history, the more is left for those that didn't.
    double seen(const Words& history, std::string_view word) const {
        const auto& here = after.at(history);
        const double kinds = static_cast<double>(here.words.size());
        const double lower =
            history.empty() ? 1 / (kinds + 1) : probability({history.begin() + 1, history.end()}, word);
        const auto found = here.words.find(word);
        return ((found == here.words.end() ? 0 : found->second) + kinds * lower) / (here.total + kinds);
    }
    double probability(const Words& history, std::string_view word) const {
        if (after.contains(history))
            return seen(history, word);
        return probability({history.begin() + 1, history.end()}, word);
    }
    double backOff(const Words& history) const {
        const auto found = after.find(history);
        if (found == after.end())
            return 1;
        const double kinds = static_cast<double>(found->second.words.size());
        return kinds / (found->second.total + kinds);
    }
};

std::string joined(const Words& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

} // namespace

std::string requestLanguageModel(std::string_view templates) {
    Grammar grammar(templates);
    Counts counts;
    for (int i = 0; i < requests; ++i) {
        Words words{"<s>"};
        std::ranges::copy(grammar.request(), std::back_inserter(words));
        words.push_back("</s>");
        for (std::size_t at = 1; at < words.size(); ++at) {
            counts.add({}, words[at]);
            counts.add({words[at - 1]}, words[at]);
            if (at > 1)
                counts.add({words[at - 2], words[at - 1]}, words[at]);
        }
    }
    std::string sections[3];
    std::size_t sizes[3] = {1, 0, 0};
    sections[0] = fmt::format("-99 <s> {:.4f}\n", std::log10(counts.backOff({"<s>"})));
    for (const auto& [history, after] : counts.after) {
        const auto order = history.size();
        for (const auto& entry : after.words) {
            auto words = history;
            words.push_back(entry.first);
            sections[order] +=
                fmt::format("{:.4f} {}", std::log10(counts.seen(history, entry.first)), joined(words));
            sections[order] += order < 2 ? fmt::format(" {:.4f}\n", std::log10(counts.backOff(words))) : "\n";
            ++sizes[order];
        }
    }
    return fmt::format("\\data\\\nngram 1={}\nngram 2={}\nngram "
                       "3={}\n\n\\1-grams:\n{}\n\\2-grams:\n{}\n\\3-grams:\n{}\n\\end\\\n",
        sizes[0], sizes[1], sizes[2], sections[0], sections[1], sections[2]);
}

} // namespace kelvadrome
