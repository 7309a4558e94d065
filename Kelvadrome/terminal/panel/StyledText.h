#pragma once

#include <string>
#include <vector>

namespace kelvadrome {

/// What a piece of text means to the eye. Colour only ever repeats what a word or a mark says; that of `mark`
/// isn't for words.
enum class Style { plain, dim, strong, accent, good, mark, alert };

struct Span {
    std::string text;
    Style style = Style::plain;

    bool operator==(const Span&) const = default;
};

using StyledLine = std::vector<Span>;
using StyledLines = std::vector<StyledLine>;

struct ScreenSize {
    int rows = 0;
    int columns = 0;

    bool operator==(const ScreenSize&) const = default;
};

/// Lines of text with styles, measured in the terminal's columns. Pure.
namespace StyledText {

std::string plainText(const StyledLine& line);
int widthOf(const StyledLine& line);
/// What fits of a line; what is cut off leaves an ellipsis.
StyledLine cut(StyledLine line, int columns);
/// Left and right text on one line; the left gives way.
StyledLine spread(StyledLine left, StyledLine right, int columns);
/// The line with blanks behind it, exactly `columns` wide.
StyledLine padded(StyledLine line, int columns);
/// Text in one style, wrapped behind an indent, at most `limit` lines when it isn't 0.
void paragraph(
    StyledLines& out, const std::string& text, Style style, int indent, int columns, std::size_t limit = 0);
/// The same behind a mark, for what the user should know before going on.
void notice(StyledLines& out, const std::string& text, int indent, int columns, std::size_t limit = 0);
void append(StyledLines& out, StyledLines more);
StyledLine rule(int columns, const std::string& end = {});

} // namespace StyledText

} // namespace kelvadrome
