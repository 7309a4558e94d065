#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Whether a text that was typed stands on the agent's screen, so that Return sends it and nothing else.
/// Screens are as tmux prints them with their colours: what an agent suggests in grey is another line than
/// what was typed.
namespace kelvadrome::TypedEcho {

/// Where the text ends on the screen.
struct Ending {
    std::string line; // all of it
    std::string span; // the part of the line that is the text's, from its first letter or digit to its last
    bool drafted = false; // something stood at the prompt before the text

    bool operator==(const Ending&) const = default;
};

/// The text's end in a line that `after` has and `before` has not, however the agent wraps and frames it; of
/// a long text also the placeholder that an agent shows for what it takes as pasted.
std::optional<Ending> find(std::string_view text, std::string_view before, std::string_view after);

/// A line of the screen begins with the mark of an input line or of a selection. So the program draws what it
/// is typed, or Return would choose something.
bool showsMark(std::string_view screen);

} // namespace kelvadrome::TypedEcho
