#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// What may be typed into a terminal.
namespace kelvadrome::LiveText {

inline constexpr std::size_t maxLength = 4000; // characters

/// The text as one plain line: terminal sequences, controls and invisible marks dropped, line ends turned
/// into blanks, composed, without doubled or outer blanks. Absent when nothing is left, when it is longer
/// than `maxLength`, or when it starts as a command to the agent's own prompt would ("/", "!", "#", "&").
std::optional<std::string> sanitize(std::string_view text);

/// `sanitize` has nothing to change, canonically equivalent spellings aside. Other text is refused, never
/// repaired: what the user saw is what gets typed.
bool isFit(std::string_view text);

/// Exactly one of the keys 1 to 9, y, a and n.
bool isMenuKey(std::string_view key);

} // namespace kelvadrome::LiveText
