#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Whether a text that was typed stands on the agent's screen, so that Return sends it and nothing else.
namespace kelvadrome::TypedEcho {

/// The end of `text` stands once more on the screen `after` than it did `before`, however the agent wraps and
/// frames it; of a long text, the placeholder that an agent shows for what it takes as pasted. A text without
/// letters or digits stands when the screen has changed.
bool stands(std::string_view text, std::string_view before, std::string_view after);

/// The line of the screen that the text ends in; absent where none could be told.
std::optional<std::string> lastLine(std::string_view text, std::string_view screen);

/// A line of the screen carries a selection mark: Return would choose it.
bool offersChoice(std::string_view screen);

} // namespace kelvadrome::TypedEcho
