#include "Kelvadrome/terminal/panel/StyledText.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <algorithm>
#include <iterator>

namespace kelvadrome::StyledText {

namespace {

std::string blanks(int count) {
    return std::string(static_cast<std::size_t>(std::max(0, count)), ' ');
}

} // namespace

std::string plainText(const StyledLine& line) {
    std::string text;
    for (const auto& span : line)
        text += span.text;
    return text;
}

int widthOf(const StyledLine& line) {
    int width = 0;
    for (const auto& span : line)
        width += TerminalText::width(span.text);
    return width;
}

StyledLine cut(StyledLine line, int columns) {
    StyledLine result;
    int left = columns;
    for (auto& span : line) {
        const int width = TerminalText::width(span.text);
        const bool whole = width <= left;
        if (!whole)
            span.text = TerminalText::elide(span.text, left);
        left -= width;
        if (!span.text.empty())
            result.push_back(std::move(span));
        if (!whole)
            break; // nothing may follow the ellipsis
    }
    return result;
}

StyledLine spread(StyledLine left, StyledLine right, int columns) {
    right = cut(std::move(right), columns);
    const int rightWidth = widthOf(right);
    auto line = cut(std::move(left), std::max(0, columns - rightWidth - (rightWidth > 0 ? 2 : 0)));
    if (rightWidth == 0)
        return line;
    line.push_back({blanks(columns - widthOf(line) - rightWidth), Style::plain});
    std::ranges::move(right, std::back_inserter(line));
    return line;
}

StyledLine padded(StyledLine line, int columns) {
    line = cut(std::move(line), columns);
    const int gap = columns - widthOf(line);
    if (gap > 0)
        line.push_back({blanks(gap), Style::plain});
    return line;
}

void paragraph(
    StyledLines& out, const std::string& text, Style style, int indent, int columns, std::size_t limit) {
    auto lines = TerminalText::wrap(text, columns - indent);
    if (limit > 0 && lines.size() > limit) {
        lines.resize(limit);
        auto& last = lines.back();
        last = TerminalText::elide(last + " …", columns - indent);
    }
    for (auto& line : lines)
        out.push_back({{blanks(indent) + line, style}});
}

void notice(StyledLines& out, const std::string& text, int indent, int columns, std::size_t limit) {
    StyledLines lines;
    paragraph(lines, text, Style::plain, indent + 2, columns, limit);
    lines.front() = {{blanks(indent) + "! ", Style::mark},
        {lines.front().front().text.substr(static_cast<std::size_t>(indent) + 2), Style::plain}};
    append(out, std::move(lines));
}

void append(StyledLines& out, StyledLines more) {
    std::ranges::move(more, std::back_inserter(out));
}

StyledLine rule(int columns, const std::string& end) {
    std::string line;
    for (int i = TerminalText::width(end); i < columns; ++i)
        line += "─";
    return {{line + end, Style::dim}};
}

} // namespace kelvadrome::StyledText
