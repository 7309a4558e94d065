#pragma once

#include "Kelvadrome/model/MenuPanel.h"
#include "Kelvadrome/terminal/panel/PanelInput.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What a piece of text means to the eye. Colour only ever repeats what a word or a mark says.
enum class Style { plain, dim, strong, accent, good, warn, alert };

struct Span {
    std::string text;
    Style style = Style::plain;

    bool operator==(const Span&) const = default;
};

using StyledLine = std::vector<Span>;
std::string plainText(const StyledLine& line);

struct ScreenSize {
    int rows = 0;
    int columns = 0;

    bool operator==(const ScreenSize&) const = default;
};

/// A login link on the screen.
struct PanelLink {
    std::string title;              // what it opens
    std::string url;                // empty while it is being made
    std::vector<std::string> notes; // below it

    bool operator==(const PanelLink&) const = default;
};

/// A message that waits for the user; with a second answer it is a question.
struct PanelAlert {
    std::string title;
    std::string text;
    std::string button;
    std::optional<std::string> refuse = {}; // of a question: the answer that changes nothing

    bool operator==(const PanelAlert&) const = default;
};

/// What the terminal shows beside the panel's content.
struct PanelExtras {
    std::optional<PanelLink> link;
    std::optional<PanelAlert> alert;
    std::optional<std::string> note; // from the terminal's own ends, such as a link that couldn't be made
};

/// A whole screen: exactly `rows` lines of at most `columns` columns.
struct Picture {
    struct Cursor {
        int row = 0;
        int column = 0;
    };

    std::vector<StyledLine> lines;
    std::optional<Cursor> cursor; // absent hides it
    int scroll = 0;               // of the body, as it came out
    int page = 0;                 // lines of the body that show
};

namespace PanelView {

inline constexpr ScreenSize smallest{10, 40};

/// Pure. Fits every size; below `smallest` it only says so.
Picture draw(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, ScreenSize size);

} // namespace PanelView

} // namespace kelvadrome
