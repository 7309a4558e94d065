#include "KelvadromeKit/delivery/MenuScreen.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <span>

namespace kelvadrome::MenuScreen {

namespace {

constexpr std::size_t maxApart = 12;   // lines from one option to the next: a label that wraps, a description
constexpr std::size_t maxBelow = 14;   // lines that aren't blank below the last option, its own among them
constexpr std::size_t maxFrame = 4;    // columns that a frame and the blanks beside it take at the right
constexpr std::size_t maxMargin = 2;   // columns that a line leaves free where it is cut
constexpr std::size_t leastStem = 3;   // characters that say enough of a label that is cut
constexpr std::size_t shownWords = 60; // characters of a label in a refusal

/// The agents whose menus are read here, and how each marks the option that Return would take.
struct KnownScreen {
    std::string_view agent;
    std::vector<std::string_view> marks;
};
const KnownScreen knownScreens[] = {{"claude", {"❯", ">"}}, {"codex", {"›", ">"}}};

const KnownScreen* screenOf(std::string_view agent) {
    const auto found = std::ranges::find(knownScreens, agent, &KnownScreen::agent);
    return found == std::end(knownScreens) ? nullptr : found;
}

/// A line of a screen, and the option that begins there.
struct Line {
    std::string all;
    std::string text = {};  // without frame and blanks; of an option what follows its number
    std::string mark = {};  // of the option that is selected
    std::size_t number = 0; // of the option; 0 for none
    std::size_t column = 0; // where the number stands

    bool begins(std::size_t option, std::size_t at) const { return number == option && column == at; }
};

Line lineOf(std::string_view shown) {
    static const RE2 framed("^[\\s│┃|]*(.*?)[\\s\\x{a0}]*[│┃|]?\\s*$");
    static const RE2 rule("[\\s\\x{2500}-\\x{257F}]*");
    static const RE2 option("^([\\s│┃|]*(?:([❯›>])[\\s\\x{a0}]+)?)([1-9])\\.(?:[\\s\\x{a0}]+|$)");
    Line line{.all = std::string(shown)};
    if (!RE2::FullMatch(shown, rule))
        RE2::FullMatch(shown, framed, &line.text);
    std::string before, digit;
    if (!RE2::PartialMatch(shown, option, &before, &line.mark, &digit))
        return line;
    line.number = static_cast<std::size_t>(digit[0] - '0');
    line.column = Text::columns(before);
    const auto words = line.text.find(digit + ".") + 2;
    line.text = Text::trimWhitespace(std::string_view(line.text).substr(words));
    return line;
}

std::vector<Line> linesOf(std::string_view screen) {
    std::vector<Line> lines;
    for (const auto piece : Text::split(screen, '\n'))
        lines.push_back(lineOf(Text::repairUTF8(piece)));
    return lines;
}

/// What is compared of a text: its characters in one spelling. Blanks come and go where a line wraps, and
/// terminals leave out what has no width.
std::u32string folded(std::string_view text) {
    auto scalars = Text::scalars(Text::normalizedNFC(text));
    std::erase_if(scalars,
        [](char32_t c) { return Text::isWhitespace(c) || c == 0xfe0e || c == 0xfe0f || c == 0x200d; });
    std::ranges::replace(scalars, U'’', U'\'');
    return scalars;
}

/// The menu: its options' first lines, those of 1, 2, and so on.
using Menu = std::vector<std::span<const Line>::iterator>;

/// A line below the menu at which an agent takes text, or another choice.
bool takesKeys(const Line& line) {
    static const RE2 prompt("^[\\s│┃|]*[❯›>](?:[\\s\\x{a0}]|$)");
    return RE2::PartialMatch(line.all, prompt);
}

/// The options above and below the marked one, each at the column of its number, next to its neighbour. Empty
/// where another one has a mark too, or the first isn't there.
Menu optionsAround(std::span<const Line> lines, std::span<const Line>::iterator marked) {
    Menu menu{marked};
    const auto column = marked->column;
    std::size_t apart = 0;
    for (auto line = marked; menu.front()->number > 1 && line != lines.begin() && apart <= maxApart;
         ++apart) {
        --line;
        if (!line->begins(menu.front()->number - 1, column))
            continue;
        menu.insert(menu.begin(), line);
        apart = 0;
    }
    apart = 0;
    for (auto line = marked + 1; line != lines.end() && apart <= maxApart; ++line, ++apart) {
        if (!line->begins(menu.back()->number + 1, column))
            continue;
        menu.push_back(line);
        apart = 0;
    }
    const auto marks = std::ranges::count_if(menu, [](auto line) { return !line->mark.empty(); });
    return marks == 1 && menu.front()->number == 1 ? menu : Menu();
}

/// The menu to which the last mark on the screen belongs, when nothing that takes keys stands below it.
Menu lastMenu(std::span<const Line> lines, const KnownScreen& screen) {
    const auto isMarked = [&](const Line& line) {
        return line.number != 0 && std::ranges::find(screen.marks, line.mark) != screen.marks.end();
    };
    const auto last = std::find_if(lines.rbegin(), lines.rend(), isMarked);
    if (last == lines.rend())
        return {};
    auto menu = optionsAround(lines, last.base() - 1);
    if (menu.empty())
        return {};
    const std::span<const Line> below(menu.back() + 1, lines.end());
    const auto shown = std::ranges::count_if(below, [](const Line& line) { return !line.text.empty(); });
    const bool over = std::ranges::any_of(below, takesKeys) || shown > static_cast<std::ptrdiff_t>(maxBelow);
    return over ? Menu() : menu;
}

/// The words are the label's, or those with what an agent adds behind them: the key that chooses the option
/// too, or a tick at the one that holds now.
bool isLabel(std::string_view words, const std::u32string& label) {
    static const RE2 added("\\s*(?:\\((?:[a-z]|esc|enter|tab|(?:shift|ctrl)\\+[a-z]+)\\)|[✔✓])$");
    if (folded(words) == label)
        return true;
    std::string bare(words);
    return RE2::Replace(&bare, added, "") && folded(bare) == label;
}

/// What stands before the dots that say that a text goes on; nothing where there are none, or too little.
std::u32string stemOf(std::string_view text) {
    static const RE2 dots("(?:…|\\.\\.\\.)$");
    std::string stem(text);
    const bool cut = RE2::Replace(&stem, dots, "");
    const auto begin = cut ? folded(stem) : std::u32string();
    return begin.size() >= leastStem ? begin : std::u32string();
}

/// The columns of a line up to the end of its text.
std::size_t endOf(const Line& line) {
    return Text::columns(std::string_view(line.all).substr(0, line.all.rfind(line.text) + line.text.size()));
}

/// A text's beginning, as much of it as never stands in two lines.
std::string_view firstPiece(std::string_view text) {
    const auto first = Text::prefix(text, 1);
    return Text::columns(first) > 1 ? first : text.substr(0, text.find(' '));
}

/// The label may go on in the next line: what begins there had no place in this one.
bool mayGoOn(const Line& line, const Line& next, std::size_t columns) {
    return endOf(line) + 1 + Text::columns(firstPiece(next.text)) + maxFrame > columns;
}

/// The lines of an option up to the first that is blank, or a rule.
std::span<const Line> labelLines(std::span<const Line> option) {
    const auto end = std::ranges::find_if(option, [](const Line& line) { return line.text.empty(); });
    return {option.begin(), end};
}

/// The option's label is this one. It may wrap, and the agent, the pane's edge or the asker may have cut it;
/// below it a description may follow.
bool holds(std::span<const Line> option, std::size_t columns, std::string_view asked) {
    const auto label = folded(asked);
    const auto askedStem = stemOf(asked);
    // No label holds two blanks: what follows them describes it, or stands beside the menu.
    const auto gap = option.front().text.find("  ");
    if (gap != std::string::npos && isLabel(option.front().text.substr(0, gap), label))
        return true;
    const auto lines = labelLines(option);
    std::string words;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        words += (words.empty() ? "" : " ") + lines[i].text;
        const auto stem = stemOf(words);
        if ((!stem.empty() && label.starts_with(stem)) ||
            (!askedStem.empty() && folded(words).starts_with(askedStem)))
            return true;
        if (isLabel(words, label) && (i + 1 == lines.size() || !mayGoOn(lines[i], lines[i + 1], columns)))
            return true;
    }
    // Cut by the edge itself, and with nothing below in which it could go on.
    const auto begin = folded(option.front().text);
    return lines.size() == 1 && endOf(lines[0]) + maxMargin >= columns && begin.size() >= leastStem &&
           label.starts_with(begin);
}

std::string quoted(std::span<const Line> option, std::size_t columns) {
    const auto lines = labelLines(option);
    auto all = option.front().text;
    for (std::size_t i = 1; i < lines.size() && mayGoOn(lines[i - 1], lines[i], columns); ++i)
        all += " " + lines[i].text;
    const auto words = Text::prefix(all, shownWords);
    return fmt::format("\"{}{}\"", words, words.size() < all.size() ? "…" : "");
}

} // namespace

