#pragma once

#include "Kelvadrome/terminal/panel/PanelView.h"

#include <functional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The bytes that bring a terminal from one picture to the next: only the lines that differ. The terminal's
/// library would count the columns of joined emoji otherwise than terminals do, so each line is written from
/// its own start, and what follows such a cluster is put where it belongs. Pure; knows its terminal by its
/// codes.
class ScreenWriter {
public:
    /// How this terminal is told of things; what it lacks is empty.
    struct Codes {
        std::vector<std::string> styles; // one for each Style
        std::string reset;
        std::string clearLine; // from the cursor to its end
        std::string hideCursor;
        std::string showCursor;
        std::function<std::string(int row, int column)> moveTo;
    };

    explicit ScreenWriter(Codes codes) : codes_(std::move(codes)) {}

    std::string draw(const Picture& picture, ScreenSize size);
    /// What is on the screen isn't known any more.
    void forget() { shown_.clear(); }

private:
    std::string line(int row, const StyledLine& line, int columns) const;

    Codes codes_;
    StyledLines shown_;
};

} // namespace kelvadrome
