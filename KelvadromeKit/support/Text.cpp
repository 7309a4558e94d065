#include "KelvadromeKit/support/Text.h"

#include <simdjson.h>
#include <utf8proc.h>

#include <charconv>
#include <cstdlib>
#include <memory>

namespace kelvadrome::Text {

namespace {

constexpr char32_t replacement = 0xFFFD;

struct Decoded {
    char32_t scalar;
    std::size_t length;
    bool valid;
};

/// Reads one scalar at the front of `bytes` (not empty). For ill-formed input the length is that of the
/// maximal subpart: the longest start of a well-formed sequence, and at least one byte.
Decoded decodeOne(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned lead = at(0);
    if (lead < 0x80)
        return {lead, 1, true};
    std::size_t length = 0;
    unsigned low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0)
            low = 0xA0;
        if (lead == 0xED)
            high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0)
            low = 0x90;
        if (lead == 0xF4)
            high = 0x8F;
    } else {
        return {replacement, 1, false};
    }
    char32_t scalar = lead & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= bytes.size() || at(i) < low || at(i) > high)
            return {replacement, i, false};
        scalar = (scalar << 6) | (at(i) & 0x3F);
        low = 0x80, high = 0xBF;
    }
    return {scalar, length, true};
}

void append(std::string& text, char32_t scalar) {
    utf8proc_uint8_t bytes[4];
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), bytes);
    text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

template <class Map>
std::string mapScalars(std::string_view text, Map map) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto one = decodeOne(text.substr(i));
        append(result, map(one.scalar));
        i += one.length;
    }
    return result;
}

/// The byte offset at which the character after the one at `offset` begins.
std::size_t nextCharacter(std::string_view text, std::size_t offset) {
    auto one = decodeOne(text.substr(offset));
    auto end = offset + one.length;
    utf8proc_int32_t state = 0;
    auto previous = static_cast<utf8proc_int32_t>(one.scalar);
    while (end < text.size()) {
        one = decodeOne(text.substr(end));
        const auto next = static_cast<utf8proc_int32_t>(one.scalar);
        if (utf8proc_grapheme_break_stateful(previous, next, &state))
            break;
        previous = next;
        end += one.length;
    }
    return end;
}

std::size_t offsetOfCharacter(std::string_view text, std::size_t count) {
    std::size_t offset = 0;
    while (count > 0 && offset < text.size()) {
        offset = nextCharacter(text, offset);
        --count;
    }
    return offset;
}

char32_t upper(char32_t scalar) {
    return static_cast<char32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(scalar)));
}

char32_t lower(char32_t scalar) {
    return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar)));
}

template <class Drop>
std::string_view trim(std::string_view text, Drop drop) {
    while (!text.empty()) {
        const auto one = decodeOne(text);
        if (!drop(one.scalar))
            break;
        text.remove_prefix(one.length);
    }
    while (!text.empty()) {
        auto start = text.size() - 1;
        while (start > 0 && text.size() - start < 4 &&
               (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
            --start;
        }
        const auto one = decodeOne(text.substr(start));
        // Bytes behind the scalar are ill-formed, and no blank.
        if (start + one.length < text.size() || !drop(one.scalar))
            break;
        text.remove_suffix(one.length);
    }
    return text;
}

} // namespace

bool isValidUTF8(std::string_view bytes) {
    return simdjson::validate_utf8(bytes.data(), bytes.size());
}

std::string repairUTF8(std::string_view bytes) {
    if (isValidUTF8(bytes))
        return std::string(bytes);
    return mapScalars(bytes, [](char32_t scalar) { return scalar; });
}

std::u32string scalars(std::string_view text) {
    std::u32string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto one = decodeOne(text.substr(i));
        result.push_back(one.scalar);
        i += one.length;
    }
    return result;
}