std::optional<Asked> askedBy(const DeliverJob& job) {
    if (!job.menu || job.screen || !screenOf(job.agent) || !job.steps || job.steps->size() != 1)
        return std::nullopt;
    const auto& step = job.steps->front();
    const auto number = Text::parseInteger(step.value);
    if (step.kind != DeliverStep::Kind::key || !number || *number < 1)
        return std::nullopt;
    return Asked{job.agent, *job.menu, static_cast<std::size_t>(*number)};
}

Seen look(std::string_view screen, std::size_t columns, const Asked& asked) {
    const auto* known = screenOf(asked.agent);
    const auto lines = linesOf(screen);
    const auto menu = known ? lastMenu(lines, *known) : Menu();
    if (menu.empty())
        return {"the menu is no longer on the screen"};
    if (asked.number > asked.options.size() || asked.number > menu.size())
        return {fmt::format("the menu on the screen has no option {}", asked.number)};

    const auto option = [&](std::size_t number) {
        const auto end = number < menu.size() ? menu[number] : std::span<const Line>(lines).end();
        return std::span<const Line>(menu[number - 1], end);
    };
    const auto holdsAsked = [&](std::size_t number) {
        return number <= asked.options.size() && holds(option(number), columns, asked.options[number - 1]);
    };
    const auto chosen = option(asked.number);
    if (!holdsAsked(asked.number))
        return {fmt::format("option {} on the screen is {}", asked.number, quoted(chosen, columns))};
    if (menu.size() < asked.options.size())
        return {
            fmt::format("the menu on the screen has {} options, not {}", menu.size(), asked.options.size())};
    const auto marked = std::ranges::find_if(menu, [](auto line) { return !line->mark.empty(); });
    if (!holdsAsked((*marked)->number))
        return {fmt::format(
            "on the screen {} is marked, which was not asked", quoted(option((*marked)->number), columns))};
    return {std::nullopt, {chosen.front().all, (*marked)->all}};
}

} // namespace kelvadrome::MenuScreen
