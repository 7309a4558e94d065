#include "KelvadromeKit/delivery/TypedEcho.h"

#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

#include <algorithm>
#include <set>
#include <vector>

namespace kelvadrome::TypedEcho {

namespace {

constexpr std::size_t tailLength = 16;    // letters and digits
constexpr std::size_t surelyOnce = 8;     // so many of them stand nowhere by chance
constexpr std::size_t pastedLength = 200; // bytes; agents show no placeholder for less

/// A line's letters and digits. All else (frames, marks, blanks) comes and goes with the width of the pane.
struct Letters {
    struct Place {
        std::size_t begin = 0, end = 0; // bytes of the line
    };
    std::string all;
    std::vector<Place> places; // one for each

    explicit Letters(std::string_view line) {
        static const RE2 next("([\\p{L}\\p{N}])");
        re2::StringPiece rest(line.data(), line.size());
        re2::StringPiece letter;
        while (RE2::FindAndConsume(&rest, next, &letter)) {
            const auto begin = static_cast<std::size_t>(letter.data() - line.data());
            places.push_back({begin, begin + letter.size()});
            all.append(letter.data(), letter.size());
        }
    }
};

std::string plain(std::string_view line) {
    static const RE2 colour("\x1b\\[[0-9;:]*m|\x0e|\x0f");
    std::string text(line);
    RE2::GlobalReplace(&text, colour, "");
    return text;
}

std::size_t count(std::string_view letters) {
    return Text::scalars(letters).size();
}

/// The last `length` letters.
std::string tailOf(std::string_view letters, std::size_t length) {
    const auto whole = Text::scalars(letters);
    return Text::fromScalars(
        std::u32string_view(whole).substr(whole.size() - std::min(whole.size(), length)));
}

/// What stands behind the mark of an input line, when something does.
std::string promptOf(std::string_view line) {
    static const RE2 prompt("^[^\\p{L}\\p{N}]*[❯›].*[\\p{L}\\p{N}]");
    return RE2::PartialMatch(line, prompt) ? Letters(line).all : "";
}

/// The number of letters of `line` up to the end of `tail`, which may have begun in the lines `above` it; 0
/// when it doesn't end there. A hint may stand behind it only where it is long enough to be told from one.
std::size_t lettersUpTo(const std::string& tail, std::string_view above, const Letters& line) {
    const auto joined = std::string(above) + line.all;
    if (joined.ends_with(tail))
        return line.places.size();
    const auto at = count(tail) < surelyOnce ? std::string::npos : joined.rfind(tail);
    if (at == std::string::npos || at + tail.size() <= above.size())
        return 0;
    return count(std::string_view(joined).substr(above.size(), at + tail.size() - above.size()));
}

std::optional<Ending> placeholder(const std::string& line) {
    static const RE2 form("(\\[Pasted (?:text|Content)[^\\]]*\\])");
    Ending ending{line, "", false};
    return RE2::PartialMatch(line, form, &ending.span) ? std::optional(ending) : std::nullopt;
}

} // namespace

std::optional<Ending> find(std::string_view text, std::string_view before, std::string_view after) {
    const Letters wanted(text);
    const auto tail = tailOf(wanted.all, tailLength);
    std::set<std::string_view> known;
    std::set<std::string> drafts;
    for (const auto line : Text::split(before, '\n')) {
        known.insert(line);
        if (const auto prompt = promptOf(plain(line)); !prompt.empty())
            drafts.insert(prompt + wanted.all);
    }

    std::optional<Ending> found;
    std::string above; // the end of what the lines above hold
    for (const auto line : Text::split(after, '\n')) {
        const auto shown = plain(line);
        const Letters letters(shown);
        const bool fresh = !known.contains(line);
        if (fresh && text.size() >= pastedLength) {
            if (auto pasted = placeholder(shown))
                found = std::move(pasted);
        }
        if (fresh && tail.empty() && shown.find(text) != std::string::npos)
            found = Ending{shown, std::string(text), false};
        const auto end = fresh && !tail.empty() ? lettersUpTo(tail, above, letters) : 0;
        if (end > 0) {
            const auto first = letters.places[end - std::min(end, wanted.places.size())].begin;
            const auto span = shown.substr(first, letters.places[end - 1].end - first);
            found = Ending{shown, span, drafts.contains(letters.all)};
        }
        above = tailOf(above + letters.all, tailLength);
    }
    return found;
}

bool showsMark(std::string_view screen) {
    static const RE2 mark("(?m)^[\\s|\\x{2500}-\\x{257F}]*[❯›>▶●◉]( |$)");
    return RE2::PartialMatch(plain(screen), mark);
}

} // namespace kelvadrome::TypedEcho
