#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvadrome {

/// A global key with its modifiers, written "Control Option B". Key codes and bits are those of the wire's
/// own platform; each platform's end translates them.
struct HotkeySpec {
    static constexpr std::uint32_t cmdKey = 0x100;
    static constexpr std::uint32_t shiftKey = 0x200;
    static constexpr std::uint32_t optionKey = 0x800;
    static constexpr std::uint32_t controlKey = 0x1000;

    std::uint32_t keyCode = 0;
    std::uint32_t modifiers = 0; // of the four bits above
    std::string key;             // the key's name

    /// Absent for a label without a key that is known, with a word that is no modifier, or without one of
    /// Control, Option and Command. The case of modifiers matters, that of keys doesn't.
    static std::optional<HotkeySpec> fromLabel(std::string_view label);
    /// "Control Option B".
    static HotkeySpec standard();

    /// The modifiers in their fixed order, then the key.
    std::string label() const;

    /// The code of a key by its exact name.
    static std::optional<std::uint32_t> keyCodeOf(std::string_view name);

    auto operator<=>(const HotkeySpec&) const = default;
};

/// What is drawn on the keycaps of a label: symbols for the modifiers, every other word as it stands.
std::vector<std::string> keycaps(std::string_view label);

} // namespace kelvadrome
