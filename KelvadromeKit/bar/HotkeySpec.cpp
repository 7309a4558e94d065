#include "KelvadromeKit/bar/HotkeySpec.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>

namespace kelvadrome {

namespace {

struct Modifier {
    std::string_view name;
    std::uint32_t bit;
    std::string_view symbol;
};

constexpr std::array modifierTable{
    Modifier{"Control", HotkeySpec::controlKey, "⌃"},
    Modifier{"Option", HotkeySpec::optionKey, "⌥"},
    Modifier{"Shift", HotkeySpec::shiftKey, "⇧"},
    Modifier{"Command", HotkeySpec::cmdKey, "⌘"},
};

constexpr std::array<std::pair<std::string_view, std::uint32_t>, 52> keyTable{{
    {"A", 0x00},
    {"S", 0x01},
    {"D", 0x02},
    {"F", 0x03},
    {"H", 0x04},
    {"G", 0x05},
    {"Z", 0x06},
    {"X", 0x07},
    {"C", 0x08},
    {"V", 0x09},
    {"B", 0x0B},
    {"Q", 0x0C},
    {"W", 0x0D},
    {"E", 0x0E},
    {"R", 0x0F},
    {"Y", 0x10},
    {"T", 0x11},
    {"1", 0x12},
    {"2", 0x13},
    {"3", 0x14},
    {"4", 0x15},
    {"6", 0x16},
    {"5", 0x17},
    {"9", 0x19},
    {"7", 0x1A},
    {"8", 0x1C},
    {"0", 0x1D},
    {"O", 0x1F},
    {"U", 0x20},
    {"I", 0x22},
    {"P", 0x23},
    {"L", 0x25},
    {"J", 0x26},
    {"K", 0x28},
    {"N", 0x2D},
    {"M", 0x2E},
    {"Return", 0x24},
    {"Tab", 0x30},
    {"Space", 0x31},
    {"Escape", 0x35},
    {"F1", 0x7A},
    {"F2", 0x78},
    {"F3", 0x63},
    {"F4", 0x76},
    {"F5", 0x60},
    {"F6", 0x61},
    {"F7", 0x62},
    {"F8", 0x64},
    {"F9", 0x65},
    {"F10", 0x6D},
    {"F11", 0x67},
    {"F12", 0x6F},
}};

const Modifier* modifierNamed(std::string_view name) {
    const auto* const found = std::ranges::find(modifierTable, name, &Modifier::name);
    return found == modifierTable.end() ? nullptr : found;
}

std::string uppercasedASCII(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return upper;
}

} // namespace

std::optional<std::uint32_t> HotkeySpec::keyCodeOf(std::string_view name) {
    const auto* const found =
        std::ranges::find(keyTable, name, [](const auto& entry) { return entry.first; });
    if (found == keyTable.end())
        return std::nullopt;
    return found->second;
}

std::optional<HotkeySpec> HotkeySpec::fromLabel(std::string_view label) {
    auto pieces = Text::split(label, ' ', Text::EmptyPieces::drop);
    if (pieces.empty())
        return std::nullopt;
    HotkeySpec spec;
    spec.key = std::string(pieces.back());
    if (!keyCodeOf(spec.key))
        spec.key = uppercasedASCII(spec.key);
    const auto code = keyCodeOf(spec.key);
    if (!code)
        return std::nullopt;
    spec.keyCode = *code;
    pieces.pop_back();
    for (const auto piece : pieces) {
        const auto* const modifier = modifierNamed(piece);
        if (!modifier)
            return std::nullopt;
        spec.modifiers |= modifier->bit;
    }
    if ((spec.modifiers & (controlKey | optionKey | cmdKey)) == 0)
        return std::nullopt;
    return spec;
}

HotkeySpec HotkeySpec::standard() {
    return *fromLabel("Control Option B");
}

std::string HotkeySpec::label() const {
    std::vector<std::string> words;
    for (const auto& modifier : modifierTable) {
        if (modifiers & modifier.bit)
            words.emplace_back(modifier.name);
    }
    words.push_back(key);
    return Text::join(words, " ");
}

std::vector<std::string> keycaps(std::string_view label) {
    std::vector<std::string> caps;
    for (const auto word : Text::split(label, ' ', Text::EmptyPieces::drop)) {
        const auto* const modifier = modifierNamed(word);
        caps.emplace_back(modifier ? modifier->symbol : word);
    }
    return caps;
}

} // namespace kelvadrome