std::string fromScalars(std::u32string_view scalars) {
    std::string result;
    result.reserve(scalars.size());
    for (const auto scalar : scalars)
        append(result, scalar);
    return result;
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t offset = 0; offset < text.size(); ++count)
        offset = nextCharacter(text, offset);
    return count;
}

std::string_view prefix(std::string_view text, std::size_t count) {
    return text.substr(0, offsetOfCharacter(text, count));
}

std::string_view dropFirst(std::string_view text, std::size_t count) {
    return text.substr(offsetOfCharacter(text, count));
}

std::size_t columns(std::string_view text) {
    std::size_t count = 0;
    for (const auto scalar : scalars(text))
        count += static_cast<std::size_t>(utf8proc_charwidth(static_cast<utf8proc_int32_t>(scalar)));
    return count;
}

std::string normalizedNFC(std::string_view text) {
    utf8proc_uint8_t* mapped = nullptr;
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
        static_cast<utf8proc_ssize_t>(text.size()), &mapped,
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
    if (length < 0)
        return std::string(text);
    return std::string(reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length));
}

bool canonicallyEqual(std::string_view left, std::string_view right) {
    return left == right || normalizedNFC(left) == normalizedNFC(right);
}

std::string lowercased(std::string_view text) {
    return mapScalars(text, lower);
}

std::string lowercasedASCII(std::string_view text) {
    std::string result(text);
    for (auto& letter : result) {
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    }
    return result;
}

std::string uppercasedFirst(std::string_view text) {
    const auto first = prefix(text, 1);
    return mapScalars(first, upper).append(text.substr(first.size()));
}

std::string capitalized(std::string_view text) {
    bool inWord = false;
    return mapScalars(text, [&](char32_t scalar) {
        const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
        const bool letter = category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO;
        const auto mapped = letter && !inWord ? upper(scalar) : lower(scalar);
        inWord = letter || scalar == '\'' || (inWord && category == UTF8PROC_CATEGORY_MN);
        return mapped;
    });
}

bool isWhitespace(char32_t scalar) {
    if (scalar >= 9 && scalar <= 13)
        return true;
    if (scalar == 0x85)
        return true;
    const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

std::string_view trimBlanks(std::string_view text) {
    return trim(text, [](char32_t scalar) { return scalar == ' ' || scalar == '\t'; });
}

std::string_view trimWhitespace(std::string_view text) {
    return trim(text, isWhitespace);
}

std::vector<std::string_view> split(
    std::string_view text, char separator, EmptyPieces empty, std::size_t maxSplits) {
    std::vector<std::string_view> pieces;
    const bool drop = empty == EmptyPieces::drop;
    std::size_t splits = 0;
    while (splits < maxSplits) {
        const auto at = text.find(separator);
        if (at == std::string_view::npos)
            break;
        const auto piece = text.substr(0, at);
        text.remove_prefix(at + 1);
        if (drop && piece.empty())
            continue;
        pieces.push_back(piece);
        ++splits;
    }
    if (drop && splits == maxSplits) {
        // What follows the last cut is one piece, without the separators that lead it.
        while (!text.empty() && text.front() == separator)
            text.remove_prefix(1);
    }
    if (!drop || !text.empty())
        pieces.push_back(text);
    return pieces;
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string result;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0)
            result += separator;
        result += pieces[i];
    }
    return result;
}

std::string replaceAll(std::string_view text, std::string_view what, std::string_view with) {
    std::string result;
    result.reserve(text.size());
    for (auto at = text.find(what); at != std::string_view::npos; at = text.find(what)) {
        result.append(text.substr(0, at)).append(with);
        text.remove_prefix(at + what.size());
    }
    return result.append(text);
}

std::string_view lastPathComponent(std::string_view path) {
    const auto pieces = split(path, '/', EmptyPieces::drop);
    return pieces.empty() ? path : pieces.back();
}

std::optional<std::int64_t> parseInteger(std::string_view text, int base) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

} // namespace kelvadrome::Text
