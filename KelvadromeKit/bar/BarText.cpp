#include "KelvadromeKit/bar/BarText.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome::BarText {

namespace {

constexpr bool isNewline(char32_t scalar) {
    return (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

} // namespace

std::string sanitize(std::string_view text) {
    const auto scalars = Text::scalars(text);
    if (std::ranges::none_of(scalars, isNewline))
        return std::string(text);
    std::u32string line;
    for (const char32_t scalar : scalars) {
        const char32_t next = isNewline(scalar) ? U' ' : scalar;
        if (next != U' ' || line.empty() || line.back() != U' ')
            line.push_back(next);
    }
    return Text::fromScalars(line);
}

} // namespace kelvadrome::BarText
