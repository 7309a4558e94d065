#include "KelvadromeKit/delivery/TrustScreen.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <span>
#include <vector>

namespace kelvadrome::TrustScreen {

namespace {

using Lines = std::span<const std::string>;

constexpr std::size_t maxLines = 60;    // of the screen, from its end
constexpr std::size_t windowLines = 12; // before the first option

constexpr std::string_view marks[] = {"❯ ", "> "};
constexpr std::string_view numbers[] = {"1. ", "2. "};
constexpr std::string_view trustWords = "Yes, I trust this folder";
constexpr std::string_view exitWords = "No, exit";

std::string_view skipBlanks(std::string_view line) {
    return line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
}

bool dropPrefix(std::string_view& text, std::span<const std::string_view> prefixes) {
    for (const auto prefix : prefixes) {
        if (!text.starts_with(prefix))
            continue;
        text.remove_prefix(prefix.size());
        return true;
    }
    return false;
}

/// The last lines that aren't blank, without white space at their ends.
std::vector<std::string> linesOf(std::string_view screen) {
    std::vector<std::string> lines;
    for (const auto piece : Text::split(screen, '\n')) {
        const auto line = Text::replaceAll(piece, "\r", "");
        const auto text = Text::trimWhitespace(line);
        if (text.empty())
            continue;
        lines.emplace_back(line.data(), text.data() + text.size());
    }
    if (lines.size() > maxLines)
        lines.erase(lines.begin(), lines.end() - maxLines);
    return lines;
}

bool contains(std::string_view line, std::string_view words) {
    return line.find(words) != std::string_view::npos;
}

bool namesFolder(Lines path, const std::string& folder, const std::optional<std::string>& home) {
    std::vector<std::string> candidates{folder};
    if (home && (folder == *home || folder.starts_with(*home + "/"))) {
        candidates.push_back("~" + folder.substr(home->size()));
    }
    if (path.size() == 1)
        return std::ranges::find(candidates, Text::trimBlanks(path[0])) != candidates.end();
    std::string wrapped;
    for (const auto& line : path)
        wrapped += squash(line);
    return std::ranges::find(candidates, wrapped, squash) != candidates.end();
}

/// Between its heading and the question, the window names the folder.
bool asksAbout(Lines beforeQuestion, const std::string& folder, const std::optional<std::string>& home) {
    const auto heading = std::ranges::find(beforeQuestion,
        "Accessing workspace:", [](const std::string& line) { return Text::trimBlanks(line); });
    if (heading == beforeQuestion.end() || heading + 1 == beforeQuestion.end())
        return false;
    return namesFolder(Lines(heading + 1, beforeQuestion.end()), folder, home);
}

/// The question with its options in one order. All other tests are the same for both.
std::optional<Match> read(Lines lines, bool trustFirst, const std::optional<std::string>& folder,
    const std::optional<std::string>& home) {
    const auto& footer = lines[lines.size() - 1];
    const auto& below = lines[lines.size() - 2];
    const auto& above = lines[lines.size() - 3];
    if (!contains(footer, "Enter to confirm") || !contains(footer, "Esc to cancel"))
        return std::nullopt;
    if (body(above) != (trustFirst ? trustWords : exitWords) ||
        body(below) != (trustFirst ? exitWords : trustWords))
        return std::nullopt;
    if (marked(above) == marked(below))
        return std::nullopt;

    const auto before = lines.first(lines.size() - 3);
    const auto window = before.last(std::min(before.size(), windowLines));
    const auto question = std::ranges::find_if(
        window, [](const std::string& line) { return contains(line, "Quick safety check"); });
    if (question == window.end())
        return std::nullopt;
    if (folder && !asksAbout(Lines(window.begin(), question), *folder, home))
        return std::nullopt;
    return Match{marked(above) == trustFirst ? "trust" : "exit", trustFirst};
}

} // namespace

std::string_view Match::keyTowards(std::string_view want) const {
    if (selected == want)
        return "enter";
    return (want == "trust") == trustFirst ? "up" : "down";
}

bool marked(std::string_view line) {
    line = skipBlanks(line);
    return dropPrefix(line, marks);
}

std::string_view body(std::string_view line) {
    line = skipBlanks(line);
    dropPrefix(line, marks);
    line = Text::trimWhitespace(line);
    dropPrefix(line, numbers);
    return line;
}

std::string squash(std::string_view text) {
    auto scalars = Text::scalars(text);
    std::erase_if(scalars, Text::isWhitespace);
    return Text::fromScalars(scalars);
}

std::optional<Match> match(std::string_view screen, const std::optional<std::string>& folder,
    const std::optional<std::string>& home) {
    const auto lines = linesOf(screen);
    if (lines.size() < 4)
        return std::nullopt;
    const auto exitAbove = read(lines, false, folder, home);
    const auto trustAbove = read(lines, true, folder, home);
    if (exitAbove && trustAbove)
        return std::nullopt;
    return exitAbove ? exitAbove : trustAbove;
}

} // namespace kelvadrome::TrustScreen
