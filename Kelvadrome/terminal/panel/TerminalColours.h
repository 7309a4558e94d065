// Made from design/tokens.json by scripts/make-design.mjs; change it there.
#pragma once

/// Numbers among a terminal's 256 colours that can be read on white and on black.
namespace kelvadrome::TerminalColours {

inline constexpr short accent = 63;
inline constexpr short good = 29;
inline constexpr short alert = 131;
inline constexpr short dim = 243;
inline constexpr short warn = 130; // for a mark; words beside it keep the terminal’s own colour

} // namespace kelvadrome::TerminalColours
