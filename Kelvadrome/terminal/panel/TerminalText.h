#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Text as a terminal shows it, measured in columns. A character (grapheme cluster) is never cut; its width
/// is the sum of its scalars' widths as the C library has them, but for emoji of several scalars, which take
/// two columns together.
namespace kelvadrome::TerminalText {

/// Safe to show: what would move the cursor, start a control sequence or reorder the line, or isn't known
/// here, reads as U+FFFD; what has no look of its own is left out. Line feeds stay; a tab is a blank.
std::string clean(std::string_view text);
/// `clean` on a single line: runs of blanks and line feeds are one blank, none at the ends.
std::string cleanLine(std::string_view text);

int width(std::string_view text);

struct Cluster {
    std::string_view text;
    int width = 0;
    bool doubtful = false; // terminals disagree on its width
};
std::vector<Cluster> clusters(std::string_view text);

/// Lines of at most `columns`, broken after blanks and wide characters, inside a word only when it is longer
/// than a line. Empty lines stay; at least one line.
std::vector<std::string> wrap(std::string_view text, int columns);
/// One line of at most `columns`; what is cut off leaves an ellipsis.
std::string elide(std::string_view text, int columns);

} // namespace kelvadrome::TerminalText
