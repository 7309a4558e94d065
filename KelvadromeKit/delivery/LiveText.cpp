#include "KelvadromeKit/delivery/LiveText.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome::LiveText {

namespace {

constexpr char32_t bell = 7, escape = 27;
constexpr char32_t controlSequence = 155, stringTerminator = 156; // in one scalar

bool endsControlSequence(char32_t c) {
    return c >= 64 && c <= 126;
}

bool startsString(char32_t c) {
    return c == 144 || c == 152 || c == 157 || c == 158 || c == 159;
}

bool isLineBreakOrTab(char32_t c) {
    return (c >= 9 && c <= 13) || c == 133 || c == 0x2028 || c == 0x2029;
}

bool isDropped(char32_t c) {
    return c < 32 || (c >= 127 && c <= 159) || (c >= 0x200B && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2060 && c <= 0x2064) || (c >= 0x2066 && c <= 0x2069) || c == 0xFEFF;
}

/// The index after the first scalar from `i` on that ends the sequence; the text's end when none does.
template <class Ends>
std::size_t after(std::u32string_view text, std::size_t i, Ends ends) {
    while (i < text.size() && !ends(text[i]))
        ++i;
    return i < text.size() ? i + 1 : i;
}

/// The index after the sequence that ESC starts at `i`.
std::size_t afterEscape(std::u32string_view text, std::size_t i) {
    if (i + 1 == text.size())
        return text.size();
    const auto kind = text[i + 1];
    if (kind == '[')
        return after(text, i + 2, endsControlSequence);
    if (kind != 'P' && kind != 'X' && kind != ']' && kind != '^' && kind != '_')
        return i + 2;
    const auto end = after(text, i + 2, [](char32_t c) { return c == bell || c == escape; });
    // ESC ends a string together with the scalar after it.
    const bool byEscape = end > i + 2 && text[end - 1] == escape;
    return byEscape && end < text.size() ? end + 1 : end;
}

std::u32string plainScalars(std::u32string_view text) {
    std::u32string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto c = text[i];
        if (c == escape) {
            i = afterEscape(text, i);
        } else if (c == controlSequence) {
            i = after(text, i + 1, endsControlSequence);
        } else if (startsString(c)) {
            i = after(text, i + 1, [](char32_t s) { return s == bell || s == stringTerminator; });
        } else {
            if (isLineBreakOrTab(c)) {
                plain += U' ';
            } else if (!isDropped(c)) {
                plain += c;
            }
            ++i;
        }
    }
    return plain;
}

std::string withoutDoubledBlanks(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if (c != ' ' || !result.ends_with(' '))
            result += c;
    }
    return result;
}

} // namespace

std::optional<std::string> sanitize(std::string_view text) {
    const auto composed = Text::normalizedNFC(Text::fromScalars(plainScalars(Text::scalars(text))));
    const auto spaced = withoutDoubledBlanks(composed);
    const auto line = Text::trimWhitespace(spaced);
    if (line.empty() || Text::characterCount(line) > maxLength)
        return std::nullopt;
    // Judged by its first scalar: the agent's prompt does not care that a combining mark follows its "!".
    if (std::string_view("/!#&").find(line.front()) != std::string_view::npos)
        return std::nullopt;
    return std::string(line);
}

bool isFit(std::string_view text) {
    const auto clean = sanitize(text);
    return clean && Text::canonicallyEqual(*clean, text);
}

bool isMenuKey(std::string_view key) {
    return key.size() == 1 && std::string_view("123456789yan").find(key) != std::string_view::npos;
}

} // namespace kelvadrome::LiveText
