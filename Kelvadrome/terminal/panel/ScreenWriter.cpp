#include "Kelvadrome/terminal/panel/ScreenWriter.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <algorithm>

namespace kelvadrome {

std::string ScreenWriter::line(int row, const StyledLine& line, int columns) const {
    std::string bytes = codes_.moveTo(row, 0);
    int column = 0;
    for (const auto& span : line) {
        const auto& style = codes_.styles.at(static_cast<std::size_t>(span.style));
        bytes += style;
        for (const auto& cluster : TerminalText::clusters(span.text)) {
            if (column + cluster.width > columns)
                break;
            bytes += cluster.text;
            column += cluster.width;
            if (cluster.doubtful && column < columns)
                bytes += codes_.moveTo(row, column);
        }
        if (!style.empty())
            bytes += codes_.reset;
    }
    // Behind a full line the cursor may stand on its last column, which would be cleared.
    return column < columns ? bytes + codes_.clearLine : bytes;
}

std::string ScreenWriter::draw(const Picture& picture, ScreenSize size) {
    std::string changed;
    shown_.resize(static_cast<std::size_t>(size.rows), {{"", Style::alert}}); // like no line of a picture
    for (std::size_t y = 0; y < shown_.size(); ++y) {
        const auto next = y < picture.lines.size() ? picture.lines[y] : StyledLine();
        if (shown_[y] == next)
            continue;
        changed += line(static_cast<int>(y), next, size.columns);
        shown_[y] = next;
    }
    auto bytes = changed.empty() ? std::string() : codes_.hideCursor + changed;
    if (picture.cursor)
        return bytes + codes_.moveTo(picture.cursor->row, picture.cursor->column) + codes_.showCursor;
    return bytes.empty() ? bytes : bytes + codes_.hideCursor;
}

} // namespace kelvadrome
