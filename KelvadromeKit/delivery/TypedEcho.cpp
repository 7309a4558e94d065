#include "KelvadromeKit/delivery/TypedEcho.h"

#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

namespace kelvadrome::TypedEcho {

namespace {

constexpr std::size_t tailLength = 16;    // letters and digits
constexpr std::size_t shortTail = 8;      // bytes, of letters and digits
constexpr std::size_t pastedLength = 200; // bytes; agents show no placeholder for less

/// Letters and digits alone: frames, marks, blanks and line ends come and go with the width of the pane.
std::string letters(std::string_view text) {
    static const RE2 other("[^\\p{L}\\p{N}]+");
    std::string result(text);
    RE2::GlobalReplace(&result, other, "");
    return result;
}

std::size_t count(std::string_view text, std::string_view part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

std::size_t placeholders(std::string_view screen) {
    return count(screen, "[Pasted text") + count(screen, "[Pasted Content");
}

} // namespace

bool stands(std::string_view text, std::string_view before, std::string_view after) {
    if (text.size() >= pastedLength && placeholders(after) > placeholders(before))
        return true;
    const auto whole = Text::scalars(letters(text));
    if (whole.empty())
        return before != after;
    const auto first = whole.size() - std::min(whole.size(), tailLength);
    const auto tail = Text::fromScalars(std::u32string_view(whole).substr(first));
    return count(letters(after), tail) > count(letters(before), tail);
}

std::optional<std::string> lastLine(std::string_view text, std::string_view screen) {
    const auto wanted = letters(text);
    std::optional<std::string> found;
    for (const auto line : Text::split(screen, '\n')) {
        // The text's end stands in it, or the line holds nothing but a piece of that end.
        const auto held = letters(line);
        const bool ends = held.size() >= shortTail && wanted.size() >= shortTail
                              ? held.find(wanted.substr(wanted.size() - shortTail)) != std::string::npos
                              : !held.empty() && (wanted.ends_with(held) || held.ends_with(wanted));
        if (ends)
            found = line;
    }
    return found;
}

bool offersChoice(std::string_view screen) {
    static const RE2 mark("(?m)^[^\\p{L}\\p{N}]*[❯›>▶●◉] *[^ \\n]");
    return RE2::PartialMatch(screen, mark);
}

} // namespace kelvadrome::TypedEcho
