#include "Kelvadrome/terminal/panel/TerminalKeys.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

constexpr char32_t escape = 0x1B;

Key keyOf(char32_t c) {
    switch (c) {
    case '\r':
    case '\n':
        return {Key::Kind::enter, {}};
    case '\t':
        return {Key::Kind::tab, {}};
    case 0x08:
    case 0x7F:
        return {Key::Kind::backspace, {}};
    case escape:
        return {Key::Kind::escape, {}};
    default:
        break;
    }
    if (c >= 1 && c <= 26)
        return {Key::Kind::control, std::string(1, static_cast<char>('a' + c - 1))};
    return {Key::Kind::text, Text::fromScalars(std::u32string_view(&c, 1))};
}

/// The place behind an escape sequence that begins at `at`.
std::size_t behindSequence(const std::vector<RawKey>& batch, std::size_t at) {
    const auto charAt = [&](std::size_t i) -> char32_t {
        const auto* c = i < batch.size() ? std::get_if<char32_t>(&batch[i]) : nullptr;
        return c ? *c : 0;
    };
    const char32_t second = charAt(at + 1);
    if (second == 'O' && charAt(at + 2) != 0)
        return at + 3;
    if (second != '[')
        return at + 2;
    std::size_t end = at + 2;
    while (charAt(end) >= 0x20 && charAt(end) <= 0x3F)
        ++end;
    return charAt(end) >= 0x40 && charAt(end) <= 0x7E ? end + 1 : end;
}

} // namespace

std::vector<Key> keysFrom(const std::vector<RawKey>& batch, bool& pasting) {
    std::vector<Key> keys;
    for (std::size_t at = 0; at < batch.size();) {
        if (const auto* known = std::get_if<Key::Kind>(&batch[at])) {
            if (*known == Key::Kind::pasteBegin || *known == Key::Kind::pasteEnd)
                pasting = *known == Key::Kind::pasteBegin;
            keys.push_back({*known, {}});
            ++at;
            continue;
        }
        const auto c = std::get<char32_t>(batch[at]);
        const bool sequence = c == escape && at + 1 < batch.size() &&
                              std::holds_alternative<char32_t>(batch[at + 1]) &&
                              std::get<char32_t>(batch[at + 1]) != escape;
        if (sequence) {
            at = behindSequence(batch, at);
            continue;
        }
        // Characters next to each other are one text, so that marks find what they stand on; pasted ones all.
        auto key = keyOf(c);
        const bool joins = key.kind == Key::Kind::text && (pasting || c >= 0x80) && !keys.empty() &&
                           keys.back().kind == Key::Kind::text;
        if (joins) {
            keys.back().text += key.text;
        } else if (c != 0) {
            keys.push_back(std::move(key));
        }
        ++at;
    }
    return keys;
}

} // namespace kelvadrome
